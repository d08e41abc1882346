/// Waiting for events with a deadline, and measuring how long something took.
#ifndef SCA_TESTS_SUPPORT_TIMING_H
#define SCA_TESTS_SUPPORT_TIMING_H

#include <poll.h>

#include <chrono>
#include <fstream>
#include <string>

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
bool Eventually(Condition condition, int limitMs = kDeadlineMs, int everyMs = 1) {
  const Stopwatch watch;
  while (!condition()) {
    if (watch.Ms() > limitMs) return false;
    ::poll(nullptr, 0, everyMs);
  }
  return true;
}

/// Waits until a thread of this process, known by its id in the system, sleeps.
inline bool BlocksSoon(int threadId) {
  return Eventually([threadId] {
    std::ifstream file("/proc/self/task/" + std::to_string(threadId) + "/stat");
    std::string stat;
    std::getline(file, stat);
    return stat.find(") S ") != std::string::npos;
  });
}

#endif  // SCA_TESTS_SUPPORT_TIMING_H
