/// The loop that serves all connections of a command server. Internal to the library.
#ifndef SCA_CONTROL_SCA_COMMANDLOOP_H
#define SCA_CONTROL_SCA_COMMANDLOOP_H

#include <atomic>
#include <list>
#include <set>
#include <utility>
#include <vector>

#include "control/SCA_NetConnection.h"
#include "platform/SCA_Atomic.h"
#include "platform/SCA_LeadThreads.h"
#include "platform/SCA_Listener.h"
#include "platform/SCA_Lock.h"

/// One thread serves every connection as it becomes ready. What a connection calls of the hosting
/// program may wait: then another thread goes on with the others. Threads: any.
class SCA_CommandLoop final : private SCA_LeadWork {
 public:
  /// @param gate  Outlives the loop.
  explicit SCA_CommandLoop(SCA_CommandGate* gate) : gate_(*gate), threads_(this) {}
  ~SCA_CommandLoop() override { Join(); }
  SCA_CommandLoop(const SCA_CommandLoop&) = delete;
  SCA_CommandLoop& operator=(const SCA_CommandLoop&) = delete;

  bool IsWhole() const { return poller_.IsValid() != 0; }

  /// Once. @return `EAGAIN` or `ENOMEM` without a thread.
  SCA_Result Start();
  /// Serves a connection, whose descriptor this takes over.
  /// @param refusal  Why it is to be refused, or 0.
  void Add(const SCA_AcceptedPeer& peer, unsigned long refusal) SCA_EXCLUDES(mailLock_);
  /// Ends every connection, those in a call after it, with their reply.
  void Stop();
  /// After `Stop`: waits until nothing is called any more. Not within a call.
  void Join();
  /// @return True within a call that one of the connections has made.
  bool IsCaller() const { return threads_.IsCaller(); }

  /// @param count  > 0. Beyond it a new connection replaces the oldest stranger.
  void SetMaxConnections(unsigned long count) { maxConnections_.Set(count); }
  /// @return The connections that have not ended.
  unsigned long GetConnectionCount() const { return connectionCount_.Get(); }

 private:
  using Clock = SCA_NetConnection::Clock;
  struct Seat;
  using Seats = std::list<Seat>;
  using Limit = std::pair<Clock::time_point, Seat*>;

  // A connection and its place in the loop.
  struct Seat {
    Seat(SCA_CommandGate* gate, const SCA_AcceptedPeer& peer, SCA_NetConnection::Memory* shared)
        : connection(gate, peer, shared) {}

    SCA_NetConnection connection;
    Seats* list = nullptr;                                // that it is in ...
    Seats::iterator place;                                // ... and where
    bool isPolled = false;                                // the poller knows it ...
    SCA_PollFor polledFor = SCA_PollFor::Input;           // ... and what it waits for
    Clock::time_point limit = SCA_NetConnection::kNever;  // that limits_ holds
    std::size_t held = 0;                                 // that held_ counts
    Seat* nextReturned = nullptr;
  };
  struct Newcomer {
    SCA_AcceptedPeer peer;
    unsigned long refusal;
  };

  void Lead() override;
  void Wake() override { poller_.Wake(); }

  // Of these, false means that the lead is lost.
  bool ServeDue();
  bool ServeEvents();
  bool Serve(Seat* seat, SCA_NetNext next);
  bool Call(Seat* seat);

  void TakeReturned() SCA_EXCLUDES(mailLock_);
  void TakeNewcomers() SCA_EXCLUDES(mailLock_);
  void Welcome(const Newcomer& newcomer);
  bool MakeRoom();
  void EndOverdue();
  void EndGreedy();
  void EndAll();
  void EndAll(Seats* seats);
  void Settle(Seat* seat, SCA_NetNext next);
  SCA_Result Await(Seat* seat, SCA_PollFor what);
  void SetLimit(Seat* seat, Clock::time_point limit);
  void Count(Seat* seat, std::size_t held);
  void Unwatch(Seat* seat);
  void Move(Seat* seat, Seats* list);
  void Remove(Seat* seat);
  unsigned long TimeLeft();

  SCA_CommandGate& gate_;
  SCA_LeadThreads threads_;
  SCA_Poller poller_;
  bool isStarted_ = false;
  std::atomic<bool> isStopping_{false};
  SCA_AtomicValue<unsigned long> maxConnections_{1};
  SCA_AtomicValue<unsigned long> connectionCount_{0};

  // What other threads hand to the leader.
  std::atomic<bool> hasMail_{false};
  SCA_Lock mailLock_;
  std::vector<Newcomer> newcomers_ SCA_GUARDED_BY(mailLock_);
  Seat* returned_ SCA_GUARDED_BY(mailLock_) = nullptr;  // whose calls have ended without the lead

  // The leader's own. A connection is in one list; a stranger or one that is known waits for its
  // peer, one that is due waits to call.
  Seats strangers_;  // oldest first
  Seats known_;
  Seats due_;  // oldest first
  Seats calling_;
  std::set<Limit> limits_;
  std::size_t held_ = 0;  // bytes of all that wait
  SCA_NetConnection::Memory shared_;
};

#endif  // SCA_CONTROL_SCA_COMMANDLOOP_H
