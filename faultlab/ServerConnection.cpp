#include "faultlab/ServerConnection.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace {

[[noreturn]] void Throw(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

int MakeEvent() {
  const int fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (fd < 0) Throw("cannot create an event");
  return fd;
}

}  // namespace

StopSignal::StopSignal() : fd_(MakeEvent()) {}

StopSignal::~StopSignal() {
  ::close(fd_);
}

void StopSignal::Set() {
  isSet_.store(true);
  const eventfd_t one = 1;
  static_cast<void>(::eventfd_write(fd_, one));
}

ServerConnection::~ServerConnection() {
  ::close(fd_);
}

bool ServerConnection::WaitFor(short events, int timeoutMs) {
  pollfd entries[] = {{fd_, events, 0}, {stop_.Fd(), POLLIN, 0}};
  int count = 0;
  do {
    count = ::poll(entries, 2, timeoutMs);
  } while (count < 0 && errno == EINTR);
  return count > 0 && entries[1].revents == 0;
}

bool ServerConnection::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    if (stop_.IsSet()) return false;
    const ssize_t count = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && errno != EAGAIN && errno != EINTR) return false;
    if (count < 0 && !WaitFor(POLLOUT)) return false;
    if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

std::string ServerConnection::Receive(std::size_t limit) {
  if (!WaitFor(POLLIN)) return {};
  std::string bytes(limit, '\0');
  const ssize_t count = ::recv(fd_, bytes.data(), limit, MSG_DONTWAIT);
  bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return bytes;
}

std::size_t ServerConnection::Discard() {
  // The kernel drops the bytes without copying them.
  constexpr std::size_t kMost = 1 << 30;
  if (!WaitFor(POLLIN)) return 0;
  const ssize_t count = ::recv(fd_, nullptr, kMost, MSG_DONTWAIT | MSG_TRUNC);
  return count > 0 ? static_cast<std::size_t>(count) : 0;
}

std::string ServerConnection::ReceiveHeader() {
  std::string bytes;
  while (bytes.find("\r\n\r\n") == std::string::npos) {
    const std::string more = Receive();
    if (more.empty()) break;
    bytes += more;
  }
  return bytes;
}

std::string ServerConnection::ReceiveRequest() {
  static const std::string kLength = "Content-Length: ";
  std::string bytes = ReceiveHeader();
  const std::size_t body = bytes.find("\r\n\r\n") + 4;
  const std::size_t field = bytes.find(kLength);
  if (bytes.empty() || field == std::string::npos) return bytes;
  const std::size_t length = std::strtoull(bytes.c_str() + field + kLength.size(), nullptr, 10);
  while (bytes.size() < body + length) {
    const std::string more = Receive();
    if (more.empty()) break;
    bytes += more;
  }
  return bytes;
}

void ServerConnection::CloseWrite() {
  ::shutdown(fd_, SHUT_WR);
}

void ServerConnection::ResetOnClose() {
  const linger hard{1, 0};
  ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
}

bool ServerConnection::WaitForEnd(int timeoutMs) {
  return !WaitFor(POLLRDHUP, timeoutMs) && !stop_.IsSet();
}

Listener::Listener(const std::string& host, unsigned short port, int backlog) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (::inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) {
    errno = EINVAL;
    Throw("'" + host + "' is no IPv4 address");
  }
  fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int reuse = 1;
  ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  socklen_t length = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(fd_, generic, length) != 0 || (backlog >= 0 && ::listen(fd_, backlog) != 0) ||
      ::getsockname(fd_, generic, &length) != 0) {
    const int error = errno;
    Close();
    errno = error;
    Throw("cannot listen on " + host + ":" + std::to_string(port));
  }
  port_ = ntohs(address.sin_port);
}

int Listener::Accept(const StopSignal& stop) const {
  for (;;) {
    pollfd entries[] = {{fd_, POLLIN, 0}, {stop.Fd(), POLLIN, 0}};
    const int count = ::poll(entries, 2, -1);
    if (count > 0 && entries[1].revents != 0) return -1;
    if (count <= 0) continue;
    // A connection may have gone between the two calls.
    const int fd = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    // Pieces of a reply leave as they are sent, as with Tika.
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return fd;
  }
}

void Listener::Close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}
