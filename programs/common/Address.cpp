#include "programs/common/Address.h"

#include <netdb.h>
#include <netinet/in.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

#include "platform/SCA_TcpSock.h"
#include "programs/common/Escape.h"

namespace {

// A lone IPv6 address has more colons than one; the last of them is no separator.
bool IsBareHost(const std::string& text) {
  if (text.empty()) return false;
  if (text.front() == '[') return text.back() == ']';
  return std::count(text.begin(), text.end(), ':') != 1;
}

std::string Unbracketed(const std::string& host) {
  const bool hasBrackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
  return hasBrackets ? host.substr(1, host.size() - 2) : host;
}

bool BeginsWithScheme(const std::string& text, const char* scheme) {
  const std::string prefix = std::string(scheme) + "://";
  return ::strncasecmp(text.c_str(), prefix.c_str(), prefix.size()) == 0;
}

// @return 0 for what is no port.
unsigned long PortNumber(const std::string& text) {
  const bool isNumber = !text.empty() && text.size() <= 5 &&
                        text.find_first_not_of("0123456789") == std::string::npos;
  const unsigned long number = isNumber ? std::stoul(text) : 0;
  return number <= 65535 ? number : 0;
}

// The text may hold a password, and messages end in logs: it is not repeated.
std::string RefuseAccount(const std::string& text) {
  if (text.find('@') == std::string::npos) return {};
  return "an address has no account or password before '@': name the host and the port alone, such "
         "as 127.0.0.1:9998";
}

}  // namespace

std::string ParseHostPort(const std::string& text, unsigned short defaultPort, HostPort* address) {
  if (std::string complaint = RefuseAccount(text); !complaint.empty()) return complaint;
  const bool isBare = defaultPort != 0 && IsBareHost(text);
  const std::size_t colon = isBare ? std::string::npos : text.rfind(':');
  const std::string host = Unbracketed(text.substr(0, colon));
  const unsigned long port =
      isBare ? defaultPort : PortNumber(colon == std::string::npos ? "" : text.substr(colon + 1));
  if (host.empty() || host.size() > 259 || port == 0) {
    return Quoted(text) + " is not host:port, such as 127.0.0.1:" +
           std::to_string(defaultPort != 0 ? defaultPort : 9998);
  }
  *address = {host, static_cast<unsigned short>(port)};
  return {};
}

std::string ParseServerAddress(const std::string& text, unsigned short defaultPort,
                               HostPort* address) {
  if (std::string complaint = RefuseAccount(text); !complaint.empty()) return complaint;
  if (BeginsWithScheme(text, "https")) {
    return Quoted(text) + " cannot be used: Tika servers are reached without TLS, by http";
  }
  if (!BeginsWithScheme(text, "http")) return ParseHostPort(text, defaultPort, address);
  constexpr unsigned short kHttpPort = 80;
  const std::string place = text.substr(std::strlen("http://"));
  const std::size_t slash = place.find('/');
  if (slash != std::string::npos && slash + 1 != place.size()) {
    return Quoted(text) + " has a path: name the server alone, as http://" +
           Printable(place.substr(0, slash)) + "/";
  }
  return ParseHostPort(place.substr(0, slash), kHttpPort, address);
}

std::string FormatHostPort(const HostPort& address) {
  char text[SCA_HostPortSize];
  SCA_FormatHostPort(address.host.c_str(), address.port, text, sizeof text);
  return text;
}

std::vector<std::string> ResolveHost(const std::string& host) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0) return {};
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
  std::vector<std::string> v4;
  std::vector<std::string> v6;
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    std::array<char, NI_MAXHOST> text{};
    if (::getnameinfo(entry->ai_addr, entry->ai_addrlen, text.data(), text.size(), nullptr, 0,
                      NI_NUMERICHOST) != 0) {
      continue;
    }
    std::string address = text.data();
    if (address == "::1") address = "127.0.0.1";
    const std::string mapped = "::ffff:";
    if (address.rfind(mapped, 0) == 0) address.erase(0, mapped.size());
    std::vector<std::string>& list = address.find(':') == std::string::npos ? v4 : v6;
    if (std::find(list.begin(), list.end(), address) == list.end()) list.push_back(address);
  }
  return v4.empty() ? v6 : v4;
}
