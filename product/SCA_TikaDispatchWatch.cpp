// The watcher thread of a dispatch handles what no worker does: time limits, cancelled requests
// that no worker takes, missing servers, workers that have ended.

#include <array>

#include "platform/SCA_Error.h"
#include "product/SCA_TikaDispatch.h"

namespace {

using Clock = std::chrono::steady_clock;

// How soon an expired limit, a cancelled request in the queue or the lack of a server is noticed.
constexpr unsigned long kTickMs = 50;

constexpr unsigned long long kMiB = 1 << 20;

bool HasPassed(Clock::time_point since, unsigned long milliseconds, Clock::time_point now) {
  return now - since >= std::chrono::milliseconds(milliseconds);
}

}  // namespace

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
  isWatcherIdle_ = tickets_.empty();
  return !isWatcherIdle_;
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
    for (SCA_TikaTicket& ticket : tickets_) {
      if (count == found.size()) break;
      const bool waits = ticket.stage == Stage::Queued || ticket.stage == Stage::Retrying;
      if (ticket.stage == Stage::Served && IsPastLimit(ticket, now)) {
        Move(&ticket, SCA_TikaMove::PassLimit);
        ticket.request->GetCancel()->Set();
      } else if (waits && Judge(&ticket, now).outcome != SCA_TikaOutcome::None) {
        const bool isOurs = ticket.stage == Stage::Retrying;
        if (isOurs) TakeBack(&ticket);
        found[count++] = {ticket.request, isOurs};
      }
    }
  }
  bool hasEnded = false;
  for (std::size_t i = 0; i < count; ++i) {
    hasEnded = EndWaiting(found[i].request, found[i].isOurs) || hasEnded;
  }
  return hasEnded && count == found.size();
}

void SCA_TikaDispatch::EndLongAsks(Clock::time_point now) {
  for (const Seat& seat : seats_) {
    const bool isDue =
        seat.ask != nullptr &&
        (isStopping_ || HasPassed(seat.askedAt, terms_.settings->GetNetworkTimeout(), now));
    if (isDue) seat.ask->Set();
  }
}

// Ends a request that seemed to be due. A queued one may have been deleted meanwhile, and another
// may have its address, so it is judged again once this thread has taken it.
bool SCA_TikaDispatch::EndWaiting(SCA_TikaExtractRequest* request, bool isOurs) {
  if (!isOurs && queue_.RemoveRequest(request) == 0) return false;
  SCA_TikaTicket* ticket = nullptr;
  SCA_TikaVerdict verdict;
  {
    const SCA_LockGuard guard(lock_);
    ticket = SCA_TikaTicket::Of(*request);
    verdict = Judge(ticket, Clock::now());
    if (verdict.outcome == SCA_TikaOutcome::None) {
      LetWait(ticket);
      return false;
    }
  }
  Finish(ticket, verdict);
  return true;
}

SCA_TikaVerdict SCA_TikaDispatch::Judge(SCA_TikaTicket* ticket, Clock::time_point now) {
  if (ticket->IsCancelled()) {
    return SCA_TikaVerdict::Make(SCA_TikaOutcome::Cancelled, SCA_ErrorCancelled, nullptr);
  }
  const Seat* example = nullptr;
  if (!LacksServer(*ticket, now, &example)) return {};
  SCA_TikaVerdict verdict =
      ticket->tries > 0
          ? SCA_TikaVerdict::Make(SCA_TikaOutcome::ConnectionBroken, SCA_ErrorNoServer,
                                  ticket->ServerName(),
                                  "the connection broke, and no server could be reached after that")
          : SCA_TikaVerdict::Make(SCA_TikaOutcome::NoServer, SCA_ErrorNoServer, nullptr);
  if (example != nullptr) {
    verdict.Tell("; ").Tell(example->Name().c_str()).Tell(": ");
    verdict.Tell(SCA_ErrorText(example->error));
  }
  return verdict;
}

bool SCA_TikaDispatch::IsPastLimit(const SCA_TikaTicket& ticket, Clock::time_point now) {
  const SCA_TikaDispatchLimits& limits = terms_.limits;
  const SCA_TikaClient* const client = ticket.request->GetClient();
  if (limits.fileMs == 0 || client == nullptr) return false;
  const auto passed = static_cast<unsigned long long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(now - ticket.triedAt).count());
  if (passed < limits.fileMs) return false;
  // A division, since the product might not fit.
  return (passed - limits.fileMs) / (client->GetLastFileSize() / kMiB + 1) >= limits.fileMsPerMiB;
}

// @param example  Receives one of the servers that cannot be reached, if there is any at all.
bool SCA_TikaDispatch::LacksServer(const SCA_TikaTicket& ticket, Clock::time_point now,
                                   const Seat** example) {
  const unsigned long limit = terms_.limits.noServerMs;
  if (!HasPassed(ticket.waitsSince, limit, now)) return false;
  for (const Seat& seat : seats_) {
    if (!seat.IsIn() || !seat.MayServe(ticket)) continue;
    if (!seat.downSince || !HasPassed(*seat.downSince, limit, now)) return false;
    *example = &seat;
  }
  return true;
}
