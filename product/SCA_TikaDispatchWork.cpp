// What the workers of a dispatch ask for.

#include <algorithm>

#include "product/SCA_TikaDispatch.h"

namespace {

using Clock = std::chrono::steady_clock;

// One beside other files, and two as a suspect that has its server alone.
constexpr unsigned long kMostTries = 3;

// A server that answers how its own worker ended has told more than a broken connection.
constexpr unsigned long kMostCrashes = 2;

// A file is given up for servers that are not ready only after this many such answers. Time alone
// is not enough: the file may have waited for another reason.
constexpr unsigned long kLeastUnready = 8;

}  // namespace

SCA_TikaTicket* SCA_TikaDispatch::Take(SCA_TikaWorker* worker) {
  Seat& seat = SeatOf(worker);
  for (;;) {
    SCA_TikaTicket* ticket = nullptr;
    {
      const SCA_LockGuard guard(lock_);
      seat.seen = work_;
      if (!seat.IsIn()) return nullptr;
      ticket = FindRetrying(seat);
      if (ticket != nullptr && Begin(ticket, seat)) return ticket;
      if (ticket == nullptr && !IsOpen(seat)) return nullptr;
    }
    if (ticket == nullptr) {
      SCA_TikaClientRequest* taken = nullptr;
      if (queue_.TakeClientRequest(seat.Client(), &taken) == 0) return nullptr;
      const SCA_LockGuard guard(lock_);
      // Nothing else is ever queued.
      ticket = SCA_TikaTicket::Of(static_cast<const SCA_TikaExtractRequest&>(*taken));
      if (!IsOpen(seat)) {
        LetWait(ticket);
        return nullptr;
      }
      if (Begin(ticket, seat)) return ticket;
    }
    ticket->request->Destroy();  // it had been abandoned
  }
}

SCA_TikaTicket* SCA_TikaDispatch::FindRetrying(const Seat& seat) {
  if (At(Stage::Retrying) == 0) return nullptr;
  for (SCA_TikaTicket& ticket : tickets_) {
    if (ticket.stage != Stage::Retrying || !MayHave(seat, ticket)) continue;
    if (ticket.IsSuspect() ? Claim(&ticket, seat) : IsOpen(seat)) return &ticket;
  }
  return nullptr;
}

// A server that a request has left is its last choice.
bool SCA_TikaDispatch::MayHave(const Seat& seat, const SCA_TikaTicket& ticket) {
  if (!seat.MayServe(ticket)) return false;
  return ticket.server == seat.server || ticket.failedServer != seat.server->id ||
         !HasOther(ticket, seat.server->id);
}

// @return True when a server other than the given one can be used now.
bool SCA_TikaDispatch::HasOther(const SCA_TikaTicket& ticket, unsigned long server) {
  return std::any_of(seats_.begin(), seats_.end(), [&](const Seat& seat) {
    return seat.IsIn() && seat.server->id != server && !seat.downSince &&
           !seat.server->unreadySince && seat.MayServe(ticket);
  });
}

// @return True when the suspect has the worker's server alone.
bool SCA_TikaDispatch::Claim(SCA_TikaTicket* ticket, const Seat& seat) {
  Server& server = *seat.server;
  if (server.suspect == nullptr && ticket->server == nullptr) {
    server.suspect = ticket;
    ticket->server = &server;
    // Other workers of the server may have been woken for work that it cannot take now.
    WakeAll();
  }
  return server.suspect == ticket && server.serving == 0;
}

// @return False when the request had been abandoned.
bool SCA_TikaDispatch::Begin(SCA_TikaTicket* ticket, const Seat& seat) {
  if (ticket->request->ExchangeProcessStatus(SCA_RequestServed) == SCA_RequestAbandoned) {
    return false;
  }
  Move(ticket, SCA_TikaMove::Serve);
  ticket->server = seat.server;
  ++seat.server->serving;
  return true;
}

void SCA_TikaDispatch::BeginTry(SCA_TikaTicket* ticket, SCA_TikaClient* client) {
  const SCA_LockGuard guard(lock_);
  ticket->triedAt = Clock::now();
  if (!ticket->beganAt) ticket->beganAt = ticket->triedAt;
  ticket->request->SetClient(client);
}

SCA_TikaNextStep SCA_TikaDispatch::EndTry(SCA_TikaTicket* ticket, SCA_TikaTryEnd end) {
  const SCA_LockGuard guard(lock_);
  SCA_TikaNextStep next = AfterTry(ticket, end);
  const bool isTooLate = ticket->stage == Stage::Overdue &&
                         (next == SCA_TikaNextStep::TryAgain || end == SCA_TikaTryEnd::Cancelled);
  if (isTooLate) next = SCA_TikaNextStep::EndOverdue;
  ticket->request->SetClient(nullptr);
  LeaveServer(ticket);
  Move(ticket, SCA_TikaMove::EndTry);
  return next;
}

SCA_TikaNextStep SCA_TikaDispatch::AfterTry(SCA_TikaTicket* ticket, SCA_TikaTryEnd end) {
  Server& server = *ticket->server;
  switch (end) {
    case SCA_TikaTryEnd::Final:
    case SCA_TikaTryEnd::Cancelled:
      ++ticket->tries;
      server.unreadySince.reset();
      return SCA_TikaNextStep::End;
    case SCA_TikaTryEnd::NotReady:
      ticket->failedServer = server.id;
      return IsWorthWaiting(ticket) ? SCA_TikaNextStep::TryAgain : SCA_TikaNextStep::End;
    case SCA_TikaTryEnd::Withheld:
      ticket->failedServer = server.id;
      return IsWorthAsking(ticket) ? SCA_TikaNextStep::TryAgain : SCA_TikaNextStep::End;
    case SCA_TikaTryEnd::Broken:
      ticket->failedServer = server.id;
      server.unreadySince.reset();  // what comes back there is another process
      return ++ticket->tries < kMostTries ? SCA_TikaNextStep::TryAgain
                                          : SCA_TikaNextStep::EndAsKiller;
    case SCA_TikaTryEnd::Busy:
      ticket->failedServer = server.id;
      server.unreadySince.reset();
      return MayPause(ticket) ? SCA_TikaNextStep::TryAgain : SCA_TikaNextStep::End;
    case SCA_TikaTryEnd::Crashed:
      ticket->failedServer = server.id;
      server.unreadySince.reset();
      return ++ticket->tries < kMostCrashes && MayPause(ticket) ? SCA_TikaNextStep::TryAgain
                                                                : SCA_TikaNextStep::End;
    case SCA_TikaTryEnd::NotBegun:
      break;
  }
  return SCA_TikaNextStep::TryAgain;
}

// Whether the pause that a server asks for ends within the time limit of the file, counted from the
// first such answer; another server may do without it.
bool SCA_TikaDispatch::MayPause(SCA_TikaTicket* ticket) {
  const std::chrono::milliseconds limit(terms_.limits.fileMs);
  const Clock::time_point now = Clock::now();
  if (!ticket->busySince) ticket->busySince = now;
  const auto waited = now - *ticket->busySince;
  return limit.count() == 0 || waited + std::chrono::milliseconds(ticket->pauseMs) < limit ||
         (waited < limit && HasOther(*ticket, ticket->server->id));
}

// Whether a server that is coming up may yet serve a request, or another one can.
bool SCA_TikaDispatch::IsWorthWaiting(SCA_TikaTicket* ticket) {
  const Clock::time_point now = Clock::now();
  const std::chrono::milliseconds limit(terms_.limits.notReadyMs);
  Server& server = *ticket->server;
  if (!server.unreadySince) server.unreadySince = now;
  if (!ticket->unreadySince) ticket->unreadySince = now;
  // Servers may be ready for others and never for this one.
  if (++ticket->unready >= kLeastUnready && now - *ticket->unreadySince >= limit) return false;
  return HasOther(*ticket, server.id) || now - *server.unreadySince < limit;
}

// As above, while a server does not tell its version. Its workers ask for as long as it may be
// coming up, and send the file then: only a server that starts over and over gets to this limit.
bool SCA_TikaDispatch::IsWorthAsking(SCA_TikaTicket* ticket) {
  const Clock::time_point now = Clock::now();
  Server& server = *ticket->server;
  if (!server.unreadySince) server.unreadySince = now;
  if (!ticket->unreadySince) ticket->unreadySince = now;
  return ++ticket->unready < kLeastUnready ||
         now - *ticket->unreadySince < 2 * std::chrono::milliseconds(terms_.limits.notReadyMs);
}

void SCA_TikaDispatch::TryAgain(SCA_TikaTicket* ticket) {
  SCA_TikaExtractRequest* const request = ticket->request;
  {
    const SCA_LockGuard guard(lock_);
    if (request->ExchangeProcessStatus(SCA_RequestPending) != SCA_RequestAbandoned) {
      LetWait(ticket);
      return;
    }
  }
  request->Destroy();
}

// Waiting for work.

// While it waits, the worker's client lies in the pool.
void SCA_TikaDispatch::Rest(SCA_TikaWorker* worker) {
  Seat& seat = SeatOf(worker);
  if (!BeginIdle(&seat)) return;
  if (seat.clientId) {
    pool_.AddClient(seat.Client(), *seat.clientId);
  } else if (unsigned long id = 0; pool_.AddClient(seat.Client(), &id) != 0) {
    seat.clientId = id;
  }
  seat.Sleep();
  if (seat.clientId) pool_.RemoveClient(*seat.clientId);
}

// @return False when work has come since the worker looked: it must look again.
bool SCA_TikaDispatch::BeginIdle(Seat* seat) {
  const SCA_LockGuard guard(lock_);
  if (work_ != seat->seen || isStopping_ || !seat->IsIn()) return false;
  seat->state = SeatState::Idle;
  // What is in the queue is for others: the worker's next file may wait for room there.
  TellRoom(Room::Any);
  return true;
}

void SCA_TikaDispatch::Rouse(Seat* seat) {
  seat->state = SeatState::Taken;
  seat->Wake();
}

void SCA_TikaDispatch::WakeAll() {
  ++work_;
  for (Seat& seat : seats_) {
    if (seat.state == SeatState::Idle) Rouse(&seat);
  }
}

// What workers learn about their servers.

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
    SCA_TikaTicket* const suspect = seat.server->suspect;
    if (suspect != nullptr && suspect->stage == Stage::Retrying) LeaveServer(suspect);
    // The worker may have been woken for a request that it cannot serve now.
    WakeAll();
  }
  watch_.Set();
}
