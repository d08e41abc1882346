/// Threads of which one leads: it runs a loop that never waits for long, and makes from it calls
/// that may. While a call lasts, another thread takes the lead. Internal to the library.
#ifndef SCA_PLATFORM_SCA_LEADTHREADS_H
#define SCA_PLATFORM_SCA_LEADTHREADS_H

#include <atomic>
#include <cstdint>
#include <list>
#include <thread>

#include "platform/SCA_Lock.h"
#include "platform/SCA_Result.h"

/// The loop.
class SCA_LeadWork {
 public:
  virtual ~SCA_LeadWork() = default;
  /// Runs until `Call` has lost the lead, or until it has said `Finish`. On the leading thread;
  /// what one leader has done the next one sees.
  virtual void Lead() = 0;
  /// A thread can take the lead again, which `CanCall` may have waited for. Any thread.
  virtual void Wake() = 0;
};

/// The thread that leads makes short calls itself, with no switch of threads. A deputy looks at it
/// every few milliseconds while there are calls, and sleeps while there are none. Threads: any may
/// call `Hurry`; the leading one `CanCall`, `Call` and `Finish`; the rest is for the owner.
class SCA_LeadThreads {
 public:
  /// @param work  Outlives the threads.
  explicit SCA_LeadThreads(SCA_LeadWork* work) : work_(*work) {}
  ~SCA_LeadThreads() { Join(); }
  SCA_LeadThreads(const SCA_LeadThreads&) = delete;
  SCA_LeadThreads& operator=(const SCA_LeadThreads&) = delete;

  /// Once. @return `EAGAIN` or `ENOMEM` without a thread.
  SCA_Result Start() SCA_EXCLUDES(lock_);
  /// Waits until all threads have ended, which `Finish` makes them do. Does nothing before a start.
  void Join() SCA_EXCLUDES(lock_);

  /// @return False while as many calls last as may: what waits for one is called after a `Wake`.
  bool CanCall() SCA_EXCLUDES(lock_);
  /// Calls. @return False when another thread leads meanwhile: the caller then leaves `Lead`, and
  /// touches nothing that belongs to the leader.
  template <class Function>
  bool Call(const Function& function) {
    const std::uint64_t ticket = BeginCall();
    function();
    return EndCall(ticket);
  }
  /// No call comes any more.
  void Finish() SCA_EXCLUDES(lock_);

  /// Gives up the call that is being made, if any, at once.
  void Hurry() SCA_EXCLUDES(lock_);
  /// @return True within a call.
  bool IsCaller() const;

 private:
  using Threads = std::list<std::thread>;

  std::uint64_t BeginCall();
  bool EndCall(std::uint64_t ticket);
  void WakeDeputy() SCA_EXCLUDES(lock_);
  SCA_Result AddThread() SCA_REQUIRES(lock_);
  void Run(Threads::iterator self) SCA_EXCLUDES(lock_);
  bool AwaitLead(bool isAppointed) SCA_EXCLUDES(lock_);
  bool WatchLeader(SCA_LockGuard& guard) SCA_REQUIRES(lock_);

  SCA_LeadWork& work_;
  // Counts calls: odd while the leader is in one. Who makes an odd number even has the lead.
  std::atomic<std::uint64_t> calls_{0};
  std::atomic<bool> isDeputyAsleep_{false};
  std::atomic<bool> hasDeputy_{false};  // or is about to have one

  SCA_Lock lock_;
  SCA_Condition changed_;
  bool isVacant_ SCA_GUARDED_BY(lock_) = true;  // nobody has led yet
  bool isFinished_ SCA_GUARDED_BY(lock_) = false;
  bool isHurried_ SCA_GUARDED_BY(lock_) = false;
  Threads threads_ SCA_GUARDED_BY(lock_);
  std::thread ended_ SCA_GUARDED_BY(lock_);  // the one that ended last, yet to be joined
};

#endif  // SCA_PLATFORM_SCA_LEADTHREADS_H
