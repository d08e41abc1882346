#include "control/SCA_CommandLoop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>

#include "platform/SCA_Error.h"

namespace {

constexpr std::size_t kBatch = 64;
// What connections may hold together of messages that are arriving, waiting or leaving.
constexpr std::size_t kMaxHeld = std::size_t{64} << 20;

}  // namespace

SCA_Result SCA_CommandLoop::Start() {
  const SCA_Result started = threads_.Start();
  isStarted_ = !started.HasFailed();
  return started;
}

void SCA_CommandLoop::Add(const SCA_AcceptedPeer& peer, unsigned long refusal) {
  SCA_PolledSock unwanted(peer.handle);
  const SCA_Result added = SCA_Guarded([&] {
    const SCA_LockGuard guard(mailLock_);
    if (isStopping_) return SCA_Result(ECANCELED);
    newcomers_.push_back({peer, refusal});
    return SCA_Done;
  });
  if (added.HasFailed()) return;
  unwanted.Release();
  hasMail_ = true;
  poller_.Wake();
}

void SCA_CommandLoop::Stop() {
  {
    const SCA_LockGuard guard(mailLock_);
    isStopping_ = true;
  }
  hasMail_ = true;
  poller_.Wake();
  threads_.Hurry();
}

void SCA_CommandLoop::Join() {
  if (isStarted_) Stop();
  threads_.Join();
  // Closes what came last.
  TakeNewcomers();
}

void SCA_CommandLoop::Lead() {
  for (;;) {
    if (hasMail_ && hasMail_.exchange(false)) {
      TakeReturned();
      TakeNewcomers();
    }
    const bool isStopping = isStopping_;
    if (isStopping) EndAll();
    if (!ServeDue()) return;
    if (isStopping && connectionCount_.Get() == 0) return threads_.Finish();
    if (!ServeEvents()) return;
    EndOverdue();
    EndGreedy();
  }
}

// Each gets its turn before one gets another.
bool SCA_CommandLoop::ServeDue() {
  for (std::size_t count = due_.size(); count > 0 && threads_.CanCall(); --count) {
    if (!Call(&due_.front())) return false;
  }
  return true;
}

bool SCA_CommandLoop::ServeEvents() {
  std::array<SCA_PollEvent, kBatch> events;
  const std::size_t count = poller_.Wait(events.data(), events.size(), TimeLeft());
  for (std::size_t i = 0; i < count; ++i) {
    auto* seat = static_cast<Seat*>(events[i].tag);
    if (seat->list == &due_ || seat->list == &calling_) {
      // Its peer has to wait, and the poller would not.
      Unwatch(seat);
      continue;
    }
    const SCA_NetNext next = seat->polledFor == SCA_PollFor::Input
                                 ? seat->connection.OnInput()
                                 : seat->connection.OnOutput(events[i].isBroken);
    if (!Serve(seat, next)) return false;
  }
  return true;
}

// A call that is due is made at once when no other waits for a thread.
bool SCA_CommandLoop::Serve(Seat* seat, SCA_NetNext next) {
  if (next == SCA_NetNext::Call && threads_.CanCall()) return Call(seat);
  Settle(seat, next);
  return true;
}

bool SCA_CommandLoop::Call(Seat* seat) {
  Move(seat, &calling_);
  SetLimit(seat, SCA_NetConnection::kNever);
  Count(seat, 0);
  if (threads_.Call([seat] { seat->connection.Call(); })) {
    Settle(seat, seat->connection.AfterCall());
    return true;
  }
  {
    const SCA_LockGuard guard(mailLock_);
    seat->nextReturned = std::exchange(returned_, seat);
  }
  hasMail_ = true;
  poller_.Wake();
  return false;
}

void SCA_CommandLoop::TakeReturned() {
  Seat* seat = nullptr;
  {
    const SCA_LockGuard guard(mailLock_);
    seat = std::exchange(returned_, nullptr);
  }
  while (seat != nullptr) {
    Seat* returned = std::exchange(seat, seat->nextReturned);
    Settle(returned, returned->connection.AfterCall());
  }
}

void SCA_CommandLoop::TakeNewcomers() {
  std::vector<Newcomer> newcomers;
  {
    const SCA_LockGuard guard(mailLock_);
    newcomers.swap(newcomers_);
  }
  for (const Newcomer& newcomer : newcomers) Welcome(newcomer);
}

void SCA_CommandLoop::Welcome(const Newcomer& newcomer) {
  SCA_PolledSock unwanted(newcomer.peer.handle);
  if (isStopping_) return;
  const bool hasRoom = newcomer.refusal != 0 || MakeRoom();
  Seats made;
  const SCA_Result result = SCA_Guarded([&] {
    made.emplace_back(&gate_, newcomer.peer, &shared_);
    return SCA_Done;
  });
  if (result.HasFailed()) return;
  unwanted.Release();
  Seat* seat = &made.front();
  if (seat->connection.IsValid() == 0) return;
  seat->list = &made;
  seat->place = made.begin();
  connectionCount_.Add(1);
  Settle(seat, seat->connection.Begin(hasRoom ? newcomer.refusal : SCA_ErrorConnectionLimit));
}

// @return False when there are too many connections and none can be given up: strangers are, of
// whom nothing is known yet. Until such a one has ended there is one more than there should be.
bool SCA_CommandLoop::MakeRoom() {
  const unsigned long limit = maxConnections_.Get();
  if (connectionCount_.Get() < limit) return true;
  if (strangers_.empty() || connectionCount_.Get() >= 2 * limit) return false;
  Seat* stranger = &strangers_.front();
  Settle(stranger, stranger->connection.Stop());
  return true;
}

void SCA_CommandLoop::EndOverdue() {
  if (limits_.empty()) return;
  const Clock::time_point now = Clock::now();
  while (!limits_.empty() && limits_.begin()->first <= now) {
    Seat* seat = limits_.begin()->second;
    SetLimit(seat, SCA_NetConnection::kNever);
    Settle(seat, seat->connection.OnLimit(ETIMEDOUT));
  }
}

// Ends those whose peers are slowest, and then those that wait for a thread, until the others'
// memory is within bounds.
void SCA_CommandLoop::EndGreedy() {
  while (held_ > kMaxHeld) {
    Seat* seat = nullptr;
    if (!limits_.empty()) {
      seat = limits_.begin()->second;
    } else if (!due_.empty() && due_.back().connection.IsOpen()) {
      seat = &due_.back();
    } else {
      return;
    }
    Count(seat, 0);
    SetLimit(seat, SCA_NetConnection::kNever);
    Settle(seat, seat->connection.OnLimit(ENOBUFS));
  }
}

void SCA_CommandLoop::EndAll() {
  EndAll(&strangers_);
  EndAll(&known_);
  EndAll(&due_);
}

void SCA_CommandLoop::EndAll(Seats* seats) {
  for (auto next = seats->begin(); next != seats->end();) {
    Seat* seat = &*next++;
    // Of one that is closed already the last call is due.
    if (seat->connection.IsOpen()) Settle(seat, seat->connection.Stop());
  }
}

// Puts a connection where it waits for what comes next.
void SCA_CommandLoop::Settle(Seat* seat, SCA_NetNext next) {
  const bool waits = next == SCA_NetNext::Input || next == SCA_NetNext::Output;
  if (waits) {
    const SCA_Result set = SCA_Guarded([&] {
      SetLimit(seat, seat->connection.Limit());
      return Await(seat, next == SCA_NetNext::Input ? SCA_PollFor::Input : SCA_PollFor::Output);
    });
    if (!set.HasFailed()) {
      Count(seat, seat->connection.Held());
      return Move(seat, seat->connection.IsStranger() ? &strangers_ : &known_);
    }
    next = seat->connection.Stop();
  }
  SetLimit(seat, SCA_NetConnection::kNever);
  if (!seat->connection.IsOpen()) {
    // Before it is closed: the poller knows it for as long as a child that is being started has it.
    Unwatch(seat);
    seat->connection.Close();
  }
  Count(seat, seat->connection.IsOpen() ? seat->connection.Held() : 0);
  if (next == SCA_NetNext::End) return Remove(seat);
  Move(seat, &due_);
}

SCA_Result SCA_CommandLoop::Await(Seat* seat, SCA_PollFor what) {
  if (seat->isPolled && seat->polledFor == what) return SCA_Done;
  const int handle = seat->connection.Handle();
  const SCA_Result set =
      seat->isPolled ? poller_.Change(handle, what, seat) : poller_.Add(handle, what, seat);
  if (set.HasFailed()) return set;
  seat->isPolled = true;
  seat->polledFor = what;
  return SCA_Done;
}

void SCA_CommandLoop::Unwatch(Seat* seat) {
  if (seat->isPolled) poller_.Remove(seat->connection.Handle());
  seat->isPolled = false;
}

void SCA_CommandLoop::SetLimit(Seat* seat, Clock::time_point limit) {
  if (seat->limit == limit) return;
  if (limit != SCA_NetConnection::kNever) limits_.insert({limit, seat});
  if (seat->limit != SCA_NetConnection::kNever) limits_.erase({seat->limit, seat});
  seat->limit = limit;
}

void SCA_CommandLoop::Count(Seat* seat, std::size_t held) {
  held_ += held - seat->held;
  seat->held = held;
}

void SCA_CommandLoop::Move(Seat* seat, Seats* list) {
  if (seat->list == list) return;
  list->splice(list->end(), *seat->list, seat->place);
  seat->list = list;
}

void SCA_CommandLoop::Remove(Seat* seat) {
  seat->list->erase(seat->place);
  connectionCount_.Subtract(1);
}

// Milliseconds for which the poller may wait.
unsigned long SCA_CommandLoop::TimeLeft() {
  if (!due_.empty() && threads_.CanCall()) return 0;
  if (limits_.empty()) return SCA_Infinite;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(limits_.begin()->first - Clock::now()).count();
  return static_cast<unsigned long>(std::max<long long>(left, 0));
}
