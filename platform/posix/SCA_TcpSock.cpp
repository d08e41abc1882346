#include "platform/SCA_TcpSock.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/SCA_Error.h"
#include "platform/SCA_File.h"
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

using Addresses = std::vector<Address>;

SCA_Result LookUp(const char* host, unsigned short port, int flags, Addresses* addresses) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV | flags;
  addrinfo* found = nullptr;
  const int code = ::getaddrinfo(host, std::to_string(port).c_str(), &hints, &found);
  if (code == EAI_SYSTEM) return SCA_SystemError();
  if (code != 0) return SCA_Result(code == EAI_MEMORY ? ENOMEM : SCA_ErrorHostName);
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    Address address;
    std::memcpy(&address.storage, entry->ai_addr, entry->ai_addrlen);
    address.length = entry->ai_addrlen;
    addresses->push_back(address);
  }
  return SCA_Done;
}

SCA_Result Resolve(const char* host, unsigned short port, int flags,
                   Addresses* addresses) noexcept {
  return SCA_Guarded([&] { return LookUp(host, port, flags, addresses); });
}

// A resolver's answer can take many seconds, and nothing ends the call: it runs on a thread of its
// own, which is left behind with its result when the waiter gives up.
struct PendingResolution {
  SCA_Event done{1, 0};
  SCA_Result result;
  Addresses addresses;
};

// How a connect that went on in the background has ended.
SCA_Result PendingError(int fd) {
  int pending = 0;
  socklen_t size = sizeof pending;
  ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &pending, &size);
  return SCA_Result(static_cast<unsigned long>(pending));
}

bool IsLoopback(const sockaddr_storage& address) {
  if (address.ss_family == AF_INET) {
    const auto& ip = reinterpret_cast<const sockaddr_in&>(address).sin_addr;
    return ntohl(ip.s_addr) >> 24 == IN_LOOPBACKNET;
  }
  return address.ss_family == AF_INET6 &&
         IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6&>(address).sin6_addr);
}

// Whether the system spreads over time what the socket sends.
bool IsPaced(int fd) {
  char name[16] = "";  // TCP_CA_NAME_MAX
  socklen_t size = sizeof name - 1;
  return ::getsockopt(fd, IPPROTO_TCP, TCP_CONGESTION, name, &size) == 0 &&
         std::string_view(name).substr(0, 3) == "bbr";
}

// Before it connects: a paced connection stays paced. On loopback there is no queue that pacing
// could keep short; it only makes a send cost twice as much. A system that does not allow the
// choice has its way.
void AvoidPacing(int fd) {
  constexpr std::string_view kUnpaced = "reno";
  if (!IsPaced(fd)) return;
  ::setsockopt(fd, IPPROTO_TCP, TCP_CONGESTION, kUnpaced.data(),
               static_cast<socklen_t>(kUnpaced.size()));
}

// Keeps SIGPIPE from this thread while a call may raise it that cannot be told not to.
class PipeSignalGuard {
 public:
  PipeSignalGuard() {
    sigset_t pending;
    ::sigemptyset(&pipe_);
    ::sigaddset(&pipe_, SIGPIPE);
    ::sigpending(&pending);
    wasPending_ = ::sigismember(&pending, SIGPIPE) == 1;
    ::pthread_sigmask(SIG_BLOCK, &pipe_, &former_);
  }
  ~PipeSignalGuard() {
    constexpr timespec kNow{};
    if (raised_ && !wasPending_) SCA_Retry([&] { return ::sigtimedwait(&pipe_, nullptr, &kNow); });
    ::pthread_sigmask(SIG_SETMASK, &former_, nullptr);
  }
  PipeSignalGuard(const PipeSignalGuard&) = delete;
  PipeSignalGuard& operator=(const PipeSignalGuard&) = delete;

  void SetRaised() { raised_ = true; }

 private:
  sigset_t pipe_;
  sigset_t former_;
  bool wasPending_ = false;
  bool raised_ = false;
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
  int SendFile(SCA_File* file, unsigned long length, unsigned long* sent,
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
  // From here on copying costs more than the poll that spares it.
  static constexpr std::size_t kBulkSize = 32768;

  // Holds the header of a request.
  static constexpr std::size_t kMaxKept = 1024;

  bool IsCancelled() const { return cancel_ != nullptr && cancel_->Wait(0) != 0; }
  std::size_t Held() const { return lookEnd_ - lookBegin_; }

  // Whether a receive is larger than the look-ahead, which then would only cost a copy.
  static bool IsLarge(std::size_t length) { return length >= kLookAheadSize; }

  // Polls until one of the events shows, the deadline passes or the cancel event is set.
  // @param seen  Receives the events seen; null where one alone is waited for.
  SCA_Result Poll(short events, const SCA_Deadline& deadline, short* seen = nullptr) const;
  SCA_Result ResolveHost(const char* host, unsigned short port, const SCA_Deadline& deadline,
                         Addresses* addresses) const;
  SCA_Result ConnectHost(const char* host, unsigned short port, unsigned long timeoutMs);
  SCA_Result ConnectPath(const char* path, unsigned long timeoutMs);
  SCA_Result ConnectAddress(const Address& address, const SCA_Deadline& deadline);
  void BoundReads() const;
  bool SetBlocking(bool blocks) const;
  SCA_Result WaitForRoom() const;
  template <class Attempt>
  SCA_Result SendAll(unsigned long length, unsigned long* done, const Attempt& attempt) const;
  SCA_Result SendKept(const char* buffer, unsigned long length, unsigned long* sent, int flags);
  std::size_t TakeHeld(char* buffer, std::size_t length);
  std::size_t Read(char* buffer, std::size_t length, int flags);
  SCA_Result WaitAndRead(char* buffer, std::size_t length, unsigned long timeoutMs,
                         std::size_t* count);

  SCA_Fd fd_;
  SCA_Event* cancel_ = nullptr;
  unsigned long idleTimeoutMs_ = SCA_SockIdleTimeoutMs;
  bool isPaced_ = false;      // a connection that was handed over counts as not paced
  bool moreFollows_ = false;  // for the next send alone
  bool takesHeld_ = false;    // a receive needs no more than the look-ahead holds
  bool isBulk_ = false;       // data come fast, and the receives are large

  // The look-ahead: bytes read from the socket and not yet received by the caller. Once the input
  // has ended, inputEnd_ holds the failure that a receive gives when the look-ahead is empty.
  SCA_Result inputEnd_;
  bool closedInOrder_ = false;
  std::size_t lookBegin_ = 0;
  std::size_t lookEnd_ = 0;
  std::size_t keptLength_ = 0;
  char kept_[kMaxKept];  // of a send that another follows
  char lookAhead_[kLookAheadSize];
};

SCA_Result TcpSock::Poll(short events, const SCA_Deadline& deadline, short* seen) const {
  const int slice = cancel_ != nullptr ? kCancelSliceMs : kIdleSliceMs;
  for (;;) {
    pollfd entry{fd_.Get(), events, 0};
    const int count = ::poll(&entry, 1, deadline.PollTimeout(slice));
    if (count > 0) {
      if (seen != nullptr) *seen = entry.revents;
      return SCA_Done;
    }
    if (count < 0 && errno != EINTR) return SCA_SystemError();
    if (IsCancelled()) return SCA_Result(SCA_ErrorCancelled);
    if (deadline.HasPassed()) return SCA_Result(ETIMEDOUT);
  }
}

SCA_Result TcpSock::ResolveHost(const char* host, unsigned short port, const SCA_Deadline& deadline,
                                Addresses* addresses) const {
  if (!Resolve(host, port, AI_NUMERICHOST, addresses).HasFailed()) return SCA_Done;
  const auto pending = std::make_shared<PendingResolution>();
  if (pending->done.IsValid() == 0) return SCA_Result(ENOMEM);
  std::thread([pending, name = std::string(host), port] {
    pending->result = Resolve(name.c_str(), port, 0, &pending->addresses);
    pending->done.Set();
  }).detach();
  while (pending->done.Wait(static_cast<unsigned long>(deadline.PollTimeout(kCancelSliceMs))) ==
         0) {
    if (IsCancelled()) return SCA_Result(SCA_ErrorCancelled);
    if (deadline.HasPassed()) return SCA_Result(ETIMEDOUT);
  }
  *addresses = pending->addresses;
  return pending->result;
}

int TcpSock::Connect(const char* host, unsigned short port, unsigned long timeoutMs,
                     unsigned long* error) {
  fd_.Reset();
  inputEnd_ = SCA_Done;
  closedInOrder_ = false;
  moreFollows_ = false;
  keptLength_ = 0;
  takesHeld_ = false;
  isBulk_ = false;
  lookBegin_ = lookEnd_ = 0;
  if (timeoutMs == 0) timeoutMs = SCA_SockIdleTimeoutMs;
  if (host != nullptr && *host == '/') return ConnectPath(host, timeoutMs).Store(error);
  if (host == nullptr || *host == '\0' || std::strlen(host) > kMaxHostLength) {
    return SCA_Fail(SCA_ErrorHostNameInvalid, error);
  }
  return SCA_Guarded([&] { return ConnectHost(host, port, timeoutMs); }).Store(error);
}

SCA_Result TcpSock::ConnectHost(const char* host, unsigned short port, unsigned long timeoutMs) {
  const SCA_Deadline deadline(timeoutMs);
  Addresses addresses;
  SCA_Result result = ResolveHost(host, port, deadline, &addresses);
  if (result.HasFailed()) return result;
  // Each address gets its share of the time, so that one that never answers leaves some for the
  // next.
  std::size_t left = addresses.size();
  for (const Address& address : addresses) {
    const unsigned long share =
        timeoutMs == SCA_Infinite
            ? SCA_Infinite
            : static_cast<unsigned long>(deadline.PollTimeout(INT_MAX)) / left--;
    result = ConnectAddress(address, SCA_Deadline(share));
    if (!result.HasFailed() || result.Code() == SCA_ErrorCancelled) break;
  }
  return result;
}

SCA_Result TcpSock::ConnectPath(const char* path, unsigned long timeoutMs) {
  const SCA_Deadline deadline(timeoutMs);
  SCA_UnixAddress place;
  if (const SCA_Result set = place.Set(path); set.HasFailed()) return set;
  Address address;
  address.length = SCA_UnixAddress::Length();
  std::memcpy(&address.storage, place.Get(), address.length);
  for (;;) {
    const SCA_Result result = ConnectAddress(address, deadline);
    // Nothing tells when a listener that has too many waiting takes one.
    if (result.Code() != EAGAIN || deadline.HasPassed()) return result;
    if (IsCancelled()) return SCA_Result(SCA_ErrorCancelled);
    ::poll(nullptr, 0, kFullQueueMs);
  }
}

SCA_Result TcpSock::ConnectAddress(const Address& address, const SCA_Deadline& deadline) {
  SCA_Fd fd(::socket(address.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!fd.IsOpen()) return SCA_SystemError();
  fd_ = std::move(fd);
  if (IsLoopback(address.storage)) AvoidPacing(fd_.Get());
  const auto* peer = reinterpret_cast<const sockaddr*>(&address.storage);
  // An interrupted connect goes on in the background, as one in progress does.
  if (::connect(fd_.Get(), peer, address.length) != 0) {
    SCA_Result result = SCA_SystemError();
    if (result.Code() == EINPROGRESS || result.Code() == EINTR) {
      result = Poll(POLLOUT, deadline);
      if (!result.HasFailed()) result = PendingError(fd_.Get());
    }
    if (result.HasFailed()) {
      fd_.Reset();
      return result;
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
    return SCA_Result(ECONNREFUSED);
  }
  BoundReads();
  isPaced_ = IsPaced(fd_.Get());
  return SCA_Done;
}

// Makes a read that may wait end after a slice, so that one system call both waits and reads.
void TcpSock::BoundReads() const {
  const timeval slice{0, kCancelSliceMs * 1000};
  ::setsockopt(fd_.Get(), SOL_SOCKET, SO_RCVTIMEO, &slice, sizeof slice);
  SetBlocking(true);
}

bool TcpSock::SetBlocking(bool blocks) const {
  const int flags = ::fcntl(fd_.Get(), F_GETFL);
  return flags >= 0 &&
         ::fcntl(fd_.Get(), F_SETFL, blocks ? flags & ~O_NONBLOCK : flags | O_NONBLOCK) == 0;
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
  const ssize_t count = length == 0       ? ::recv(fd_.Get(), lookAhead_, sizeof lookAhead_, flags)
                        : IsLarge(length) ? ::recv(fd_.Get(), buffer, length, flags)
                                          : ::recvmsg(fd_.Get(), &message, flags);
  if (count > 0) {
    const auto got = static_cast<std::size_t>(count);
    const std::size_t taken = std::min(got, length);
    lookEnd_ = got - taken;
    return taken;
  }
  if (count == 0) {
    inputEnd_ = SCA_Result(ECONNRESET);
    closedInOrder_ = true;
  } else if (errno != EAGAIN && errno != EINTR) {
    inputEnd_ = SCA_SystemError();
  }
  return 0;
}

// Reads as above, as soon as there is something to read or to learn.
SCA_Result TcpSock::WaitAndRead(char* buffer, std::size_t length, unsigned long timeoutMs,
                                std::size_t* count) {
  const SCA_Deadline deadline(timeoutMs);
  bool hasSlice = timeoutMs >= kCancelSliceMs;
  for (;;) {
    *count = Read(buffer, length, hasSlice ? 0 : MSG_DONTWAIT);
    if (*count > 0 || Held() > 0 || inputEnd_.HasFailed()) return SCA_Done;
    if (timeoutMs == 0) return SCA_Result(ETIMEDOUT);  // a question that the read has answered
    if (!hasSlice) {
      if (const SCA_Result poll = Poll(POLLIN, deadline); poll.HasFailed()) return poll;
    }
    if (IsCancelled()) return SCA_Result(SCA_ErrorCancelled);
    // Without a cancel event there is nothing to look at in between.
    hasSlice = cancel_ != nullptr && deadline.PollTimeout(kCancelSliceMs) == kCancelSliceMs;
  }
}

int TcpSock::WaitForData(unsigned long timeoutMs, unsigned long* error) {
  if (timeoutMs != 0) idleTimeoutMs_ = timeoutMs;
  // At the start of each wait: a peer that always has something to say must not outrun a cancel.
  if (IsCancelled()) return SCA_Fail(SCA_ErrorCancelled, error);
  if (Held() > 0) return 1;
  // What the next receive has room for would be copied for nothing.
  if (isBulk_ && !inputEnd_.HasFailed()) {
    short events = 0;
    const SCA_Result poll = Poll(POLLIN, SCA_Deadline(timeoutMs), &events);
    if (poll.HasFailed()) return poll.Store(error);
    if (events == POLLIN) return 1;
  }
  if (!inputEnd_.HasFailed()) {
    std::size_t none = 0;
    const SCA_Result wait = WaitAndRead(nullptr, 0, timeoutMs, &none);
    if (wait.HasFailed()) return wait.Store(error);
  }
  return Held() > 0 || closedInOrder_ ? 1 : inputEnd_.Store(error);
}

int TcpSock::Receive(char* buffer, unsigned long length, unsigned long* received,
                     unsigned long* error) {
  std::size_t count = TakeHeld(buffer, length);
  // The look-ahead must not show a cut that a plain receive at this moment would not have shown:
  // when it runs out with room left, the socket is asked once more.
  if (count > 0 && count < length && !takesHeld_ && !inputEnd_.HasFailed()) {
    count += Read(buffer + count, length - count, MSG_DONTWAIT);
  }
  if (count == 0 && !inputEnd_.HasFailed()) {
    const SCA_Result wait = WaitAndRead(buffer, length, idleTimeoutMs_, &count);
    if (wait.HasFailed()) return wait.Store(error);
  }
  if (count == 0 && inputEnd_.HasFailed()) return inputEnd_.Store(error);
  isBulk_ = IsLarge(length) && count >= kBulkSize;
  *received = count;
  return 1;
}

SCA_Result TcpSock::WaitForRoom() const {
  // A peer that reads a little all the time must not outrun a cancel.
  if (IsCancelled()) return SCA_Result(SCA_ErrorCancelled);
  short events = 0;
  const SCA_Result poll = Poll(POLLOUT | POLLRDHUP, SCA_Deadline(idleTimeoutMs_), &events);
  if (poll.HasFailed()) return poll;
  // A peer that has closed and reads no more would leave a send waiting for ever.
  return (events & POLLOUT) != 0 ? SCA_Done : SCA_Result(ECONNRESET);
}

// Repeats a call that sends and does not wait, until all is sent.
// @param done     Receives the bytes sent, also on failure.
// @param attempt  Gets the bytes sent so far; gives the bytes that it has sent, 0 to end early, -1
//                 with errno.
template <class Attempt>
SCA_Result TcpSock::SendAll(unsigned long length, unsigned long* done,
                            const Attempt& attempt) const {
  *done = 0;
  while (*done < length) {
    const ssize_t count = SCA_Retry([&] { return attempt(*done); });
    if (count == 0) break;
    if (count > 0) {
      *done += static_cast<unsigned long>(count);
      continue;
    }
    if (errno != EAGAIN) return SCA_SystemError();
    if (const SCA_Result room = WaitForRoom(); room.HasFailed()) return room;
  }
  return SCA_Done;
}

// Sends what was kept back, and the caller's bytes with it.
SCA_Result TcpSock::SendKept(const char* buffer, unsigned long length, unsigned long* sent,
                             int flags) {
  const std::size_t kept = std::exchange(keptLength_, 0);
  unsigned long done = 0;
  const SCA_Result result = SendAll(kept + length, &done, [&](unsigned long before) {
    const std::size_t skipped = std::min(before, kept);
    iovec parts[2] = {
        {kept_ + skipped, kept - skipped},
        {const_cast<char*>(buffer) + (before - skipped), length - (before - skipped)}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    return ::sendmsg(fd_.Get(), &message, flags);
  });
  *sent = done - std::min(done, kept);
  return result;
}

int TcpSock::Send(const char* buffer, unsigned long length, unsigned long* sent,
                  unsigned long* error) {
  constexpr int kFlags = MSG_NOSIGNAL | MSG_DONTWAIT;
  const bool moreFollows = std::exchange(moreFollows_, false);
  if (moreFollows && fd_.IsOpen() && keptLength_ + length <= kMaxKept) {
    std::memcpy(kept_ + keptLength_, buffer, length);
    keptLength_ += length;
    *sent = length;
    return 1;
  }
  return SendKept(buffer, length, sent, moreFollows ? kFlags | MSG_MORE : kFlags).Store(error);
}

int TcpSock::SendFile(SCA_File* file, unsigned long length, unsigned long* sent,
                      unsigned long* error) {
  *sent = 0;
  // Pages go out one by one when they are paced.
  if (isPaced_ || !SetBlocking(false)) return 1;
  PipeSignalGuard guard;
  unsigned long none = 0;
  SCA_Result result = SendKept(nullptr, 0, &none, MSG_NOSIGNAL | MSG_DONTWAIT | MSG_MORE);
  if (!result.HasFailed()) {
    result = SendAll(length, sent, [&](unsigned long before) -> ssize_t {
      const ssize_t count = ::sendfile(fd_.Get(), file->GetHandle(), nullptr, length - before);
      if (count >= 0 || errno == EAGAIN || errno == EINTR) return count;
      // Whether the file or the connection failed, the next read and send will tell.
      if (errno == EPIPE) guard.SetRaised();
      return 0;
    });
  }
  SetBlocking(true);
  return result.Store(error);
}

int TcpSock::SetOption(int option, int value) {
  if (option == SCA_SockOptionMoreFollows) {
    moreFollows_ = value != 0;
    return 1;
  }
  if (option == SCA_SockOptionTakeHeld) {
    takesHeld_ = value != 0;
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
