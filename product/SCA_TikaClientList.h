/// The pool of idle HTTP clients.
#ifndef SCA_PRODUCT_SCA_TIKACLIENTLIST_H
#define SCA_PRODUCT_SCA_TIKACLIENTLIST_H

#include "client/SCA_TikaClient.h"
#include "foundation/SCA_ConfigObj.h"
#include "foundation/SCA_List.h"
#include "product/SCA_TikaClientRequest.h"

/// Holds the clients that may be taken, in the order in which they came or came back; owns none. A
/// client that was taken leaves the pool until it is added again under its id.
///
/// Invalid, and not to be used, when its mutex cannot be created.
/// Threads: any thread may call the operations below. Those inherited from the list take no lock:
/// they are for a pool that only one thread uses. The mutex may be taken while a thread holds that
/// of a request queue, never the other way.
class SCA_API SCA_TikaClientList : public SCA_List<SCA_TikaClient*> {
 public:
  SCA_TikaClientList();

  /// Adds a client under the next id, which the client is given before anybody can take it.
  /// @param clientId  Receives the id.
  /// @return 1, or 0 without memory.
  int AddClient(SCA_TikaClient* client, unsigned long* clientId) SCA_EXCLUDES(mutex_);
  /// Adds a client under an id, which the client is given: puts one back that was taken.
  int AddClient(SCA_TikaClient* client, unsigned long clientId) SCA_EXCLUDES(mutex_);
  /// @return 0 when no client of this id is in the pool.
  int GetClient(unsigned long clientId, SCA_TikaClient** client) SCA_EXCLUDES(mutex_);
  /// Takes a client out, if it is there. @return 1.
  int RemoveClient(unsigned long clientId) SCA_EXCLUDES(mutex_);
  /// Takes the first client of any service that the request accepts.
  /// @return 0 when there is none; a request without services accepts none.
  int TakeRequestedClient(const SCA_TikaClientRequest* request, SCA_TikaClient** client)
      SCA_EXCLUDES(mutex_);
  /// The number of clients, read without the mutex: it may have changed when the caller looks.
  unsigned long GetNumOfClients() const { return Count(); }
  /// Adds an object for each client, named by its id, with its figures.
  /// @return 0, after a report, when one cannot be added.
  int GetStatus(SCA_ConfigObj* obj) SCA_EXCLUDES(mutex_);

 private:
  // The nodes, for the holder of the mutex.
  SCA_List<SCA_TikaClient*>& Nodes() SCA_REQUIRES(mutex_) { return *this; }

  SCA_Mutex mutex_;
};

#endif  // SCA_PRODUCT_SCA_TIKACLIENTLIST_H
