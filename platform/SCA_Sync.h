/// Events and mutexes with time-outs.
/// Threads: any thread may call any operation.
#ifndef SCA_PLATFORM_SCA_SYNC_H
#define SCA_PLATFORM_SCA_SYNC_H

#include "platform/SCA_Lock.h"
#include "platform/SCA_Object.h"

/// A time-out in milliseconds that never passes.
constexpr unsigned long SCA_Infinite = 0xFFFFFFFF;

/// The platform's event.
class SCA_API SCA_VirtualEvent : public SCA_Object {
 public:
  virtual void Set() = 0;
  virtual void Reset() = 0;
  /// @return 1 when the event is set, 0 after the time-out. An auto-reset event that ended a wait
  ///         is unset again, for one waiter only.
  virtual int Wait(unsigned long timeoutMs) = 0;
};

/// The platform's mutex.
class SCA_API SCA_VirtualMutex : public SCA_Object {
 public:
  /// @return 1 when the caller holds the mutex, 0 after the time-out. Not recursive.
  virtual int Lock(unsigned long timeoutMs) = 0;
  virtual void Unlock() = 0;
};

/// @param manualReset   1: stays set until `Reset`; 0: each set ends one wait.
/// @param initialState  1 begins set.
/// @return The object, which the caller ends by `Destroy()`; null when memory is exhausted.
SCA_API SCA_VirtualEvent* SCA_CreateEvent(int manualReset, int initialState);
/// @return The object, which the caller ends by `Destroy()`; null when memory is exhausted.
SCA_API SCA_VirtualMutex* SCA_CreateMutex();

/// Owner of a platform event: a mutex and a condition, no descriptor. Invalid (every wait gives 0
/// at once) when it could not be created. Cancel and stop events are made with `manualReset` 1.
class SCA_API SCA_Event : public SCA_Object {
 public:
  explicit SCA_Event(int manualReset = 0, int initialState = 0);
  SCA_Event(const SCA_Event&) = delete;
  SCA_Event& operator=(const SCA_Event&) = delete;

  void Set();
  void Reset();
  /// @param timeoutMs  0 only asks; `SCA_Infinite` waits for ever.
  /// @return 1 when set, 0 after the time-out.
  int Wait(unsigned long timeoutMs);

 private:
  SCA_Owned<SCA_VirtualEvent> event_;
};

/// Owner of a platform mutex. Invalid (never locked) when it could not be created.
class SCA_API SCA_CAPABILITY("mutex") SCA_Mutex : public SCA_Object {
 public:
  SCA_Mutex();
  SCA_Mutex(const SCA_Mutex&) = delete;
  SCA_Mutex& operator=(const SCA_Mutex&) = delete;

  /// @return 1 when the caller now holds the mutex, 0 after the time-out.
  int Lock(unsigned long timeoutMs) SCA_TRY_ACQUIRE(1);
  void Unlock() SCA_RELEASE();

 private:
  SCA_Owned<SCA_VirtualMutex> mutex_;
};

/// Holds a valid mutex for a scope, however long it takes to get it.
class SCA_SCOPED_CAPABILITY SCA_MutexGuard {
 public:
  explicit SCA_MutexGuard(SCA_Mutex& mutex) SCA_ACQUIRE(mutex) : mutex_(mutex) { Take(); }
  ~SCA_MutexGuard() SCA_RELEASE() { mutex_.Unlock(); }
  SCA_MutexGuard(const SCA_MutexGuard&) = delete;
  SCA_MutexGuard& operator=(const SCA_MutexGuard&) = delete;

 private:
  void Take() SCA_NO_THREAD_SAFETY_ANALYSIS { mutex_.Lock(SCA_Infinite); }

  SCA_Mutex& mutex_;
};

#endif  // SCA_PLATFORM_SCA_SYNC_H
