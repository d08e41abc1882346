/// Whether a Tika server answers.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_SERVERPROBE_H
#define SCA_PROGRAMS_TIKAEXTRACT_SERVERPROBE_H

#include <string>

#include "platform/SCA_Sync.h"

/// Asks a server for its version, for a few seconds at most.
/// @param cancel  Ends the waits; not owned.
/// @return Its name with the version; empty when it does not answer.
std::string AskTikaVersion(const char* host, unsigned short port, SCA_Event* cancel);

#endif  // SCA_PROGRAMS_TIKAEXTRACT_SERVERPROBE_H
