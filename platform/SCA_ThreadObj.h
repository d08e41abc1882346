/// An object with a worker thread and the event that asks it to stop.
/// Threads: any thread may call `Lock`, `Unlock` and `GetStopEvent`.
#ifndef SCA_PLATFORM_SCA_THREADOBJ_H
#define SCA_PLATFORM_SCA_THREADOBJ_H

#include <atomic>
#include <memory>
#include <thread>

#include "platform/SCA_Sync.h"

class SCA_Result;

/// Base of classes with a thread of their own. Until its first start it has neither a thread nor an
/// event. A deriving class calls `Unlock` in its own destructor, before its members go away: the
/// worker may use them until then.
class SCA_API SCA_ThreadObj : public SCA_Object {
 public:
  /// @param reserved  0. @note Inherited.
  explicit SCA_ThreadObj(int reserved = 0);
  ~SCA_ThreadObj() override;
  SCA_ThreadObj(const SCA_ThreadObj&) = delete;
  SCA_ThreadObj& operator=(const SCA_ThreadObj&) = delete;

  /// Resets the stop event and starts the worker, which runs `ThreadFunc`. A worker that has ended
  /// by itself is joined first.
  /// @param caller  Names the caller; for debugging.
  /// @param error   `EBUSY` while the worker runs, `EDEADLK` on the worker itself, `EAGAIN` or
  ///                `ENOMEM` when there is no room for a thread.
  /// @return 1 or 0.
  virtual int Lock(const char* caller, unsigned long* error);

  /// Sets the stop event and waits for the end of the worker, however long it takes; the worker
  /// itself only sets the event. Does nothing when there is no worker.
  /// @param caller  As above.
  /// @return 1.
  virtual int Unlock(const char* caller);

  /// The worker's body; returns soon after the stop event is set.
  /// @return An exit value, which nothing here looks at.
  virtual unsigned long ThreadFunc() = 0;

  /// @return The manual-reset event that asks the worker to stop; null before the first start.
  ///         Lives as long as the object.
  SCA_Event* GetStopEvent() const { return published_.load(std::memory_order_acquire); }

 protected:
  /// Makes `GetStopEvent` give another's event, for an object whose work is done by another's
  /// threads. Before it is shared; taken back, by null, before it ends. It is never started.
  void LendStopEvent(SCA_Event* stop) { published_.store(stop, std::memory_order_release); }

 private:
  bool IsWorker() const;
  SCA_Result Start() SCA_EXCLUDES(control_);

  // Held while a worker is joined: whoever asks for the stop of a thread that another is stopping
  // already must not come back before it has ended. The worker never takes it.
  SCA_Lock control_;
  std::unique_ptr<SCA_Event> stop_ SCA_GUARDED_BY(control_);
  std::thread thread_ SCA_GUARDED_BY(control_);
  std::atomic<SCA_Event*> published_{nullptr};
  std::atomic<std::thread::id> worker_{};  // of the thread that is in ThreadFunc
  std::atomic<bool> hasEnded_{true};
};

#endif  // SCA_PLATFORM_SCA_THREADOBJ_H
