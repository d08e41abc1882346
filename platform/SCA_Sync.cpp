#include "platform/SCA_Sync.h"

#include <atomic>
#include <chrono>
#include <new>

#include "platform/SCA_Report.h"

namespace {

class Event final : public SCA_VirtualEvent {
 public:
  Event(bool manualReset, bool initialState) : manualReset_(manualReset), set_(initialState) {
    SetValid(1);
  }

  void Set() override {
    const SCA_LockGuard guard(lock_);
    set_.store(true, std::memory_order_release);
    // Under the lock: a waiter that returns may destroy the event at once.
    if (manualReset_) {
      condition_.NotifyAll();
    } else {
      condition_.NotifyOne();
    }
  }

  void Reset() override {
    const SCA_LockGuard guard(lock_);
    set_.store(false, std::memory_order_relaxed);
  }

  int Wait(unsigned long timeoutMs) override {
    // Cancel events are polled several times per chunk, and nearly always unset.
    if (timeoutMs == 0 && !set_.load(std::memory_order_acquire)) return 0;
    return WaitLocked(timeoutMs);
  }

 private:
  // Apart, so that the usual way above has no frame to set up.
  __attribute__((noinline)) int WaitLocked(unsigned long timeoutMs) {
    SCA_LockGuard guard(lock_);
    const auto isSet = [this] { return set_.load(std::memory_order_relaxed); };
    if (timeoutMs == SCA_Infinite) {
      condition_.Wait(guard, isSet);
    } else if (!condition_.WaitFor(guard, std::chrono::milliseconds(timeoutMs), isSet)) {
      return 0;
    }
    if (!manualReset_) set_.store(false, std::memory_order_relaxed);
    return 1;
  }

  const bool manualReset_;
  SCA_Lock lock_;
  SCA_Condition condition_;
  std::atomic<bool> set_;  // written under the lock
};

// Free and held pass in one exchange each; only threads that have to wait, and those that let them
// go on, take the lock. Unlike the standard timed mutex, its waits run on the steady clock under
// ThreadSanitizer's eyes.
class Mutex final : public SCA_VirtualMutex {
 public:
  Mutex() { SetValid(1); }

  int Lock(unsigned long timeoutMs) override {
    if (Replace(State::Free, State::Held)) return 1;
    return timeoutMs != 0 && WaitForIt(timeoutMs) ? 1 : 0;
  }

  void Unlock() override {
    if (Replace(State::Held, State::Free)) return;
    // Under the lock: the waiter that takes it may destroy the mutex when it is done.
    const SCA_LockGuard guard(lock_);
    state_.store(State::Free, std::memory_order_release);
    freed_.NotifyOne();
  }

 private:
  enum class State { Free, Held, Wanted };  // wanted: held, and there may be threads that wait

  bool Replace(State from, State to) {
    return state_.compare_exchange_strong(from, to, std::memory_order_acq_rel,
                                          std::memory_order_relaxed);
  }

  // Who comes by here holds it as wanted, since others may wait as well.
  bool WaitForIt(unsigned long timeoutMs) {
    SCA_LockGuard guard(lock_);
    const auto take = [this] {
      return state_.exchange(State::Wanted, std::memory_order_acq_rel) == State::Free;
    };
    if (timeoutMs != SCA_Infinite) {
      return freed_.WaitFor(guard, std::chrono::milliseconds(timeoutMs), take);
    }
    freed_.Wait(guard, take);
    return true;
  }

  std::atomic<State> state_{State::Free};
  SCA_Lock lock_;
  SCA_Condition freed_;
};

}  // namespace

SCA_VirtualEvent* SCA_CreateEvent(int manualReset, int initialState) {
  return new (std::nothrow) Event(manualReset != 0, initialState != 0);
}

SCA_VirtualMutex* SCA_CreateMutex() {
  return new (std::nothrow) Mutex;
}

SCA_Event::SCA_Event(int manualReset, int initialState)
    : event_(SCA_CreateEvent(manualReset, initialState)) {
  if (event_ == nullptr) {
    SCA_GetReportFunction("SCA_Sync", __LINE__)(SCA_LevelError, "Cannot create SCA_VirtualEvent");
    return;
  }
  SetValid(1);
}

void SCA_Event::Set() {
  if (event_ != nullptr) event_->Set();
}

void SCA_Event::Reset() {
  if (event_ != nullptr) event_->Reset();
}

int SCA_Event::Wait(unsigned long timeoutMs) {
  return event_ != nullptr ? event_->Wait(timeoutMs) : 0;
}

SCA_Mutex::SCA_Mutex() : mutex_(SCA_CreateMutex()) {
  if (mutex_ == nullptr) {
    SCA_GetReportFunction("SCA_Sync", __LINE__)(SCA_LevelError, "Cannot create SCA_VirtualMutex");
    return;
  }
  SetValid(1);
}

int SCA_Mutex::Lock(unsigned long timeoutMs) SCA_NO_THREAD_SAFETY_ANALYSIS {
  return mutex_ != nullptr ? mutex_->Lock(timeoutMs) : 0;
}

void SCA_Mutex::Unlock() SCA_NO_THREAD_SAFETY_ANALYSIS {
  if (mutex_ != nullptr) mutex_->Unlock();
}
