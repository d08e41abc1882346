#include "platform/SCA_ThreadObj.h"

#include <cerrno>
#include <new>
#include <system_error>

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
  const unsigned long code = IsWorker() ? EDEADLK : Start();
  if (code == 0) return 1;
  *error = code;
  return 0;
}

// Gives 0 or the error code.
unsigned long SCA_ThreadObj::Start() {
  const SCA_LockGuard guard(control_);
  if (thread_.joinable()) {
    if (!hasEnded_.load()) return EBUSY;
    thread_.join();
  }
  if (stop_ == nullptr) stop_.reset(new (std::nothrow) SCA_Event(1, 0));
  if (stop_ == nullptr || stop_->IsValid() == 0) {
    stop_.reset();
    return ENOMEM;
  }
  stop_->Reset();
  published_.store(stop_.get(), std::memory_order_release);
  hasEnded_.store(false);
  try {
    thread_ = std::thread([this] {
      worker_.store(std::this_thread::get_id());
      ThreadFunc();
      worker_.store(std::thread::id());
      hasEnded_.store(true);
    });
    return 0;
  } catch (const std::system_error& failure) {
    hasEnded_.store(true);
    return static_cast<unsigned long>(failure.code().value());
  } catch (const std::bad_alloc&) {
    hasEnded_.store(true);
    return ENOMEM;
  }
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
