/// What the control port asks for, answered: the service objects of the connections.
#ifndef SCA_PROGRAMS_TIKASVC_CONTROLSERVICE_H
#define SCA_PROGRAMS_TIKASVC_CONTROLSERVICE_H

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <string>

#include "control/SCA_TikaServiceServer.h"
#include "platform/SCA_Atomic.h"
#include "platform/SCA_Lock.h"
#include "platform/SCA_Sync.h"
#include "programs/tikasvc/HostLog.h"
#include "programs/tikasvc/HostedServers.h"
#include "programs/tikasvc/Installation.h"

/// How often each command was asked for, and failed. Threads: any.
class RequestCounts {
 public:
  struct Count {
    unsigned long long requests = 0;
    unsigned long long failed = 0;
  };

  /// @param command  Static storage. @return `result`.
  int Add(const char* command, int result) SCA_EXCLUDES(lock_);
  std::map<std::string, Count> ByCommand() const SCA_EXCLUDES(lock_);
  Count Total() const SCA_EXCLUDES(lock_);

 private:
  mutable SCA_Lock lock_;
  std::map<std::string, Count> counts_ SCA_GUARDED_BY(lock_);
};

/// The parts of the service host that the service objects work on; none is owned.
struct HostParts {
  Installation* installation = nullptr;
  HostLog* log = nullptr;
  SCA_TikaDeathHistory* history = nullptr;
  HostedServers* servers = nullptr;
  SCA_Event* stop = nullptr;         ///< ends the service host
  unsigned long long startTime = 0;  ///< absolute time
  /// The same on a clock that nobody sets back.
  std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();

  unsigned long long UpTimeMs() const;
};

/// Makes a service object for each connection.
class ControlService : public SCA_TikaServiceVirtualFactory {
 public:
  /// @param address  On which alone the control port is opened; empty for all.
  ControlService(const HostParts& parts, std::string address);
  ~ControlService() override;

  int OnConnect(SCA_NetServerAgent* agent) override SCA_EXCLUDES(lock_);
  SCA_TikaServiceVirtual* GetServiceObject(unsigned long agentId) override SCA_EXCLUDES(lock_);
  int OnDisconnect(unsigned long agentId) override SCA_EXCLUDES(lock_);
  /// TCP is open to clients with the key, and to nobody else.
  unsigned long GetLoginMode() override { return kLoginMode; }
  const char* GetAddress() override { return address_.c_str(); }

  /// Once the port is open; not owned, and there as long as connections are.
  void SetServer(const SCA_TikaServiceServer* server) { server_.store(server); }
  ServiceStatus GetStatus() const;

  const RequestCounts& Counts() const { return counts_; }
  unsigned long ConnectionCount() const SCA_EXCLUDES(lock_);

 private:
  static constexpr unsigned long kLoginMode = 1;
  class Operations;
  class Connection;

  const HostParts parts_;
  const std::string address_;
  RequestCounts counts_;
  std::atomic<const SCA_TikaServiceServer*> server_{nullptr};
  mutable SCA_Lock lock_;
  std::map<unsigned long, std::unique_ptr<Connection>> connections_ SCA_GUARDED_BY(lock_);
};

#endif  // SCA_PROGRAMS_TIKASVC_CONTROLSERVICE_H
