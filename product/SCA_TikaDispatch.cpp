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

constexpr unsigned long long kMiB = 1 << 20;

// The first, in whatever company, and two of a suspect that has its server alone.
constexpr unsigned long kMostTries = 3;

// A file has met this many servers that were not ready before it is given up for that. The time
// alone does not tell: it may have waited for another reason.
constexpr unsigned long kLeastUnready = 8;

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
  watcher_ = std::thread([this] { Watch(); });
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
  std::list<Seat> added;
  unsigned long error = 0;
  try {
    Seat& seat = added.emplace_back(this, hostName, port, serviceId);
    seat.server = FindOrAddServer(hostName, port);
    ++seat.server->seats;
    seat.Start();
  } catch (const std::bad_alloc&) {
    error = ENOMEM;
  } catch (const std::exception&) {
    error = EAGAIN;
  }
  if (error == 0) {
    seats_.splice(seats_.end(), added);
  } else if (!added.empty()) {
    Empty(&added.back());
  }
  return error;
}

SCA_TikaDispatch::Server* SCA_TikaDispatch::FindOrAddServer(const char* hostName,
                                                            unsigned short port) {
  for (const Seat& seat : seats_) {
    if (seat.server != nullptr && seat.IsServer(hostName, port)) return seat.server;
  }
  Server& server = servers_[nextServer_];
  server.id = nextServer_++;
  return &server;
}

// Gives a seat's server up.
void SCA_TikaDispatch::Empty(Seat* seat) {
  seat->state = SeatState::Empty;
  Server* const server = seat->server;
  seat->server = nullptr;
  if (server == nullptr || --server->seats > 0) return;
  if (server->suspect != nullptr) Leave(server->suspect);
  servers_.erase(server->id);
}

unsigned long SCA_TikaDispatch::RemoveServer(const char* hostName, unsigned short port,
                                             unsigned long serviceId) {
  const SCA_LockGuard guard(lock_);
  if (isStopping_) return SCA_ErrorStopping;
  bool isFound = false;
  for (Seat& seat : seats_) {
    if (!seat.IsIn() || seat.ServiceId() != serviceId || hostName == nullptr ||
        !seat.IsServer(hostName, port)) {
      continue;
    }
    isFound = true;
    seat.state = SeatState::Left;
    seat.RequestStop();
    if (seat.ask != nullptr) seat.ask->Set();
    LoseServer(&seat);
  }
  if (!isFound) return ENXIO;
  // The workers may have been woken for requests that they leave to others now.
  WakeAll();
  return 0;
}

// Nobody is to wait for a server that has been removed, and its requests have as long to find
// another one as if it could not be reached any longer.
void SCA_TikaDispatch::LoseServer(Seat* seat) {
  SCA_TikaExtractRequest* const suspect = seat->server->suspect;
  if (suspect != nullptr && suspect->stage_ == Stage::Waiting) Leave(suspect);
  const Clock::time_point lostAt = seat->downSince.value_or(Clock::now());
  for (const auto* node = requests_.GetHead(); node != nullptr; node = node->GetNext()) {
    SCA_TikaExtractRequest* const request = node->GetItem();
    if (seat->MayServe(*request)) request->waitsSince_ = std::max(request->waitsSince_, lostAt);
  }
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
    if (At(Stage::Queued) < limit) break;
    if (!wait || limit == 0) return SCA_ErrorQueueFull;
    if (request->cancel_.Wait(0) != 0) return SCA_ErrorCancelled;
    hasRoom_.WaitFor(guard, kLookAgain);
  }
  const char* const noName = nullptr;
  if (requests_.AddItemToTail(request, noName, &request->node_) == 0) return ENOMEM;
  request->dispatch_ = this;
  request->stage_ = Stage::Queued;
  ++At(Stage::Queued);
  request->waitsSince_ = Clock::now();
  request->SetAbsTime(SCA_GetAbsTime());
  // Until now the watcher had nothing to look at.
  if (requests_.Count() == 1) watch_.Set();
  return 0;
}

unsigned long SCA_TikaDispatch::Submit(SCA_TikaExtractRequest* request, bool wait) {
  const bool isOfRequester = request->GetServiceList()->Count() > 0;
  unsigned long error = Check(request);
  if (error == 0) error = Admit(request, wait);
  if (error != 0) {
    if (!isOfRequester && error != SCA_ErrorAlreadyActive) request->GetServiceList()->Clear();
    return error;
  }
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
    if (services.areAll) {
      WakeAll();
    } else {
      WakeOne([&](const Seat& seat)
                  SCA_REQUIRES(lock_) { return services.Hold(seat.ServiceId()) && IsOpen(seat); });
    }
    isStopping = isStopping_;
  }
  if (isStopping && queue_.RemoveRequest(request) != 0) {
    Finish(request, SCA_TikaVerdict::Make(SCA_TikaOutcome::Cancelled, SCA_ErrorCancelled, nullptr,
                                          SCA_ErrorText(SCA_ErrorStopping)));
  }
  return 0;
}

void SCA_TikaDispatch::Cancel(SCA_TikaExtractRequest* request) {
  {
    // Under the lock, so that no submit looks before and waits after it.
    const SCA_LockGuard guard(lock_);
    request->cancel_.Set();
  }
  hasRoom_.NotifyAll();
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
    const bool isWaiting = request->stage_ == Stage::Waiting;
    isOurs = request->dispatch_ == nullptr || isWaiting;
    if (isWaiting) TakeBack(request);
    if (!isOurs) request->ExchangeProcessStatus(SCA_RequestAbandoned);
  }
  if (isOurs) request->Destroy();
}

void SCA_TikaDispatch::Forget(SCA_TikaExtractRequest* request) {
  const SCA_LockGuard guard(lock_);
  Unregister(request);
}

void SCA_TikaDispatch::Unregister(SCA_TikaExtractRequest* request) {
  Leave(request);
  Move(request, Stage::Ending);
  --At(Stage::Ending);
  requests_.DeleteListItem(request->node_);
  request->node_ = nullptr;
  request->dispatch_ = nullptr;
}

void SCA_TikaDispatch::Move(SCA_TikaExtractRequest* request, Stage stage) {
  if (request->stage_ == Stage::Queued) hasRoom_.NotifyOne();
  --At(request->stage_);
  ++At(stage);
  request->stage_ = stage;
}

// Ends what ties a request to a server: that it is served there, or has a claim to it.
void SCA_TikaDispatch::Leave(SCA_TikaExtractRequest* request) {
  if (request->server_ == SCA_TikaExtractRequest::kNoServer) return;
  Server& server = ServerOf(*request);
  request->server_ = SCA_TikaExtractRequest::kNoServer;
  if (request->stage_ == Stage::Served) --server.serving;
  if (server.suspect == nullptr) return;
  // The server is open again, or one request nearer to being the suspect's alone.
  if (server.suspect == request) server.suspect = nullptr;
  WakeAll();
}

// Lets a request wait outside of the queue.
void SCA_TikaDispatch::LetWait(SCA_TikaExtractRequest* request) {
  Move(request, Stage::Waiting);
  WakeOne([&](const Seat& seat)
              SCA_REQUIRES(lock_) { return MayHave(seat, *request) && IsOpen(seat); });
}

// Takes a request that waits outside of the queue for the calling thread.
void SCA_TikaDispatch::TakeBack(SCA_TikaExtractRequest* request) {
  Leave(request);
  Move(request, Stage::Ending);
}

unsigned long SCA_TikaDispatch::Pending() {
  const SCA_LockGuard guard(lock_);
  return At(Stage::Queued);
}

int SCA_TikaDispatch::GetStatus(SCA_ConfigObj* obj) {
  SCA_ConfigObj* clients = obj->AddConfigObj("Clients");
  SCA_ConfigObj* requests = obj->AddConfigObj("Requests");
  if (clients == nullptr || requests == nullptr) return 0;
  return pool_.GetStatus(clients) != 0 && queue_.GetStatus(requests) != 0 ? 1 : 0;
}

// For the workers.

int SCA_TikaDispatch::Prepare(SCA_TikaClient* client, SCA_Event* stop, unsigned long* error) {
  return prepare_ != nullptr ? prepare_(client, stop, prepareContext_, error) : 1;
}

unsigned long SCA_TikaDispatch::Work() {
  const SCA_LockGuard guard(lock_);
  return work_;
}

SCA_TikaExtractRequest* SCA_TikaDispatch::Take(SCA_TikaWorker* worker) {
  Seat& seat = SeatOf(worker);
  for (;;) {
    SCA_TikaExtractRequest* request = nullptr;
    {
      const SCA_LockGuard guard(lock_);
      if (!seat.IsIn()) return nullptr;
      request = FindWaiting(seat);
      if (request != nullptr && Begin(request, seat)) return request;
      if (request == nullptr && !IsOpen(seat)) return nullptr;
    }
    if (request == nullptr) {
      SCA_TikaClientRequest* taken = nullptr;
      if (queue_.TakeClientRequest(seat.Client(), &taken) == 0) return nullptr;
      // Nothing else is ever queued.
      request = static_cast<SCA_TikaExtractRequest*>(taken);
      const SCA_LockGuard guard(lock_);
      if (!IsOpen(seat)) {
        LetWait(request);
        return nullptr;
      }
      if (Begin(request, seat)) return request;
    }
    request->Destroy();  // it had been abandoned
  }
}

SCA_TikaExtractRequest* SCA_TikaDispatch::FindWaiting(const Seat& seat) {
  if (At(Stage::Waiting) == 0) return nullptr;
  for (const auto* node = requests_.GetHead(); node != nullptr; node = node->GetNext()) {
    SCA_TikaExtractRequest* const request = node->GetItem();
    if (request->stage_ != Stage::Waiting || !MayHave(seat, *request)) continue;
    if (request->IsSuspect() ? Claim(request, seat) : IsOpen(seat)) return request;
  }
  return nullptr;
}

// A server that a request has left is its last choice.
bool SCA_TikaDispatch::MayHave(const Seat& seat, const SCA_TikaExtractRequest& request) {
  if (!seat.MayServe(request)) return false;
  const unsigned long server = seat.server->id;
  return request.server_ == server || request.failedServer_ != server || !HasOther(request, server);
}

// @return True when a server other than the given one can be used now.
bool SCA_TikaDispatch::HasOther(const SCA_TikaExtractRequest& request, unsigned long server) {
  return std::any_of(seats_.begin(), seats_.end(), [&](const Seat& seat) SCA_REQUIRES(lock_) {
    return seat.IsIn() && seat.server->id != server && !seat.downSince &&
           !seat.server->unreadySince && seat.MayServe(request);
  });
}

// @return True when the suspect has the worker's server alone.
bool SCA_TikaDispatch::Claim(SCA_TikaExtractRequest* request, const Seat& seat) {
  Server& server = *seat.server;
  if (server.suspect == nullptr && request->server_ == SCA_TikaExtractRequest::kNoServer) {
    server.suspect = request;
    request->server_ = server.id;
    // Other workers of the server may have been woken for work that it cannot take now.
    WakeAll();
  }
  return server.suspect == request && server.serving == 0;
}

// @return False when the request had been abandoned.
bool SCA_TikaDispatch::Begin(SCA_TikaExtractRequest* request, const Seat& seat) {
  if (request->ExchangeProcessStatus(SCA_RequestServed) == SCA_RequestAbandoned) return false;
  Move(request, Stage::Served);
  request->server_ = seat.server->id;
  ++seat.server->serving;
  return true;
}

void SCA_TikaDispatch::BeginTry(SCA_TikaExtractRequest* request, SCA_TikaClient* client) {
  const SCA_LockGuard guard(lock_);
  request->triedAt_ = Clock::now();
  if (!request->beganAt_) request->beganAt_ = request->triedAt_;
  request->SetClient(client);
}

bool SCA_TikaDispatch::EndTry(SCA_TikaExtractRequest* request, SCA_TikaTryEnd end) {
  const SCA_LockGuard guard(lock_);
  Server& server = ServerOf(*request);
  bool isAgain = true;
  switch (end) {
    case SCA_TikaTryEnd::Final:
      ++request->tries_;
      server.unreadySince.reset();
      isAgain = false;
      break;
    case SCA_TikaTryEnd::NotReady:
      request->failedServer_ = request->server_;
      isAgain = IsWorthWaiting(request, &server);
      break;
    case SCA_TikaTryEnd::Broken:
      request->failedServer_ = request->server_;
      server.unreadySince.reset();  // what comes back there is another process
      isAgain = ++request->tries_ < kMostTries;
      break;
    case SCA_TikaTryEnd::NotBegun:
      break;
  }
  request->SetClient(nullptr);
  Leave(request);
  Move(request, Stage::Ending);
  return isAgain;
}

// Whether a server that is coming up may yet serve a request, or another one can.
bool SCA_TikaDispatch::IsWorthWaiting(SCA_TikaExtractRequest* request, Server* server) {
  const Clock::time_point now = Clock::now();
  if (!server->unreadySince) server->unreadySince = now;
  if (!request->unreadySince_) request->unreadySince_ = now;
  // Servers may be ready for others and never for this one.
  if (++request->unready_ >= kLeastUnready &&
      HasPassed(*request->unreadySince_, limits_.notReadyMs, now)) {
    return false;
  }
  return HasOther(*request, request->server_) ||
         !HasPassed(*server->unreadySince, limits_.notReadyMs, now);
}

// For work that any of the workers accepted can take.
template <class Accept>
void SCA_TikaDispatch::WakeOne(Accept accept) {
  ++work_;
  for (Seat& seat : seats_) {
    if (seat.state != SeatState::Idle || !accept(seat)) continue;
    seat.state = SeatState::Taken;
    seat.Wake();
    return;
  }
}

void SCA_TikaDispatch::WakeAll() {
  ++work_;
  for (Seat& seat : seats_) {
    if (seat.state == SeatState::Idle) seat.state = SeatState::Taken;
    seat.Wake();
  }
}

bool SCA_TikaDispatch::BeginIdle(SCA_TikaWorker* worker, unsigned long seen) {
  const SCA_LockGuard guard(lock_);
  Seat& seat = SeatOf(worker);
  if (work_ != seen || isStopping_ || !seat.IsIn()) return false;
  seat.state = SeatState::Idle;
  return true;
}

void SCA_TikaDispatch::EndIdle(SCA_TikaWorker* worker) {
  const SCA_LockGuard guard(lock_);
  Seat& seat = SeatOf(worker);
  if (seat.IsIn()) seat.state = SeatState::Taken;
}

void SCA_TikaDispatch::BeginAsk(SCA_TikaWorker* worker, SCA_Event* ends) {
  const SCA_LockGuard guard(lock_);
  Seat& seat = SeatOf(worker);
  ends->Reset();
  if (isStopping_ || !seat.IsIn()) ends->Set();
  seat.ask = ends;
  seat.askedAt = Clock::now();
}

void SCA_TikaDispatch::EndAsk(SCA_TikaWorker* worker) {
  const SCA_LockGuard guard(lock_);
  SeatOf(worker).ask = nullptr;
}

void SCA_TikaDispatch::EndLongAsks(Clock::time_point now) {
  for (const Seat& seat : seats_) {
    const bool isDue =
        seat.ask != nullptr &&
        (isStopping_ || HasPassed(seat.askedAt, settings_->GetNetworkTimeout(), now));
    if (isDue) seat.ask->Set();
  }
}

void SCA_TikaDispatch::ServerIsUp(SCA_TikaWorker* worker) {
  const SCA_LockGuard guard(lock_);
  SeatOf(worker).downSince.reset();
}

void SCA_TikaDispatch::ServerIsDown(SCA_TikaWorker* worker, unsigned long error) {
  {
    const SCA_LockGuard guard(lock_);
    Seat& seat = SeatOf(worker);
    seat.error = error;
    if (seat.downSince || !seat.IsIn()) return;
    seat.downSince = Clock::now();
    seat.server->unreadySince.reset();
    SCA_TikaExtractRequest* const suspect = seat.server->suspect;
    if (suspect != nullptr && suspect->stage_ == Stage::Waiting) Leave(suspect);
    // The worker may have been woken for a request that it cannot serve now.
    WakeAll();
  }
  watch_.Set();
}

void SCA_TikaDispatch::HasEnded(SCA_TikaWorker* worker) {
  {
    const SCA_LockGuard guard(lock_);
    Empty(&SeatOf(worker));
  }
  watch_.Set();
}

void SCA_TikaDispatch::Retry(SCA_TikaExtractRequest* request) {
  {
    const SCA_LockGuard guard(lock_);
    if (request->ExchangeProcessStatus(SCA_RequestPending) != SCA_RequestAbandoned) {
      LetWait(request);
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
  if (request->beganAt_) {
    request->durationMs_ = static_cast<unsigned long long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - *request->beganAt_)
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
  if (isAbandoned) request->Destroy();
}

// What no worker sees to: limits, cancelled requests that no worker comes for, missing servers.

void SCA_TikaDispatch::Watch() {
  for (;;) {
    watch_.Wait(HasRequests() ? kTickMs : SCA_Infinite);
    if (stop_.Wait(0) != 0) return;
    Reap();
    while (Sweep()) {
    }
  }
}

bool SCA_TikaDispatch::HasRequests() {
  const SCA_LockGuard guard(lock_);
  return requests_.Count() > 0;
}

// Joins the threads of removed servers, which have nothing more to do, and deletes their clients.
void SCA_TikaDispatch::Reap() {
  std::list<Seat> empty;
  const SCA_LockGuard guard(lock_);
  for (auto seat = seats_.begin(); seat != seats_.end();) {
    const auto next = std::next(seat);
    if (seat->state == SeatState::Empty) empty.splice(empty.end(), seats_, seat);
    seat = next;
  }
}

// @return True when there may be more to end.
bool SCA_TikaDispatch::Sweep() {
  struct Found {
    SCA_TikaExtractRequest* request;
    bool isOurs;
  };
  std::array<Found, 32> found{};
  std::size_t count = 0;
  {
    const SCA_LockGuard guard(lock_);
    const Clock::time_point now = Clock::now();
    EndLongAsks(now);
    for (const auto* node = requests_.GetHead(); node != nullptr && count < found.size();
         node = node->GetNext()) {
      SCA_TikaExtractRequest* const request = node->GetItem();
      if (request->stage_ == Stage::Ending) continue;
      if (request->stage_ == Stage::Served) {
        if (!request->isOverdue_ && IsPastLimit(*request, now)) {
          request->isOverdue_ = true;
          request->cancel_.Set();
        }
      } else if (Judge(request, now).outcome != SCA_TikaOutcome::None) {
        const bool isOurs = request->stage_ == Stage::Waiting;
        if (isOurs) TakeBack(request);
        found[count++] = {request, isOurs};
      }
    }
  }
  bool hasEnded = false;
  for (std::size_t i = 0; i < count; ++i) {
    hasEnded = EndWaiting(found[i].request, found[i].isOurs) || hasEnded;
  }
  return hasEnded && count == found.size();
}

// Ends a request that seemed to be due. One from the queue may have gone meanwhile, and another may
// lie at its address: it is looked at again once it is ours.
bool SCA_TikaDispatch::EndWaiting(SCA_TikaExtractRequest* request, bool isOurs) {
  if (!isOurs && queue_.RemoveRequest(request) == 0) return false;
  SCA_TikaVerdict verdict;
  {
    const SCA_LockGuard guard(lock_);
    verdict = Judge(request, Clock::now());
    if (verdict.outcome == SCA_TikaOutcome::None) {
      LetWait(request);
      return false;
    }
  }
  Finish(request, verdict);
  return true;
}

SCA_TikaVerdict SCA_TikaDispatch::Judge(SCA_TikaExtractRequest* request, Clock::time_point now) {
  if (request->isOverdue_) {
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
                                  request->serverName_,
                                  "the connection broke, and no server could be reached after that")
          : SCA_TikaVerdict::Make(SCA_TikaOutcome::NoServer, SCA_ErrorNoServer, nullptr,
                                  SCA_ErrorText(SCA_ErrorNoServer));
  if (example != nullptr) {
    verdict.Tell("; ").Tell(example->Name().c_str()).Tell(": ");
    verdict.Tell(SCA_ErrorText(example->error));
  }
  return verdict;
}

bool SCA_TikaDispatch::IsPastLimit(const SCA_TikaExtractRequest& request, Clock::time_point now) {
  const SCA_TikaClient* const client = request.GetClient();
  if (limits_.fileMs == 0 || client == nullptr) return false;
  const auto passed = static_cast<unsigned long long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(now - request.triedAt_).count());
  if (passed < limits_.fileMs) return false;
  // A division, since the product might not fit.
  return (passed - limits_.fileMs) / (client->GetLastFileSize() / kMiB + 1) >= limits_.fileMsPerMiB;
}

// @param example  Receives one of the servers that cannot be reached, if there is any at all.
bool SCA_TikaDispatch::LacksServer(const SCA_TikaExtractRequest& request, Clock::time_point now,
                                   const Seat** example) {
  if (!HasPassed(request.waitsSince_, limits_.noServerMs, now)) return false;
  for (const Seat& seat : seats_) {
    if (!seat.IsIn() || !seat.MayServe(request)) continue;
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
    for (Seat& seat : seats_) seat.RequestStop();
    EndLongAsks(Clock::now());
    WakeAll();
  }
  hasRoom_.NotifyAll();
  watch_.Set();
  // The watcher takes seats away; nobody adds any now.
  if (watcher_.joinable()) watcher_.join();
  std::list<Seat> seats;
  {
    const SCA_LockGuard guard(lock_);
    seats.splice(seats.end(), seats_);
  }
  for (Seat& seat : seats) seat.Join();
  Drain();
}

// Ends what is left once all threads have ended.
void SCA_TikaDispatch::Drain() {
  for (;;) {
    SCA_TikaExtractRequest* request = nullptr;
    bool isOurs = false;
    {
      const SCA_LockGuard guard(lock_);
      if (requests_.GetHeadItem(&request) == 0) return;
      isOurs = request->stage_ == Stage::Waiting;
      if (isOurs) TakeBack(request);
    }
    if (isOurs || queue_.RemoveRequest(request) != 0) {
      Finish(request, SCA_TikaVerdict::Make(SCA_TikaOutcome::Cancelled, SCA_ErrorCancelled, nullptr,
                                            SCA_ErrorText(SCA_ErrorStopping)));
    } else {
      // A submit under way is about to queue it, and takes it back itself.
      std::this_thread::yield();
    }
  }
}
