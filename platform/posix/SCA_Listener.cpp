#include "platform/SCA_Listener.h"

#include <arpa/inet.h>
#include <grp.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

#include "platform/SCA_Error.h"
#include "platform/SCA_Path.h"
#include "platform/SCA_Text.h"
#include "platform/posix/SCA_Posix.h"
#include "platform/posix/SCA_UnixAddress.h"

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

bool IsLoopback(const Address& address) {
  if (address.storage.ss_family == AF_INET) {
    const auto& v4 = reinterpret_cast<const sockaddr_in&>(address.storage);
    return ntohl(v4.sin_addr.s_addr) >> 24 == IN_LOOPBACKNET;
  }
  return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6&>(address.storage).sin6_addr);
}

// @return `EINVAL` for what is not a numeric address.
SCA_Result ReadAddress(const char* text, unsigned short port, Address* address) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  char service[8];
  std::snprintf(service, sizeof service, "%u", unsigned{port});
  addrinfo* found = nullptr;
  if (::getaddrinfo(text, service, &hints, &found) != 0) return SCA_Result(EINVAL);
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
  std::memcpy(&address->storage, found->ai_addr, found->ai_addrlen);
  address->length = found->ai_addrlen;
  return SCA_Done;
}

// A listening socket, or a closed one with errno set.
SCA_Fd Listen(const Address& address) {
  const int family = address.storage.ss_family;
  SCA_Fd fd(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.IsOpen()) return fd;
  // A port whose last connections are still being wound up can be taken at once.
  const int on = 1;
  ::setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const int off = 0;
  if (family == AF_INET6) {
    ::setsockopt(fd.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
  }
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

void DescribeTcp(const sockaddr_storage& storage, SCA_AcceptedPeer* peer) {
  in6_addr address = in6addr_any;
  if (storage.ss_family == AF_INET) {
    address.s6_addr[10] = address.s6_addr[11] = 0xFF;
    std::memcpy(address.s6_addr + 12, &reinterpret_cast<const sockaddr_in&>(storage).sin_addr, 4);
  } else {
    address = reinterpret_cast<const sockaddr_in6&>(storage).sin6_addr;
  }
  const bool isV4 = IN6_IS_ADDR_V4MAPPED(&address);
  std::copy_n(address.s6_addr, isV4 ? 16 : 8, peer->network.begin());
  ::inet_ntop(isV4 ? AF_INET : AF_INET6, isV4 ? address.s6_addr + 12 : address.s6_addr, peer->name,
              sizeof peer->name);
}

// Whether the account on the other end was a member of the group when it connected.
bool IsMember(int fd, const ucred& account, gid_t group) {
  if (account.gid == group) return true;
  socklen_t size = 0;
  ::getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, nullptr, &size);
  const std::size_t count = size / sizeof(gid_t);
  const std::unique_ptr<gid_t[]> groups(new (std::nothrow) gid_t[count + 1]);
  if (groups == nullptr || ::getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.get(), &size) != 0) {
    return false;
  }
  return std::find(groups.get(), groups.get() + count, group) != groups.get() + count;
}

// @param group  Receives nothing when none is named.
SCA_Result FindGroup(const char* name, std::optional<gid_t>* group) {
  if (name == nullptr || *name == '\0') return SCA_Done;
  char* end = nullptr;
  const unsigned long number = std::strtoul(name, &end, 10);
  if (*end == '\0' && number < UINT32_MAX) {
    *group = static_cast<gid_t>(number);
    return SCA_Done;
  }
  ::group entry{};
  ::group* found = nullptr;
  constexpr std::size_t kRoom = 1U << 20;  // the members' names go there too
  const std::unique_ptr<char[]> room(new (std::nothrow) char[kRoom]);
  if (room == nullptr) return SCA_Result(ENOMEM);
  ::getgrnam_r(name, &entry, room.get(), kRoom, &found);
  if (found == nullptr) return SCA_Result(SCA_ErrorNoGroup);
  *group = entry.gr_gid;
  return SCA_Done;
}

// Removes a socket of this account on which nobody listens. Anything else in its place stays.
SCA_Result RemoveStale(const char* path, const SCA_UnixAddress& address) {
  struct stat status {};
  if (::lstat(path, &status) != 0) return SCA_SystemError();
  if (!S_ISSOCK(status.st_mode) || status.st_uid != ::geteuid()) {
    return SCA_Result(SCA_ErrorSocketTaken);
  }
  const SCA_Fd probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!probe.IsOpen()) return SCA_SystemError();
  if (::connect(probe.Get(), address.Get(), SCA_UnixAddress::Length()) == 0 ||
      errno != ECONNREFUSED) {
    return SCA_Result(EADDRINUSE);
  }
  return ::unlink(path) == 0 ? SCA_Done : SCA_SystemError();
}

}  // namespace

// A Unix socket and its file, which is removed with it.
class SCA_Listener::LocalSocket {
 public:
  LocalSocket() = default;
  LocalSocket(const LocalSocket&) = delete;
  LocalSocket& operator=(const LocalSocket&) = delete;
  ~LocalSocket() {
    struct stat status {};
    // Another host may have made one of its own there.
    const bool isOurs = fd_.IsOpen() && ::lstat(path_, &status) == 0 && status.st_dev == device_ &&
                        status.st_ino == inode_;
    if (isOurs) ::unlink(path_);
  }

  SCA_Result Open(const char* path, const char* group) {
    SCA_UnixAddress address;
    if (const SCA_Result found = FindGroup(group, &group_); found.HasFailed()) return found;
    if (const SCA_Result set = address.Set(path); set.HasFailed()) return set;
    SCA_Fd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.IsOpen()) return SCA_SystemError();
    // The file has these permissions from its beginning, and is only ever opened further.
    ::fchmod(fd.Get(), S_IRUSR | S_IWUSR);
    const auto bind = [&] { return ::bind(fd.Get(), address.Get(), SCA_UnixAddress::Length()); };
    if (bind() != 0) {
      if (errno != EADDRINUSE) return SCA_SystemError();
      if (const SCA_Result removed = RemoveStale(path, address); removed.HasFailed()) {
        return removed;
      }
      if (bind() != 0) return SCA_SystemError();
    }
    fd_ = std::move(fd);
    return Publish(path);
  }

  int Fd() const { return fd_.Get(); }

  void Describe(int fd, SCA_AcceptedPeer* peer) const {
    ucred account{};
    socklen_t size = sizeof account;
    const bool isTold = ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &account, &size) == 0;
    peer->isLocal = true;
    peer->isWelcome = isTold && (account.uid == 0 || account.uid == ::geteuid() ||
                                 (group_ && IsMember(fd, account, *group_)));
    std::snprintf(peer->name, sizeof peer->name, "account %lu, process %ld",
                  static_cast<unsigned long>(account.uid), static_cast<long>(account.pid));
  }

 private:
  SCA_Result Publish(const char* path) {
    SCA_CopyText(path_, path, SCA_TextFit::Cut);
    struct stat status {};
    if (::lstat(path, &status) != 0) return SCA_SystemError();
    device_ = status.st_dev;
    inode_ = status.st_ino;
    constexpr mode_t kForGroup = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP;
    const bool isShared = !group_ || (::lchown(path, static_cast<uid_t>(-1), *group_) == 0 &&
                                      ::chmod(path, kForGroup) == 0);
    if (!isShared || ::listen(fd_.Get(), kBacklog) != 0) return SCA_SystemError();
    return SCA_Done;
  }

  SCA_Fd fd_;
  char path_[SCA_MaxPath] = "";
  dev_t device_ = 0;
  ino_t inode_ = 0;
  std::optional<gid_t> group_;
};

SCA_Listener::SCA_Listener() : wakeFd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  SetValid(wakeFd_ >= 0 ? 1 : 0);
}

SCA_Listener::~SCA_Listener() {
  Close();
  const SCA_Fd wake(wakeFd_);
}

SCA_Result SCA_Listener::Open(SCA_ListenScope scope, unsigned short port, const char* address) {
  const bool isLoopback = scope == SCA_ListenScope::Loopback;
  const bool isNamed = address != nullptr && *address != '\0';
  Address place = MakeAddress(isLoopback ? AF_INET : AF_INET6, isLoopback, port);
  if (isNamed) {
    if (const SCA_Result read = ReadAddress(address, port, &place); read.HasFailed()) return read;
    if (isLoopback && !IsLoopback(place)) return SCA_Result(EINVAL);
  }
  SCA_Fd fd = Listen(place);
  const bool lacksV6 = !fd.IsOpen() && (errno == EAFNOSUPPORT || errno == EADDRNOTAVAIL);
  if (!isLoopback && !isNamed && lacksV6) fd = Listen(MakeAddress(AF_INET, isLoopback, port));
  if (!fd.IsOpen()) return SCA_SystemError();
  port_ = PortOf(fd.Get());
  const SCA_LockGuard guard(lock_);
  const SCA_Fd former(std::exchange(tcp_, fd.Release()));
  return SCA_Done;
}

SCA_Result SCA_Listener::OpenLocal(const char* path, const char* group) {
  auto local = std::unique_ptr<LocalSocket>(new (std::nothrow) LocalSocket());
  if (local == nullptr) return SCA_Result(ENOMEM);
  {
    const SCA_LockGuard guard(lock_);
    if (local_ != nullptr) return SCA_Result(EALREADY);
    if (const SCA_Result opened = local->Open(path, group); opened.HasFailed()) return opened;
    local_ = std::move(local);
  }
  Wake();
  return SCA_Done;
}

void SCA_Listener::Close() {
  const SCA_LockGuard guard(lock_);
  const SCA_Fd closing(std::exchange(tcp_, -1));
  local_.reset();
}

SCA_Listener::Places SCA_Listener::GetPlaces() const {
  const SCA_LockGuard guard(lock_);
  return {tcp_, local_ != nullptr ? local_->Fd() : -1};
}

SCA_Result SCA_Listener::Accept(SCA_AcceptedPeer* peer) {
  for (;;) {
    const Places places = GetPlaces();
    // What is negative is passed over.
    pollfd entries[3] = {{wakeFd_, POLLIN, 0}, {places.local, POLLIN, 0}, {places.tcp, POLLIN, 0}};
    if (SCA_Retry([&] { return ::poll(entries, 3, -1); }) < 0) {
      return SCA_SystemError();
    }
    std::uint64_t wakes = 0;
    if (entries[0].revents != 0 && ::read(wakeFd_, &wakes, sizeof wakes) > 0) {
      return SCA_Result(EINTR);
    }
    // Operators of this machine first, however many come over the network.
    const bool isLocal = entries[1].revents != 0;
    if (!isLocal && entries[2].revents == 0) continue;
    const SCA_Result accepted = AcceptOn(isLocal ? places.local : places.tcp, isLocal, peer);
    // A peer may have disconnected before it was accepted.
    if (accepted.Code() != EAGAIN && accepted.Code() != ECONNABORTED) return accepted;
  }
}

SCA_Result SCA_Listener::AcceptOn(int place, bool isLocal, SCA_AcceptedPeer* peer) {
  sockaddr_storage storage{};
  socklen_t length = sizeof storage;
  const int fd = SCA_Retry([&] {
    return ::accept4(place, reinterpret_cast<sockaddr*>(&storage), &length,
                     SOCK_CLOEXEC | SOCK_NONBLOCK);
  });
  if (fd < 0) return SCA_SystemError();
  *peer = {};
  peer->handle = fd;
  if (isLocal) {
    const SCA_LockGuard guard(lock_);
    if (local_ != nullptr) local_->Describe(fd, peer);
  } else {
    SetUpConnection(fd);
    DescribeTcp(storage, peer);
  }
  return SCA_Done;
}

void SCA_Listener::Wake() {
  const std::uint64_t one = 1;
  // It fails only when as many wakes are pending as fit.
  [[maybe_unused]] const ssize_t written = ::write(wakeFd_, &one, sizeof one);
}
