#include "tests/torture/FailingCalls.h"

#include <dirent.h>
#include <dlfcn.h>
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
  return current.error;
}

bool Fails(Call call) {
  const int error = Failure(call);
  if (error != 0) errno = error;
  return error != 0;
}

// As above, for calls that may take or give less than they were asked to.
bool FailsOrShortens(Call call, std::size_t* length) {
  const bool isEvent = (call == kRead || call == kWrite) && *length == sizeof(eventfd_t);
  if (isEvent) return false;  // none ever fails
  const int error = Failure(call);
  if (error == kShort) *length = std::min<std::size_t>(*length, 1);
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

// A row for each call that fails or goes on.
#define FAILING(call, result, failure, name, parameters, ...) \
  result name parameters {                                    \
    static const auto next = Next(&name, #name);              \
    return Fails(call) ? (failure) : next(__VA_ARGS__);       \
  }
FAILING(kOpen, std::FILE*, nullptr, fopen64, (const char* path, const char* mode), path, mode)
FAILING(kOpen, DIR*, nullptr, opendir, (const char* path), path)
FAILING(kOpen, int, -1, mkdir, (const char* path, mode_t mode) noexcept, path, mode)
FAILING(kStat, int, -1, fstat, (int fd, struct stat* status) noexcept, fd, status)
FAILING(kStat, int, -1, stat, (const char* path, struct stat* status) noexcept, path, status)
FAILING(kSync, int, -1, fsync, (int fd), fd)
FAILING(kSync, int, -1, fdatasync, (int fd), fd)
FAILING(kRename, int, -1, rename, (const char* from, const char* to) noexcept, from, to)
FAILING(kPipe, int, -1, pipe2, (int* ends, int flags) noexcept, ends, flags)
FAILING(kPipe, int, -1, eventfd, (unsigned value, int flags) noexcept, value, flags)
FAILING(kSocket, int, -1, socket, (int domain, int type, int which) noexcept, domain, type, which)
FAILING(kSocket, int, -1, bind, (int fd, const sockaddr* to, socklen_t n) noexcept, fd, to, n)
FAILING(kSocket, int, -1, listen, (int fd, int backlog) noexcept, fd, backlog)
FAILING(kConnect, int, -1, connect, (int fd, const sockaddr* to, socklen_t n), fd, to, n)
FAILING(kPoll, int, -1, poll, (pollfd * entries, nfds_t n, int limit), entries, n, limit)
FAILING(kAccept, int, -1, accept4, (int fd, sockaddr* of, socklen_t* n, int flags), fd, of, n,
        flags)

// And for each that may take or give less than `size`.
#define SHORTENING(call, name, parameters, ...)                   \
  ssize_t name parameters {                                       \
    static const auto next = Next(&name, #name);                  \
    return FailsOrShortens(call, &size) ? -1 : next(__VA_ARGS__); \
  }
SHORTENING(kRead, read, (int fd, void* to, std::size_t size), fd, to, size)
SHORTENING(kRead, pread, (int fd, void* to, std::size_t size, off_t at), fd, to, size, at)
SHORTENING(kWrite, write, (int fd, const void* from, std::size_t size), fd, from, size)
SHORTENING(kSend, send, (int fd, const void* from, std::size_t size, int how), fd, from, size, how)
SHORTENING(kReceive, recv, (int fd, void* to, std::size_t size, int how), fd, to, size, how)
ssize_t writev(int fd, const iovec* parts, int count) {
  static const auto next = Next(&writev, "writev");
  iovec first = *parts;
  if (FailsOrShortens(kWrite, &first.iov_len)) return -1;
  const bool isShort = first.iov_len != parts->iov_len;
  return isShort ? next(fd, &first, 1) : next(fd, parts, count);
}
ssize_t recvmsg(int fd, msghdr* given, int flags) {
  static const auto next = Next(&recvmsg, "recvmsg");
  iovec first = *given->msg_iov;
  if (FailsOrShortens(kReceive, &first.iov_len)) return -1;
  msghdr message = *given;
  if (first.iov_len != given->msg_iov->iov_len) {
    message.msg_iov = &first;
    message.msg_iovlen = 1;
  }
  const ssize_t received = next(fd, &message, flags);
  given->msg_flags = message.msg_flags;
  return received;
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
