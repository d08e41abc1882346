/// The servers of the service host, under one lock.
#ifndef SCA_PROGRAMS_TIKASVC_HOSTEDSERVERS_H
#define SCA_PROGRAMS_TIKASVC_HOSTEDSERVERS_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/SCA_TikaServerList.h"
#include "programs/tikasvc/HostedServer.h"
#include "programs/tikasvc/WatchReports.h"
#include "supervision/SCA_TikaRecycler.h"

/// How the servers are, summed up.
struct ServersSummary {
  unsigned long servers = 0;
  unsigned long active = 0;
  unsigned long ready = 0;
  unsigned long error = 0;
  unsigned long long memoryUsage = 0;
  unsigned long leaving = 0;  ///< not among the servers, but their memory is among the memory
  unsigned long long recycled = 0;
  unsigned long statusId = 0;
  bool isSuspended = false;

  /// The process status of the whole service; see `control/SCA_ServiceStatusNames.h`.
  unsigned long Status() const;
};

/// Operations are those of the control port; int results are 1 for success and 0 for failure. Who
/// asks is a connection, by its agent's id, or the host itself.
///
/// Threads: any thread may call any operation. Servers are stopped and destroyed outside the lock,
/// which nobody holds for long.
class HostedServers {
 public:
  /// @param config  Not owned, outlives this; says whether daily files are written.
  /// @param bind    Address on which servers listen.
  HostedServers(SCA_TikaConfigUser* config, const std::string& bind, unsigned long silenceLimitMs,
                SCA_TikaDeathHistory* history, SCA_ClassArchive* archive);
  ~HostedServers();
  HostedServers(const HostedServers&) = delete;
  HostedServers& operator=(const HostedServers&) = delete;

  static constexpr unsigned long kHost = ServerOwners::kHost;

  int Add(unsigned long agent, const char* fileName, unsigned short port, unsigned long heapSize,
          const char* javaOptions, unsigned long* id, unsigned long* status, unsigned long* code)
      SCA_EXCLUDES(lock_);
  int Start(unsigned long id, unsigned long* status, unsigned long* code) SCA_EXCLUDES(lock_);
  int Delete(unsigned long id) SCA_EXCLUDES(lock_);
  int DeleteAllOf(unsigned long agent) SCA_EXCLUDES(lock_);
  void DeleteAll() SCA_EXCLUDES(lock_);
  /// Its servers stay, as nobody's.
  void Forget(unsigned long agent) SCA_EXCLUDES(lock_);
  /// Stops all servers without waiting, and starts none any more.
  void BeginEnd() SCA_EXCLUDES(lock_);
  /// Stops all servers and waits for their ends. One that is not there yet refuses a start with
  /// `EBUSY`.
  int Suspend() SCA_EXCLUDES(lock_);

  /// @name For a recycler, as in `SCA_TikaRecyclerOwner`
  /// A server that a connection has asked for stays as long as the connection does, because the
  /// connection has asked for its port. A successor is on the first free port from the lowest one
  /// on that a server had which was replaced.
  /// @{
  std::vector<SCA_TikaTenure> GetTenures() const SCA_EXCLUDES(lock_);
  int StartSuccessor(unsigned long id, unsigned long* successorId, unsigned short* port,
                     unsigned long* error) SCA_EXCLUDES(lock_);
  int Withdraw(unsigned long id, unsigned long successorId) SCA_EXCLUDES(lock_);
  void DeleteWithdrawn(unsigned long id) SCA_EXCLUDES(lock_);
  /// Deletes a server unless a connection has asked for it.
  void DeleteUnclaimed(unsigned long id) SCA_EXCLUDES(lock_);
  /// @}

  int SerializeList(SCA_ConfigObj* list) const SCA_EXCLUDES(lock_);
  int Serialize(unsigned long id, SCA_ConfigObj* server) const SCA_EXCLUDES(lock_);
  /// As in the control port's `GetServerLog`.
  int SerializeLog(unsigned long id, unsigned long lastMessageId, unsigned long count,
                   SCA_ConfigObj* log) const SCA_EXCLUDES(lock_);
  int ClearLog(unsigned long id) SCA_EXCLUDES(lock_);

  ServersSummary Summarize() const SCA_EXCLUDES(lock_);
  std::vector<ServerStatus> GetStatuses() const SCA_EXCLUDES(lock_);
  /// Adds an object with the fields of `SCA_ServerFields` for each server.
  int AddStatuses(SCA_ConfigObj* servers) const SCA_EXCLUDES(lock_);
  /// Adds these fields of one server, with its history.
  int FillStatus(unsigned long id, SCA_ConfigObj* status) const SCA_EXCLUDES(lock_);

 private:
  static constexpr unsigned short kMaxPort = 65535;

  // A server that has left the list, with its watch.
  struct Leaving {
    SCA_Owned<SCA_TikaServer> server;
    std::unique_ptr<SCA_TikaWatch> watch;  // goes first, and stops the server
  };

  const HostedServer* Find(unsigned long id) const SCA_REQUIRES(lock_);
  bool Adopt(SCA_TikaServer* server, unsigned long agent) SCA_REQUIRES(lock_);
  bool IsWithdrawn(unsigned short port) const SCA_REQUIRES(lock_);
  unsigned long WhyNotOn(unsigned short port) const SCA_REQUIRES(lock_);
  void StopAll() SCA_REQUIRES(lock_);
  bool IsStopping() const SCA_EXCLUDES(lock_);
  Leaving Take(unsigned long id) SCA_REQUIRES(lock_);
  unsigned short FindSparePort() const SCA_REQUIRES(lock_);
  SCA_TikaServer* AddSuccessor(const HostedServer& hosted, unsigned long* error)
      SCA_REQUIRES(lock_);
  static void End(std::vector<Leaving> leaving);

  SCA_TikaConfigUser* const config_;
  const std::string bind_;
  const std::string address_;  // at which servers are asked
  SCA_TikaWatchRules rules_;   // constant after construction
  SCA_TikaDeathHistory* const history_;
  WatchReports reports_;

  mutable SCA_Lock lock_;
  SCA_TikaServerList list_ SCA_GUARDED_BY(lock_);
  std::map<unsigned long, HostedServer> hosted_ SCA_GUARDED_BY(lock_);  // by server id
  std::map<unsigned long, Leaving> withdrawn_ SCA_GUARDED_BY(lock_);    // by server id
  unsigned short lowestPort_ SCA_GUARDED_BY(lock_) = kMaxPort;          // of those replaced
  unsigned long long recycled_ SCA_GUARDED_BY(lock_) = 0;
  bool isSuspended_ SCA_GUARDED_BY(lock_) = false;
  bool isEnding_ SCA_GUARDED_BY(lock_) = false;
};

#endif  // SCA_PROGRAMS_TIKASVC_HOSTEDSERVERS_H
