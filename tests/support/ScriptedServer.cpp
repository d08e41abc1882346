#include "tests/support/ScriptedServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

bool ServerConnection::WaitFor(short events) {
  while (!stopped_.load()) {
    pollfd entry{fd_, events, 0};
    if (::poll(&entry, 1, 20) > 0) return true;
  }
  return false;
}

bool ServerConnection::Send(const std::string& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    if (!WaitFor(POLLOUT)) return false;
    const ssize_t count =
        ::send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && errno != EAGAIN) return false;
    if (count > 0) done += static_cast<std::size_t>(count);
  }
  return true;
}

std::string ServerConnection::Receive(std::size_t limit) {
  std::string bytes(limit, '\0');
  if (!WaitFor(POLLIN)) return {};
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

void ServerConnection::WaitForEnd() {
  WaitFor(POLLRDHUP);
}

ScriptedServer::ScriptedServer(Script script, int backlog, unsigned short port, const char* host)
    : script_(std::move(script)) {
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int reuse = 1;
  ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  ::inet_pton(AF_INET, host, &address.sin_addr);
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(listener_, generic, length) != 0 || ::listen(listener_, backlog) != 0 ||
      ::getsockname(listener_, generic, &length) != 0) {
    std::perror("scripted server");
    std::abort();
  }
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { Run(); });
}

ScriptedServer::~ScriptedServer() {
  stopped_.store(true);
  thread_.join();
  ::close(listener_);
}

void ScriptedServer::Run() {
  while (!stopped_.load()) {
    pollfd entry{listener_, POLLIN, 0};
    if (::poll(&entry, 1, 20) <= 0) continue;
    const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    connections_.fetch_add(1);
    ServerConnection connection(fd, stopped_);
    script_(connection);
    ::close(fd);
  }
}

std::string ChunkedReply(const std::string& text, std::size_t chunkSize) {
  std::string reply = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  for (std::size_t begin = 0; begin < text.size(); begin += chunkSize) {
    const std::string chunk = text.substr(begin, chunkSize);
    char size[32];
    std::snprintf(size, sizeof size, "%zX\r\n", chunk.size());
    reply += size + chunk + "\r\n";
  }
  return reply + "0\r\n\r\n";
}
