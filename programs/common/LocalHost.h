/// The service host of this machine, which its operators reach over a Unix socket without a key.
#ifndef SCA_PROGRAMS_COMMON_LOCALHOST_H
#define SCA_PROGRAMS_COMMON_LOCALHOST_H

#include <functional>
#include <string>

#include "programs/common/Address.h"

/// The word that names it, and the name of its socket in the host's data directory.
constexpr char kLocalHost[] = "local";
constexpr char kControlSocket[] = "control.socket";

/// @return True for a host that is reached over a socket: the word, and a socket's path.
bool IsLocalHost(const std::string& host);

/// Splits the address of a service host: "host:port", "host", "local", or the path of its socket.
/// @param address  For the last two the port is the default one, and means nothing.
/// @return A complaint, or nothing.
std::string ParseServiceAddress(const std::string& text, unsigned short defaultPort,
                                HostPort* address);

/// @return "host:port", or what names a host of this machine.
std::string FormatServiceAddress(const HostPort& address);

/// Looks for the service host of this machine: the account's own one, then the installed one where
/// the first is not there. One that is there and cannot be connected to ends the search.
/// @param connect  Tries the socket at a path. @return An error code, or 0.
/// @param path     Receives the first socket that could be connected to.
/// @return A complaint that says what was tried, or nothing.
std::string FindLocalHost(const std::function<unsigned long(const std::string& path)>& connect,
                          std::string* path);

#endif  // SCA_PROGRAMS_COMMON_LOCALHOST_H
