/// One service host of a fleet, followed on a thread of its own. Internal to the library.
#ifndef SCA_PRODUCT_SCA_TIKAHOSTFOLLOWER_H
#define SCA_PRODUCT_SCA_TIKAHOSTFOLLOWER_H

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>

#include "host/SCA_TikaServerList.h"
#include "platform/SCA_Lock.h"
#include "product/SCA_TikaFollowStates.h"
#include "product/SCA_TikaServiceStatus.h"
#include "supervision/SCA_TikaProbe.h"

/// What the followers of a fleet share.
struct SCA_TikaFleetParts {
  /// Several addresses may lead to one host, which counts once.
  /// @param host  Tells the host's process from every other one.
  /// @param name  Of the service.
  /// @return "", or the name of the service that has the host already.
  std::string Claim(unsigned long serviceId, const std::string& host, const std::string& name)
      SCA_EXCLUDES(lock);
  void Unclaim(unsigned long serviceId) SCA_EXCLUDES(lock);

  struct Holder {
    std::string host;
    std::string name;
  };

  SCA_TikaDispatcher* dispatcher;
  SCA_TikaFleetObserver* observer;
  SCA_Event changed{0, 0};  // what a wait for a server depends on
  SCA_Lock lock;
  std::map<unsigned long, Holder> holders SCA_GUARDED_BY(lock);  // by service id
};

/// Asks a server for its version, for two seconds at most. @return As in `SCA_TikaProbe::Ask`.
int SCA_AskTikaVersion(const char* host, unsigned short port, SCA_Event* cancel,
                       SCA_TikaAnswer* answer);

/// Threads: made, started and ended by one thread; the questions may be asked by any.
class SCA_TikaHostFollower {
 public:
  /// @param parts  Not owned. Throws std::bad_alloc.
  SCA_TikaHostFollower(SCA_TikaFleetParts* parts, SCA_TikaService* service,
                       const char* javaOptions);
  /// Leaves.
  ~SCA_TikaHostFollower();
  SCA_TikaHostFollower(const SCA_TikaHostFollower&) = delete;
  SCA_TikaHostFollower& operator=(const SCA_TikaHostFollower&) = delete;

  /// Throws std::system_error without a thread.
  void Start();
  /// Lets the thread give back what it has added, and end. `Join` waits for that.
  void AskToLeave() { stop_.Set(); }
  void Join();

  bool IsValid() const { return isValid_; }
  unsigned long ServiceId() const { return serviceId_; }
  enum class Outlook {
    Ready,    ///< a server is
    Pending,  ///< one may become ready soon
    Hopeless
  };
  Outlook Prospect() const SCA_EXCLUDES(lock_);
  bool IsReady(unsigned short port) const SCA_EXCLUDES(lock_);
  /// Also a server that was ready when the connection was lost: it may live on without its host.
  bool MayBeUsed(unsigned short port) const SCA_EXCLUDES(lock_);
  /// Servers that are ready or starting, as far as they are known.
  unsigned long Expected() const SCA_EXCLUDES(lock_);

 private:
  using Clock = std::chrono::steady_clock;
  using HostState = SCA_TikaHostState;
  using HostEvent = SCA_TikaHostEvent;
  using ServerState = SCA_TikaServerState;
  using ServerEvent = SCA_TikaServerEvent;
  using Ports = std::set<unsigned short>;

  // A server as this connection knows it.
  struct Server {
    unsigned short port = 0;
    ServerState state = ServerState::Starting;
    unsigned long id = 0;
    bool isListed = false;                   // by the host, lately
    bool isOurs = false;                     // it was not there before
    Clock::time_point since = Clock::now();  // it was started, or seen first
    Clock::time_point nextTry;               // after a failure
    unsigned long delayMs = 0;
    std::optional<unsigned long> ends;  // of its process, by then or when it answered last
  };

  // The life of a connection.
  void Run();
  bool Attempt();
  bool Connect();
  bool Introduce();
  void Forget();
  void Leave();
  void TakeLeave(const Ports& asked);

  // A look at the host.
  bool Look();
  void TakeList(const SCA_TikaServerList& list);
  Server& Know(unsigned short port);
  bool AskForWanted();
  void Ask(Server* server);
  bool Add(Server* server, unsigned long* processStatus);
  bool StartIt(Server* server);
  void GiveUp(Server* server, const std::string& why);
  void Examine(const SCA_TikaServerList& list, Server* server);
  void TakeStatus(const SCA_TikaServer& listed, Server* server);
  void TakeRunning(const SCA_TikaServer& listed, Server* server);
  void Probe(const SCA_TikaServer& listed, Server* server);
  std::string Hopelessness(const SCA_TikaServer& listed, const Server& server);
  std::string HostsWords(const Server& server);
  bool HasLost(const char* operation);
  void EndLook();

  // What happens, and what follows from it.
  void Move(HostEvent event, unsigned long code, const std::string& text) SCA_EXCLUDES(lock_);
  void Move(Server* server, ServerEvent event, const std::string& text) SCA_EXCLUDES(lock_);
  void Enter(HostState state, unsigned long code, std::string_view text) SCA_EXCLUDES(lock_);
  HostEvent LossEvent() const {
    return IsConnected() ? HostEvent::Loses : HostEvent::FailsToConnect;
  }
  void TellHost(unsigned long code, const char* text);
  void TellServer(const Server& server, unsigned long code, const std::string& text);
  void Feed(const Server& server);
  void Unfeed(unsigned short port);
  void Publish(const Server& server) SCA_EXCLUDES(lock_);
  void Offer(const Server& server) SCA_EXCLUDES(lock_);
  void Recount() SCA_REQUIRES(lock_);

  SCA_TikaInterface* Link() { return status_.GetInterface(); }
  const SCA_TikaService& Record() { return *status_.GetService(); }
  const char* TikaHost();
  bool Wants(unsigned short port);
  bool IsAsked(const Server& server);
  bool IsConnected() const;
  bool IsComingUp() const;
  bool IsStopping() { return stop_.Wait(0) != 0; }

  SCA_TikaFleetParts* const parts_;
  const std::string javaOptions_;
  unsigned long serviceId_ = 0;
  unsigned long wanted_ = 0;
  SCA_Event stop_{1, 0};
  bool isValid_ = false;

  // The thread's own.
  SCA_TikaServiceStatus status_;
  HostState state_ = HostState::Connecting;
  std::string told_;                          // with the state
  std::map<unsigned short, Server> servers_;  // by port; empty without a connection
  Ports fed_;                                 // that the dispatcher has
  Ports leftBehind_;                          // added over connections that were lost

  // For the others.
  mutable SCA_Lock lock_;
  bool isSettled_ SCA_GUARDED_BY(lock_) = false;  // there is nothing to wait for
  unsigned long expected_ SCA_GUARDED_BY(lock_) = 0;
  std::map<unsigned short, ServerState> states_ SCA_GUARDED_BY(lock_);
  Ports usable_ SCA_GUARDED_BY(lock_);   // those last known to be ready
  Ports offered_ SCA_GUARDED_BY(lock_);  // those ready that the dispatcher has

  std::thread thread_;
};

#endif  // SCA_PRODUCT_SCA_TIKAHOSTFOLLOWER_H
