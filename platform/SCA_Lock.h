/// The annotated mutex and guard for short critical sections inside the library, and the
/// annotations that let Clang prove the locking (`-Wthread-safety`); other compilers ignore them.
#ifndef SCA_PLATFORM_SCA_LOCK_H
#define SCA_PLATFORM_SCA_LOCK_H

#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define SCA_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define SCA_THREAD_ATTRIBUTE(x)
#endif

#define SCA_CAPABILITY(name) SCA_THREAD_ATTRIBUTE(capability(name))
#define SCA_SCOPED_CAPABILITY SCA_THREAD_ATTRIBUTE(scoped_lockable)
#define SCA_GUARDED_BY(x) SCA_THREAD_ATTRIBUTE(guarded_by(x))
#define SCA_REQUIRES(...) SCA_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define SCA_ACQUIRE(...) SCA_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define SCA_TRY_ACQUIRE(...) SCA_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define SCA_RELEASE(...) SCA_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define SCA_EXCLUDES(...) SCA_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define SCA_NO_THREAD_SAFETY_ANALYSIS SCA_THREAD_ATTRIBUTE(no_thread_safety_analysis)

/// The standard mutex with annotations (the standard library's has none).
class SCA_CAPABILITY("mutex") SCA_Lock {
 public:
  void lock() SCA_ACQUIRE() { mutex_.lock(); }
  void unlock() SCA_RELEASE() { mutex_.unlock(); }

 private:
  friend class SCA_LockGuard;
  std::mutex mutex_;
};

/// Holds a lock for a scope. A condition can wait on it.
class SCA_SCOPED_CAPABILITY SCA_LockGuard {
 public:
  explicit SCA_LockGuard(SCA_Lock& lock) SCA_ACQUIRE(lock) : lock_(lock.mutex_) {}
  // NOLINTNEXTLINE(modernize-use-equals-default): what is defaulted takes no annotation
  ~SCA_LockGuard() SCA_RELEASE() {}
  SCA_LockGuard(const SCA_LockGuard&) = delete;
  SCA_LockGuard& operator=(const SCA_LockGuard&) = delete;

 private:
  friend class SCA_Condition;
  std::unique_lock<std::mutex> lock_;
};

/// The standard condition variable, for threads that hold a guard, which a wait leaves and retakes.
/// Takes no memory, as the standard's for locks of any kind would.
class SCA_Condition {
 public:
  void NotifyOne() { condition_.notify_one(); }
  void NotifyAll() { condition_.notify_all(); }
  template <class Predicate>
  void Wait(SCA_LockGuard& guard, Predicate isMet) {
    condition_.wait(guard.lock_, isMet);
  }
  template <class Duration>
  void WaitFor(SCA_LockGuard& guard, Duration time) {
    condition_.wait_for(guard.lock_, time);
  }
  /// @return False when the time has passed and the condition is not met.
  template <class Duration, class Predicate>
  bool WaitFor(SCA_LockGuard& guard, Duration time, Predicate isMet) {
    return condition_.wait_for(guard.lock_, time, isMet);
  }

 private:
  std::condition_variable condition_;
};

#endif  // SCA_PLATFORM_SCA_LOCK_H
