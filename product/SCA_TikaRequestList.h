/// The queue of extraction requests.
#ifndef SCA_PRODUCT_SCA_TIKAREQUESTLIST_H
#define SCA_PRODUCT_SCA_TIKAREQUESTLIST_H

#include "product/SCA_TikaClientList.h"
#include "product/SCA_TikaClientRequest.h"

/// Holds the requests that wait, oldest first. It owns none, but it deletes those that it finds
/// abandoned. "Oldest" holds within one take: a client that comes back while a take walks the queue
/// may serve a younger request than one that the walk has passed.
///
/// Invalid, and not to be used, when its mutex cannot be created.
/// Threads: any thread may call the operations below. Those inherited from the list take no lock:
/// they are for a queue that only one thread uses. The queue's mutex is taken before a client
/// pool's, never the other way.
class SCA_API SCA_TikaRequestList : public SCA_List<SCA_TikaClientRequest*> {
 public:
  SCA_TikaRequestList();

  /// Gives the request the next id, from 0, and appends it. Another thread may have taken it, and
  /// finished it, before this returns.
  /// @return 1, or 0 without memory.
  int AddRequest(SCA_TikaClientRequest* request) SCA_EXCLUDES(mutex_);
  /// Takes the oldest request that a client can serve; it is the caller's then.
  /// @return 0 when there is none.
  int TakeClientRequest(const SCA_TikaClient* client, SCA_TikaClientRequest** request)
      SCA_EXCLUDES(mutex_);
  /// Takes the oldest request for which the pool has a client, with that client.
  /// @return 0 when there is none.
  int TakeClientRequest(SCA_TikaClientList* clients, SCA_TikaClientRequest** request,
                        SCA_TikaClient** client) SCA_EXCLUDES(mutex_);
  /// Takes back a request that nobody has taken; it is the caller's then.
  /// @param request  Compared, not read: it may have gone.
  /// @return 0 when it is not in the queue.
  int RemoveRequest(const SCA_TikaClientRequest* request) SCA_EXCLUDES(mutex_);
  /// The number of requests, read without the mutex: it may have changed when the caller looks.
  unsigned long GetRequestCount() const { return Count(); }
  /// Adds an object for each request, named by its id.
  /// @return 0, after a report, when one cannot be added.
  int GetStatus(SCA_ConfigObj* obj) SCA_EXCLUDES(mutex_);

 private:
  // The nodes, for the holder of the mutex.
  SCA_List<SCA_TikaClientRequest*>& Nodes() SCA_REQUIRES(mutex_) { return *this; }
  template <class Accept>
  int Take(Accept accept, SCA_TikaClientRequest** request) SCA_REQUIRES(mutex_);

  SCA_Mutex mutex_;
  std::uint32_t nextRequestId_ SCA_GUARDED_BY(mutex_) = 0;
};

#endif  // SCA_PRODUCT_SCA_TIKAREQUESTLIST_H
