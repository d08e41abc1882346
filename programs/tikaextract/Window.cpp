#include "programs/tikaextract/Window.h"

#include <algorithm>

namespace {

constexpr unsigned long kLookMs = 100;  // after which others are looked after

}  // namespace

void Window::Add(std::unique_ptr<Job> admitted, std::unique_ptr<TextStore> store,
                 Servers* servers) {
  jobs_.push_back(std::move(admitted));
  Job* const job = jobs_.back().get();
  Document& document = job->document;
  if (store == nullptr) return HasEnded(job);
  job->store = store.get();
  store->onFinish = [this, job] { HasEnded(job); };
  job->request.reset(new SCA_TikaExtractRequest(
      document.Source().c_str(), document.extension.c_str(), "Default", store.release()));
  document.complaint = servers->Submit(job->request.get(), document.extension);
  if (document.complaint.empty()) return;
  job->request.reset();
  HasEnded(job);
}

void Window::HasEnded(Job* job) {
  if (isOrdered_) return;
  {
    const SCA_LockGuard guard(lock_);
    ended_.push_back(job);
  }
  oneEnded_.Set();
}

std::unique_ptr<Job> Window::TakeEnded() {
  Job* const job = FirstEnded();
  if (job == nullptr) return nullptr;
  const auto place = std::find_if(jobs_.begin(), jobs_.end(),
                                  [job](const auto& other) { return other.get() == job; });
  std::unique_ptr<Job> taken = std::move(*place);
  jobs_.erase(place);
  return taken;
}

Job* Window::FirstEnded() {
  if (isOrdered_) {
    Job* const first = jobs_.front().get();
    const bool isOver = first->request == nullptr || first->request->GetReady()->Wait(kLookMs) != 0;
    return isOver ? first : nullptr;
  }
  Job* job = nullptr;
  {
    const SCA_LockGuard guard(lock_);
    if (!ended_.empty()) {
      job = ended_.front();
      ended_.pop_front();
    }
  }
  if (job == nullptr) {
    oneEnded_.Wait(kLookMs);
  } else if (job->request != nullptr) {
    job->request->GetReady()->Wait(SCA_Infinite);
  }
  return job;
}
