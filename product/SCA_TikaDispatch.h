/// The requests and the workers of a dispatcher. Internal to the library.
#ifndef SCA_PRODUCT_SCA_TIKADISPATCH_H
#define SCA_PRODUCT_SCA_TIKADISPATCH_H

#include <array>
#include <list>
#include <map>
#include <optional>
#include <thread>

#include "platform/SCA_Lock.h"
#include "product/SCA_TikaClientList.h"
#include "product/SCA_TikaRequestList.h"
#include "product/SCA_TikaTicket.h"
#include "product/SCA_TikaWorker.h"

/// What the workers of one host and port share; deleted with the last of them.
struct SCA_TikaServerShare {
  unsigned long id = 0;                                               ///< never given twice
  unsigned long seats = 0;                                            ///< workers
  unsigned long serving = 0;                                          ///< requests
  SCA_TikaTicket* suspect = nullptr;                                  ///< that has claimed it
  std::optional<std::chrono::steady_clock::time_point> unreadySince;  ///< no other answer since
};

/// Threads: any thread may call any operation but `Start` and the destructor; those of a workplace
/// belong to the workers. `lock_` is never held across an operation of the queue or of the pool,
/// nor across a call of a sink; a request that the queue deletes takes it while the queue's mutex
/// is held.
///
/// A file whose connection broke is a suspect: it may have killed its server, or been there when
/// another one did. A suspect claims a server, which takes no more work until it has served what it
/// has, and then has it alone, over a new connection, once it has answered. A break then can only
/// come from the file or from chance; two make the outcome `ServersDied`.
class SCA_TikaDispatch : public SCA_TikaWorkplace {
 public:
  using Clock = std::chrono::steady_clock;

  SCA_TikaDispatch(SCA_TikaConfigOrv* settings, const SCA_TikaDispatchLimits& limits)
      : SCA_TikaWorkplace({settings, limits}) {}
  ~SCA_TikaDispatch() override { Stop(); }

  /// @return False without memory. Throws as threads and allocations do.
  bool Start();

  /// @name What the dispatcher offers; results are error codes, 0 for success
  /// @{
  void SetPrepareServer(SCA_TikaPrepareServer prepare, void* context);
  unsigned long AddServer(const char* hostName, unsigned short port, unsigned long serviceId)
      SCA_EXCLUDES(lock_);
  unsigned long RemoveServer(const char* hostName, unsigned short port, unsigned long serviceId)
      SCA_EXCLUDES(lock_);
  unsigned long Submit(SCA_TikaExtractRequest* request, bool wait) SCA_EXCLUDES(lock_);
  void Cancel(SCA_TikaExtractRequest* request) SCA_EXCLUDES(lock_);
  void CancelAll() SCA_EXCLUDES(lock_);
  void Abandon(SCA_TikaExtractRequest* request) SCA_EXCLUDES(lock_);
  void Stop() SCA_EXCLUDES(lock_);
  unsigned long Pending() SCA_EXCLUDES(lock_);
  int GetStatus(SCA_ConfigObj* obj);
  /// @}

  /// Removes the ticket of a request that is being deleted.
  void Forget(SCA_TikaTicket* ticket) SCA_EXCLUDES(lock_);

  /// @name For the workers
  /// @{
  SCA_TikaTicket* Take(SCA_TikaWorker* worker) override SCA_EXCLUDES(lock_);
  void Rest(SCA_TikaWorker* worker) override SCA_EXCLUDES(lock_);
  void BeginAsk(SCA_TikaWorker* worker, SCA_Event* ends) override SCA_EXCLUDES(lock_);
  void EndAsk(SCA_TikaWorker* worker) override SCA_EXCLUDES(lock_);
  void ServerIsUp(SCA_TikaWorker* worker) override SCA_EXCLUDES(lock_);
  void ServerIsDown(SCA_TikaWorker* worker, unsigned long error) override SCA_EXCLUDES(lock_);
  void BeginTry(SCA_TikaTicket* ticket, SCA_TikaClient* client) override SCA_EXCLUDES(lock_);
  SCA_TikaNextStep EndTry(SCA_TikaTicket* ticket, SCA_TikaTryEnd end) override SCA_EXCLUDES(lock_);
  void TryAgain(SCA_TikaTicket* ticket) override SCA_EXCLUDES(lock_);
  void Finish(SCA_TikaTicket* ticket, const SCA_TikaVerdict& verdict) override SCA_EXCLUDES(lock_);
  void HasEnded(SCA_TikaWorker* worker) override SCA_EXCLUDES(lock_);
  /// @}

 private:
  enum class SeatState {
    Taken,  // its worker takes requests
    Idle,   // its worker waits for them; whatever sets another state must wake it
    Left,   // its server was removed: the worker ends what it has
    Empty   // the worker's thread is at its end
  };
  // A worker with what others look at. Each worker of a dispatch is one.
  struct Seat : SCA_TikaWorker {
    using SCA_TikaWorker::SCA_TikaWorker;

    bool IsIn() const { return state == SeatState::Taken || state == SeatState::Idle; }
    bool MayServe(const SCA_TikaTicket& ticket) const { return ticket.MayBeServedBy(ServiceId()); }

    SCA_TikaServerShare* server = nullptr;
    SeatState state = SeatState::Taken;
    unsigned long seen = 0;  // the work that there was when it last looked
    std::optional<Clock::time_point> downSince;
    unsigned long error = 0;   // of the last try, while it is down
    SCA_Event* ask = nullptr;  // ends the question under way
    Clock::time_point askedAt;
    std::optional<unsigned long> clientId;  // the worker's own: once the pool has given one
  };
  // How much room of the queue is worth waking a submit for.
  enum class Room { Any, Half };
  using Server = SCA_TikaServerShare;
  using Stage = SCA_TikaStage;
  struct Services;

  static Seat& SeatOf(SCA_TikaWorker* worker) { return static_cast<Seat&>(*worker); }

  // Servers.
  Server* FindOrAddServer(const char* hostName, unsigned short port) SCA_REQUIRES(lock_);
  void LoseServer(Seat* seat) SCA_REQUIRES(lock_);
  void Empty(Seat* seat) SCA_REQUIRES(lock_);
  void Reap() SCA_EXCLUDES(lock_);

  // Requests.
  unsigned long Check(SCA_TikaExtractRequest* request) const;
  unsigned long FillServices(SCA_TikaExtractRequest* request) const;
  unsigned long Admit(SCA_TikaExtractRequest* request, bool wait) SCA_EXCLUDES(lock_);
  unsigned long Enqueue(SCA_TikaExtractRequest* request) SCA_EXCLUDES(lock_);
  void FinishStopped(SCA_TikaTicket* ticket) SCA_EXCLUDES(lock_);
  SCA_TikaTicket* TicketOf(const SCA_TikaExtractRequest& request) SCA_EXCLUDES(lock_);
  void Move(SCA_TikaTicket* ticket, SCA_TikaMove move) SCA_REQUIRES(lock_);
  void TellRoom(Room wanted) SCA_REQUIRES(lock_);
  unsigned long& At(Stage stage) SCA_REQUIRES(lock_) {
    return at_[static_cast<std::size_t>(stage)];
  }
  void LeaveServer(SCA_TikaTicket* ticket) SCA_REQUIRES(lock_);
  void LetWait(SCA_TikaTicket* ticket) SCA_REQUIRES(lock_);
  void TakeBack(SCA_TikaTicket* ticket) SCA_REQUIRES(lock_);
  void Unregister(SCA_TikaTicket* ticket) SCA_REQUIRES(lock_);

  // Which worker serves which request.
  bool IsOpen(const Seat& seat) SCA_REQUIRES(lock_) {
    return seat.IsIn() && seat.server->suspect == nullptr;
  }
  bool MayHave(const Seat& seat, const SCA_TikaTicket& ticket) SCA_REQUIRES(lock_);
  bool HasOther(const SCA_TikaTicket& ticket, unsigned long server) SCA_REQUIRES(lock_);
  SCA_TikaTicket* FindRetrying(const Seat& seat) SCA_REQUIRES(lock_);
  bool Claim(SCA_TikaTicket* ticket, const Seat& seat) SCA_REQUIRES(lock_);
  bool Begin(SCA_TikaTicket* ticket, const Seat& seat) SCA_REQUIRES(lock_);
  SCA_TikaNextStep AfterTry(SCA_TikaTicket* ticket, SCA_TikaTryEnd end) SCA_REQUIRES(lock_);
  bool IsWorthWaiting(SCA_TikaTicket* ticket) SCA_REQUIRES(lock_);
  bool IsWorthAsking(SCA_TikaTicket* ticket) SCA_REQUIRES(lock_);
  bool MayPause(SCA_TikaTicket* ticket) SCA_REQUIRES(lock_);
  bool BeginIdle(Seat* seat) SCA_EXCLUDES(lock_);
  void Rouse(Seat* seat) SCA_REQUIRES(lock_);
  template <class Accept>
  void WakeOne(Accept accept) SCA_REQUIRES(lock_);
  void WakeAll() SCA_REQUIRES(lock_);

  // The watcher.
  void Watch();
  bool HasRequests() SCA_EXCLUDES(lock_);
  bool Sweep() SCA_EXCLUDES(lock_);
  void EndLongAsks(Clock::time_point now) SCA_REQUIRES(lock_);
  bool EndWaiting(SCA_TikaExtractRequest* request, bool isOurs) SCA_EXCLUDES(lock_);
  SCA_TikaVerdict Judge(SCA_TikaTicket* ticket, Clock::time_point now) SCA_REQUIRES(lock_);
  bool IsPastLimit(const SCA_TikaTicket& ticket, Clock::time_point now) SCA_REQUIRES(lock_);
  bool LacksServer(const SCA_TikaTicket& ticket, Clock::time_point now, const Seat** example)
      SCA_REQUIRES(lock_);
  void Drain() SCA_EXCLUDES(lock_);

  SCA_Owned<SCA_TikaConfigOrv> services_;  // a copy: texts and services are not safe to share

  SCA_TikaClientList pool_;
  SCA_TikaRequestList queue_;
  SCA_Event stop_{1, 0};  // the watcher
  SCA_Event watch_{0, 0};
  std::thread watcher_;

  SCA_Lock lock_;
  SCA_Condition hasRoom_;
  unsigned long waiting_ SCA_GUARDED_BY(lock_) = 0;  // submits, for room
  std::list<SCA_TikaTicket> tickets_ SCA_GUARDED_BY(lock_);
  std::array<unsigned long, SCA_TikaStages> at_ SCA_GUARDED_BY(lock_){};  // tickets at each stage
  std::map<unsigned long, Server> servers_ SCA_GUARDED_BY(lock_);         // by id
  unsigned long nextServer_ SCA_GUARDED_BY(lock_) = 0;
  std::list<Seat> seats_ SCA_GUARDED_BY(lock_);
  unsigned long work_ SCA_GUARDED_BY(lock_) = 0;  // changes with everything that workers look for
  bool isWatcherIdle_ SCA_GUARDED_BY(lock_) = false;  // it waits for `watch_` without a limit
  bool isStopping_ SCA_GUARDED_BY(lock_) = false;
};

// For work that any of the workers accepted can take.
template <class Accept>
void SCA_TikaDispatch::WakeOne(Accept accept) {
  ++work_;
  for (Seat& seat : seats_) {
    if (seat.state == SeatState::Idle && accept(seat)) return Rouse(&seat);
  }
}

#endif  // SCA_PRODUCT_SCA_TIKADISPATCH_H
