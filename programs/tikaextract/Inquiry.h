/// Asks why a server has refused a document: its refusal alone does not tell.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_INQUIRY_H
#define SCA_PROGRAMS_TIKAEXTRACT_INQUIRY_H

#include <chrono>
#include <map>
#include <optional>
#include <string>

#include "client/SCA_TikaMetadata.h"
#include "client/SCA_TikaVersion.h"
#include "platform/SCA_Sync.h"
#include "programs/tikaextract/RequestChoice.h"
#include "settings/SCA_TikaConfigOrv.h"

/// Why there is no text.
struct Reason {
  SCA_TikaFinding finding = SCA_TikaFinding::Damaged;
  std::string cause;
  SCA_TikaMetadata metadata;  ///< of the document; its type is known even then
};

/// The server that has refused a document parses it once more and answers with metadata, in which
/// it notes the exception. A server that could not be reached or did not answer in time is not
/// asked for a minute. Threads: one.
class Inquiry {
 public:
  using Duration = std::chrono::steady_clock::duration;

  /// The document has been parsed before, up to the failure: this is generous.
  static constexpr std::chrono::seconds kLongest{20};

  /// @param cancel   Ends an inquiry; not owned, as the choice. A manual-reset event.
  /// @param longest  What an inquiry takes at most, from the connection to the end of the answer.
  Inquiry(const RequestChoice& choice, SCA_Event* cancel, Duration longest = kLongest);

  /// The caller waits while it asks: inquiries may take 5 seconds, and from then on a tenth of the
  /// time. The last one may exceed that.
  bool HasTime();

  /// @param server  The one that refused it, as host:port.
  /// @param path    Of the document's bytes.
  /// @param name    Of the document.
  /// @return Nothing when the server does not tell.
  std::optional<Reason> Ask(const std::string& server, const std::string& path,
                            const std::string& name);

 private:
  using Clock = std::chrono::steady_clock;

  bool IsMute(const std::string& server);

  const RequestChoice& choice_;
  SCA_Event* const cancel_;
  const Duration longest_;
  SCA_TikaConfigOrv settings_;
  std::map<std::string, SCA_TikaVersion> versions_;  // by server
  std::map<std::string, Clock::time_point> mute_;    // servers that are left alone until then
  Duration credit_;                                  // time that inquiries may take
  Clock::time_point creditedAt_ = Clock::now();
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_INQUIRY_H
