#include "tests/torture/FailingCalls.h"

#include <dirent.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <new>

namespace {

thread_local bool isExposed = false;
CallPlan current;
std::atomic<bool> isArmed{false};
std::array<std::atomic<unsigned long>, kCalls> counts{};
CallPlace* place = nullptr;

template <class Function>
Function* Next(Function* /*type*/, const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

// The error with which a call is to fail, 0 when it is to go on.
int Failure(Call call) {
  if (!isExposed || !isArmed.load()) return 0;
  const unsigned long number = ++counts[call];
  const bool isMeant = call == current.call && current.error != 0;
  if (!isMeant || number < current.nth || (number > current.nth && current.isLasting == 0))
    return 0;
  if (number == current.nth && place != nullptr) {
    const SparedFromFailure spared;
    ::backtrace(place->data(), static_cast<int>(place->size()) - 1);
  }
  return current.error;
}

bool Fails(Call call) {
  const int error = Failure(call);
  if (error != 0) errno = error;
  return error != 0;
}

// As above, for calls that may take or give less than they were asked to.
bool FailsOrShortens(Call call, std::size_t* length) {
  const int error = Failure(call);
  if (error == kShort) *length = std::min<std::size_t>(*length, 1);
  if (error > 0) errno = error;
  return error > 0;
}

bool FailsOrShortens(Call call, msghdr* message, iovec* first) {
  const int error = Failure(call);
  if (error == kShort && message->msg_iovlen > 0) {
    *first = message->msg_iov[0];
    first->iov_len = std::min<std::size_t>(first->iov_len, 1);
    message->msg_iov = first;
    message->msg_iovlen = 1;
  }
  if (error > 0) errno = error;
  return error > 0;
}

// The library's own allocation counts once, however it gets there.
template <class Function, class... Arguments>
void* Allocate(Function* next, Arguments... arguments) {
  if (Failure(kMemory) != 0) return nullptr;
  const SparedFromFailure spared;
  return next(arguments...);
}

void* OrThrow(void* memory) {
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

struct Start {
  void* (*routine)(void*);
  void* argument;
};

void* RunExposed(void* context) {
  const std::unique_ptr<Start> start(static_cast<Start*>(context));
  isExposed = true;
  return start->routine(start->argument);
}

}  // namespace

ExposedToFailure::ExposedToFailure(const CallPlan& plan) {
  current = plan;
  isArmed.store(true);
  isExposed = true;
}

ExposedToFailure::~ExposedToFailure() {
  isExposed = false;
  isArmed.store(false);
}

SparedFromFailure::SparedFromFailure() : was_(isExposed) {
  isExposed = false;
}

SparedFromFailure::~SparedFromFailure() {
  isExposed = was_;
}

CallCounts CountedCalls() {
  CallCounts copy;
  std::copy(counts.begin(), counts.end(), copy.begin());
  return copy;
}

void KeepPlaceIn(CallPlace* memory) {
  ::backtrace(memory->data(), 1);  // the first one loads a library
  (*memory)[0] = nullptr;
  place = memory;
}

// What stands in for the C++ and C libraries' own. The other forms of new call these.

using Align = std::align_val_t;
using NoThrow = std::nothrow_t;

void* operator new(std::size_t size) {
  static const auto next = Next<void*(std::size_t)>(nullptr, "_Znwm");
  return OrThrow(Allocate(next, size));
}
void* operator new(std::size_t size, Align align) {
  static const auto next = Next<void*(std::size_t, Align)>(nullptr, "_ZnwmSt11align_val_t");
  return OrThrow(Allocate(next, size, align));
}
void* operator new(std::size_t size, const NoThrow& /*tag*/) noexcept {
  static const auto next = Next<void*(std::size_t, const NoThrow*)>(nullptr, "_ZnwmRKSt9nothrow_t");
  return Allocate(next, size, &std::nothrow);
}
extern "C" {

// By the linker's --wrap: the address sanitizer has a malloc of its own.
void* __real_malloc(std::size_t size) __attribute__((weak));  // NOLINT
void* __wrap_malloc(std::size_t size) {                       // NOLINT
  return Failure(kMemory) != 0 ? nullptr : __real_malloc(size);
}

int open(const char* path, int flags, ...) {
  static const auto next = Next(&open, "open");
  std::va_list values;
  va_start(values, flags);
  const auto mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(values, unsigned) : 0U;
  va_end(values);
  return Fails(kOpen) ? -1 : next(path, flags, mode);
}
std::FILE* fopen64(const char* path, const char* mode) {
  static const auto next = Next(&fopen64, "fopen64");
  return Fails(kOpen) ? nullptr : next(path, mode);
}
DIR* opendir(const char* path) {
  static const auto next = Next(&opendir, "opendir");
  return Fails(kOpen) ? nullptr : next(path);
}
int mkdir(const char* path, mode_t mode) noexcept {
  static const auto next = Next(&mkdir, "mkdir");
  return Fails(kOpen) ? -1 : next(path, mode);
}
int fstat(int fd, struct stat* status) noexcept {
  static const auto next = Next(&fstat, "fstat");
  return Fails(kStat) ? -1 : next(fd, status);
}
int stat(const char* path, struct stat* status) noexcept {
  static const auto next = Next(&stat, "stat");
  return Fails(kStat) ? -1 : next(path, status);
}
ssize_t read(int fd, void* buffer, std::size_t length) {
  static const auto next = Next(&read, "read");
  if (length == sizeof(eventfd_t)) return next(fd, buffer, length);  // no event ever fails
  return FailsOrShortens(kRead, &length) ? -1 : next(fd, buffer, length);
}
ssize_t pread(int fd, void* buffer, std::size_t length, off_t offset) {
  static const auto next = Next(&pread, "pread");
  return FailsOrShortens(kRead, &length) ? -1 : next(fd, buffer, length, offset);
}
ssize_t write(int fd, const void* buffer, std::size_t length) {
  static const auto next = Next(&write, "write");
  if (length == sizeof(eventfd_t)) return next(fd, buffer, length);
  return FailsOrShortens(kWrite, &length) ? -1 : next(fd, buffer, length);
}
ssize_t writev(int fd, const iovec* parts, int count) {
  static const auto next = Next(&writev, "writev");
  iovec first{};
  msghdr message{};
  message.msg_iov = const_cast<iovec*>(parts);
  message.msg_iovlen = static_cast<std::size_t>(count);
  if (FailsOrShortens(kWrite, &message, &first)) return -1;
  return next(fd, message.msg_iov, static_cast<int>(message.msg_iovlen));
}
int fsync(int fd) {
  static const auto next = Next(&fsync, "fsync");
  return Fails(kSync) ? -1 : next(fd);
}
int fdatasync(int fd) {
  static const auto next = Next(&fdatasync, "fdatasync");
  return Fails(kSync) ? -1 : next(fd);
}
int rename(const char* from, const char* to) noexcept {
  static const auto next = Next(&rename, "rename");
  return Fails(kRename) ? -1 : next(from, to);
}
int pipe2(int* ends, int flags) noexcept {
  static const auto next = Next(&pipe2, "pipe2");
  return Fails(kPipe) ? -1 : next(ends, flags);
}
int eventfd(unsigned value, int flags) noexcept {
  static const auto next = Next(&eventfd, "eventfd");
  return Fails(kPipe) ? -1 : next(value, flags);
}
int socket(int domain, int type, int protocol) noexcept {
  static const auto next = Next(&socket, "socket");
  return Fails(kSocket) ? -1 : next(domain, type, protocol);
}
int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
  static const auto next = Next(&bind, "bind");
  return Fails(kSocket) ? -1 : next(fd, address, length);
}
int listen(int fd, int backlog) noexcept {
  static const auto next = Next(&listen, "listen");
  return Fails(kSocket) ? -1 : next(fd, backlog);
}
int connect(int fd, const sockaddr* address, socklen_t length) {
  static const auto next = Next(&connect, "connect");
  return Fails(kConnect) ? -1 : next(fd, address, length);
}
ssize_t send(int fd, const void* buffer, std::size_t length, int flags) {
  static const auto next = Next(&send, "send");
  return FailsOrShortens(kSend, &length) ? -1 : next(fd, buffer, length, flags);
}
ssize_t sendmsg(int fd, const msghdr* given, int flags) {
  static const auto next = Next(&sendmsg, "sendmsg");
  iovec first{};
  msghdr message = *given;
  return FailsOrShortens(kSend, &message, &first) ? -1 : next(fd, &message, flags);
}
ssize_t recv(int fd, void* buffer, std::size_t length, int flags) {
  static const auto next = Next(&recv, "recv");
  return FailsOrShortens(kReceive, &length) ? -1 : next(fd, buffer, length, flags);
}
ssize_t recvmsg(int fd, msghdr* given, int flags) {
  static const auto next = Next(&recvmsg, "recvmsg");
  iovec first{};
  msghdr message = *given;
  if (FailsOrShortens(kReceive, &message, &first)) return -1;
  const ssize_t count = next(fd, &message, flags);
  given->msg_flags = message.msg_flags;
  return count;
}
int poll(pollfd* entries, nfds_t count, int timeout) {
  static const auto next = Next(&poll, "poll");
  return Fails(kPoll) ? -1 : next(entries, count, timeout);
}
int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
  static const auto next = Next(&accept4, "accept4");
  return Fails(kAccept) ? -1 : next(fd, address, length, flags);
}
int clone(int (*body)(void*), void* stack, int flags, void* argument, ...) noexcept {
  static const auto next = Next(&clone, "clone");
  std::va_list values;
  va_start(values, argument);
  void* more[3];  // the kernel looks at those that the flags name
  for (void*& value : more) value = va_arg(values, void*);
  va_end(values);
  return Fails(kClone) ? -1 : next(body, stack, flags, argument, more[0], more[1], more[2]);
}
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                   void* argument) noexcept {
  static const auto next = Next(&pthread_create, "pthread_create");
  if (!isExposed) return next(thread, attributes, routine, argument);
  if (const int error = Failure(kThread); error != 0) return error;
  const SparedFromFailure spared;
  auto start = std::make_unique<Start>(Start{routine, argument});
  const int code = next(thread, attributes, &RunExposed, start.get());
  if (code == 0) static_cast<void>(start.release());
  return code;
}

}  // extern "C"
