/// Inside of the client: how a step of an extraction ended.
#ifndef SCA_CLIENT_SCA_TIKASTEP_H
#define SCA_CLIENT_SCA_TIKASTEP_H

#include "platform/SCA_Error.h"

/// Its kind decides about counters and validity flag, once, at the end of the extraction.
struct [[nodiscard]] SCA_TikaStep {
  enum class Kind {
    Done,
    Cancelled,  ///< nobody's fault: counted nowhere
    Failed,     ///< an error that says nothing against the connection
    Broken      ///< an error after which the connection cannot be trusted
  };
  Kind kind;
  unsigned long code;

  static SCA_TikaStep Done() { return {Kind::Done, 0}; }
  static SCA_TikaStep Cancelled() { return {Kind::Cancelled, SCA_ErrorCancelled}; }
  static SCA_TikaStep Failed(unsigned long code) { return {Kind::Failed, code}; }
  static SCA_TikaStep Broken(unsigned long code) { return {Kind::Broken, code}; }
  /// A socket operation that the cancel event ended is a cancel, not a failure.
  static SCA_TikaStep FromSocket(unsigned long code) {
    return code == SCA_ErrorCancelled ? Cancelled() : Broken(code);
  }

  bool IsDone() const { return kind == Kind::Done; }
};

#endif  // SCA_CLIENT_SCA_TIKASTEP_H
