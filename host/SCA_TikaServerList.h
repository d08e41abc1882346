/// The Tika servers of one service host.
/// Threads: one at a time; an owner whose threads share the list locks it, and uses a server's
/// pointer only under that lock.
#ifndef SCA_HOST_SCA_TIKASERVERLIST_H
#define SCA_HOST_SCA_TIKASERVERLIST_H

#include "foundation/SCA_List.h"
#include "host/SCA_TikaServer.h"

/// The most servers that a list from a peer may hold.
constexpr unsigned long SCA_MaxServers = 4096;

/// The list owns its servers. Its items' ids are the servers', which count up from 0 and are not
/// given again until the list is cleared. int results are 1 for success or found and 0 otherwise;
/// a lookup that fails leaves its out-parameter untouched.
class SCA_API SCA_TikaServerList : public SCA_List<SCA_TikaServer*> {
 public:
  SCA_TikaServerList();
  ~SCA_TikaServerList() override;  ///< Stops and destroys the servers.

  /// Makes a server, which is not started. Where one has the port already, hands that one out and
  /// compares nothing else.
  /// @param config  As for `SCA_TikaServer`; the other values as for its `SetConfig`.
  /// @param server  Receives the server, which the list owns.
  /// @param error   `SCA_ErrorCannotCreate`, or the code of `SetConfig`.
  int AddServer(SCA_TikaConfigUser* config, const char* fileName, unsigned short port,
                unsigned long heapSize, const char* javaOptions, SCA_TikaServer** server,
                unsigned long* error);
  /// Takes a server out, stops and destroys it.
  int DeleteServer(unsigned long serverId);
  /// Takes a server out. The caller owns it then, and can stop and destroy it without the lock
  /// under which the list is used.
  int TakeServer(unsigned long serverId, SCA_TikaServer** server);
  /// Asks all servers to stop, then stops and destroys each. Ids and the change counter begin at 0
  /// again. @return 1.
  int ClearAll();

  int GetServer(unsigned long serverId, SCA_TikaServer** server) const;
  int GetServerByPort(unsigned short port, SCA_TikaServer** server) const;
  int GetServer(unsigned short port, unsigned long heapSize, SCA_TikaServer** server) const;

  /// Counts the servers in four of their states. @return 1.
  int GetStats(unsigned long* idle, unsigned long* active, unsigned long* inactive,
               unsigned long* error) const;
  /// @return Bytes, of all servers together.
  unsigned long long GetMemoryUsage() const;
  unsigned long GetErrorServers() const { return CountWithStatus(SCA_ServerError); }
  unsigned long GetActiveServers() const { return CountWithStatus(SCA_ServerActive); }

  /// The change counter: raised by every addition, deletion and update.
  unsigned long GetServersStatusId() const { return serversStatusId_; }
  void SetServersStatusId(unsigned long id) { serversStatusId_ = static_cast<std::uint32_t>(id); }
  void UpdateServersStatusId() { ++serversStatusId_; }

  /// Prints the servers to standard output. @return 1.
  int Show() const;
  /// Adds an object for each server, named by its id.
  int Serialize(SCA_ConfigObj* object) const;
  /// Clears the list, stopping live servers, and fills it with offline copies of the objects in
  /// another; plain fields are passed over.
  /// @return 0 for null, for more than `SCA_MaxServers` objects and for the id 0xFFFFFFFF; what
  ///         came before stays.
  int Deserialize(const SCA_ConfigObj* object);

 private:
  template <class Predicate>
  int Find(Predicate matches, SCA_TikaServer** server) const;
  unsigned long CountWithStatus(unsigned long status) const;
  int AddCopy(const SCA_ConfigObj& object);

  std::uint32_t nextServerId_ = 0;
  std::uint32_t serversStatusId_ = 0;
};

#endif  // SCA_HOST_SCA_TIKASERVERLIST_H
