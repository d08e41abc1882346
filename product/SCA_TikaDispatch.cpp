#include "product/SCA_TikaDispatch.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <new>
#include <string_view>

#include "platform/SCA_Error.h"
#include "platform/SCA_Text.h"
#include "platform/SCA_Time.h"

namespace {

// A submit that waits looks again this often: nothing tells it that the limit has been raised.
constexpr std::chrono::seconds kLookAgain{1};

}  // namespace

// A copy of a request's services, for use after the request may have been deleted.
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

bool SCA_TikaDispatch::Start() {
  services_.reset(terms_.settings->Clone());
  if (services_ == nullptr || pool_.IsValid() == 0 || queue_.IsValid() == 0 ||
      stop_.IsValid() == 0 || watch_.IsValid() == 0) {
    return false;
  }
  watcher_ = std::thread([this] { Watch(); });
  return true;
}

void SCA_TikaDispatch::SetPrepareServer(SCA_TikaPrepareServer prepare, void* context) {
  terms_.prepare = prepare;
  terms_.prepareContext = context;
}

// Servers.

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

SCA_TikaServerShare* SCA_TikaDispatch::FindOrAddServer(const char* hostName, unsigned short port) {
  for (const Seat& seat : seats_) {
    if (seat.server != nullptr && seat.IsServer(hostName, port)) return seat.server;
  }
  Server& server = servers_[nextServer_];
  server.id = nextServer_++;
  return &server;
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

// No request is to wait for a server that has been removed. Each has as long to find another one
// as if the server could not be reached any longer.
void SCA_TikaDispatch::LoseServer(Seat* seat) {
  SCA_TikaTicket* const suspect = seat->server->suspect;
  if (suspect != nullptr && suspect->stage == Stage::Retrying) LeaveServer(suspect);
  const Clock::time_point lostAt = seat->downSince.value_or(Clock::now());
  for (SCA_TikaTicket& ticket : tickets_) {
    if (seat->MayServe(ticket)) ticket.waitsSince = std::max(ticket.waitsSince, lostAt);
  }
}

void SCA_TikaDispatch::HasEnded(SCA_TikaWorker* worker) {
  {
    const SCA_LockGuard guard(lock_);
    Empty(&SeatOf(worker));
  }
  watch_.Set();
}

// Gives up what a seat holds of its server.
void SCA_TikaDispatch::Empty(Seat* seat) {
  seat->state = SeatState::Empty;
  Server* const server = seat->server;
  seat->server = nullptr;
  if (server == nullptr || --server->seats > 0) return;
  if (server->suspect != nullptr) LeaveServer(server->suspect);
  servers_.erase(server->id);
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

// Requests.

unsigned long SCA_TikaDispatch::Check(SCA_TikaExtractRequest* request) const {
  if (request->IsValid() == 0) return SCA_ErrorInvalidData;
  if (request->GetProcessStatus() != SCA_RequestPending ||
      SCA_TikaTicket::Of(*request) != nullptr) {
    return SCA_ErrorAlreadyActive;
  }
  if (request->GetOptions() != nullptr) {
    const unsigned long error = SCA_CheckTikaOptions(*request->GetOptions(), nullptr);
    if (error != 0) return error;
  }
  if (terms_.settings->IsEnabled() == 0) return SCA_ErrorExtractionOff;
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

unsigned long SCA_TikaDispatch::Submit(SCA_TikaExtractRequest* request, bool wait) {
  const bool isOfRequester = request->GetServiceList()->Count() > 0;
  unsigned long error = Check(request);
  if (error == 0) error = Admit(request, wait);
  if (error == 0) return Enqueue(request);
  if (!isOfRequester && error != SCA_ErrorAlreadyActive) request->GetServiceList()->Clear();
  return error;
}

unsigned long SCA_TikaDispatch::Admit(SCA_TikaExtractRequest* request, bool wait) {
  SCA_LockGuard guard(lock_);
  for (;;) {
    if (isStopping_) return SCA_ErrorStopping;
    const unsigned long limit = terms_.settings->GetMaxPendingRequests();
    if (At(Stage::Queued) < limit) break;
    if (!wait || limit == 0) return SCA_ErrorQueueFull;
    if (request->GetCancel()->Wait(0) != 0) return SCA_ErrorCancelled;
    ++waiting_;
    hasRoom_.WaitFor(guard, kLookAgain);
    --waiting_;
  }
  try {
    SCA_TikaTicket& ticket = tickets_.emplace_back(this, request);
    ticket.place = std::prev(tickets_.end());
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
  ++At(Stage::Queued);
  TellRoom(Room::Any);
  request->SetAbsTime(SCA_GetAbsTime());
  if (isWatcherIdle_) {
    isWatcherIdle_ = false;
    watch_.Set();
  }
  return 0;
}

unsigned long SCA_TikaDispatch::Enqueue(SCA_TikaExtractRequest* request) {
  const Services services(request);
  if (queue_.AddRequest(request) == 0) {
    const SCA_LockGuard guard(lock_);
    Unregister(SCA_TikaTicket::Of(*request));
    return ENOMEM;
  }
  // From here on the request may have ended and been deleted.
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
  if (isStopping && queue_.RemoveRequest(request) != 0) FinishStopped(TicketOf(*request));
  return 0;
}

void SCA_TikaDispatch::Cancel(SCA_TikaExtractRequest* request) {
  {
    // Under the lock, so that no submit looks before and waits after it.
    const SCA_LockGuard guard(lock_);
    request->GetCancel()->Set();
  }
  hasRoom_.NotifyAll();
  watch_.Set();
}

void SCA_TikaDispatch::CancelAll() {
  {
    const SCA_LockGuard guard(lock_);
    for (SCA_TikaTicket& ticket : tickets_) ticket.request->GetCancel()->Set();
  }
  watch_.Set();
}

// One exchange of the status decides who deletes a request that a thread of ours has: that thread
// when it ends it, since it then finds the mark.
void SCA_TikaDispatch::Abandon(SCA_TikaExtractRequest* request) {
  request->GetCancel()->Set();
  bool isOurs = queue_.RemoveRequest(request) != 0;
  if (!isOurs) {
    const SCA_LockGuard guard(lock_);
    SCA_TikaTicket* const ticket = SCA_TikaTicket::Of(*request);
    const bool isRetrying = ticket != nullptr && ticket->stage == Stage::Retrying;
    if (isRetrying) TakeBack(ticket);
    isOurs = ticket == nullptr || isRetrying;
    if (!isOurs) request->ExchangeProcessStatus(SCA_RequestAbandoned);
  }
  if (isOurs) request->Destroy();
}

void SCA_TikaDispatch::Forget(SCA_TikaTicket* ticket) {
  const SCA_LockGuard guard(lock_);
  Unregister(ticket);
}

void SCA_TikaDispatch::Finish(SCA_TikaTicket* ticket, const SCA_TikaVerdict& verdict) {
  SCA_TikaExtractRequest* const request = ticket->request;
  ticket->NoteOutcome(verdict);
  request->GetSink()->Finish(request);
  bool isAbandoned = false;
  {
    const SCA_LockGuard guard(lock_);
    Unregister(ticket);
    isAbandoned = request->ExchangeProcessStatus(SCA_RequestFinished) == SCA_RequestAbandoned;
    // Under the lock, which `Abandon` takes, so that no thread deletes the request before this.
    if (!isAbandoned) request->GetReady()->Set();
  }
  if (isAbandoned) request->Destroy();
}

SCA_TikaTicket* SCA_TikaDispatch::TicketOf(const SCA_TikaExtractRequest& request) {
  const SCA_LockGuard guard(lock_);
  return SCA_TikaTicket::Of(request);
}

void SCA_TikaDispatch::Move(SCA_TikaTicket* ticket, SCA_TikaMove move) {
  const bool makesRoom = ticket->stage == Stage::Queued;
  --At(ticket->stage);
  ticket->stage = SCA_TikaNextStage(ticket->stage, move);
  ++At(ticket->stage);
  if (makesRoom) TellRoom(move == SCA_TikaMove::Serve ? Room::Half : Room::Any);
}

// Wakes one of the submits that wait, which wakes the next one if there is room for it too. While
// workers find work, one that is woken for each request would only take their processor.
void SCA_TikaDispatch::TellRoom(Room wanted) {
  if (waiting_ == 0) return;
  const unsigned long limit = terms_.settings->GetMaxPendingRequests();
  const bool isThere =
      wanted == Room::Half ? At(Stage::Queued) <= limit / 2 : At(Stage::Queued) < limit;
  if (isThere) hasRoom_.NotifyOne();
}

void SCA_TikaDispatch::Unregister(SCA_TikaTicket* ticket) {
  LeaveServer(ticket);
  Move(ticket, SCA_TikaMove::End);
  --At(Stage::Ended);
  tickets_.erase(ticket->place);
}

// Ends what ties a request to a server: that it is served there, or has a claim to it.
void SCA_TikaDispatch::LeaveServer(SCA_TikaTicket* ticket) {
  if (ticket->server == nullptr) return;
  Server& server = *ticket->server;
  ticket->server = nullptr;
  if (ticket->IsWithWorker()) --server.serving;
  if (server.suspect == nullptr) return;
  // The server is open again, or one request nearer to being the suspect's alone.
  if (server.suspect == ticket) server.suspect = nullptr;
  WakeAll();
}

// Makes a request wait outside the queue.
void SCA_TikaDispatch::LetWait(SCA_TikaTicket* ticket) {
  Move(ticket, SCA_TikaMove::TryAgain);
  WakeOne([&](const Seat& seat)
              SCA_REQUIRES(lock_) { return MayHave(seat, *ticket) && IsOpen(seat); });
}

// Takes a request that waits outside the queue for the calling thread.
void SCA_TikaDispatch::TakeBack(SCA_TikaTicket* ticket) {
  LeaveServer(ticket);
  Move(ticket, SCA_TikaMove::TakeBack);
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

void SCA_TikaDispatch::Stop() {
  {
    const SCA_LockGuard guard(lock_);
    if (isStopping_) return;
    isStopping_ = true;
    for (SCA_TikaTicket& ticket : tickets_) ticket.request->GetCancel()->Set();
    stop_.Set();
    for (Seat& seat : seats_) seat.RequestStop();
    EndLongAsks(Clock::now());
  }
  hasRoom_.NotifyAll();
  watch_.Set();
  // The watcher removes seats, so it ends first. No thread adds any now.
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
    // Unless it is ours, the ticket may go with its request as soon as the lock is open. The queue
    // compares addresses alone, and a request that was in it was not finished by anyone else.
    SCA_TikaTicket* ticket = nullptr;
    SCA_TikaExtractRequest* request = nullptr;
    bool isOurs = false;
    {
      const SCA_LockGuard guard(lock_);
      if (tickets_.empty()) return;
      ticket = &tickets_.front();
      request = ticket->request;
      isOurs = ticket->stage == Stage::Retrying;
      if (isOurs) TakeBack(ticket);
    }
    if (isOurs || queue_.RemoveRequest(request) != 0) {
      FinishStopped(ticket);
    } else {
      // A submit under way is about to queue it, and takes it back itself.
      std::this_thread::yield();
    }
  }
}

void SCA_TikaDispatch::FinishStopped(SCA_TikaTicket* ticket) {
  Finish(ticket, SCA_TikaVerdict::Make(SCA_TikaOutcome::Cancelled, SCA_ErrorCancelled, nullptr,
                                       SCA_ErrorText(SCA_ErrorStopping)));
}
