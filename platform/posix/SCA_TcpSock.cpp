#include "platform/SCA_TcpSock.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "platform/SCA_Error.h"
#include "platform/SCA_Fail.h"
#include "platform/SCA_TcpSockFactory.h"
#include "platform/posix/SCA_Posix.h"
#include "platform/posix/SCA_UnixAddress.h"

namespace {

// How often a blocked wait looks at the cancel event, and how long one without an event sleeps.
constexpr int kCancelSliceMs = 100;
constexpr int kIdleSliceMs = 60000;

// Between two tries at a Unix socket whose queue is full.
constexpr int kFullQueueMs = 10;

constexpr std::size_t kMaxHostLength = 259;

// One address to connect to.
struct Address {
  sockaddr_storage storage{};
  socklen_t length = 0;
};

struct Resolution {
  unsigned long error = 0;
  std::vector<Address> addresses;
};

Resolution LookUp(const char* host, unsigned short port, int flags) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV | flags;
  addrinfo* found = nullptr;
  Resolution result;
  const int code = ::getaddrinfo(host, std::to_string(port).c_str(), &hints, &found);
  if (code != 0) {
    result.error = code == EAI_SYSTEM   ? SCA_SystemError()
                   : code == EAI_MEMORY ? static_cast<unsigned long>(ENOMEM)
                                        : SCA_ErrorHostName;
    return result;
  }
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    Address address;
    std::memcpy(&address.storage, entry->ai_addr, entry->ai_addrlen);
    address.length = entry->ai_addrlen;
    result.addresses.push_back(address);
  }
  return result;
}

Resolution Resolve(const char* host, unsigned short port, int flags) noexcept {
  Resolution result;
  SCA_Guarded(&result.error, [&] {
    result = LookUp(host, port, flags);
    return 1;
  });
  return result;
}

// A resolver's answer can take many seconds, and nothing ends the call: it runs on a thread of its
// own, which is left behind with its result when the waiter gives up.
struct PendingResolution {
  SCA_Event done{1, 0};
  Resolution result;
};

class TcpSock final : public SCA_VirtualTcpSock {
 public:
  explicit TcpSock(SCA_Fd fd) : fd_(std::move(fd)) {
    if (fd_.IsOpen()) BoundReads();
    SetValid(1);
  }

  int Connect(const char* host, unsigned short port, unsigned long timeoutMs,
              unsigned long* error) override;
  int WaitForData(unsigned long timeoutMs, unsigned long* error) override;
  int Receive(char* buffer, unsigned long length, unsigned long* received,
              unsigned long* error) override;
  int Send(const char* buffer, unsigned long length, unsigned long* sent,
           unsigned long* error) override;
  int SetOption(int option, int value) override;
  void SetCancelEvent(SCA_Event* cancel) override { cancel_ = cancel; }
  void Shutdown() override;
  void SetIdleTimeout(unsigned long timeoutMs) override {
    idleTimeoutMs_ = timeoutMs != 0 ? timeoutMs : SCA_SockIdleTimeoutMs;
  }

 private:
  // The fewer receives, the fewer acknowledgements, which on loopback cost the receiver more than
  // copying from the second-level cache does; what is larger leaves that cache too.
  static constexpr std::size_t kLookAheadSize = 131072;

  bool IsCancelled() const { return cancel_ != nullptr && cancel_->Wait(0) != 0; }
  std::size_t Held() const { return lookEnd_ - lookBegin_; }

  // Polls until one of the events shows, the deadline passes or the cancel event is set.
  // Gives the events seen, or 0 with the code in *error.
  short Poll(short events, const SCA_Deadline& deadline, unsigned long* error) const;
  int ResolveHost(const char* host, unsigned short port, const SCA_Deadline& deadline,
                  Resolution* resolution, unsigned long* error) const;
  int ConnectHost(const char* host, unsigned short port, unsigned long timeoutMs,
                  unsigned long* error);
  int ConnectPath(const char* path, unsigned long timeoutMs, unsigned long* error);
  int ConnectAddress(const Address& address, const SCA_Deadline& deadline, unsigned long* error);
  void BoundReads() const;
  std::size_t TakeHeld(char* buffer, std::size_t length);
  std::size_t Read(char* buffer, std::size_t length, int flags);
  int WaitAndRead(char* buffer, std::size_t length, unsigned long timeoutMs, std::size_t* count,
                  unsigned long* error);

  SCA_Fd fd_;
  SCA_Event* cancel_ = nullptr;
  unsigned long idleTimeoutMs_ = SCA_SockIdleTimeoutMs;
  bool moreFollows_ = false;  // for the next send alone

  // The look-ahead: bytes read from the socket and not yet received by the caller. Once the input
  // has ended, inputEnd_ holds the code that a receive gives when the look-ahead is empty.
  unsigned long inputEnd_ = 0;
  bool closedInOrder_ = false;
  std::size_t lookBegin_ = 0;
  std::size_t lookEnd_ = 0;
  char lookAhead_[kLookAheadSize];
};

short TcpSock::Poll(short events, const SCA_Deadline& deadline, unsigned long* error) const {
  const int slice = cancel_ != nullptr ? kCancelSliceMs : kIdleSliceMs;
  for (;;) {
    pollfd entry{fd_.Get(), events, 0};
    const int count = ::poll(&entry, 1, deadline.PollTimeout(slice));
    if (count > 0) return entry.revents;
    if (count < 0 && errno != EINTR) {
      *error = SCA_SystemError();
      return 0;
    }
    // Asked once: an auto-reset event is unset by the answer.
    const bool isCancelled = IsCancelled();
    if (isCancelled || deadline.HasPassed()) {
      *error = isCancelled ? SCA_ErrorCancelled : ETIMEDOUT;
      return 0;
    }
  }
}

int TcpSock::ResolveHost(const char* host, unsigned short port, const SCA_Deadline& deadline,
                         Resolution* resolution, unsigned long* error) const {
  *resolution = Resolve(host, port, AI_NUMERICHOST);
  if (!resolution->addresses.empty()) return 1;
  const auto pending = std::make_shared<PendingResolution>();
  if (pending->done.IsValid() == 0) return SCA_Fail(ENOMEM, error);
  std::thread([pending, name = std::string(host), port] {
    pending->result = Resolve(name.c_str(), port, 0);
    pending->done.Set();
  }).detach();
  while (pending->done.Wait(static_cast<unsigned long>(deadline.PollTimeout(kCancelSliceMs))) ==
         0) {
    if (IsCancelled()) return SCA_Fail(SCA_ErrorCancelled, error);
    if (deadline.HasPassed()) return SCA_Fail(ETIMEDOUT, error);
  }
  *resolution = pending->result;
  return resolution->error == 0 ? 1 : SCA_Fail(resolution->error, error);
}

int TcpSock::Connect(const char* host, unsigned short port, unsigned long timeoutMs,
                     unsigned long* error) {
  fd_.Reset();
  inputEnd_ = 0;
  closedInOrder_ = false;
  moreFollows_ = false;
  lookBegin_ = lookEnd_ = 0;
  if (timeoutMs == 0) timeoutMs = SCA_SockIdleTimeoutMs;
  if (host != nullptr && *host == '/') return ConnectPath(host, timeoutMs, error);
  if (host == nullptr || *host == '\0' || std::strlen(host) > kMaxHostLength) {
    return SCA_Fail(SCA_ErrorHostNameInvalid, error);
  }
  return SCA_Guarded(error, [&] { return ConnectHost(host, port, timeoutMs, error); });
}

int TcpSock::ConnectHost(const char* host, unsigned short port, unsigned long timeoutMs,
                         unsigned long* error) {
  const SCA_Deadline deadline(timeoutMs);
  Resolution resolution;
  if (ResolveHost(host, port, deadline, &resolution, error) == 0) return 0;
  // Each address gets its share of the time, so that one that never answers leaves some for the
  // next.
  std::size_t left = resolution.addresses.size();
  for (const Address& address : resolution.addresses) {
    const unsigned long share =
        timeoutMs == SCA_Infinite
            ? SCA_Infinite
            : static_cast<unsigned long>(deadline.PollTimeout(INT_MAX)) / left--;
    if (ConnectAddress(address, SCA_Deadline(share), error) != 0) return 1;
    if (*error == SCA_ErrorCancelled) break;
  }
  return 0;
}

int TcpSock::ConnectPath(const char* path, unsigned long timeoutMs, unsigned long* error) {
  const SCA_Deadline deadline(timeoutMs);
  SCA_UnixAddress place;
  if (place.Set(path, error) == 0) return 0;
  Address address;
  address.length = SCA_UnixAddress::Length();
  std::memcpy(&address.storage, place.Get(), address.length);
  while (ConnectAddress(address, deadline, error) == 0) {
    // Nothing tells when a listener that has too many waiting takes one.
    if (*error != EAGAIN || deadline.HasPassed()) return 0;
    if (IsCancelled()) return SCA_Fail(SCA_ErrorCancelled, error);
    ::poll(nullptr, 0, kFullQueueMs);
  }
  return 1;
}

int TcpSock::ConnectAddress(const Address& address, const SCA_Deadline& deadline,
                            unsigned long* error) {
  SCA_Fd fd(::socket(address.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!fd.IsOpen()) return SCA_Fail(SCA_SystemError(), error);
  fd_ = std::move(fd);
  const auto* peer = reinterpret_cast<const sockaddr*>(&address.storage);
  // An interrupted connect goes on in the background, as one in progress does.
  if (::connect(fd_.Get(), peer, address.length) != 0) {
    unsigned long code = SCA_SystemError();
    if ((code == EINPROGRESS || code == EINTR) && Poll(POLLOUT, deadline, &code) != 0) {
      int pending = 0;
      socklen_t size = sizeof pending;
      ::getsockopt(fd_.Get(), SOL_SOCKET, SO_ERROR, &pending, &size);
      code = static_cast<unsigned long>(pending);
    }
    if (code != 0) {
      fd_.Reset();
      return SCA_Fail(code, error);
    }
  }
  // On loopback the system may choose the very port that is being called, and the socket then
  // talks to itself.
  Address own;
  own.length = sizeof own.storage;
  ::getsockname(fd_.Get(), reinterpret_cast<sockaddr*>(&own.storage), &own.length);
  if (own.length == address.length &&
      std::memcmp(&own.storage, &address.storage, own.length) == 0) {
    fd_.Reset();
    return SCA_Fail(ECONNREFUSED, error);
  }
  BoundReads();
  return 1;
}

// Makes a read that may wait end after a slice, so that one system call both waits and reads.
void TcpSock::BoundReads() const {
  const timeval slice{0, kCancelSliceMs * 1000};
  ::setsockopt(fd_.Get(), SOL_SOCKET, SO_RCVTIMEO, &slice, sizeof slice);
  ::fcntl(fd_.Get(), F_SETFL, ::fcntl(fd_.Get(), F_GETFL) & ~O_NONBLOCK);
}

std::size_t TcpSock::TakeHeld(char* buffer, std::size_t length) {
  const std::size_t count = std::min(length, Held());
  std::memcpy(buffer, lookAhead_ + lookBegin_, count);
  lookBegin_ += count;
  return count;
}

// Reads first into the caller's memory, then, the look-ahead being empty, into the look-ahead.
// Gives the bytes that the caller got.
// @param flags  MSG_DONTWAIT, or 0 to wait for the first byte for a slice or until a signal.
std::size_t TcpSock::Read(char* buffer, std::size_t length, int flags) {
  lookBegin_ = lookEnd_ = 0;
  iovec targets[2] = {{buffer, length}, {lookAhead_, sizeof lookAhead_}};
  msghdr message{};
  message.msg_iov = targets;
  message.msg_iovlen = 2;
  const ssize_t count = length == 0 ? ::recv(fd_.Get(), lookAhead_, sizeof lookAhead_, flags)
                                    : ::recvmsg(fd_.Get(), &message, flags);
  if (count > 0) {
    const auto got = static_cast<std::size_t>(count);
    const std::size_t taken = std::min(got, length);
    lookEnd_ = got - taken;
    return taken;
  }
  if (count == 0) {
    inputEnd_ = ECONNRESET;
    closedInOrder_ = true;
  } else if (errno != EAGAIN && errno != EINTR) {
    inputEnd_ = SCA_SystemError();
  }
  return 0;
}

// Reads as above, as soon as there is something to read or to learn.
int TcpSock::WaitAndRead(char* buffer, std::size_t length, unsigned long timeoutMs,
                         std::size_t* count, unsigned long* error) {
  const SCA_Deadline deadline(timeoutMs);
  bool hasSlice = timeoutMs >= kCancelSliceMs;
  for (;;) {
    *count = Read(buffer, length, hasSlice ? 0 : MSG_DONTWAIT);
    if (*count > 0 || Held() > 0 || inputEnd_ != 0) return 1;
    if (!hasSlice && Poll(POLLIN, deadline, error) == 0) return 0;
    if (IsCancelled()) return SCA_Fail(SCA_ErrorCancelled, error);
    // Without a cancel event there is nothing to look at in between.
    hasSlice = cancel_ != nullptr && deadline.PollTimeout(kCancelSliceMs) == kCancelSliceMs;
  }
}

int TcpSock::WaitForData(unsigned long timeoutMs, unsigned long* error) {
  if (timeoutMs != 0) idleTimeoutMs_ = timeoutMs;
  // At the start of each wait: a peer that always has something to say must not outrun a cancel.
  if (IsCancelled()) return SCA_Fail(SCA_ErrorCancelled, error);
  if (Held() > 0) return 1;
  std::size_t none = 0;
  if (inputEnd_ == 0 && WaitAndRead(nullptr, 0, timeoutMs, &none, error) == 0) return 0;
  return Held() > 0 || closedInOrder_ ? 1 : SCA_Fail(inputEnd_, error);
}

int TcpSock::Receive(char* buffer, unsigned long length, unsigned long* received,
                     unsigned long* error) {
  std::size_t count = TakeHeld(buffer, length);
  // The look-ahead must not show a cut that a plain receive at this moment would not have shown:
  // when it runs out with room left, the socket is asked once more.
  if (count > 0 && count < length && inputEnd_ == 0) {
    count += Read(buffer + count, length - count, MSG_DONTWAIT);
  }
  if (count == 0 && inputEnd_ == 0 &&
      WaitAndRead(buffer, length, idleTimeoutMs_, &count, error) == 0) {
    return 0;
  }
  if (count == 0) return SCA_Fail(inputEnd_, error);
  *received = count;
  return 1;
}

int TcpSock::Send(const char* buffer, unsigned long length, unsigned long* sent,
                  unsigned long* error) {
  const int flags =
      MSG_NOSIGNAL | MSG_DONTWAIT | (std::exchange(moreFollows_, false) ? MSG_MORE : 0);
  unsigned long total = 0;
  *sent = 0;
  while (total < length) {
    const ssize_t count =
        SCA_Retry([&] { return ::send(fd_.Get(), buffer + total, length - total, flags); });
    if (count >= 0) {
      total += static_cast<unsigned long>(count);
      *sent = total;
      continue;
    }
    if (errno != EAGAIN) return SCA_Fail(SCA_SystemError(), error);
    // A peer that reads a little all the time must not outrun a cancel.
    if (IsCancelled()) return SCA_Fail(SCA_ErrorCancelled, error);
    const short events = Poll(POLLOUT | POLLRDHUP, SCA_Deadline(idleTimeoutMs_), error);
    if (events == 0) return 0;
    // A peer that has closed and reads no more would leave this send waiting for ever.
    if ((events & POLLOUT) == 0) return SCA_Fail(ECONNRESET, error);
  }
  return 1;
}

int TcpSock::SetOption(int option, int value) {
  if (option == SCA_SockOptionMoreFollows) {
    moreFollows_ = value != 0;
    return 1;
  }
  if (option != SCA_SockOptionNoDelay) return 0;
  return ::setsockopt(fd_.Get(), IPPROTO_TCP, TCP_NODELAY, &value, sizeof value) == 0 ? 1 : 0;
}

void TcpSock::Shutdown() {
  ::shutdown(fd_.Get(), SHUT_RDWR);
}

SCA_VirtualTcpSock* CreateRealSocket(int handle) {
  SCA_Fd fd(handle);
  if (fd.IsOpen()) {
    ::fcntl(handle, F_SETFD, FD_CLOEXEC);
  }
  return new (std::nothrow) TcpSock(std::move(fd));
}

std::atomic<SCA_TcpSockFactory> currentFactory{CreateRealSocket};

}  // namespace

SCA_VirtualTcpSock* SCA_CreateTcpSock(int handle) {
  return currentFactory.load(std::memory_order_relaxed)(handle);
}

void SCA_SetTcpSockFactory(SCA_TcpSockFactory factory) {
  currentFactory.store(factory != nullptr ? factory : CreateRealSocket, std::memory_order_relaxed);
}
