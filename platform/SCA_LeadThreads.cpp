#include "platform/SCA_LeadThreads.h"

#include <chrono>
#include <cstddef>
#include <utility>

namespace {

// A call that lasts this long, or twice as long, loses the lead.
constexpr std::chrono::milliseconds kPatience{4};
// Calls that may last at a time, with the leader and its deputy.
constexpr std::size_t kMaxThreads = 66;

thread_local const SCA_LeadThreads* currentThreads = nullptr;

constexpr bool IsCall(std::uint64_t count) {
  return count % 2 != 0;
}

}  // namespace

SCA_Result SCA_LeadThreads::Start() {
  const SCA_LockGuard guard(lock_);
  return AddThread();
}

SCA_Result SCA_LeadThreads::AddThread() {
  if (threads_.size() >= kMaxThreads) return SCA_Result(EAGAIN);
  const SCA_Result added = SCA_Guarded([this]() SCA_NO_THREAD_SAFETY_ANALYSIS {
    threads_.emplace_back();
    const auto place = std::prev(threads_.end());
    const SCA_Result started = SCA_Guarded([&] {
      *place = std::thread([this, place] { Run(place); });
      return SCA_Done;
    });
    if (started.HasFailed()) threads_.erase(place);
    return started;
  });
  if (!added.HasFailed()) hasDeputy_ = true;
  return added;
}

void SCA_LeadThreads::Run(Threads::iterator self) {
  for (bool isAppointed = true; AwaitLead(isAppointed); isAppointed = false) work_.Lead();
  std::thread former;
  {
    const SCA_LockGuard guard(lock_);
    former = std::exchange(ended_, std::move(*self));
    threads_.erase(self);
    changed_.NotifyAll();
  }
  // It has ended, or is about to.
  if (former.joinable()) former.join();
}

void SCA_LeadThreads::Join() {
  std::thread last;
  {
    SCA_LockGuard guard(lock_);
    changed_.Wait(guard, [this]() SCA_NO_THREAD_SAFETY_ANALYSIS { return threads_.empty(); });
    last = std::move(ended_);
  }
  if (last.joinable()) last.join();
}

// @param isAppointed  The thread was started as the deputy.
// @return True once this thread leads; false when it is not needed.
bool SCA_LeadThreads::AwaitLead(bool isAppointed) {
  SCA_LockGuard guard(lock_);
  if (hasDeputy_ && !isAppointed) return false;
  hasDeputy_ = true;
  bool leads = std::exchange(isVacant_, false);
  if (!leads) {
    work_.Wake();
    leads = WatchLeader(guard);
  }
  hasDeputy_ = false;
  return leads;
}

bool SCA_LeadThreads::WatchLeader(SCA_LockGuard& guard) {
  for (std::uint64_t former = 0; !isFinished_;) {
    std::uint64_t now = calls_.load();
    const bool isSame = std::exchange(former, now) == now;
    if (IsCall(now) && (isSame || std::exchange(isHurried_, false))) {
      if (calls_.compare_exchange_strong(now, now + 1)) return true;
    } else if (isSame) {
      // Nobody calls. The leader looks at this flag after it has counted a call, and this thread
      // at the count after it has set the flag: one of them sees the other.
      isDeputyAsleep_ = true;
      if (calls_.load() == now) {
        changed_.Wait(guard, [this]() SCA_NO_THREAD_SAFETY_ANALYSIS {
          return isFinished_ || !isDeputyAsleep_;
        });
      }
      isDeputyAsleep_ = false;
    } else {
      changed_.WaitFor(guard, kPatience, [this]() SCA_NO_THREAD_SAFETY_ANALYSIS {
        return isFinished_ || isHurried_;
      });
    }
  }
  return false;
}

void SCA_LeadThreads::WakeDeputy() {
  const SCA_LockGuard guard(lock_);
  isDeputyAsleep_ = false;
  changed_.NotifyAll();
}

bool SCA_LeadThreads::CanCall() {
  if (hasDeputy_) return true;
  const SCA_LockGuard guard(lock_);
  if (hasDeputy_ || !AddThread().HasFailed()) return true;
  // Alone, as there is no memory for another thread, the leader makes every call itself.
  return threads_.size() == 1;
}

std::uint64_t SCA_LeadThreads::BeginCall() {
  const std::uint64_t ticket = calls_.load(std::memory_order_relaxed) + 1;
  calls_.store(ticket);
  if (isDeputyAsleep_) WakeDeputy();
  currentThreads = this;
  return ticket;
}

bool SCA_LeadThreads::EndCall(std::uint64_t ticket) {
  currentThreads = nullptr;
  return calls_.compare_exchange_strong(ticket, ticket + 1);
}

void SCA_LeadThreads::Finish() {
  const SCA_LockGuard guard(lock_);
  isFinished_ = true;
  changed_.NotifyAll();
}

void SCA_LeadThreads::Hurry() {
  const SCA_LockGuard guard(lock_);
  isHurried_ = true;
  changed_.NotifyAll();
}

bool SCA_LeadThreads::IsCaller() const {
  return currentThreads == this;
}
