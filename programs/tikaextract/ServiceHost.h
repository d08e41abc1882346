/// One service host of a run, on a thread of its own.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_SERVICEHOST_H
#define SCA_PROGRAMS_TIKAEXTRACT_SERVICEHOST_H

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <thread>

#include "host/SCA_TikaServerList.h"
#include "product/SCA_TikaServiceStatus.h"
#include "programs/common/Event.h"
#include "programs/tikaextract/ServiceBoard.h"

/// Connects to the control port, has the servers added and started that the service's record wants
/// (one that wants none offers those that run), asks each until it answers, and then watches the
/// host's list of servers: a server that somebody stops or deletes there stays so. After a lost
/// connection it connects anew, with growing delay, and begins again.
///
/// The host deletes what a connection has added when that connection says so, which is the end of
/// the run. So there is one connection as long as it holds; what was added over one that was lost
/// stays there.
/// Threads: made, started and ended by one thread; the status is the own thread's in between.
class ServiceHost {
 public:
  /// @param status  Of the service, not connected; not owned.
  ServiceHost(ServiceBoard* board, SCA_TikaServiceStatus* status, std::string javaOptions);
  /// Leaves.
  ~ServiceHost();
  ServiceHost(const ServiceHost&) = delete;
  ServiceHost& operator=(const ServiceHost&) = delete;

  void Start();
  /// Lets the thread give back what it has added, and end. `Join` waits for that.
  void AskToLeave() { stop_.Set(); }
  void Join();

 private:
  using Clock = std::chrono::steady_clock;

  // A server as this connection knows it.
  struct Server {
    unsigned long id = 0;
    bool isListed = false;
    bool isAsked = false;  // wanted, and so added and started
    bool isOurs = false;   // it was not there before
    bool isDown = false;   // by the host's word
    bool isUsable = false;
    std::string why;                         // it is not; empty while it is coming up
    Clock::time_point since = Clock::now();  // it was started, or seen first
    Clock::time_point nextTry;               // after a failure
    unsigned long delayMs = 0;
    std::optional<unsigned long> ends;  // of its process, by then or when it answered last
  };

  void Run();
  bool Connect();
  bool IsTheOnlyOne();
  void Follow();
  void EndConnection(bool isSettled);
  void Leave();

  bool Look();
  void TakeList(const SCA_TikaServerList& list);
  bool AskForWanted();
  bool Ask(unsigned short port, Server* server);
  bool Add(unsigned short port, Server* server, unsigned long* processStatus);
  bool StartIt(Server* server);
  void GiveUp(Server* server, const std::string& why);
  void Watch(const SCA_TikaServer& listed, Server* server);
  void WatchRunning(const SCA_TikaServer& listed, Server* server);
  void Probe(const SCA_TikaServer& listed, Server* server);
  std::string Hopelessness(const SCA_TikaServer& listed, const Server& server);
  std::string HostsWords(unsigned long serverId);
  bool HasLost(const char* operation);
  void Publish();
  std::string Complaint(bool hasUsable) const;
  bool IsComingUp() const;

  SCA_TikaInterface* Link() { return status_->GetInterface(); }
  const SCA_TikaService& Record() const { return *status_->GetService(); }
  bool WantsServers() const { return Record().GetNumOfServers() > 0; }
  bool Wants(unsigned short port) const;
  bool IsStopping() { return stop_.Wait(0) != 0; }

  ServiceBoard* const board_;
  SCA_TikaServiceStatus* const status_;
  const unsigned long serviceId_;
  const std::string javaOptions_;
  ProgramEvent stop_{1, 0};

  // The thread's own.
  std::map<unsigned short, Server> servers_;  // by port
  std::string loss_;           // why there is no connection; empty while there is one
  bool hasLooked_ = false;     // over this connection
  bool hasServed_ = false;     // it has been connected before
  Ports leftBehind_;           // added over connections that were lost
  std::string toldLoss_;       // what was told last: why there is no connection, ...
  std::string toldComplaint_;  // ... why something cannot be used, ...
  Ports toldUsable_;           // ... and what can

  std::thread thread_;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_SERVICEHOST_H
