/// Waiting for events with a deadline, and measuring how long something took.
#ifndef SCA_TESTS_SUPPORT_TIMING_H
#define SCA_TESTS_SUPPORT_TIMING_H

#include <poll.h>

#include <chrono>

/// Longer than anything that works ever takes.
constexpr int kDeadlineMs = 30000;

class Stopwatch {
 public:
  long long Ms() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin_).count();
  }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point begin_ = Clock::now();
};

/// Asks until the answer is true; false once the deadline has passed.
template <class Condition>
bool Eventually(Condition condition) {
  const Stopwatch watch;
  while (!condition()) {
    if (watch.Ms() > kDeadlineMs) return false;
    ::poll(nullptr, 0, 1);
  }
  return true;
}

#endif  // SCA_TESTS_SUPPORT_TIMING_H
