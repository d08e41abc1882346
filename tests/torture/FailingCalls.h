/// Makes the nth call of a kind fail: an allocation, or a call of the system. The functions stand
/// in for those of the C and C++ libraries, in a program that links them or is given them by
/// LD_PRELOAD.
#ifndef SCA_TESTS_TORTURE_FAILINGCALLS_H
#define SCA_TESTS_TORTURE_FAILINGCALLS_H

#include <array>

enum Call {
  kMemory,
  kOpen,
  kStat,
  kRead,
  kWrite,
  kSync,
  kRename,
  kPipe,
  kSocket,
  kConnect,
  kSend,
  kReceive,
  kPoll,
  kAccept,
  kClone,
  kThread,
  kCalls
};
using CallCounts = std::array<unsigned long, kCalls>;

/// In the place of an error: the call succeeds with one byte.
constexpr int kShort = -1;

struct CallPlan {
  int call = kMemory;
  int error = 0;  ///< 0: nothing fails
  unsigned long nth = 0;
  int isLasting = 0;  ///< all later ones fail as well
};

/// While it lives, calls of this thread and of those that it starts, and of these in turn, count
/// and fail. One at a time.
class ExposedToFailure {
 public:
  explicit ExposedToFailure(const CallPlan& plan);
  ~ExposedToFailure();
  ExposedToFailure(const ExposedToFailure&) = delete;
  ExposedToFailure& operator=(const ExposedToFailure&) = delete;
};

/// Lets this thread's calls through for a scope, and those of threads that it starts there.
class SparedFromFailure {
 public:
  SparedFromFailure();
  ~SparedFromFailure();
  SparedFromFailure(const SparedFromFailure&) = delete;
  SparedFromFailure& operator=(const SparedFromFailure&) = delete;

 private:
  const bool was_;
};

CallCounts CountedCalls();
#endif  // SCA_TESTS_TORTURE_FAILINGCALLS_H
