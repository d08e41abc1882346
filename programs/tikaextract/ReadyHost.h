/// The service host of this machine, for a run that names no servers.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_READYHOST_H
#define SCA_PROGRAMS_TIKAEXTRACT_READYHOST_H

#include <string>

/// Looks for a host of this machine whose account can be trusted and that has a server that
/// answers. Takes a few milliseconds, and some seconds where a host hangs.
/// @param path  Receives the path of its control socket.
/// @return Why there is none, or nothing.
std::string FindReadyHost(std::string* path);

#endif  // SCA_PROGRAMS_TIKAEXTRACT_READYHOST_H
