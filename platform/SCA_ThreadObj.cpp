#include "platform/SCA_ThreadObj.h"

#include <cerrno>
#include <new>

#include "platform/SCA_Result.h"

SCA_ThreadObj::SCA_ThreadObj(int /*reserved*/) {
  SetValid(1);
}

SCA_ThreadObj::~SCA_ThreadObj() {
  // The deriving class has joined its worker by now; what is left here is a worker without a body.
  SCA_ThreadObj::Unlock("SCA_ThreadObj");
}

bool SCA_ThreadObj::IsWorker() const {
  return worker_.load() == std::this_thread::get_id();
}

int SCA_ThreadObj::Lock(const char* /*caller*/, unsigned long* error) {
  return (IsWorker() ? SCA_Result(EDEADLK) : Start()).Store(error);
}

SCA_Result SCA_ThreadObj::Start() {
  const SCA_LockGuard guard(control_);
  if (thread_.joinable()) {
    if (!hasEnded_.load()) return SCA_Result(EBUSY);
    thread_.join();
  }
  if (stop_ == nullptr) stop_.reset(new (std::nothrow) SCA_Event(1, 0));
  if (stop_ == nullptr || stop_->IsValid() == 0) {
    stop_.reset();
    return SCA_Result(ENOMEM);
  }
  stop_->Reset();
  published_.store(stop_.get(), std::memory_order_release);
  hasEnded_.store(false);
  const SCA_Result started = SCA_Guarded([this]() SCA_NO_THREAD_SAFETY_ANALYSIS {
    thread_ = std::thread([this] {
      worker_.store(std::this_thread::get_id());
      ThreadFunc();
      worker_.store(std::thread::id());
      hasEnded_.store(true);
    });
    return SCA_Done;
  });
  if (started.HasFailed()) hasEnded_.store(true);
  return started;
}

int SCA_ThreadObj::Unlock(const char* /*caller*/) {
  // Before the lock, which the thread that joins the worker holds until it has ended.
  if (SCA_Event* stop = GetStopEvent(); stop != nullptr) stop->Set();
  if (IsWorker()) return 1;
  const SCA_LockGuard guard(control_);
  if (!thread_.joinable()) return 1;
  // Again: a start that came in between has reset it.
  stop_->Set();
  thread_.join();
  return 1;
}
