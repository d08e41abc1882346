#include "product/SCA_TikaFleet.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>
#include <vector>

#include "platform/SCA_Error.h"
#include "platform/SCA_Result.h"
#include "product/SCA_TikaHostFollower.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned long kLookMs = 100;  // between two looks at the cancel event

}  // namespace

void SCA_TikaFleetObserver::OnHost(const SCA_TikaHostNews& /*news*/) {}

void SCA_TikaFleetObserver::OnServer(const SCA_TikaServerNews& /*news*/) {}

void SCA_TikaFleetObserver::OnLooked(unsigned long /*serviceId*/) {}

unsigned long SCA_TikaFleetObserver::ClientsFor(unsigned long /*serviceId*/,
                                                unsigned short /*port*/) {
  return 1;
}

class SCA_TikaFleet::Crew {
 public:
  using Outlook = SCA_TikaHostFollower::Outlook;

  Crew(SCA_TikaDispatcher* dispatcher, SCA_TikaFleetObserver* observer) {
    parts_.dispatcher = dispatcher;
    parts_.observer = observer;
  }
  bool IsValid() const { return parts_.changed.IsValid() != 0; }

  SCA_Result Follow(SCA_TikaService* service, const char* javaOptions) SCA_EXCLUDES(lock_) {
    if (hasLeft_) return SCA_Result(SCA_ErrorStopping);
    if (service == nullptr || Find(service->GetServiceId()) != nullptr) {
      return SCA_Result(SCA_ErrorInvalidData);
    }
    auto follower = std::make_unique<SCA_TikaHostFollower>(
        &parts_, service, javaOptions != nullptr ? javaOptions : "");
    if (!follower->IsValid()) return SCA_Result(ENOMEM);
    const SCA_LockGuard guard(lock_);
    followers_.reserve(followers_.size() + 1);
    follower->Start();
    followers_.push_back(std::move(follower));
    return SCA_Done;
  }

  // @return Null when the fleet does not follow the service.
  const SCA_TikaHostFollower* Find(unsigned long serviceId) const SCA_EXCLUDES(lock_) {
    const SCA_LockGuard guard(lock_);
    for (const auto& follower : followers_) {
      if (follower->ServiceId() == serviceId) return follower.get();
    }
    return nullptr;
  }

  // The best of all hosts.
  Outlook Prospect() const SCA_EXCLUDES(lock_) {
    const SCA_LockGuard guard(lock_);
    Outlook best = Outlook::Hopeless;
    for (const auto& follower : followers_) best = std::min(best, follower->Prospect());
    return best;
  }

  unsigned long Expected() const SCA_EXCLUDES(lock_) {
    const SCA_LockGuard guard(lock_);
    unsigned long sum = 0;
    for (const auto& follower : followers_) sum += follower->Expected();
    return sum;
  }

  void WaitForChange(unsigned long timeoutMs) { parts_.changed.Wait(timeoutMs); }

  // @return False when it has been done before.
  bool BeginToLeave() { return !std::exchange(hasLeft_, true); }

  // The threads still ask for what the lock guards.
  void Leave() SCA_EXCLUDES(lock_) {
    for (std::size_t i = 0; SCA_TikaHostFollower* follower = At(i); ++i) follower->AskToLeave();
    for (std::size_t i = 0; SCA_TikaHostFollower* follower = At(i); ++i) follower->Join();
  }

 private:
  SCA_TikaHostFollower* At(std::size_t i) SCA_EXCLUDES(lock_) {
    const SCA_LockGuard guard(lock_);
    return i < followers_.size() ? followers_[i].get() : nullptr;
  }

  SCA_TikaFleetParts parts_;
  mutable SCA_Lock lock_;
  std::vector<std::unique_ptr<SCA_TikaHostFollower>> followers_ SCA_GUARDED_BY(lock_);
  bool hasLeft_ = false;  // of the thread that follows and leaves
};

SCA_TikaFleet::SCA_TikaFleet(SCA_TikaDispatcher* dispatcher, SCA_TikaFleetObserver* observer)
    : dispatcher_(dispatcher) {
  if (dispatcher == nullptr || dispatcher->IsValid() == 0) return;
  crew_.reset(new (std::nothrow) Crew(dispatcher, observer));
  if (crew_ == nullptr || !crew_->IsValid()) return;
  dispatcher->SetPrepareServer(&SCA_TikaFleet::Prepare, this);
  SetValid(1);
}

SCA_TikaFleet::~SCA_TikaFleet() {
  Leave();
}

int SCA_TikaFleet::Follow(SCA_TikaService* service, const char* javaOptions, unsigned long* error) {
  if (IsValid() == 0) return SCA_Result(ENOMEM).Store(error);
  return SCA_Guarded([&] { return crew_->Follow(service, javaOptions); }).Store(error);
}

int SCA_TikaFleet::WaitForServer(unsigned long timeoutMs, SCA_Event* cancel) {
  const Clock::time_point begin = Clock::now();
  while (IsValid() != 0 && (cancel == nullptr || cancel->Wait(0) == 0)) {
    const Crew::Outlook prospect = crew_->Prospect();
    if (prospect != Crew::Outlook::Pending) return prospect == Crew::Outlook::Ready ? 1 : 0;
    unsigned long waitMs = kLookMs;
    if (timeoutMs != SCA_Infinite) {
      const auto passed =
          std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
      if (static_cast<unsigned long>(passed) >= timeoutMs) return 0;
      waitMs = std::min(waitMs, timeoutMs - static_cast<unsigned long>(passed));
    }
    crew_->WaitForChange(waitMs);
  }
  return 0;
}

int SCA_TikaFleet::IsReady(unsigned long serviceId, unsigned short port) const {
  const SCA_TikaHostFollower* follower = IsValid() != 0 ? crew_->Find(serviceId) : nullptr;
  return follower != nullptr && follower->IsReady(port) ? 1 : 0;
}

unsigned long SCA_TikaFleet::GetExpectedServers() const {
  return IsValid() != 0 ? crew_->Expected() : 0;
}

int SCA_TikaFleet::Prepare(SCA_TikaClient* client, SCA_Event* stop, void* fleet,
                           unsigned long* error) {
  const auto* const self = static_cast<SCA_TikaFleet*>(fleet);
  const unsigned short port = client->GetPortNumber();
  const SCA_TikaHostFollower* const follower = self->crew_->Find(client->GetServiceId());
  if (follower == nullptr) return 1;
  *error = SCA_ErrorNoServer;
  SCA_TikaAnswer answer;
  if (!follower->MayBeUsed(port)) return 0;
  return SCA_AskTikaVersion(client->GetServerName(), port, stop, &answer);
}

void SCA_TikaFleet::Leave() {
  if (IsValid() == 0 || !crew_->BeginToLeave()) return;
  dispatcher_->Stop();
  crew_->Leave();
}
