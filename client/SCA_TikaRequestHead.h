/// Inside of the client: what the options of a request become in its header, by the version of the
/// server.
/// Threads: plain data.
#ifndef SCA_CLIENT_SCA_TIKAREQUESTHEAD_H
#define SCA_CLIENT_SCA_TIKAREQUESTHEAD_H

#include <string>

#include "client/SCA_TikaVersion.h"

/// The lines of a request that its options decide.
struct SCA_TikaRequestHead {
  const char* path = "/tika";
  const char* accept = "text/plain";
  std::string fields;         ///< further lines, each ended by CR LF; the password may be in them
  unsigned long ignored = 0;  ///< options of which the server takes no notice; nothing is sent
  unsigned long refused = 0;  ///< options for which the request must not be sent
};

/// @return The head of a request for plain text without options; static storage.
const SCA_TikaRequestHead& SCA_TikaPlainHead(const SCA_TikaVersion& version);

/// @param options  That have passed their check. Throws std::bad_alloc.
SCA_TikaRequestHead SCA_MakeRequestHead(const SCA_TikaRequestOptions& options,
                                        const SCA_TikaVersion& version);

#endif  // SCA_CLIENT_SCA_TIKAREQUESTHEAD_H
