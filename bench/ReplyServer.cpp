#include "bench/ReplyServer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <vector>

#include "faultlab/ServerConnection.h"

namespace {

// Fits the third-level cache, where text that a server has just written would be.
constexpr unsigned long long kPieceSize = 4 << 20;

constexpr char kHeader[] =
    "HTTP/1.1 200 OK\r\n"
    "Content-Type: text/plain\r\n"
    "Date: Thu, 01 Jan 2026 00:00:00 GMT\r\n"
    "Transfer-Encoding: chunked\r\n"
    "Server: Jetty(9.4.44)\r\n"
    "\r\n";
constexpr char kEnd[] = "\r\n0\r\n\r\n";

std::string Frame(unsigned long chunkSize) {
  char line[32];
  std::snprintf(line, sizeof line, "%lX\r\n", chunkSize);
  return line + std::string(chunkSize, 't');
}

bool SendAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool SendFile(int fd, int file, std::size_t size) {
  for (off_t offset = 0; static_cast<std::size_t>(offset) < size;) {
    if (::sendfile(fd, file, &offset, size - static_cast<std::size_t>(offset)) <= 0) return false;
  }
  return true;
}

// Which Tika it stands for. Asked by HTTP/1.0: the answer ends with the connection.
constexpr char kVersion[] =
    "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nConnection: close\r\n\r\nApache Tika 3.3.2";

// Reads one request with its content, which is dropped. False when no reply with a text is due.
bool TakeRequest(int fd, std::vector<char>* buffer) {
  constexpr std::string_view kLength = "Content-Length: ";
  std::size_t held = 0;
  for (;;) {
    const ssize_t count = ::recv(fd, buffer->data() + held, buffer->size() - held, 0);
    if (count <= 0) return false;
    held += static_cast<std::size_t>(count);
    const std::string_view text(buffer->data(), held);
    const std::size_t end = text.find("\r\n\r\n");
    if (end == std::string_view::npos) continue;
    if (text.substr(0, 4) == "GET ") {
      SendAll(fd, kVersion);
      return false;
    }
    const std::size_t field = text.find(kLength);
    if (field == std::string_view::npos) return false;
    const std::size_t size = std::strtoull(text.data() + field + kLength.size(), nullptr, 10);
    std::size_t content = held - (end + 4);
    while (content < size) {
      const ssize_t more = ::recv(fd, buffer->data(), buffer->size(), 0);
      if (more <= 0) return false;
      content += static_cast<std::size_t>(more);
    }
    return true;
  }
}

}  // namespace

ChunkedReply::ChunkedReply(unsigned long long textSize, unsigned long chunkSize)
    : textSize_(textSize), last_(kEnd) {
  const std::string frame = Frame(chunkSize);
  const unsigned long long chunks = textSize / chunkSize;
  const unsigned long long perPiece =
      std::max<unsigned long long>(1, kPieceSize / (frame.size() + 2));
  first_ = kHeader + frame;
  pieceCount_ = (chunks - 1) / perPiece;
  // What does not fill a piece travels with the first one.
  for (unsigned long long i = 1 + pieceCount_ * perPiece; i < chunks; ++i) first_ += "\r\n" + frame;
  for (unsigned long long i = 0; pieceCount_ > 0 && i < perPiece; ++i) piece_ += "\r\n" + frame;
}

unsigned long long ChunkedReply::WireSize() const {
  return first_.size() + pieceCount_ * piece_.size() + last_.size();
}

ReplyServer::ReplyServer(const ChunkedReply& reply, const std::string& congestionControl) {
  const Listener listener("127.0.0.1", 0, 16);
  if (!congestionControl.empty() &&
      ::setsockopt(listener.Fd(), IPPROTO_TCP, TCP_CONGESTION, congestionControl.data(),
                   static_cast<socklen_t>(congestionControl.size())) != 0) {
    throw std::runtime_error("cannot use " + congestionControl);
  }
  port_ = listener.Port();
  std::fflush(nullptr);
  const pid_t parent = ::getpid();
  child_ = ::fork();
  if (child_ < 0) throw std::runtime_error("cannot fork the server");
  if (child_ > 0) return;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(1);
  ::signal(SIGPIPE, SIG_IGN);  // which sendfile cannot be told not to raise
  const int file = ::memfd_create("reply", MFD_CLOEXEC);
  if (::write(file, reply.piece_.data(), reply.piece_.size()) !=
      static_cast<ssize_t>(reply.piece_.size())) {
    ::_exit(1);
  }
  const StopSignal never;
  for (;;) {
    const int fd = listener.Accept(never);
    std::thread([fd, file, &reply] {
      std::vector<char> buffer(1 << 18);
      while (TakeRequest(fd, &buffer)) {
        bool sent = SendAll(fd, reply.first_);
        for (unsigned long long i = 0; sent && i < reply.pieceCount_; ++i) {
          sent = SendFile(fd, file, reply.piece_.size());
        }
        if (!sent || !SendAll(fd, reply.last_)) break;
      }
      ::close(fd);
    }).detach();
  }
}

ReplyServer::~ReplyServer() {
  ::kill(child_, SIGKILL);
  ::waitpid(child_, nullptr, 0);
}
