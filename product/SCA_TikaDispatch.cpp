#include "product/SCA_TikaDispatch.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <new>

#include "platform/SCA_Error.h"
#include "platform/SCA_Text.h"
#include "platform/SCA_Time.h"

namespace {

using Clock = std::chrono::steady_clock;

// How soon an expired limit, a cancelled request in the queue or the lack of a server is noticed.
constexpr unsigned long kTickMs = 50;

// A submit that waits looks again after so long: the limit may have been raised, which tells
// nobody.
constexpr std::chrono::seconds kLookAgain{1};

bool HasPassed(Clock::time_point since, unsigned long milliseconds, Clock::time_point now) {
  return now - since >= std::chrono::milliseconds(milliseconds);
}

}  // namespace

SCA_TikaVerdict SCA_TikaVerdict::Make(SCA_TikaOutcome outcome, unsigned long code,
                                      const char* server, const char* cause) {
  SCA_TikaVerdict verdict;
  verdict.outcome = outcome;
  verdict.code = code;
  if (server != nullptr) verdict.Tell(server).Tell(": ");
  return verdict.Tell(cause);
}

SCA_TikaVerdict& SCA_TikaVerdict::Tell(const char* text) {
  const std::size_t length = std::strlen(cause);
  SCA_CopyText(cause + length, sizeof cause - length, text, SCA_TextFit::Cut);
  return *this;
}

// The services of a request, kept for the time when the request may have gone.
struct SCA_TikaDispatch::Services {
  explicit Services(SCA_TikaExtractRequest* request) {
    for (const auto* node = request->GetServiceList()->GetHead(); node != nullptr;
         node = node->GetNext()) {
      if (count == ids.size()) {
        areAll = true;
        return;
      }
      ids[count++] = static_cast<std::uint32_t>(node->GetItem());
    }
  }
  bool Hold(unsigned long id) const {
    const auto* const end = ids.data() + count;
    return areAll || std::find(ids.data(), end, static_cast<std::uint32_t>(id)) != end;
  }

  std::array<std::uint32_t, 16> ids{};
  std::size_t count = 0;
  bool areAll = false;  // too many to keep: any service may be among them
};

SCA_TikaDispatch::SCA_TikaDispatch(SCA_TikaConfigOrv* settings,
                                   const SCA_TikaDispatchLimits& limits)
    : settings_(settings), limits_(limits) {}

bool SCA_TikaDispatch::Start() {
  services_.reset(settings_->Clone());
  if (services_ == nullptr || pool_.IsValid() == 0 || queue_.IsValid() == 0 ||
      stop_.IsValid() == 0 || watch_.IsValid() == 0) {
    return false;
  }
  try {
    watcher_ = std::thread([this] { Watch(); });
  } catch (const std::exception&) {
    return false;
  }
  return true;
}

void SCA_TikaDispatch::SetPrepareServer(SCA_TikaPrepareServer prepare, void* context) {
  prepare_ = prepare;
  prepareContext_ = context;
}

unsigned long SCA_TikaDispatch::AddServer(const char* hostName, unsigned short port,
                                          unsigned long serviceId) {
  char name[260];
  if (hostName == nullptr || *hostName == '\0' ||
      SCA_CopyText(name, hostName, SCA_TextFit::Refuse) == 0) {
    return SCA_ErrorHostNameInvalid;
  }
  const SCA_LockGuard guard(lock_);
  if (isStopping_) return SCA_ErrorStopping;
  const unsigned long number = seats_.size();
  unsigned long server = number;
  for (const Seat& seat : seats_) {
    if (seat.worker->IsServer(hostName, port)) server = seat.worker->Server();
  }
  try {
    seats_.emplace_back();
    seats_.back().worker =
        std::make_unique<SCA_TikaWorker>(this, number, hostName, port, serviceId, server);
    seats_.back().worker->Start();
  } catch (const std::bad_alloc&) {
    if (seats_.size() > number) seats_.pop_back();
    return ENOMEM;
  } catch (const std::exception&) {
    seats_.pop_back();
    return EAGAIN;
  }
  return 0;
}

unsigned long SCA_TikaDispatch::Check(SCA_TikaExtractRequest* request) const {
  if (request->IsValid() == 0) return SCA_ErrorInvalidData;
  if (request->GetProcessStatus() != SCA_RequestPending || request->dispatch_ != nullptr) {
    return SCA_ErrorAlreadyActive;
  }
  if (settings_->IsEnabled() == 0) return SCA_ErrorExtractionOff;
  return request->GetServiceList()->Count() > 0 ? 0 : FillServices(request);
}

unsigned long SCA_TikaDispatch::FillServices(SCA_TikaExtractRequest* request) const {
  const bool isGeneral = services_->MatchExtension(request->GetFileExt()) != 0;
  for (const auto* node = services_->GetServiceList()->GetHead(); node != nullptr;
       node = node->GetNext()) {
    const SCA_TikaService& service = *node->GetItem();
    const bool takesFile = service.GetProcessCustomExtensions() != 0
                               ? service.MatchExtension(request->GetFileExt()) != 0
                               : isGeneral;
    if (service.IsEnabled() == 0 || !takesFile ||
        std::string_view(service.GetPoolName()) != request->GetPoolName()) {
      continue;
    }
    if (request->GetServiceList()->AddItemToTail(service.GetServiceId()) == 0) return ENOMEM;
  }
  return request->GetServiceList()->Count() > 0 ? 0 : SCA_ErrorNoService;
}

unsigned long SCA_TikaDispatch::Admit(SCA_TikaExtractRequest* request, bool wait) {
  SCA_LockGuard guard(lock_);
  for (;;) {
    if (isStopping_) return SCA_ErrorStopping;
    const unsigned long limit = settings_->GetMaxPendingRequests();
    if (waiting_ < limit) break;
    if (!wait || limit == 0) return SCA_ErrorQueueFull;
    hasRoom_.wait_for(guard, kLookAgain);
  }
  const char* const noName = nullptr;
  if (requests_.AddItemToTail(request, noName, &request->place_) == 0) return ENOMEM;
  ++waiting_;
  request->dispatch_ = this;
  request->isWaiting_ = true;
  request->waitsSince_ = Clock::now();
  request->SetAbsTime(SCA_GetAbsTime());
  // Until now the watcher had nothing to look at.
  if (requests_.Count() == 1) watch_.Set();
  return 0;
}

unsigned long SCA_TikaDispatch::Submit(SCA_TikaExtractRequest* request, bool wait) {
  unsigned long error = Check(request);
  if (error == 0) error = Admit(request, wait);
  if (error != 0) return error;
  const Services services(request);
  if (queue_.AddRequest(request) == 0) {
    const SCA_LockGuard guard(lock_);
    Unregister(request);
    return ENOMEM;
  }
  // From here on the request may have ended and gone.
  bool isStopping = false;
  {
    const SCA_LockGuard guard(lock_);
    ++work_;
    WakeOne(
        [&services](const SCA_TikaWorker& worker) { return services.Hold(worker.ServiceId()); });
    isStopping = isStopping_;
  }
  if (isStopping && queue_.RemoveRequest(request) != 0) {
    Finish(request, SCA_TikaVerdict::Make(SCA_TikaOutcome::Cancelled, SCA_ErrorCancelled, nullptr,
                                          SCA_ErrorText(SCA_ErrorStopping)));
  }
  return 0;
}

void SCA_TikaDispatch::Cancel(SCA_TikaExtractRequest* request) {
  request->cancel_.Set();
  watch_.Set();
}

void SCA_TikaDispatch::CancelAll() {
  {
    const SCA_LockGuard guard(lock_);
    for (const auto* node = requests_.GetHead(); node != nullptr; node = node->GetNext()) {
      node->GetItem()->cancel_.Set();
    }
  }
  watch_.Set();
}

// One exchange of the status decides who deletes a request that a thread of ours has: that thread
// when it ends it, since it then finds the mark.
void SCA_TikaDispatch::Abandon(SCA_TikaExtractRequest* request) {
  request->cancel_.Set();
  bool isOurs = queue_.RemoveRequest(request) != 0;
  if (!isOurs) {
    const SCA_LockGuard guard(lock_);
    isOurs = request->dispatch_ == nullptr || request->isRetry_;
    if (request->isRetry_) LeaveRetries(request);
    if (!isOurs) request->ExchangeProcessStatus(SCA_RequestAbandoned);
  }
  if (isOurs) request->Destroy();
}

void SCA_TikaDispatch::Forget(SCA_TikaExtractRequest* request) {
  {
    const SCA_LockGuard guard(lock_);
    Unregister(request);
  }
  hasRoom_.notify_one();
}

void SCA_TikaDispatch::Unregister(SCA_TikaExtractRequest* request) {
  NoLongerWaits(request);
  LeaveRetries(request);
  requests_.DeleteListItem(request->place_);
  request->place_ = nullptr;
  request->dispatch_ = nullptr;
}

void SCA_TikaDispatch::NoLongerWaits(SCA_TikaExtractRequest* request) {
  if (request->isWaiting_) --waiting_;
  request->isWaiting_ = false;
}

void SCA_TikaDispatch::LeaveRetries(SCA_TikaExtractRequest* request) {
  if (request->isRetry_) --retries_;
  request->isRetry_ = false;
}

void SCA_TikaDispatch::JoinRetries(SCA_TikaExtractRequest* request) {
  request->isRetry_ = true;
  request->isServed_ = false;
  ++retries_;
  ++work_;
  WakeOne([request](const SCA_TikaWorker& worker) { return worker.MayServe(*request); });
}

unsigned long SCA_TikaDispatch::Pending() {
  const SCA_LockGuard guard(lock_);
  return waiting_;
}

int SCA_TikaDispatch::GetStatus(SCA_ConfigObj* obj) {
  SCA_ConfigObj* clients = obj->AddConfigObj("Clients");
  SCA_ConfigObj* requests = obj->AddConfigObj("Requests");
  if (clients == nullptr || requests == nullptr) return 0;
  return pool_.GetStatus(clients) != 0 && queue_.GetStatus(requests) != 0 ? 1 : 0;
}

// For the workers.

int SCA_TikaDispatch::Prepare(SCA_TikaClient* client, unsigned long* error) {
  return prepare_ != nullptr ? prepare_(client, &stop_, prepareContext_, error) : 1;
}

unsigned long SCA_TikaDispatch::Work() {
  const SCA_LockGuard guard(lock_);
  return work_;
}

SCA_TikaExtractRequest* SCA_TikaDispatch::Take(const SCA_TikaWorker& worker) {
  for (;;) {
    SCA_TikaExtractRequest* request = TakeRetry(worker);
    if (request == nullptr) {
      SCA_TikaClientRequest* taken = nullptr;
      if (queue_.TakeClientRequest(worker.Client(), &taken) == 0) return nullptr;
      // Nothing else is ever queued.
      request = static_cast<SCA_TikaExtractRequest*>(taken);
    }
    if (Begin(request)) return request;
  }
}

SCA_TikaExtractRequest* SCA_TikaDispatch::TakeRetry(const SCA_TikaWorker& worker) {
  const SCA_LockGuard guard(lock_);
  if (retries_ == 0) return nullptr;
  for (const auto* node = requests_.GetHead(); node != nullptr; node = node->GetNext()) {
    SCA_TikaExtractRequest* const request = node->GetItem();
    if (!request->isRetry_ || !worker.MayServe(*request)) continue;
    LeaveRetries(request);
    return request;
  }
  return nullptr;
}

// @return False when the request had been abandoned, and is gone.
bool SCA_TikaDispatch::Begin(SCA_TikaExtractRequest* request) {
  if (request->ExchangeProcessStatus(SCA_RequestServed) == SCA_RequestAbandoned) {
    request->Destroy();
    return false;
  }
  {
    const SCA_LockGuard guard(lock_);
    NoLongerWaits(request);
    request->isServed_ = true;
    if (request->tries_++ == 0) request->beganAt_ = Clock::now();
  }
  hasRoom_.notify_one();
  return true;
}

template <class Accept>
void SCA_TikaDispatch::WakeOne(Accept accept) {
  for (Seat& seat : seats_) {
    if (!seat.isIdle || !accept(*seat.worker)) continue;
    seat.isIdle = false;
    seat.worker->Wake();
    return;
  }
}

void SCA_TikaDispatch::WakeAll() {
  for (Seat& seat : seats_) {
    seat.isIdle = false;
    seat.worker->Wake();
  }
}

bool SCA_TikaDispatch::BeginIdle(const SCA_TikaWorker& worker, unsigned long seen) {
  const SCA_LockGuard guard(lock_);
  seats_[worker.Number()].isIdle = work_ == seen && !isStopping_;
  return seats_[worker.Number()].isIdle;
}

void SCA_TikaDispatch::EndIdle(const SCA_TikaWorker& worker) {
  const SCA_LockGuard guard(lock_);
  seats_[worker.Number()].isIdle = false;
}

void SCA_TikaDispatch::ServerIsUp(const SCA_TikaWorker& worker) {
  const SCA_LockGuard guard(lock_);
  seats_[worker.Number()].downSince.reset();
}

void SCA_TikaDispatch::ServerIsDown(const SCA_TikaWorker& worker, unsigned long error) {
  {
    const SCA_LockGuard guard(lock_);
    Seat& seat = seats_[worker.Number()];
    seat.error = error;
    if (seat.downSince) return;
    seat.downSince = Clock::now();
    // The worker may have been woken for a request that it cannot serve now.
    ++work_;
    WakeAll();
  }
  watch_.Set();
}

bool SCA_TikaDispatch::HasOtherServer(const SCA_TikaExtractRequest& request,
                                      const SCA_TikaWorker& worker) {
  const SCA_LockGuard guard(lock_);
  return std::any_of(seats_.begin(), seats_.end(), [&](const Seat& seat) {
    return seat.worker->Server() != worker.Server() && seat.worker->MayServe(request);
  });
}

void SCA_TikaDispatch::Retry(SCA_TikaExtractRequest* request, unsigned long failedServer) {
  {
    const SCA_LockGuard guard(lock_);
    if (request->ExchangeProcessStatus(SCA_RequestPending) != SCA_RequestAbandoned) {
      request->failedServer_ = failedServer;
      request->waitsSince_ = Clock::now();
      JoinRetries(request);
      return;
    }
  }
  request->Destroy();
}

bool SCA_TikaDispatch::IsOverdue(const SCA_TikaExtractRequest& request) {
  const SCA_LockGuard guard(lock_);
  return request.isOverdue_;
}

void SCA_TikaDispatch::Finish(SCA_TikaExtractRequest* request, const SCA_TikaVerdict& verdict) {
  request->outcome_ = verdict.outcome;
  request->SetStatusCode(verdict.code);
  SCA_CopyText(request->cause_, verdict.cause, SCA_TextFit::Cut);
  if (request->tries_ > 0) {
    request->durationMs_ = static_cast<unsigned long long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - request->beganAt_)
            .count());
  }
  request->sink_->Finish(request);
  bool isAbandoned = false;
  {
    const SCA_LockGuard guard(lock_);
    Unregister(request);
    isAbandoned = request->ExchangeProcessStatus(SCA_RequestFinished) == SCA_RequestAbandoned;
    // Under the lock, which `Abandon` takes: nobody deletes the request before this is done.
    if (!isAbandoned) request->GetReady()->Set();
  }
  hasRoom_.notify_one();
  if (isAbandoned) request->Destroy();
}

// What no worker sees to: limits, cancelled requests that no worker comes for, missing servers.

void SCA_TikaDispatch::Watch() {
  for (;;) {
    watch_.Wait(HasRequests() ? kTickMs : SCA_Infinite);
    if (stop_.Wait(0) != 0) return;
    while (Sweep()) {
    }
  }
}

bool SCA_TikaDispatch::HasRequests() {
  const SCA_LockGuard guard(lock_);
  return requests_.Count() > 0;
}

// @return True when there may be more to end.
bool SCA_TikaDispatch::Sweep() {
  struct Found {
    SCA_TikaExtractRequest* request;
    bool isTaken;
  };
  std::array<Found, 32> found{};
  std::size_t count = 0;
  {
    const SCA_LockGuard guard(lock_);
    const Clock::time_point now = Clock::now();
    for (const auto* node = requests_.GetHead(); node != nullptr && count < found.size();
         node = node->GetNext()) {
      SCA_TikaExtractRequest* const request = node->GetItem();
      if (request->isServed_) {
        if (!request->isOverdue_ && IsPastLimit(*request, now)) {
          request->isOverdue_ = true;
          request->cancel_.Set();
        }
      } else if (Judge(request, now).outcome != SCA_TikaOutcome::None) {
        found[count++] = {request, request->isRetry_};
        LeaveRetries(request);
      }
    }
  }
  bool hasEnded = false;
  for (std::size_t i = 0; i < count; ++i) {
    hasEnded = EndWaiting(found[i].request, found[i].isTaken) || hasEnded;
  }
  return hasEnded && count == found.size();
}

// Ends a request that seemed to be due. One from the queue may have gone meanwhile, and another may
// lie at its address: it is looked at again once it is ours.
bool SCA_TikaDispatch::EndWaiting(SCA_TikaExtractRequest* request, bool isTaken) {
  if (!isTaken && queue_.RemoveRequest(request) == 0) return false;
  SCA_TikaVerdict verdict;
  {
    const SCA_LockGuard guard(lock_);
    verdict = Judge(request, Clock::now());
    if (verdict.outcome == SCA_TikaOutcome::None) {
      JoinRetries(request);
      return false;
    }
  }
  Finish(request, verdict);
  return true;
}

SCA_TikaVerdict SCA_TikaDispatch::Judge(SCA_TikaExtractRequest* request, Clock::time_point now) {
  if (request->isOverdue_ || IsPastLimit(*request, now)) {
    return SCA_TikaVerdict::Make(SCA_TikaOutcome::TimeLimit, SCA_ErrorTimeLimit, nullptr,
                                 SCA_ErrorText(SCA_ErrorTimeLimit));
  }
  if (request->cancel_.Wait(0) != 0) {
    return SCA_TikaVerdict::Make(SCA_TikaOutcome::Cancelled, SCA_ErrorCancelled, nullptr,
                                 SCA_ErrorText(SCA_ErrorCancelled));
  }
  const Seat* example = nullptr;
  if (!LacksServer(*request, now, &example)) return {};
  SCA_TikaVerdict verdict =
      request->tries_ > 0
          ? SCA_TikaVerdict::Make(SCA_TikaOutcome::ConnectionBroken, SCA_ErrorNoServer,
                                  request->server_,
                                  "the connection broke, and no other server could be reached")
          : SCA_TikaVerdict::Make(SCA_TikaOutcome::NoServer, SCA_ErrorNoServer, nullptr,
                                  SCA_ErrorText(SCA_ErrorNoServer));
  if (example != nullptr) {
    verdict.Tell("; ").Tell(example->worker->Name().c_str()).Tell(": ");
    verdict.Tell(SCA_ErrorText(example->error));
  }
  return verdict;
}

bool SCA_TikaDispatch::IsPastLimit(const SCA_TikaExtractRequest& request,
                                   Clock::time_point now) const {
  return limits_.fileMs != 0 && request.tries_ > 0 &&
         HasPassed(request.beganAt_, limits_.fileMs, now);
}

// @param example  Receives one of the servers that cannot be reached, if there is any at all.
bool SCA_TikaDispatch::LacksServer(const SCA_TikaExtractRequest& request, Clock::time_point now,
                                   const Seat** example) {
  if (!HasPassed(request.waitsSince_, limits_.noServerMs, now)) return false;
  for (const Seat& seat : seats_) {
    if (!seat.worker->MayServe(request)) continue;
    if (!seat.downSince || !HasPassed(*seat.downSince, limits_.noServerMs, now)) return false;
    *example = &seat;
  }
  return true;
}

void SCA_TikaDispatch::Stop() {
  {
    const SCA_LockGuard guard(lock_);
    if (isStopping_) return;
    isStopping_ = true;
    for (const auto* node = requests_.GetHead(); node != nullptr; node = node->GetNext()) {
      node->GetItem()->cancel_.Set();
    }
    stop_.Set();
    WakeAll();
  }
  hasRoom_.notify_all();
  watch_.Set();
  for (std::size_t i = 0;; ++i) {
    SCA_TikaWorker* worker = nullptr;
    {
      const SCA_LockGuard guard(lock_);
      if (i == seats_.size()) break;
      worker = seats_[i].worker.get();
    }
    worker->Join();
  }
  if (watcher_.joinable()) watcher_.join();
  Drain();
}

// Ends what is left once all threads have ended.
void SCA_TikaDispatch::Drain() {
  for (;;) {
    SCA_TikaExtractRequest* request = nullptr;
    bool isTaken = false;
    {
      const SCA_LockGuard guard(lock_);
      if (requests_.GetHeadItem(&request) == 0) return;
      isTaken = request->isRetry_;
      LeaveRetries(request);
    }
    if (isTaken || queue_.RemoveRequest(request) != 0) {
      Finish(request, SCA_TikaVerdict::Make(SCA_TikaOutcome::Cancelled, SCA_ErrorCancelled, nullptr,
                                            SCA_ErrorText(SCA_ErrorStopping)));
    } else {
      // A submit under way is about to queue it, and takes it back itself.
      std::this_thread::yield();
    }
  }
}
