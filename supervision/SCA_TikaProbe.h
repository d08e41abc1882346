/// Asks a Tika server whether it answers, with which version and how fast, and whether it extracts.
/// Threads: any thread may ask; questions do not disturb each other.
#ifndef SCA_SUPERVISION_SCA_TIKAPROBE_H
#define SCA_SUPERVISION_SCA_TIKAPROBE_H

#include "platform/SCA_Object.h"
#include "platform/SCA_Sync.h"

/// What a server answered.
struct SCA_TikaAnswer {
  char version[101] = "";         ///< its name with the version, without control bytes; not empty
  unsigned long long timeMs = 0;  ///< from the start of the connection to the whole answer
};

/// A server's address with the time that an answer may take. Reports nothing and throws nothing.
class SCA_API SCA_TikaProbe : public SCA_Object {
 public:
  /// @param host     Name or numeric address, 1 to 259 bytes, or the probe is not valid; copied.
  /// @param limitMs  For name resolution, connection and answer together, however slowly the answer
  ///                 trickles in. In milliseconds, > 0.
  SCA_TikaProbe(const char* host, unsigned short port, unsigned long limitMs);

  /// Asks the server for its version, on a connection of its own.
  /// @param cancel  Ends the question within 100 ms; not owned, may be null.
  /// @param answer  Receives the answer; untouched on failure.
  /// @param error   `ETIMEDOUT`, `SCA_ErrorCancelled`, `SCA_ErrorInvalidData` for an answer that is
  ///                no version, the HTTP status of a refusal, or the socket's code.
  /// @return 1 when it answered, else 0.
  int Ask(SCA_Event* cancel, SCA_TikaAnswer* answer, unsigned long* error) const;

  /// Has a server of Tika 4 or later extract a document of a few bytes. Such a server answers
  /// `Ask` before it can extract, and starts the process that does so with its first document.
  /// @param error  As for `Ask`; `SCA_ErrorInvalidData` too when the text is not that of the
  ///               document.
  /// @return 1 when it gave the document's text, else 0.
  int TryDocument(SCA_Event* cancel, unsigned long* error) const;

 private:
  char host_[260] = "";
  const unsigned short port_;
  const unsigned long limitMs_;
};

#endif  // SCA_SUPERVISION_SCA_TIKAPROBE_H
