/// Addresses as a person gives them.
#ifndef SCA_PROGRAMS_COMMON_ADDRESS_H
#define SCA_PROGRAMS_COMMON_ADDRESS_H

#include <string>
#include <vector>

struct HostPort {
  std::string host;  ///< name or address, 1 to 259 bytes; an IPv6 address without brackets
  unsigned short port = 0;
};

/// Splits "host:port"; an IPv6 address stands in brackets. An account is refused, and not repeated.
/// @param defaultPort  Used when there is only a "host"; 0 makes the port required.
/// @return A complaint, or nothing.
std::string ParseHostPort(const std::string& text, unsigned short defaultPort, HostPort* address);

/// Reads the address of a Tika server: "host:port", "host" or "http://host:port/". A URL without a
/// port means port 80, as everywhere.
/// @param defaultPort  Used when there is only a "host"; > 0.
/// @return A complaint, or nothing.
std::string ParseServerAddress(const std::string& text, unsigned short defaultPort,
                               HostPort* address);

/// @return "host:port", with brackets where they are needed.
std::string FormatHostPort(const HostPort& address);

/// Looks a host name up. A machine that has an IPv4 and an IPv6 address would count twice, so those
/// of IPv6 count where there is no other one alone, and the loopback of IPv6 is that of IPv4.
/// @return The addresses; empty when the name is not known.
std::vector<std::string> ResolveHost(const std::string& host);

#endif  // SCA_PROGRAMS_COMMON_ADDRESS_H
