#include "programs/tikaextract/Window.h"

#include <algorithm>

namespace {

constexpr unsigned long kLookMs = 100;  // after which others are looked after

}  // namespace

void Window::Add(std::unique_ptr<Job> admitted, SCA_Owned<SCA_TikaTextSink> sink,
                 Servers* servers) {
  jobs_.push_back(std::move(admitted));
  Job* const job = jobs_.back().get();
  Document& document = job->document;
  if (sink == nullptr) return HasEnded(job);
  job->store->onFinish = [this, job] { HasEnded(job); };
  MakeRequest(job, std::move(sink));
  document.complaint = servers->Submit(job->request.get(), document.extension);
  if (document.complaint.empty()) return;
  job->request.reset();
  HasEnded(job);
}

void Window::MakeRequest(Job* job, SCA_Owned<SCA_TikaTextSink> sink) const {
  const Document& document = job->document;
  const char* const path = document.Source().c_str();
  const char* const extension = document.extension.c_str();
  job->request.reset(choice_.IsPlain()
                         ? new SCA_TikaExtractRequest(path, extension, "Default", sink.release())
                         : new SCA_TikaExtractRequest(path, extension, "Default", sink.release(),
                                                      OptionsFor(choice_, document.path)));
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
