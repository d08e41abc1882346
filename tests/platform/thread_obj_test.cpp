#include "platform/SCA_ThreadObj.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "tests/support/Timing.h"

namespace {

// Counts its runs; ends by itself, or waits for the stop event.
class Worker : public SCA_ThreadObj {
 public:
  explicit Worker(bool waits) : waits_(waits) {}
  ~Worker() override { Unlock("Worker"); }

  unsigned long ThreadFunc() override {
    ++inside;
    ++runs;
    unsigned long error = 0;
    EXPECT_EQ(Lock("Worker", &error), 0) << "a worker cannot start itself";
    if (waits_) {
      EXPECT_EQ(GetStopEvent()->Wait(SCA_Infinite), 1);
    } else {
      Unlock("Worker");
      EXPECT_EQ(GetStopEvent()->Wait(0), 1) << "a worker may ask itself to stop";
    }
    --inside;
    return 0;
  }

  std::atomic<int> runs{0};
  std::atomic<int> inside{0};

 private:
  const bool waits_;
};

TEST(ThreadObj, StartsAndStopsInAnyOrder) {
  unsigned long error = 0;
  Worker never(true);
  EXPECT_EQ(never.GetStopEvent(), nullptr);
  EXPECT_EQ(never.Unlock("test"), 1);
  Worker waiting(true);
  for (int round = 1; round <= 3; ++round) {
    ASSERT_EQ(waiting.Lock("test", &error), 1);
    EXPECT_EQ(waiting.Lock("test", &error), 0);
    EXPECT_EQ(error, static_cast<unsigned long>(EBUSY));
    for (int i = 0; i < 2; ++i) EXPECT_EQ(waiting.Unlock("test"), 1);
    EXPECT_EQ(waiting.runs, round) << "a stop that comes at once still lets the worker run";
    EXPECT_EQ(waiting.inside, 0);
  }
}

TEST(ThreadObj, AWorkerThatEndedByItselfIsStartedAgain) {
  Worker worker(false);
  unsigned long error = 0;
  for (int round = 1; round <= 3; ++round) {
    ASSERT_TRUE(Eventually([&] { return worker.Lock("test", &error) == 1; }));
  }
}

TEST(ThreadObj, DestructionJoinsWhateverTheStartHasReached) {
  for (int round = 0; round < 50; ++round) {
    Worker worker(round % 2 == 0);
    unsigned long error = 0;
    ASSERT_EQ(worker.Lock("test", &error), 1);
  }
}

TEST(ThreadObj, TwoThreadsStartAndStopAtOnce) {
  Worker worker(true);
  const auto play = [&worker] {
    unsigned long error = 0;
    for (int i = 0; i < 200; ++i) {
      worker.Lock("test", &error);
      worker.Unlock("test");
    }
  };
  std::thread other(play);
  play();
  other.join();
  EXPECT_EQ(worker.inside, 0) << "whoever stopped it last waited for its end";
}

}  // namespace
