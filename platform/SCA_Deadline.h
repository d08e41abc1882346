/// The end of a time-out. Internal to the library.
/// Threads: any thread may ask.
#ifndef SCA_PLATFORM_SCA_DEADLINE_H
#define SCA_PLATFORM_SCA_DEADLINE_H

#include <algorithm>
#include <chrono>

#include "platform/SCA_Sync.h"

/// A point on the steady clock, or never.
class SCA_Deadline {
 public:
  explicit SCA_Deadline(unsigned long timeoutMs) {
    if (timeoutMs != SCA_Infinite) {
      // Cut: a time-out of decades must not overflow the clock.
      end_ = Clock::now() + std::chrono::milliseconds(std::min(timeoutMs, SCA_Infinite));
    }
  }

  bool HasPassed() const { return Clock::now() >= end_; }

  /// @return Milliseconds left, rounded up; `SCA_Infinite` when there is no end.
  unsigned long MsLeft() const {
    if (end_ == kNever) return SCA_Infinite;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
    return static_cast<unsigned long>(std::max<long long>(left, 0));
  }

  /// Milliseconds left for a poll, rounded up, at most `limit`.
  int PollTimeout(int limit) const {
    return static_cast<int>(std::min(MsLeft(), static_cast<unsigned long>(limit)));
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr Clock::time_point kNever = Clock::time_point::max();

  Clock::time_point end_ = kNever;
};

#endif  // SCA_PLATFORM_SCA_DEADLINE_H
