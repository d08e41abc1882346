#include "platform/SCA_FreePort.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <exception>
#include <random>

#include "platform/posix/SCA_Posix.h"

namespace {

constexpr int kFirstPort = 20000;
constexpr int kLastPort = 32000;
constexpr int kTries = 1000;

// @param reuse  1 disregards connections that are still ending.
bool CanBind(unsigned short port, in_addr_t host, int reuse) {
  const SCA_Fd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.IsOpen()) return false;
  if (::setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse) != 0) return false;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(host);
  return ::bind(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

unsigned short SCA_FindFreePort() try {
  std::random_device random;
  std::uniform_int_distribution<int> distribution(kFirstPort, kLastPort);
  for (int tries = 0; tries < kTries; ++tries) {
    const auto port = static_cast<unsigned short>(distribution(random));
    if (CanBind(port, INADDR_LOOPBACK, 0)) return port;
  }
  return 0;
} catch (const std::exception&) {  // there is no source of random numbers
  return 0;
}

int SCA_IsPortFree(unsigned short port) {
  return CanBind(port, INADDR_ANY, 1) ? 1 : 0;
}
