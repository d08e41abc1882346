/// A request for the text of one file, as the queue carries it.
#ifndef SCA_PRODUCT_SCA_TIKACLIENTREQUEST_H
#define SCA_PRODUCT_SCA_TIKACLIENTREQUEST_H

#include <atomic>
#include <cstdint>

#include "foundation/SCA_List.h"
#include "platform/SCA_Sync.h"

class SCA_TikaClient;

/// Values of a request's process status that the library knows.
constexpr unsigned long SCA_RequestPending = 10;
constexpr unsigned long SCA_RequestServed = 11;    ///< with a worker
constexpr unsigned long SCA_RequestFinished = 12;  ///< outcome recorded, `ready` signalled or soon
constexpr unsigned long SCA_RequestAbandoned = 17;

/// Which file, which services may serve it, and what has become of it. The queue and the pool read
/// the process status and the service list; the other fields are the requester's and the worker's.
///
/// A requester that loses interest sets the process status to `SCA_RequestAbandoned`. That is its
/// last touch: the thread that finds the mark deletes the request.
/// Threads: one owner at a time, the requester, the queue or the worker; process status, status
/// code, time, client and `ready` may be used by any thread meanwhile.
class SCA_API SCA_TikaClientRequest : public SCA_Object {
 public:
  /// Texts are copied and cut to 259 bytes. Invalid when the event cannot be created.
  /// @param fileExt   Extension of the file, without its dot.
  /// @param poolName  The server pool wanted.
  SCA_TikaClientRequest(const char* fileExt, const char* poolName);
  SCA_TikaClientRequest(const SCA_TikaClientRequest&) = delete;
  SCA_TikaClientRequest& operator=(const SCA_TikaClientRequest&) = delete;

  /// Given by the queue.
  unsigned long GetRequestId() const { return requestId_.Get(); }
  void SetRequestId(unsigned long id) { requestId_.Set(static_cast<std::uint32_t>(id)); }
  unsigned long GetProcessStatus() const { return processStatus_.load(std::memory_order_acquire); }
  void SetProcessStatus(unsigned long status) { ExchangeProcessStatus(status); }
  /// Sets the status. What the caller did before it is visible to a thread that reads the new
  /// status.
  /// @return The former status: of two threads that set it, one sees the other's.
  unsigned long ExchangeProcessStatus(unsigned long status) {
    return processStatus_.exchange(static_cast<std::uint32_t>(status), std::memory_order_acq_rel);
  }
  /// Result code of the extraction, 0 for success.
  unsigned long GetStatusCode() const { return statusCode_.Get(); }
  void SetStatusCode(unsigned long code) { statusCode_.Set(static_cast<std::uint32_t>(code)); }
  /// When the request was made, as `SCA_GetAbsTime` counts.
  unsigned long long GetAbsTime() const { return absTime_.Get(); }
  void SetAbsTime(unsigned long long absTime) { absTime_.Set(absTime); }
  /// The client that serves the request; not owned.
  SCA_TikaClient* GetClient() const { return client_.Get(); }
  void SetClient(SCA_TikaClient* client) { client_.Set(client); }
  /// The fields themselves.
  const char* GetFileExt() const { return fileExt_; }
  void SetFileExt(const char* fileExt);
  const char* GetPoolName() const { return poolName_; }
  void SetPoolName(const char* poolName);
  /// Set once when the request is finished; ends one wait.
  SCA_Event* GetReady() { return &ready_; }
  /// Ids of the services that may serve the request; filled before it is queued.
  SCA_List<unsigned long>* GetServiceList() { return &serviceList_; }
  /// @return 1 when the id is in the service list.
  int MatchServiceId(unsigned long serviceId) const;

 private:
  SCA_AtomicValue<std::uint32_t> requestId_{0};
  std::atomic<std::uint32_t> processStatus_{SCA_RequestPending};
  SCA_AtomicValue<std::uint32_t> statusCode_{0};
  SCA_AtomicValue<unsigned long long> absTime_{0};
  SCA_Event ready_{0, 0};
  SCA_AtomicValue<SCA_TikaClient*> client_{nullptr};
  char fileExt_[260] = "";
  char poolName_[260] = "";
  SCA_List<unsigned long> serviceList_{0};
};

#endif  // SCA_PRODUCT_SCA_TIKACLIENTREQUEST_H
