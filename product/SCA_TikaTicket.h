/// What a dispatcher knows of a request from its submission to its outcome. Internal to the
/// library.
#ifndef SCA_PRODUCT_SCA_TIKATICKET_H
#define SCA_PRODUCT_SCA_TIKATICKET_H

#include <chrono>
#include <list>
#include <optional>

#include "product/SCA_TikaExtractRequest.h"

class SCA_TikaDispatch;
struct SCA_TikaServerShare;

/// How a request is to end. The cause is cut to what a request keeps of it.
struct SCA_TikaVerdict {
  SCA_TikaOutcome outcome = SCA_TikaOutcome::None;
  unsigned long code = 0;
  char cause[600] = "";

  /// @param server  Names the server in the cause; null for none.
  static SCA_TikaVerdict Make(SCA_TikaOutcome outcome, unsigned long code, const char* server,
                              const char* cause);
  /// As above, with the text of the code for a cause.
  static SCA_TikaVerdict Make(SCA_TikaOutcome outcome, unsigned long code, const char* server);
  /// Adds to the cause.
  SCA_TikaVerdict& Tell(const char* text);
};

/// Where a request is.
enum class SCA_TikaStage {
  Queued,    ///< in the queue; counts against the limit of pending requests
  Retrying,  ///< outside the queue, until a worker tries it again
  Served,    ///< with a worker, from its taking to the end of the try
  Overdue,   ///< with a worker, cancelled because the try has passed its time limit
  Ending,    ///< with the thread that ends it or lets it be tried again
  Ended      ///< with its requester; the ticket is about to go
};
constexpr std::size_t SCA_TikaStages = 6;

/// What moves a request from one stage to the next.
enum class SCA_TikaMove {
  Serve,      ///< a worker takes it
  PassLimit,  ///< the try has passed its time limit
  EndTry,     ///< the try has ended
  TakeBack,   ///< a thread takes it from the retrying ones, to end it
  TryAgain,   ///< it waits for a further try
  End         ///< its outcome is known, or its requester has given it up
};

/// The one table of stages and moves. Other moves are faults of the library.
SCA_TikaStage SCA_TikaNextStage(SCA_TikaStage stage, SCA_TikaMove move);

/// Threads: the lock of the dispatch guards the fields, except those of a try, which belong to the
/// worker that serves the request. `tries` changes only between tries.
struct SCA_TikaTicket {
  using Clock = std::chrono::steady_clock;
  static constexpr unsigned long kNoServer = 0xFFFFFFFF;

  SCA_TikaTicket(SCA_TikaDispatch* owner, SCA_TikaExtractRequest* ofRequest);
  ~SCA_TikaTicket();
  SCA_TikaTicket(const SCA_TikaTicket&) = delete;
  SCA_TikaTicket& operator=(const SCA_TikaTicket&) = delete;

  /// @return Null for a request that no dispatcher has.
  static SCA_TikaTicket* Of(const SCA_TikaExtractRequest& request) { return request.ticket_.Get(); }

  /// After its first broken connection, a file may have killed its server.
  bool IsSuspect() const { return tries > 0; }
  bool IsWithWorker() const {
    return stage == SCA_TikaStage::Served || stage == SCA_TikaStage::Overdue;
  }
  bool MayBeServedBy(unsigned long serviceId) const {
    return request->MatchServiceId(serviceId) != 0;
  }
  bool IsCancelled() { return request->GetCancel()->Wait(0) != 0; }

  /// @name What the requester reads once its request has ended
  /// @{
  void NoteServer(const char* name);
  const char* ServerName() const { return request->GetServer(); }
  /// @param textLength  Bytes delivered, 0 unless all were.
  void NoteReply(const SCA_TikaClient& client, unsigned long long textLength);
  void NoteOutcome(const SCA_TikaVerdict& verdict);
  /// @}

  SCA_TikaDispatch* const dispatch;
  SCA_TikaExtractRequest* const request;
  std::list<SCA_TikaTicket>::iterator place;  // among the tickets of the dispatch
  SCA_TikaStage stage = SCA_TikaStage::Queued;
  unsigned long tries = 0;
  Clock::time_point waitsSince = Clock::now();    // or, later, when a server was lost to it
  std::optional<Clock::time_point> beganAt;       // the first try
  Clock::time_point triedAt;                      // the last one
  std::optional<Clock::time_point> unreadySince;  // the first answer of a server not ready for it
  unsigned long unready = 0;                      // how many such answers there were
  SCA_TikaServerShare* server = nullptr;          // that serves it, or that a suspect has claimed
  unsigned long failedServer = kNoServer;         // on which it broke last
  std::optional<Clock::time_point> busySince;     // the first answer of a server busy with others
  unsigned long pauseMs = 0;                      // that the last answer asked for; of a try
};

#endif  // SCA_PRODUCT_SCA_TIKATICKET_H
