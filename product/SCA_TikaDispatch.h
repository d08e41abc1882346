/// Inside of the dispatcher: what its workers share, and one worker. Internal to the library.
#ifndef SCA_PRODUCT_SCA_TIKADISPATCH_H
#define SCA_PRODUCT_SCA_TIKADISPATCH_H

#include <array>
#include <chrono>
#include <list>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <thread>

#include "platform/SCA_Lock.h"
#include "product/SCA_TikaClientList.h"
#include "product/SCA_TikaDispatcher.h"
#include "product/SCA_TikaExtractRequest.h"
#include "product/SCA_TikaRequestList.h"

/// How a request is to end. The cause is cut to what a request keeps of it.
struct SCA_TikaVerdict {
  SCA_TikaOutcome outcome = SCA_TikaOutcome::None;
  unsigned long code = 0;
  char cause[600] = "";

  /// @param server  Names the server in the cause; null for none.
  static SCA_TikaVerdict Make(SCA_TikaOutcome outcome, unsigned long code, const char* server,
                              const char* cause);
  /// Adds to the cause.
  SCA_TikaVerdict& Tell(const char* text);
};

/// What the end of a try tells.
enum class SCA_TikaTryEnd {
  Final,     ///< of the file: how it ended is known
  NotReady,  ///< of the server: it is coming up
  Broken,    ///< of either: the connection broke
  NotBegun   ///< nothing: the server could not be reached for it
};

/// One client and the thread that serves with it.
class SCA_TikaWorker {
 public:
  using Clock = std::chrono::steady_clock;

  SCA_TikaWorker(SCA_TikaDispatch* dispatch, const char* hostName, unsigned short port,
                 unsigned long serviceId);
  ~SCA_TikaWorker() { Join(); }
  SCA_TikaWorker(const SCA_TikaWorker&) = delete;
  SCA_TikaWorker& operator=(const SCA_TikaWorker&) = delete;

  void Start();
  void Join();
  void Wake() { wake_.Set(); }
  /// Ends the thread after the file that it has; every other wait ends now.
  void RequestStop() {
    stop_.Set();
    Wake();
  }

  unsigned long ServiceId() const { return serviceId_; }
  const std::string& Name() const { return name_; }
  bool IsServer(const char* hostName, unsigned short port) const;
  /// Whether the worker's service may serve a request.
  bool MayServe(const SCA_TikaExtractRequest& request) const {
    return request.MatchServiceId(serviceId_) != 0;
  }
  SCA_TikaClient* Client() const { return client_.get(); }

 private:
  struct Delivery;

  void Run();
  bool IsReady() const;
  enum class Proof { None, Answer };
  bool MakeReady(Proof proof);
  bool Connect(unsigned long* error);
  bool Answers(unsigned long* error);
  bool RenewClient(unsigned long* error);
  void WaitBeforeNextTry();
  void Park(unsigned long seen);
  bool Serve(SCA_TikaExtractRequest* request);
  SCA_TikaVerdict Extract(SCA_TikaExtractRequest* request, Delivery* delivery);
  SCA_TikaVerdict Judge(const SCA_TikaExtractRequest& request, const Delivery& delivery,
                        unsigned long error);
  static int Deliver(const char* text, unsigned long length, unsigned long offset, void* context);

  SCA_TikaDispatch* const dispatch_;
  const std::string hostName_;
  const unsigned short port_;
  const unsigned long serviceId_;
  const std::string name_;  // host:port
  SCA_Event stop_{1, 0};
  SCA_Event wake_{0, 0};
  SCA_Event askEnds_{1, 0};

  // The thread's own.
  SCA_Owned<SCA_TikaClient> client_;
  std::optional<unsigned long> clientId_;  // once the pool has given one
  Clock::time_point usedAt_;
  Proof proof_ = Proof::None;  // what the next connection needs
  unsigned long delayMs_;
  std::minstd_rand random_;

  std::thread thread_;
};

/// The requests and the workers of a dispatcher. `lock_` is never held across an operation of the
/// queue or of the pool, nor across a call of a sink; a request that the queue deletes takes it
/// while the queue's mutex is held.
///
/// A request that was submitted is at each moment in the queue, waiting outside of it, or with one
/// thread that serves it, ends it or puts it back.
///
/// A file whose connection broke is a suspect: it may have killed its server, or been there when
/// another one did. A suspect claims a server, which takes no more work until it has served what it
/// has, and then has it alone, over a new connection, once it has answered. A break then can only
/// come from the file or from chance; two make the outcome `ServersDied`.
class SCA_TikaDispatch {
 public:
  using Clock = std::chrono::steady_clock;

  SCA_TikaDispatch(SCA_TikaConfigOrv* settings, const SCA_TikaDispatchLimits& limits);
  ~SCA_TikaDispatch() { Stop(); }
  SCA_TikaDispatch(const SCA_TikaDispatch&) = delete;
  SCA_TikaDispatch& operator=(const SCA_TikaDispatch&) = delete;

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
  void Cancel(SCA_TikaExtractRequest* request);
  void CancelAll() SCA_EXCLUDES(lock_);
  void Abandon(SCA_TikaExtractRequest* request) SCA_EXCLUDES(lock_);
  void Stop() SCA_EXCLUDES(lock_);
  unsigned long Pending() SCA_EXCLUDES(lock_);
  int GetStatus(SCA_ConfigObj* obj);
  /// @}

  /// Removes a request that is being deleted.
  void Forget(SCA_TikaExtractRequest* request) SCA_EXCLUDES(lock_);

  /// @name For the workers
  /// @{
  SCA_TikaConfigOrv* Settings() { return settings_; }
  const SCA_TikaDispatchLimits& Limits() const { return limits_; }
  SCA_TikaClientList& Pool() { return pool_; }
  /// @param stop  The worker's.
  int Prepare(SCA_TikaClient* client, SCA_Event* stop, unsigned long* error);
  /// A number that changes with every request that comes.
  unsigned long Work() SCA_EXCLUDES(lock_);
  /// Takes the oldest request for a worker, one that waits for a further try before all others.
  /// @return Null when there is none.
  SCA_TikaExtractRequest* Take(SCA_TikaWorker* worker) SCA_EXCLUDES(lock_);
  /// @return False when work has come since `seen`: the worker must look again.
  bool BeginIdle(SCA_TikaWorker* worker, unsigned long seen) SCA_EXCLUDES(lock_);
  void EndIdle(SCA_TikaWorker* worker) SCA_EXCLUDES(lock_);
  /// Around a question of a worker to its server, whose client's time-out is for each wait only.
  /// @param ends  Set when the whole answer takes longer than that; the worker's.
  void BeginAsk(SCA_TikaWorker* worker, SCA_Event* ends) SCA_EXCLUDES(lock_);
  void EndAsk(SCA_TikaWorker* worker) SCA_EXCLUDES(lock_);
  void ServerIsUp(SCA_TikaWorker* worker) SCA_EXCLUDES(lock_);
  void ServerIsDown(SCA_TikaWorker* worker, unsigned long error) SCA_EXCLUDES(lock_);
  /// Begins a try: from now on it has its time limit.
  void BeginTry(SCA_TikaExtractRequest* request, SCA_TikaClient* client) SCA_EXCLUDES(lock_);
  /// Ends what `Take` began; the worker's client is no longer looked at.
  /// @return True when the request is to be tried again, by `Retry`.
  bool EndTry(SCA_TikaExtractRequest* request, SCA_TikaTryEnd end) SCA_EXCLUDES(lock_);
  /// Lets a request wait for a further try.
  void Retry(SCA_TikaExtractRequest* request) SCA_EXCLUDES(lock_);
  /// Records how a request ended and hands it back to its requester.
  void Finish(SCA_TikaExtractRequest* request, const SCA_TikaVerdict& verdict) SCA_EXCLUDES(lock_);
  bool IsOverdue(const SCA_TikaExtractRequest& request) SCA_EXCLUDES(lock_);
  /// The last act of a worker's thread, which may be joined from now on.
  void HasEnded(SCA_TikaWorker* worker) SCA_EXCLUDES(lock_);
  /// @}

 private:
  // What the workers of one host and port share; goes with the last of them.
  struct Server {
    unsigned long id = 0;                           // never given twice
    unsigned long seats = 0;                        // that refer to it
    unsigned long serving = 0;                      // requests
    SCA_TikaExtractRequest* suspect = nullptr;      // that has it alone, or is to
    std::optional<Clock::time_point> unreadySince;  // nothing but such answers since
  };
  enum class SeatState {
    Taken,  // its worker takes requests
    Idle,   // its worker waits for them
    Left,   // its server was removed: the worker ends what it has
    Empty   // the worker's thread is at its end
  };
  // A worker with what others look at.
  struct Seat : SCA_TikaWorker {
    using SCA_TikaWorker::SCA_TikaWorker;

    Server* server = nullptr;
    SeatState state = SeatState::Taken;
    std::optional<Clock::time_point> downSince;
    unsigned long error = 0;   // of the last try, while it is down
    SCA_Event* ask = nullptr;  // ends the question under way
    Clock::time_point askedAt;

    bool IsIn() const { return state == SeatState::Taken || state == SeatState::Idle; }
  };
  using Stage = SCA_TikaExtractRequest::Stage;
  struct Services;

  unsigned long Check(SCA_TikaExtractRequest* request) const;
  unsigned long FillServices(SCA_TikaExtractRequest* request) const;
  unsigned long Admit(SCA_TikaExtractRequest* request, bool wait) SCA_EXCLUDES(lock_);
  void Unregister(SCA_TikaExtractRequest* request) SCA_REQUIRES(lock_);
  void Move(SCA_TikaExtractRequest* request, Stage stage) SCA_REQUIRES(lock_);
  unsigned long& At(Stage stage) SCA_REQUIRES(lock_) {
    return at_[static_cast<std::size_t>(stage)];
  }
  void Leave(SCA_TikaExtractRequest* request) SCA_REQUIRES(lock_);
  void LetWait(SCA_TikaExtractRequest* request) SCA_REQUIRES(lock_);
  void TakeBack(SCA_TikaExtractRequest* request) SCA_REQUIRES(lock_);
  bool MayHave(const Seat& seat, const SCA_TikaExtractRequest& request) SCA_REQUIRES(lock_);
  bool HasOther(const SCA_TikaExtractRequest& request, unsigned long server) SCA_REQUIRES(lock_);
  // Each seat is a worker, and each worker has a seat.
  static Seat& SeatOf(SCA_TikaWorker* worker) { return static_cast<Seat&>(*worker); }
  bool IsOpen(const Seat& seat) SCA_REQUIRES(lock_) {
    return seat.IsIn() && seat.server->suspect == nullptr;
  }
  Server& ServerOf(const SCA_TikaExtractRequest& request) SCA_REQUIRES(lock_) {
    return servers_.find(request.server_)->second;
  }
  Server* FindOrAddServer(const char* hostName, unsigned short port) SCA_REQUIRES(lock_);
  void Empty(Seat* seat) SCA_REQUIRES(lock_);
  bool Claim(SCA_TikaExtractRequest* request, const Seat& seat) SCA_REQUIRES(lock_);
  SCA_TikaExtractRequest* FindWaiting(const Seat& seat) SCA_REQUIRES(lock_);
  bool Begin(SCA_TikaExtractRequest* request, const Seat& seat) SCA_REQUIRES(lock_);
  void LoseServer(Seat* seat) SCA_REQUIRES(lock_);
  bool IsWorthWaiting(SCA_TikaExtractRequest* request, Server* server) SCA_REQUIRES(lock_);
  template <class Accept>
  void WakeOne(Accept accept) SCA_REQUIRES(lock_);
  void WakeAll() SCA_REQUIRES(lock_);
  bool IsStopping() SCA_EXCLUDES(lock_);

  void Watch();
  bool HasRequests() SCA_EXCLUDES(lock_);
  void Reap() SCA_EXCLUDES(lock_);
  bool Sweep() SCA_EXCLUDES(lock_);
  void EndLongAsks(Clock::time_point now) SCA_REQUIRES(lock_);
  bool EndWaiting(SCA_TikaExtractRequest* request, bool isOurs) SCA_EXCLUDES(lock_);
  SCA_TikaVerdict Judge(SCA_TikaExtractRequest* request, Clock::time_point now) SCA_REQUIRES(lock_);
  bool IsPastLimit(const SCA_TikaExtractRequest& request, Clock::time_point now)
      SCA_REQUIRES(lock_);
  bool LacksServer(const SCA_TikaExtractRequest& request, Clock::time_point now,
                   const Seat** example) SCA_REQUIRES(lock_);
  void Drain() SCA_EXCLUDES(lock_);

  SCA_TikaConfigOrv* const settings_;
  const SCA_TikaDispatchLimits limits_;
  SCA_Owned<SCA_TikaConfigOrv> services_;  // a copy: texts and services are not safe to share
  SCA_TikaPrepareServer prepare_ = nullptr;
  void* prepareContext_ = nullptr;

  SCA_TikaClientList pool_;
  SCA_TikaRequestList queue_;
  SCA_Event stop_{1, 0};
  SCA_Event watch_{0, 0};
  std::thread watcher_;

  SCA_Lock lock_;
  SCA_Condition hasRoom_;
  SCA_List<SCA_TikaExtractRequest*> requests_ SCA_GUARDED_BY(lock_){0};
  std::map<unsigned long, Server> servers_ SCA_GUARDED_BY(lock_);  // by id
  unsigned long nextServer_ SCA_GUARDED_BY(lock_) = 0;
  std::list<Seat> seats_ SCA_GUARDED_BY(lock_);
  std::array<unsigned long, 4> at_ SCA_GUARDED_BY(lock_){};  // requests at each stage
  unsigned long work_ SCA_GUARDED_BY(lock_) = 0;
  bool isStopping_ SCA_GUARDED_BY(lock_) = false;
};

#endif  // SCA_PRODUCT_SCA_TIKADISPATCH_H
