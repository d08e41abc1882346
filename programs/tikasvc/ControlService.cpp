#include "programs/tikasvc/ControlService.h"

#include <unistd.h>

#include <utility>

#include "control/SCA_ServiceStatusNames.h"
#include "platform/SCA_Path.h"
#include "platform/SCA_Text.h"
#include "programs/tikasvc/LogMessages.h"
#include "programs/tikasvc/SelfFigures.h"

namespace {

std::string HostName() {
  char name[SCA_ServiceTextSize] = "";
  SCA_GetHostName(name, sizeof name);
  return name;
}

// Makes an object, lets it be filled, and hands it out when that succeeded.
template <class Fill>
int HandOut(const char* name, SCA_ConfigObj** out, const Fill& fill) {
  SCA_Owned<SCA_ConfigObj> object(new SCA_ConfigObj(name, nullptr));
  if (object->IsValid() == 0 || fill(object.get()) == 0) return 0;
  *out = object.release();
  return 1;
}

}  // namespace

unsigned long long HostParts::UpTimeMs() const {
  const auto upTime = std::chrono::steady_clock::now() - begin;
  return static_cast<unsigned long long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(upTime).count());
}

int RequestCounts::Add(const char* command, int result) {
  const SCA_LockGuard guard(lock_);
  Count& count = counts_[command];
  ++count.requests;
  if (result == 0) ++count.failed;
  return result;
}

std::map<std::string, RequestCounts::Count> RequestCounts::ByCommand() const {
  const SCA_LockGuard guard(lock_);
  return counts_;
}

RequestCounts::Count RequestCounts::Total() const {
  Count total;
  for (const auto& [command, count] : ByCommand()) {
    total.requests += count.requests;
    total.failed += count.failed;
  }
  return total;
}

// What the commands of one connection do. They run on its thread; what they work on has locks of
// its own.
class ControlService::Operations : public SCA_TikaServiceVirtual {
 public:
  Operations(ControlService* service, unsigned long agent)
      : service_(*service), host_(service->parts_), agent_(agent) {}

  int GetVersionInfo(char* versionInfo) override {
    SCA_CopyText(versionInfo, SCA_ServiceTextSize, "tikasvc " SCA_VERSION, SCA_TextFit::Cut);
    return 1;
  }

  int GetDebugLog(unsigned long lastMessageId, unsigned long count, SCA_ConfigObj** log) override {
    return HandOut("Log", log, [&](SCA_ConfigObj* object) {
      return SerializeMessages(*host_.log->GetLog(), lastMessageId, count, object);
    });
  }

  int ClearDebugLog() override { return host_.log->GetLog()->Clear(); }

  int GetStatus(unsigned long* status) override {
    *status = host_.servers->Summarize().Status();
    return 1;
  }

  int GetStatusObj(SCA_ConfigObj** status) override {
    return HandOut("Status", status, [&](SCA_ConfigObj* object) {
      if (AddFields(service_.GetStatus(), object) == 0) return 0;
      SCA_ConfigObj* history = object->AddConfigObj(SCA_ServiceFields::History);
      return history != nullptr ? host_.history->CopyTo(history) : 0;
    });
  }

  int GetServerInfo(char* serverVersion, char* serverHostName) override {
    SCA_CopyText(serverVersion, SCA_ServiceTextSize, SCA_VERSION, SCA_TextFit::Cut);
    SCA_CopyText(serverHostName, SCA_ServiceTextSize, HostName().c_str(), SCA_TextFit::Cut);
    return 1;
  }

  int GetServiceStatus(unsigned long* serviceStatus, unsigned long* errorServers,
                       unsigned long* activeServers, unsigned long long* memoryUsage,
                       unsigned long long* upTime, SCA_ConfigObj** serversStatus) override {
    const ServersSummary summary = host_.servers->Summarize();
    *serviceStatus = summary.Status();
    *errorServers = summary.error;
    *activeServers = summary.active;
    *memoryUsage = summary.memoryUsage;
    *upTime = host_.UpTimeMs();
    return HandOutServers(serversStatus);
  }

  int GetServiceStatusEx(SCA_ConfigObj** serviceStatus, SCA_ConfigObj** serversStatus) override {
    SCA_ConfigObj* service = nullptr;
    const int isFilled = HandOut("Status", &service, [&](SCA_ConfigObj* object) {
      return AddFields(service_.GetStatus(), object);
    });
    SCA_Owned<SCA_ConfigObj> owned(service);
    if (isFilled == 0 || HandOutServers(serversStatus) == 0) return 0;
    *serviceStatus = owned.release();
    return 1;
  }

  int StopServer() override {
    Say(SCA_LevelInfo, "connection %lu told the host to stop", agent_);
    host_.stop->Set();
    return 1;
  }

  int Suspend() override { return host_.servers->Suspend(); }

  int GetServerList(SCA_ConfigObj** serverList) override {
    return HandOut("Servers", serverList,
                   [&](SCA_ConfigObj* object) { return host_.servers->SerializeList(object); });
  }

  int GetServer(unsigned long serverId, SCA_ConfigObj** server) override {
    return HandOut("Server", server, [&](SCA_ConfigObj* object) {
      return host_.servers->Serialize(serverId, object);
    });
  }

  int GetServerStatusEx(unsigned long serverId, SCA_ConfigObj** status) override {
    return HandOut("Status", status, [&](SCA_ConfigObj* object) {
      return host_.servers->FillStatus(serverId, object);
    });
  }

  int SaveTikaLog(unsigned long status, const char* logDir, unsigned long* statusCode) override {
    const bool isKnown = status == SCA_TikaLogOff || status == SCA_TikaLogOn;
    if (isKnown) host_.installation->SaveTikaLog(status == SCA_TikaLogOn, logDir, statusCode);
    return isKnown ? 1 : 0;
  }

  int GetServerLog(unsigned long serverId, unsigned long lastMessageId, unsigned long count,
                   SCA_ConfigObj** log) override {
    return HandOut("Log", log, [&](SCA_ConfigObj* object) {
      return host_.servers->SerializeLog(serverId, lastMessageId, count, object);
    });
  }

  int ClearServerLog(unsigned long serverId) override { return host_.servers->ClearLog(serverId); }

  int AddServer(const char* fileName, unsigned short portNumber, unsigned long heapSize,
                const char* javaOptions, unsigned long* serverId, unsigned long* serverStatus,
                unsigned long* statusCode) override {
    return host_.servers->Add(agent_, fileName, portNumber, heapSize, javaOptions, serverId,
                              serverStatus, statusCode);
  }

  int StartServer(unsigned long serverId, unsigned long* serverStatus,
                  unsigned long* statusCode) override {
    return host_.servers->Start(serverId, serverStatus, statusCode);
  }

  int DeleteServer(unsigned long serverId) override { return host_.servers->Delete(serverId); }

  int DeleteAllServers() override { return host_.servers->DeleteAllOf(agent_); }

 private:
  int HandOutServers(SCA_ConfigObj** servers) {
    return HandOut("Servers", servers,
                   [&](SCA_ConfigObj* object) { return host_.servers->AddStatuses(object); });
  }

  ControlService& service_;
  const HostParts& host_;
  const unsigned long agent_;
};

// A connection's service object: counts each operation under the name of its command.
class ControlService::Connection : public SCA_TikaServiceVirtual {
 public:
  Connection(ControlService* service, unsigned long agent)
      : counts_(service->counts_), operations_(service, agent) {}

#define SCA_COUNT(name, parameters, arguments, fields)     \
  int name parameters override {                           \
    return counts_.Add(#name, operations_.name arguments); \
  }
  SCA_SERVICE_COMMANDS(SCA_COUNT)
#undef SCA_COUNT

 private:
  RequestCounts& counts_;
  Operations operations_;
};

ControlService::ControlService(const HostParts& parts, std::string address)
    : parts_(parts), address_(std::move(address)) {
  SetValid(1);
}

ControlService::~ControlService() = default;

int ControlService::OnConnect(SCA_NetServerAgent* agent) {
  Say(SCA_LevelDebug, "connection %lu begins", agent->GetId());
  const SCA_LockGuard guard(lock_);
  connections_[agent->GetId()] = std::make_unique<Connection>(this, agent->GetId());
  return 1;
}

SCA_TikaServiceVirtual* ControlService::GetServiceObject(unsigned long agentId) {
  const SCA_LockGuard guard(lock_);
  const auto found = connections_.find(agentId);
  return found != connections_.end() ? found->second.get() : nullptr;
}

int ControlService::OnDisconnect(unsigned long agentId) {
  parts_.servers->Forget(agentId);
  Say(SCA_LevelDebug, "connection %lu has ended", agentId);
  const SCA_LockGuard guard(lock_);
  connections_.erase(agentId);
  return 1;
}

unsigned long ControlService::ConnectionCount() const {
  const SCA_LockGuard guard(lock_);
  return connections_.size();
}

ServiceStatus ControlService::GetStatus() const {
  const ServersSummary servers = parts_.servers->Summarize();
  const Installation::LogSwitches logs = parts_.installation->GetLogSwitches();
  const RequestCounts::Count requests = counts_.Total();
  const SelfFigures self = GetSelfFigures();
  const SCA_TikaServiceServer* server = server_.load();
  ServiceStatus status;
  status.Status = servers.Status();
  status.StatusText = SCA_FindProcessStatus(servers.Status()).serviceWord;
  status.Version = SCA_VERSION;
  status.HostName = HostName();
  status.ProcessId = static_cast<unsigned long>(::getpid());
  status.StartTime = parts_.startTime;
  status.UpTime = parts_.UpTimeMs();
  status.ControlPort = server != nullptr ? server->GetPort() : 0;
  status.LoginMode = kLoginMode;
  status.RefusedLogins = server != nullptr ? server->GetRefusedLogins() : 0;
  status.ControlSocket = parts_.installation->ControlSocket();
  status.DataDirectory = parts_.installation->DataDirectory();
  status.SaveTikaLog = logs.saveTikaLog ? 1 : 0;
  status.TikaLogDir = logs.tikaLogDir;
  status.Connections = ConnectionCount();
  status.Requests = requests.requests;
  status.FailedRequests = requests.failed;
  status.Servers = servers.servers;
  status.ActiveServers = servers.active;
  status.ReadyServers = servers.ready;
  status.ErrorServers = servers.error;
  status.MemoryUsage = servers.memoryUsage;
  status.HostMemory = self.memory;
  status.HostThreads = self.threads;
  status.HostDescriptors = self.descriptors;
  status.Deaths = parts_.history->GetCount(SCA_DeathOf::Server);
  status.WorkerDeaths = parts_.history->GetCount(SCA_DeathOf::Worker);
  status.LeavingServers = servers.leaving;
  status.RecycledServers = servers.recycled;
  status.ServersStatusId = servers.statusId;
  status.DebugLogSession = parts_.log->GetLog()->GetSessionId();
  return status;
}
