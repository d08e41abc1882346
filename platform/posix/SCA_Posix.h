/// What the POSIX code of the platform layer shares: the owner of a descriptor, and retries after
/// EINTR.
#ifndef SCA_PLATFORM_POSIX_SCA_POSIX_H
#define SCA_PLATFORM_POSIX_SCA_POSIX_H

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/SCA_Deadline.h"
#include "platform/SCA_Result.h"

/// Sole owner of a descriptor.
class SCA_Fd {
 public:
  explicit SCA_Fd(int fd = -1) : fd_(fd) {}
  SCA_Fd(SCA_Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  SCA_Fd& operator=(SCA_Fd&& other) noexcept {
    if (this != &other) Reset(std::exchange(other.fd_, -1));
    return *this;
  }
  ~SCA_Fd() { Reset(); }

  int Get() const { return fd_; }
  bool IsOpen() const { return fd_ >= 0; }

  int Release() { return std::exchange(fd_, -1); }

  void Reset(int fd = -1) {
    // Not retried after EINTR: Linux has closed the descriptor all the same.
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_;
};

/// Repeats a system call that a signal interrupted.
template <class Call>
auto SCA_Retry(Call call) -> decltype(call()) {
  decltype(call()) result;
  do {
    result = call();
  } while (result < 0 && errno == EINTR);
  return result;
}

#endif  // SCA_PLATFORM_POSIX_SCA_POSIX_H
