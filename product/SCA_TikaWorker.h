/// One client and the thread that serves requests with it, and what it asks of its dispatch.
/// Internal to the library.
#ifndef SCA_PRODUCT_SCA_TIKAWORKER_H
#define SCA_PRODUCT_SCA_TIKAWORKER_H

#include <chrono>
#include <optional>
#include <random>
#include <string>
#include <thread>

#include "client/SCA_TikaClient.h"
#include "product/SCA_TikaDispatcher.h"
#include "product/SCA_TikaTicket.h"

class SCA_TikaWorker;

/// What all workers of a dispatch share; does not change once one has started.
struct SCA_TikaWorkTerms {
  SCA_TikaConfigOrv* settings;
  SCA_TikaDispatchLimits limits;
  SCA_TikaPrepareServer prepare = nullptr;
  void* prepareContext = nullptr;
};

/// What the end of a try tells.
enum class SCA_TikaTryEnd {
  Final,      ///< of the file: how it ended is known
  Cancelled,  ///< of its requester, or of its time limit
  NotReady,   ///< of the server: it is starting
  Withheld,   ///< of the server: it is not known yet whether it is one of Tika 4 that is starting
  Busy,       ///< of the server: all that could take the file are taken, and it says until when
  Crashed,    ///< of either: the server lost what had the file, and says when to ask again
  Broken,     ///< of either: the connection broke
  NotBegun    ///< nothing: the server could not be reached for it
};

/// What becomes of a request after a try.
enum class SCA_TikaNextStep {
  End,          ///< as the try says
  EndOverdue,   ///< since it has passed its time limit
  EndAsKiller,  ///< since too many connections broke on it
  TryAgain
};

/// The dispatch as a worker sees it. Each call comes from the worker's thread.
class SCA_TikaWorkplace {
 public:
  explicit SCA_TikaWorkplace(const SCA_TikaWorkTerms& terms) : terms_(terms) {}
  virtual ~SCA_TikaWorkplace() = default;
  SCA_TikaWorkplace(const SCA_TikaWorkplace&) = delete;
  SCA_TikaWorkplace& operator=(const SCA_TikaWorkplace&) = delete;

  const SCA_TikaWorkTerms& Terms() const { return terms_; }

  /// Takes the oldest request for a worker, one that is tried again before all others.
  /// @return Null when there is none.
  virtual SCA_TikaTicket* Take(SCA_TikaWorker* worker) = 0;
  /// Waits until there may be work that the last `Take` did not see, or the worker is to stop.
  virtual void Rest(SCA_TikaWorker* worker) = 0;
  /// Around a question of a worker to its server, whose client's time-out is for each wait only.
  /// @param ends  Set when the whole answer takes longer than that; the worker's.
  virtual void BeginAsk(SCA_TikaWorker* worker, SCA_Event* ends) = 0;
  virtual void EndAsk(SCA_TikaWorker* worker) = 0;
  virtual void ServerIsUp(SCA_TikaWorker* worker) = 0;
  virtual void ServerIsDown(SCA_TikaWorker* worker, unsigned long error) = 0;
  /// Begins a try: from now on it has its time limit.
  virtual void BeginTry(SCA_TikaTicket* ticket, SCA_TikaClient* client) = 0;
  /// Ends what `Take` began; the worker's client is no longer looked at. The worker then calls
  /// `TryAgain` or `Finish`.
  virtual SCA_TikaNextStep EndTry(SCA_TikaTicket* ticket, SCA_TikaTryEnd end) = 0;
  virtual void TryAgain(SCA_TikaTicket* ticket) = 0;
  /// Records how a request ended and hands it back to its requester.
  virtual void Finish(SCA_TikaTicket* ticket, const SCA_TikaVerdict& verdict) = 0;
  /// The last act of a worker's thread, which may be joined from now on.
  virtual void HasEnded(SCA_TikaWorker* worker) = 0;

 protected:
  SCA_TikaWorkTerms terms_;
};

/// Threads: `Start`, `Join` and `RequestStop` are the dispatch's; the names do not change.
class SCA_TikaWorker {
 public:
  using Clock = std::chrono::steady_clock;

  SCA_TikaWorker(SCA_TikaWorkplace* workplace, const char* hostName, unsigned short port,
                 unsigned long serviceId);
  ~SCA_TikaWorker() { Join(); }
  SCA_TikaWorker(const SCA_TikaWorker&) = delete;
  SCA_TikaWorker& operator=(const SCA_TikaWorker&) = delete;

  /// Throws std::bad_alloc, or as threads do.
  void Start();
  void Join();
  /// Ends the thread after the file that it has; every other wait ends now.
  void RequestStop();
  void Wake() { wake_.Set(); }
  /// On the worker's thread, until `Wake`.
  void Sleep() { wake_.Wait(SCA_Infinite); }

  unsigned long ServiceId() const { return serviceId_; }
  const std::string& Name() const { return name_; }
  bool IsServer(const char* hostName, unsigned short port) const;
  /// The thread's own; null until it has been made.
  SCA_TikaClient* Client() const { return client_.get(); }

 private:
  struct Delivery;
  enum class Proof { None, Answer };

  void Run();
  bool IsReady() const;
  bool MakeReady(Proof proof);
  bool Prepare(unsigned long* error);
  bool Connect(unsigned long* error);
  bool Answers(Proof proof, unsigned long* error);
  int Send(const SCA_TikaExtractRequest& request, Delivery* delivery, unsigned long* error);
  SCA_TikaVerdict RefusedOptions() const;
  void Forget();
  bool IsSilentForGood();
  bool RenewClient(unsigned long* error);
  void WaitBeforeNextTry();
  bool Serve(SCA_TikaTicket* ticket);
  SCA_TikaVerdict Extract(SCA_TikaTicket* ticket, Delivery* delivery);
  SCA_TikaVerdict Judge(const Delivery& delivery, unsigned long error) const;
  void Pause(unsigned long pauseMs);
  static int Deliver(const char* text, unsigned long length, unsigned long offset, void* context);

  SCA_TikaWorkplace* const workplace_;
  const std::string hostName_;
  const unsigned short port_;
  const unsigned long serviceId_;
  const std::string name_;  // host:port
  SCA_Event stop_{1, 0};
  SCA_Event wake_{0, 0};
  SCA_Event askEnds_{1, 0};

  // The thread's own.
  SCA_Owned<SCA_TikaClient> client_;
  Clock::time_point usedAt_;
  Proof proof_ = Proof::None;  // what the next connection needs
  unsigned long unready_ = 0;  // the HTTP code of a starting server that has told no version yet
  // Since when it has answered the question for its version with 404 only.
  std::optional<Clock::time_point> silentSince_;
  unsigned long delayMs_;
  std::minstd_rand random_;

  std::thread thread_;
};

#endif  // SCA_PRODUCT_SCA_TIKAWORKER_H
