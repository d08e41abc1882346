/// What the threads of a run's service hosts tell the rest of the run.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_SERVICEBOARD_H
#define SCA_PROGRAMS_TIKAEXTRACT_SERVICEBOARD_H

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/SCA_Lock.h"
#include "platform/SCA_Sync.h"
#include "programs/common/Event.h"

/// Ports of Tika servers.
using Ports = std::set<unsigned short>;

/// Threads: any thread may call any operation, but for `Add`, which comes before the others. No
/// lock is held while `onServer` is called.
class ServiceBoard {
 public:
  /// Told of each server that can be used for the first time, on the thread of its service.
  using OnServer = std::function<void(unsigned long serviceId, unsigned short port)>;

  /// @param tellsDetails  Keeps notes too that only who looks wants to read.
  ServiceBoard(OnServer onServer, bool tellsDetails)
      : onServer_(std::move(onServer)), tellsDetails_(tellsDetails) {}

  /// @param expected  Servers that it will have, as far as that is known.
  void Add(unsigned long serviceId, const std::string& name, std::size_t expected);

  /// @name For the services
  /// @{
  /// Two addresses may lead to one service host, which counts once.
  /// @param host  Names the process that was met, differently from every other one.
  /// @return Nothing; or the name of the service that has it already.
  std::string Claim(unsigned long serviceId, const std::string& host) SCA_EXCLUDES(lock_);
  /// What can be used now.
  /// @param expected   As above.
  /// @param why        Why something cannot be used; empty when everything can.
  /// @param isSettled  Nothing more is to be waited for.
  void Publish(unsigned long serviceId, const Ports& usable, std::size_t expected,
               const std::string& why, bool isSettled) SCA_EXCLUDES(lock_);
  /// There is no control connection. The servers may live on: who uses them finds out.
  /// @param isSettled  As above.
  void Disconnected(unsigned long serviceId, const std::string& why, bool isSettled)
      SCA_EXCLUDES(lock_);
  /// A line for standard error.
  void Tell(unsigned long serviceId, const std::string& text) SCA_EXCLUDES(lock_);
  /// A line for `--verbose` and for who watches the progress.
  void TellDetail(unsigned long serviceId, const std::string& text) SCA_EXCLUDES(lock_);
  /// @}

  /// @name For the run
  /// @{
  bool Knows(unsigned long serviceId) const SCA_EXCLUDES(lock_);
  bool IsUsable(unsigned long serviceId, unsigned short port) const SCA_EXCLUDES(lock_);
  /// Servers of all services, as far as they are known.
  std::size_t Expected() const SCA_EXCLUDES(lock_);
  /// Waits until a server can be used. @return False when none can, or after the cancel event.
  bool WaitForServer(SCA_Event* cancel) SCA_EXCLUDES(lock_);
  /// @return For each service its name and why nothing of it can be used, which the caller knows.
  std::vector<std::string> Complaints() const SCA_EXCLUDES(lock_);
  std::vector<std::string> TakeNotes() SCA_EXCLUDES(lock_);
  /// @return How many servers each service has, such as "tika1:9500: 2 servers".
  std::string Summary() const SCA_EXCLUDES(lock_);
  /// @}

 private:
  struct Service {
    std::string name;
    std::size_t expected = 0;
    Ports usable;
    Ports welcomed;  // ports that `onServer` knows
    std::string why;
    std::string host;
    bool isConnected = false;
    bool isSettled = false;
  };

  const OnServer onServer_;
  const bool tellsDetails_;
  ProgramEvent changed_{0, 0};
  mutable SCA_Lock lock_;
  std::map<unsigned long, Service> services_ SCA_GUARDED_BY(lock_);  // by service id
  std::vector<std::string> notes_ SCA_GUARDED_BY(lock_);
};

/// @return "1 server", "2 servers".
std::string CountServers(std::size_t count);

#endif  // SCA_PROGRAMS_TIKAEXTRACT_SERVICEBOARD_H
