/// Asks why a server has refused a document: its refusal alone does not tell.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_INQUIRY_H
#define SCA_PROGRAMS_TIKAEXTRACT_INQUIRY_H

#include <map>
#include <optional>
#include <set>
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
/// it notes the exception. A server that could not answer is not asked again.
/// Threads: one.
class Inquiry {
 public:
  /// @param cancel  Ends an inquiry; not owned, as the choice.
  Inquiry(const RequestChoice& choice, SCA_Event* cancel);

  /// @param server  The one that refused it, as host:port.
  /// @param path    Of the document's bytes.
  /// @param name    Of the document.
  /// @return Nothing when the server does not tell.
  std::optional<Reason> Ask(const std::string& server, const std::string& path,
                            const std::string& name);

 private:
  const RequestChoice& choice_;
  SCA_Event* const cancel_;
  SCA_TikaConfigOrv settings_;
  std::map<std::string, SCA_TikaVersion> versions_;  // by server
  std::set<std::string> mute_;                       // servers that do not tell
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_INQUIRY_H
