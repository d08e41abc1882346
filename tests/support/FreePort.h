/// Ports of loopback for programs that are told theirs.
#ifndef SCA_TESTS_SUPPORT_FREEPORT_H
#define SCA_TESTS_SUPPORT_FREEPORT_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>

/// @return A socket on which `use` of bind or connect to a port of 127.0.0.1 succeeded, or -1.
template <class Use>
int LoopbackSocket(unsigned short port, Use use) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (use(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
  ::close(fd);
  return -1;
}

/// @return A listening socket on a port of 127.0.0.1, or -1 when that is taken.
inline int ListenOnLoopback(unsigned short port) {
  const int fd = LoopbackSocket(port, ::bind);
  if (fd >= 0) ::listen(fd, 16);
  return fd;
}

/// @return A connected socket, or -1.
inline int ConnectToLoopback(unsigned short port) {
  return LoopbackSocket(port, ::connect);
}

inline bool IsFreeOnLoopback(int port) {
  const int fd = ListenOnLoopback(static_cast<unsigned short>(port));
  if (fd >= 0) ::close(fd);
  return fd >= 0;
}

/// @return The first of some ports in a row that were free a moment ago, below those that the
///         system gives to connections: they stay free until somebody draws the same.
inline unsigned short FreePorts(int count) {
  std::random_device random;
  std::uniform_int_distribution<int> range(10000, 32000);
  for (;;) {
    const int first = range(random);
    int found = 0;
    while (found < count && IsFreeOnLoopback(first + found)) ++found;
    if (found == count) return static_cast<unsigned short>(first);
  }
}

inline unsigned short FreePort() {
  return FreePorts(1);
}

#endif  // SCA_TESTS_SUPPORT_FREEPORT_H
