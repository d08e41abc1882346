/// What the POSIX code of the platform layer shares: the owner of a descriptor, retries after
/// EINTR, and deadlines.
#ifndef SCA_PLATFORM_POSIX_SCA_POSIX_H
#define SCA_PLATFORM_POSIX_SCA_POSIX_H

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <optional>
#include <utility>

#include "platform/SCA_Sync.h"

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

/// `errno` as an error code of the library.
inline unsigned long SCA_SystemError() {
  return static_cast<unsigned long>(errno);
}

/// A point on the steady clock, or never.
class SCA_Deadline {
 public:
  explicit SCA_Deadline(unsigned long timeoutMs) {
    if (timeoutMs != SCA_Infinite) {
      // Cut: a time-out of decades must not overflow the clock.
      end_ = Clock::now() + std::chrono::milliseconds(std::min(timeoutMs, SCA_Infinite));
    }
  }

  bool HasPassed() const { return end_.has_value() && Clock::now() >= *end_; }

  /// Milliseconds left for a poll, rounded up, at most `limit`.
  int PollTimeout(int limit) const {
    if (!end_.has_value()) return limit;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*end_ - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, limit));
  }

 private:
  using Clock = std::chrono::steady_clock;
  std::optional<Clock::time_point> end_;
};

#endif  // SCA_PLATFORM_POSIX_SCA_POSIX_H
