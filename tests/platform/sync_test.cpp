#include "platform/SCA_Sync.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr unsigned long kDeadlineMs = 30000;

class Stopwatch {
 public:
  long long Ms() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin_).count();
  }

 private:
  using Clock = std::chrono::steady_clock;
  const Clock::time_point begin_ = Clock::now();
};

bool Reaches(const std::atomic<int>& value, int wanted) {
  const Stopwatch watch;
  while (value < wanted && watch.Ms() < static_cast<long long>(kDeadlineMs)) ::poll(nullptr, 0, 1);
  return value >= wanted;
}

TEST(Event, ManualStaysSetAndAutoEndsOneWait) {
  for (const int manual : {0, 1}) {
    for (const int initial : {0, 1}) {
      SCOPED_TRACE(manual * 10 + initial);
      SCA_Event event(manual, initial);
      EXPECT_EQ(event.IsValid(), 1);
      EXPECT_EQ(event.Wait(0), initial);
      EXPECT_EQ(event.Wait(0), initial * manual);
      event.Set();
      event.Set();
      EXPECT_EQ(event.Wait(SCA_Infinite), 1);
      EXPECT_EQ(event.Wait(1), manual);
      event.Set();
      event.Reset();
      EXPECT_EQ(event.Wait(0), 0);
    }
  }
}

TEST(Event, WaitLastsUntilItsTimeOut) {
  SCA_Event event;
  const Stopwatch watch;
  EXPECT_EQ(event.Wait(40), 0);
  EXPECT_GE(watch.Ms(), 40);
}

TEST(Event, SetWakesEveryWaiterOfAManualEvent) {
  SCA_Event event(1, 0);
  std::atomic<int> waiting{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      waiting.fetch_add(1);
      EXPECT_EQ(event.Wait(kDeadlineMs), 1);
    });
  }
  EXPECT_TRUE(Reaches(waiting, 4));
  event.Set();
  for (std::thread& thread : threads) thread.join();
}

TEST(Event, EachSetOfAnAutoEventWakesOneWaiter) {
  const SCA_Owned<SCA_VirtualEvent> event(SCA_CreateEvent(0, 0));
  std::atomic<int> woken{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      EXPECT_EQ(event->Wait(kDeadlineMs), 1);
      woken.fetch_add(1);
    });
  }
  for (int i = 1; i <= 4; ++i) {
    event->Set();
    EXPECT_TRUE(Reaches(woken, i));
  }
  for (std::thread& thread : threads) thread.join();
  // Had one set woken two waiters, the last one would be left over.
  EXPECT_EQ(event->Wait(0), 0);
}

TEST(Event, PublishesWhatWasWrittenBeforeTheSetAndMayThenBeDestroyed) {
  for (int i = 0; i < 500; ++i) {
    auto event = std::make_unique<SCA_Event>(i % 2, 0);
    int value = 0;
    std::thread setter([&value, set = event.get()] {
      value = 7;
      set->Set();
    });
    if (i % 4 < 2) {
      EXPECT_EQ(event->Wait(kDeadlineMs), 1);
    } else {
      while (event->Wait(0) == 0) std::this_thread::yield();
    }
    EXPECT_EQ(value, 7);
    event.reset();
    setter.join();
  }
}

TEST(Mutex, ExcludesUnderContention) {
  SCA_Mutex mutex;
  ASSERT_EQ(mutex.IsValid(), 1);
  int total = 0;  // no atomic: the mutex alone protects it
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int k = 0; k < 5000; ++k) {
        if (mutex.Lock(k % 2 == 0 ? SCA_Infinite : kDeadlineMs) != 0) {
          ++total;
          mutex.Unlock();
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(total, 4 * 5000);
}

TEST(Mutex, LockGivesUpAfterItsTimeOut) {
  const SCA_Owned<SCA_VirtualMutex> mutex(SCA_CreateMutex());
  ASSERT_EQ(mutex->Lock(0), 1);
  EXPECT_EQ(mutex->Lock(0), 0) << "not recursive";
  std::thread other([&] {
    const Stopwatch watch;
    EXPECT_EQ(mutex->Lock(40), 0);
    EXPECT_GE(watch.Ms(), 40);
  });
  other.join();
  mutex->Unlock();
  EXPECT_EQ(mutex->Lock(0), 1) << "a lock that gave up holds nothing";
  std::thread waiter([&] { EXPECT_EQ(mutex->Lock(SCA_Infinite), 1); });
  mutex->Unlock();
  waiter.join();
  EXPECT_EQ(mutex->Lock(0), 0) << "the waiter holds it";
}

}  // namespace
