/// Distributes extraction requests over Tika servers and gives each one an outcome.
#ifndef SCA_PRODUCT_SCA_TIKADISPATCHER_H
#define SCA_PRODUCT_SCA_TIKADISPATCHER_H

#include <memory>

#include "client/SCA_TikaClient.h"
#include "product/SCA_TikaExtractRequest.h"

class SCA_TikaDispatch;

/// Limits of a dispatcher; times in milliseconds.
struct SCA_TikaDispatchLimits {
  unsigned long connectMs = 10000;  ///< for one connection
  /// For each try of a file, from the moment a worker takes it, however slowly its reply arrives.
  /// Tika itself gives up on a document after 300 s. 0: none.
  unsigned long fileMs = 310000;
  unsigned long fileMsPerMiB = 1000;  ///< added to it for each MiB of the file that has begun
  /// Bytes of a text; a longer one ends as `ServerFailed` with `SCA_ErrorTextTooLong`. 0: none.
  unsigned long long textBytes = 2ULL << 30;
  unsigned long idleMs = 150000;     ///< older connections are renewed; servers close after 200 s
  unsigned long noServerMs = 30000;  ///< how long a request waits while no server is reachable
  unsigned long notReadyMs = 30000;  ///< how long a starting server may answer 404 or 503
  /// Before an unreachable or unready server is tried again; at least 5, ...
  unsigned long firstDelayMs = 100;
  unsigned long lastDelayMs = 10000;  ///< ... doubled each time, up to this
  unsigned long variant = 3;          ///< of the reply decoder
};

/// Called before each connection, on the thread of the client's worker: may start the server, wait
/// for it, and set the client's port.
/// @param stop   Set when the dispatcher stops or the server is removed: waits must check it.
/// @param error  Receives why there is no server.
/// @return 0 when there is none; it is asked again later. Must not throw.
using SCA_TikaPrepareServer = int (*)(SCA_TikaClient* client, SCA_Event* stop, void* context,
                                      unsigned long* error);

/// One client with one worker for each server added. A worker takes the oldest request that its
/// client can serve, and keeps the client connected: it renews the connection after a failure and
/// after a long pause or when the server has closed it, replaces a client that became invalid, and
/// tries a server that cannot be reached again with growing delay.
///
/// A file whose connection broke is tried again, after `SCA_TikaTextSink::Restart` if text had been
/// delivered: it may have killed its server, or another file did. So it gets two more
/// tries, each alone on a server that has just answered, over a new connection. The server first
/// finishes what it has; the others go on meanwhile. Another server is preferred while one can be
/// reached. A file that breaks these two connections too ends as `ServersDied`; its neighbours
/// are extracted.
///
/// A server that answers 404, or 503 without saying when to ask again, is starting: its file goes
/// to another one, or waits. One that answers 404 to the question for its version for longer than
/// `notReadyMs` gets plain requests of Tika 1 to 3; options are refused there. One that answers 429
/// is busy: the file waits as long as the server says (Retry-After; a second at least), or goes to
/// another one. This is no try, and lasts
/// at most as long as the time limit of a file. After 503 with Retry-After the file has one more
/// try. A refused file, 413 included, a timeout and any other failure answer are final.
///
/// Threads: any thread may call any operation except the destructor. A limit of the settings may
/// change at any time; texts and services are copied when the dispatcher is made.
class SCA_API SCA_TikaDispatcher : public SCA_Object {
 public:
  /// Invalid without memory, threads or settings; every operation then fails with `ENOMEM`.
  /// @param settings  Network time-out, mode and limit of pending requests; not owned, must outlive
  ///                  the dispatcher.
  SCA_TikaDispatcher(SCA_TikaConfigOrv* settings, const SCA_TikaDispatchLimits& limits);
  /// Stops.
  ~SCA_TikaDispatcher() override;
  SCA_TikaDispatcher(const SCA_TikaDispatcher&) = delete;
  SCA_TikaDispatcher& operator=(const SCA_TikaDispatcher&) = delete;

  /// Before the first server is added. @param context  Handed to the function.
  void SetPrepareServer(SCA_TikaPrepareServer prepare, void* context);
  /// Adds a client for a server. Several for one server serve as many files at once.
  /// @param serviceId  The service that the server belongs to.
  /// @param error      `SCA_ErrorHostNameInvalid`, `SCA_ErrorStopping`, `ENOMEM`, `EAGAIN`.
  int AddServer(const char* hostName, unsigned short port, unsigned long serviceId,
                unsigned long* error);
  /// Removes the clients that were added for a server and its service. This does not wait: each
  /// client completes the file that it is serving, takes no other, and is deleted with its
  /// connection and its thread. A file that only this server could serve is treated as if the
  /// server could not be reached. The server may be added again at any time.
  ///
  /// A worker, a sink or the prepare function may call this too, even for their own server. The
  /// prepare function may be running for a removed server until the dispatcher stops, with its
  /// `stop` set.
  /// @param error  `ENXIO` when there is no such server, `SCA_ErrorStopping`, `ENOMEM` as above.
  int RemoveServer(const char* hostName, unsigned short port, unsigned long serviceId,
                   unsigned long* error);

  /// Queues a request. Unless its service list was filled by the requester, it receives the enabled
  /// services of the request's pool that take its extension: by their own list when they process
  /// custom extensions, else by the settings'.
  /// @param wait   What happens when the settings' maximum of requests is pending: 1 waits until
  ///               there is room, 0 refuses. A maximum of 0 refuses in any case.
  /// @param error  `SCA_ErrorExtractionOff`, `SCA_ErrorNoService`, `SCA_ErrorQueueFull`,
  ///               `SCA_ErrorStopping`, `SCA_ErrorAlreadyActive` for one submitted before,
  ///               `SCA_ErrorCancelled` for one cancelled while it waited for room,
  ///               `SCA_ErrorInvalidData` for one that is not valid, `SCA_ErrorOptionInvalid` for
  ///               one with an option that is not (`SCA_CheckTikaOptions` tells which), `ENOMEM`.
  /// @return 1; or 0, the request then being the caller's as before.
  int Submit(SCA_TikaExtractRequest* request, int wait, unsigned long* error);
  /// Cancels a request, which ends soon as `Cancelled` unless it ends otherwise before. Ends its
  /// submit where that waits.
  void Cancel(SCA_TikaExtractRequest* request);
  /// Cancels every request submitted so far.
  void CancelAll();
  /// Gives up a request in any state: it is deleted now, or by the worker that has
  /// it. Its sink may be called until then. The caller must not touch it again.
  void Abandon(SCA_TikaExtractRequest* request);
  /// Refuses new requests, ends the submits that wait, cancels every request and ends the workers.
  /// Every request has its outcome when this returns. Called again, it does nothing. Not to be
  /// called by a sink.
  void Stop();

  /// Requests that wait for a worker.
  unsigned long GetPendingRequests() const;
  /// Adds an object "Clients" with the idle clients and an object "Requests" with the queued
  /// requests, each in its list's form.
  int GetStatus(SCA_ConfigObj* obj);

 private:
  std::unique_ptr<SCA_TikaDispatch> dispatch_;
};

#endif  // SCA_PRODUCT_SCA_TIKADISPATCHER_H
