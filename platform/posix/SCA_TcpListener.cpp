#include "platform/SCA_TcpListener.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <cstdint>

#include "platform/SCA_Fail.h"
#include "platform/posix/SCA_Posix.h"

namespace {

constexpr int kBacklog = 128;

struct Address {
  sockaddr_storage storage{};
  socklen_t length = 0;
};

Address MakeAddress(int family, bool isLoopback, unsigned short port) {
  Address address;
  if (family == AF_INET) {
    auto& v4 = reinterpret_cast<sockaddr_in&>(address.storage);
    v4.sin_family = AF_INET;
    v4.sin_addr.s_addr = htonl(isLoopback ? INADDR_LOOPBACK : INADDR_ANY);
    v4.sin_port = htons(port);
    address.length = sizeof v4;
  } else {
    auto& v6 = reinterpret_cast<sockaddr_in6&>(address.storage);
    v6.sin6_family = AF_INET6;
    v6.sin6_addr = in6addr_any;
    v6.sin6_port = htons(port);
    address.length = sizeof v6;
  }
  return address;
}

// A listening socket, or a closed one with errno set.
SCA_Fd Listen(int family, bool isLoopback, unsigned short port) {
  SCA_Fd fd(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.IsOpen()) return fd;
  // A port whose last connections are still being wound up can be taken at once.
  const int on = 1;
  ::setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const int off = 0;
  if (family == AF_INET6) {
    ::setsockopt(fd.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
  }
  const Address address = MakeAddress(family, isLoopback, port);
  if (::bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address.storage), address.length) != 0 ||
      ::listen(fd.Get(), kBacklog) != 0) {
    const int code = errno;
    fd.Reset();
    errno = code;
  }
  return fd;
}

unsigned short PortOf(int fd) {
  Address address;
  address.length = sizeof address.storage;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address.storage), &address.length);
  // The port stands at the same place in both families.
  return ntohs(reinterpret_cast<const sockaddr_in&>(address.storage).sin_port);
}

// A peer that has vanished without a word is noticed after two minutes.
void SetUpConnection(int fd) {
  const int on = 1;
  const int idleSeconds = 60;
  const int intervalSeconds = 20;
  const int probes = 3;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  ::setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
  ::setsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &idleSeconds, sizeof idleSeconds);
  ::setsockopt(fd, IPPROTO_TCP, TCP_KEEPINTVL, &intervalSeconds, sizeof intervalSeconds);
  ::setsockopt(fd, IPPROTO_TCP, TCP_KEEPCNT, &probes, sizeof probes);
}

}  // namespace

SCA_TcpListener::SCA_TcpListener() : wakeFd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  SetValid(wakeFd_ >= 0 ? 1 : 0);
}

SCA_TcpListener::~SCA_TcpListener() {
  SCA_Fd listener(fd_);
  SCA_Fd wake(wakeFd_);
}

int SCA_TcpListener::Open(SCA_ListenScope scope, unsigned short port, unsigned long* error) {
  const bool isLoopback = scope == SCA_ListenScope::Loopback;
  SCA_Fd fd = Listen(isLoopback ? AF_INET : AF_INET6, isLoopback, port);
  const bool lacksV6 = !fd.IsOpen() && (errno == EAFNOSUPPORT || errno == EADDRNOTAVAIL);
  if (!isLoopback && lacksV6) fd = Listen(AF_INET, isLoopback, port);
  if (!fd.IsOpen()) return SCA_Fail(SCA_SystemError(), error);
  port_ = PortOf(fd.Get());
  SCA_Fd former(std::exchange(fd_, fd.Release()));
  return 1;
}

void SCA_TcpListener::Close() {
  SCA_Fd closing(std::exchange(fd_, -1));
}

int SCA_TcpListener::Accept(int* handle, unsigned long* error) {
  for (;;) {
    pollfd entries[2] = {{fd_, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
    if (SCA_Retry([&] { return ::poll(entries, 2, -1); }) < 0) {
      return SCA_Fail(SCA_SystemError(), error);
    }
    std::uint64_t wakes = 0;
    if (entries[1].revents != 0 && ::read(wakeFd_, &wakes, sizeof wakes) > 0) {
      return SCA_Fail(EINTR, error);
    }
    if (entries[0].revents == 0) continue;
    const int fd =
        SCA_Retry([&] { return ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK); });
    if (fd >= 0) {
      SetUpConnection(fd);
      *handle = fd;
      return 1;
    }
    // A peer may have gone before it was accepted.
    if (errno != EAGAIN && errno != ECONNABORTED) return SCA_Fail(SCA_SystemError(), error);
  }
}

void SCA_TcpListener::Wake() {
  const std::uint64_t one = 1;
  // It fails only when as many wakes are pending as fit.
  [[maybe_unused]] const ssize_t written = ::write(wakeFd_, &one, sizeof one);
}
