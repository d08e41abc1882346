#include "platform/SCA_Poller.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdint>

#include "platform/SCA_Sync.h"
#include "platform/posix/SCA_Posix.h"

namespace {

constexpr std::size_t kBatch = 64;

epoll_event Interest(SCA_PollFor what, void* tag) {
  epoll_event event{};
  // A peer that has closed its side and reads no more would never let an output become possible.
  event.events = what == SCA_PollFor::Input ? EPOLLIN : EPOLLOUT | EPOLLRDHUP;
  event.data.ptr = tag;
  return event;
}

SCA_Result Control(int pollFd, int operation, int handle, SCA_PollFor what, void* tag) {
  epoll_event event = Interest(what, tag);
  return ::epoll_ctl(pollFd, operation, handle, &event) == 0 ? SCA_Done : SCA_SystemError();
}

}  // namespace

SCA_Poller::SCA_Poller()
    : pollFd_(::epoll_create1(EPOLL_CLOEXEC)), wakeFd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  const bool isWhole =
      pollFd_ >= 0 && wakeFd_ >= 0 &&
      !Control(pollFd_, EPOLL_CTL_ADD, wakeFd_, SCA_PollFor::Input, nullptr).HasFailed();
  SetValid(isWhole ? 1 : 0);
}

SCA_Poller::~SCA_Poller() {
  const SCA_Fd poll(pollFd_);
  const SCA_Fd wake(wakeFd_);
}

SCA_Result SCA_Poller::Add(int handle, SCA_PollFor what, void* tag) {
  return Control(pollFd_, EPOLL_CTL_ADD, handle, what, tag);
}

SCA_Result SCA_Poller::Change(int handle, SCA_PollFor what, void* tag) {
  return Control(pollFd_, EPOLL_CTL_MOD, handle, what, tag);
}

void SCA_Poller::Remove(int handle) {
  ::epoll_ctl(pollFd_, EPOLL_CTL_DEL, handle, nullptr);
}

std::size_t SCA_Poller::Wait(SCA_PollEvent* events, std::size_t room, unsigned long timeoutMs) {
  epoll_event found[kBatch];
  const int limit = timeoutMs == SCA_Infinite
                        ? -1
                        : static_cast<int>(std::min(timeoutMs, static_cast<unsigned long>(60000)));
  const int count = ::epoll_wait(pollFd_, found, static_cast<int>(std::min(room, kBatch)), limit);
  std::size_t ready = 0;
  for (int i = 0; i < count; ++i) {
    if (found[i].data.ptr == nullptr) {
      std::uint64_t wakes = 0;
      [[maybe_unused]] const ssize_t taken = ::read(wakeFd_, &wakes, sizeof wakes);
    } else {
      const bool isBroken = (found[i].events & (EPOLLIN | EPOLLOUT)) == 0;
      events[ready++] = {found[i].data.ptr, isBroken};
    }
  }
  return ready;
}

void SCA_Poller::Wake() {
  const std::uint64_t one = 1;
  // It fails only when as many wakes are pending as fit.
  [[maybe_unused]] const ssize_t written = ::write(wakeFd_, &one, sizeof one);
}

void SCA_PolledSock::Close() {
  const SCA_Fd closing(std::exchange(handle_, -1));
}

int SCA_PolledSock::Release() {
  return std::exchange(handle_, -1);
}

SCA_Result SCA_PolledSock::Receive(char* buffer, std::size_t room, std::size_t* received) {
  const ssize_t count = SCA_Retry([&] { return ::recv(handle_, buffer, room, MSG_DONTWAIT); });
  if (count < 0) return SCA_SystemError();
  *received = static_cast<std::size_t>(count);
  return count > 0 ? SCA_Done : SCA_Result(ECONNRESET);
}

SCA_Result SCA_PolledSock::Send(const char* bytes, std::size_t length, std::size_t* sent) {
  const ssize_t count =
      SCA_Retry([&] { return ::send(handle_, bytes, length, MSG_DONTWAIT | MSG_NOSIGNAL); });
  if (count < 0) return SCA_SystemError();
  *sent = static_cast<std::size_t>(count);
  return SCA_Done;
}

unsigned long SCA_GetMaxHandles() {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  return limit.rlim_cur;
}
