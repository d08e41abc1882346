/// Inside of the dispatcher: what its workers share, and one worker. Internal to the library.
#ifndef SCA_PRODUCT_SCA_TIKADISPATCH_H
#define SCA_PRODUCT_SCA_TIKADISPATCH_H

#include <chrono>
#include <condition_variable>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

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

/// One client and the thread that serves with it.
class SCA_TikaWorker {
 public:
  /// @param number  The worker's place in the dispatch.
  /// @param server  Numbers the servers: equal for workers of one host and port.
  SCA_TikaWorker(SCA_TikaDispatch* dispatch, unsigned long number, const char* hostName,
                 unsigned short port, unsigned long serviceId, unsigned long server);
  ~SCA_TikaWorker() { Join(); }
  SCA_TikaWorker(const SCA_TikaWorker&) = delete;
  SCA_TikaWorker& operator=(const SCA_TikaWorker&) = delete;

  void Start();
  void Join();
  void Wake() { wake_.Set(); }

  unsigned long Number() const { return number_; }
  unsigned long ServiceId() const { return serviceId_; }
  unsigned long Server() const { return server_; }
  const std::string& Name() const { return name_; }
  bool IsServer(const char* hostName, unsigned short port) const;
  /// Whether the worker may have a request, as to its service and to the server that broke before.
  bool MayServe(const SCA_TikaExtractRequest& request) const;
  const SCA_TikaClient* Client() const { return client_.get(); }

 private:
  using Clock = std::chrono::steady_clock;
  struct Delivery;

  void Run();
  bool IsReady() const;
  bool MakeReady();
  bool RenewClient(unsigned long* error);
  void WaitBeforeNextTry();
  void Park(unsigned long seen);
  void Serve(SCA_TikaExtractRequest* request);
  bool TryAgain(SCA_TikaExtractRequest* request, Delivery* delivery, bool mayStay);
  SCA_TikaVerdict Judge(const SCA_TikaExtractRequest& request, const Delivery& delivery,
                        unsigned long error);
  static int Deliver(const char* text, unsigned long length, unsigned long offset, void* context);

  SCA_TikaDispatch* const dispatch_;
  const unsigned long number_;
  const std::string hostName_;
  const unsigned short port_;
  const unsigned long serviceId_;
  const unsigned long server_;
  const std::string name_;  // host:port
  SCA_Event wake_{0, 0};

  // The thread's own.
  SCA_Owned<SCA_TikaClient> client_;
  std::optional<unsigned long> clientId_;  // once the pool has given one
  Clock::time_point usedAt_;
  bool isReused_ = false;  // the connection has served a file
  unsigned long delayMs_;
  std::minstd_rand random_;

  std::thread thread_;
};

/// The requests and the workers of a dispatcher. `lock_` is never held across an operation of the
/// queue or of the pool, nor across a call of a sink; a request that the queue deletes takes it
/// while the queue's mutex is held.
///
/// A request that was submitted is at each moment in the queue, among the retries, or with one
/// thread that finishes it, serves it or takes it back.
class SCA_TikaDispatch {
 public:
  using Clock = std::chrono::steady_clock;

  SCA_TikaDispatch(SCA_TikaConfigOrv* settings, const SCA_TikaDispatchLimits& limits);
  ~SCA_TikaDispatch() { Stop(); }
  SCA_TikaDispatch(const SCA_TikaDispatch&) = delete;
  SCA_TikaDispatch& operator=(const SCA_TikaDispatch&) = delete;

  /// @return False without memory or thread.
  bool Start();

  /// @name What the dispatcher offers; results are error codes, 0 for success
  /// @{
  void SetPrepareServer(SCA_TikaPrepareServer prepare, void* context);
  unsigned long AddServer(const char* hostName, unsigned short port, unsigned long serviceId)
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
  SCA_Event& StopEvent() { return stop_; }
  int Prepare(SCA_TikaClient* client, unsigned long* error);
  /// A number that changes with every request that comes.
  unsigned long Work() SCA_EXCLUDES(lock_);
  /// Takes the oldest request for a worker, a second try before all others, and begins it.
  /// @return Null when there is none.
  SCA_TikaExtractRequest* Take(const SCA_TikaWorker& worker) SCA_EXCLUDES(lock_);
  /// @return False when work has come since `seen`: the worker must look again.
  bool BeginIdle(const SCA_TikaWorker& worker, unsigned long seen) SCA_EXCLUDES(lock_);
  void EndIdle(const SCA_TikaWorker& worker) SCA_EXCLUDES(lock_);
  void ServerIsUp(const SCA_TikaWorker& worker) SCA_EXCLUDES(lock_);
  void ServerIsDown(const SCA_TikaWorker& worker, unsigned long error) SCA_EXCLUDES(lock_);
  bool HasOtherServer(const SCA_TikaExtractRequest& request, const SCA_TikaWorker& worker)
      SCA_EXCLUDES(lock_);
  /// Lets a request wait for its second try. @param failedServer  Must not have it again.
  void Retry(SCA_TikaExtractRequest* request, unsigned long failedServer) SCA_EXCLUDES(lock_);
  /// Records how a request ended and hands it back to its requester.
  void Finish(SCA_TikaExtractRequest* request, const SCA_TikaVerdict& verdict) SCA_EXCLUDES(lock_);
  bool IsOverdue(const SCA_TikaExtractRequest& request) SCA_EXCLUDES(lock_);
  /// @}

 private:
  // A worker with what others look at.
  struct Seat {
    std::unique_ptr<SCA_TikaWorker> worker;
    bool isIdle = false;
    std::optional<Clock::time_point> downSince;
    unsigned long error = 0;  // of the last try, while it is down
  };
  struct Services;

  unsigned long Check(SCA_TikaExtractRequest* request) const;
  unsigned long FillServices(SCA_TikaExtractRequest* request) const;
  unsigned long Admit(SCA_TikaExtractRequest* request, bool wait) SCA_EXCLUDES(lock_);
  void Unregister(SCA_TikaExtractRequest* request) SCA_REQUIRES(lock_);
  void NoLongerWaits(SCA_TikaExtractRequest* request) SCA_REQUIRES(lock_);
  void LeaveRetries(SCA_TikaExtractRequest* request) SCA_REQUIRES(lock_);
  void JoinRetries(SCA_TikaExtractRequest* request) SCA_REQUIRES(lock_);
  SCA_TikaExtractRequest* TakeRetry(const SCA_TikaWorker& worker) SCA_EXCLUDES(lock_);
  bool Begin(SCA_TikaExtractRequest* request) SCA_EXCLUDES(lock_);
  template <class Accept>
  void WakeOne(Accept accept) SCA_REQUIRES(lock_);
  void WakeAll() SCA_REQUIRES(lock_);
  bool IsStopping() SCA_EXCLUDES(lock_);

  void Watch();
  bool HasRequests() SCA_EXCLUDES(lock_);
  bool Sweep() SCA_EXCLUDES(lock_);
  bool EndWaiting(SCA_TikaExtractRequest* request, bool isTaken) SCA_EXCLUDES(lock_);
  SCA_TikaVerdict Judge(SCA_TikaExtractRequest* request, Clock::time_point now) SCA_REQUIRES(lock_);
  bool IsPastLimit(const SCA_TikaExtractRequest& request, Clock::time_point now) const;
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
  std::condition_variable_any hasRoom_;
  SCA_List<SCA_TikaExtractRequest*> requests_ SCA_GUARDED_BY(lock_){0};
  unsigned long retries_ SCA_GUARDED_BY(lock_) = 0;  // requests that wait outside of the queue
  std::vector<Seat> seats_ SCA_GUARDED_BY(lock_);
  unsigned long waiting_ SCA_GUARDED_BY(lock_) = 0;
  unsigned long work_ SCA_GUARDED_BY(lock_) = 0;
  bool isStopping_ SCA_GUARDED_BY(lock_) = false;
};

#endif  // SCA_PRODUCT_SCA_TIKADISPATCH_H
