/// What happens to the service hosts of a run, in lines for people.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_SERVICEBOARD_H
#define SCA_PROGRAMS_TIKAEXTRACT_SERVICEBOARD_H

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/SCA_Lock.h"
#include "product/SCA_TikaFleet.h"

/// Threads: any thread may call any operation.
class ServiceBoard : public SCA_TikaFleetObserver {
 public:
  /// @param clientsFor    Says how many clients a server gets, on the thread of its service.
  /// @param tellsDetails  Keeps the notes that only `--verbose` and the progress line show, too.
  ServiceBoard(std::function<unsigned long()> clientsFor, bool tellsDetails)
      : clientsFor_(std::move(clientsFor)), tellsDetails_(tellsDetails) {}

  /// Before the service is followed.
  /// @param wantsServers  It is asked for servers, rather than offering those that it has.
  void Add(unsigned long serviceId, const std::string& name, bool wantsServers) SCA_EXCLUDES(lock_);

  /// @return For each service its name and why nothing of it can be used, which the caller knows.
  std::vector<std::string> Complaints() const SCA_EXCLUDES(lock_);
  /// @return The lines for standard error that have come since.
  std::vector<std::string> TakeNotes() SCA_EXCLUDES(lock_);
  /// @return How many clients the servers of all services have.
  unsigned long Clients() const SCA_EXCLUDES(lock_);
  /// @return How many servers each service has, such as "tika1:9500: 2 servers".
  std::string Summary() const SCA_EXCLUDES(lock_);

  void OnHost(const SCA_TikaHostNews& news) override SCA_EXCLUDES(lock_);
  void OnServer(const SCA_TikaServerNews& news) override SCA_EXCLUDES(lock_);
  void OnLooked(unsigned long serviceId) override SCA_EXCLUDES(lock_);
  unsigned long ClientsFor(unsigned long serviceId, unsigned short port) override
      SCA_EXCLUDES(lock_);

 private:
  using Ports = std::set<unsigned short>;
  struct Server {
    SCA_TikaServerState state;
    std::string why;  // it cannot be used; empty while it starts
  };
  struct Service {
    std::string name;
    bool wantsServers = false;
    SCA_TikaHostState state = SCA_TikaHostState::Connecting;
    std::map<unsigned short, Server> servers;  // by port
    std::string why;                           // something cannot be used
    bool hasServed = false;                    // it has been connected before
    std::string toldComplaint;
    Ports toldReady;
  };

  static Ports Ready(const Service& service);
  static std::string Complaint(const Service& service);
  void HasBroken(Service* service, const SCA_TikaHostNews& news) SCA_REQUIRES(lock_);
  void Tell(const Service& service, const std::string& text) SCA_REQUIRES(lock_);
  void TellDetail(const Service& service, const std::string& text) SCA_REQUIRES(lock_);

  const std::function<unsigned long()> clientsFor_;
  const bool tellsDetails_;
  mutable SCA_Lock lock_;
  std::map<unsigned long, Service> services_ SCA_GUARDED_BY(lock_);  // by service id
  std::map<std::pair<unsigned long, unsigned short>, unsigned long> clients_
      SCA_GUARDED_BY(lock_);  // by service id and port
  std::vector<std::string> notes_ SCA_GUARDED_BY(lock_);
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_SERVICEBOARD_H
