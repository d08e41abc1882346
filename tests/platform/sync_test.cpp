#include "platform/SCA_Sync.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/Timing.h"

namespace {

TEST(Event, ManualStaysSetAndAutoEndsOneWait) {
  for (const int manual : {0, 1}) {
    for (const int initial : {0, 1}) {
      SCA_Event event(manual, initial);
      EXPECT_EQ(event.Wait(0), initial);
      EXPECT_EQ(event.Wait(0), initial * manual);
      event.Set();
      event.Set();
      EXPECT_EQ(event.Wait(SCA_Infinite), 1);
      EXPECT_EQ(event.Wait(1), manual);
      event.Set();
      event.Reset();
      EXPECT_EQ(event.Wait(1), 0);
    }
  }
}

TEST(Event, SetWakesEveryWaiterOfAManualEventAndOneOfAnAutoEvent) {
  for (const int manual : {0, 1}) {
    SCA_Event event(manual, 0);
    std::atomic<int> woken{0};
    std::atomic<int> ids[4] = {};
    std::vector<std::thread> threads;
    for (std::atomic<int>& id : ids) {
      threads.emplace_back([&] {
        id = ::gettid();
        EXPECT_EQ(event.Wait(kDeadlineMs), 1);
        woken.fetch_add(1);
      });
    }
    for (const std::atomic<int>& id : ids) {
      EXPECT_TRUE(Eventually([&] { return id != 0; }) && BlocksSoon(id));
    }
    for (int sets = manual != 0 ? 4 : 1; sets <= 4; ++sets) {
      event.Set();
      EXPECT_TRUE(Eventually([&] { return woken >= sets; }));
    }
    for (std::thread& thread : threads) thread.join();
    // Had one set of an auto event woken two waiters, the last one would be left over.
    EXPECT_EQ(event.Wait(0), manual);
  }
}

TEST(Event, PublishesWhatWasWrittenBeforeTheSetAndMayThenBeDestroyed) {
  for (int i = 0; i < 500; ++i) {
    auto event = std::make_unique<SCA_Event>(i % 2, 0);
    int value = 0;
    std::thread setter([&value, set = event.get()] {
      value = 7;
      set->Set();
    });
    while (event->Wait(i % 4 < 2 ? kDeadlineMs : 0) == 0) std::this_thread::yield();
    EXPECT_EQ(value, 7);
    event.reset();
    setter.join();
  }
}

TEST(Mutex, ExcludesUnderContention) {
  SCA_Mutex mutex;
  int total = 0;  // not atomic: the mutex alone protects it
  std::vector<std::thread> threads(4);
  for (std::thread& thread : threads) {
    thread = std::thread([&] {
      for (int i = 0; i < 5000; ++i) {
        // Some give up between others that wait without a limit, and come back.
        while (mutex.Lock(i % 2 == 0 ? SCA_Infinite : static_cast<unsigned long>(i % 3)) == 0) {
        }
        ++total;
        mutex.Unlock();
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
  EXPECT_EQ(mutex->Lock(40), 0);
  mutex->Unlock();
  EXPECT_EQ(mutex->Lock(0), 1) << "whoever gave up does not hold it";
}

}  // namespace
