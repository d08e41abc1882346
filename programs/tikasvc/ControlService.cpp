#include "programs/tikasvc/ControlService.h"

#include <unistd.h>

#include "control/SCA_ServiceStatusNames.h"
#include "platform/SCA_Path.h"
#include "platform/SCA_Text.h"
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

// One connection. Its operations run on its thread; what it works on has locks of its own.
class ControlService::Connection : public SCA_TikaServiceVirtual {
 public:
  Connection(ControlService* service, unsigned long agent)
      : service_(*service), host_(service->parts_), agent_(agent) {}

  int GetVersionInfo(char* versionInfo) override {
    SCA_CopyText(versionInfo, SCA_ServiceTextSize, "tikasvc " SCA_VERSION, SCA_TextFit::Cut);
    return Done("GetVersionInfo", 1);
  }

  int GetDebugLog(unsigned long lastMessageId, unsigned long count, SCA_ConfigObj** log) override {
    return Done("GetDebugLog", HandOut("Log", log, [&](SCA_ConfigObj* object) {
                  return SerializeMessages(*host_.log->GetLog(), lastMessageId, count, object);
                }));
  }

  int ClearDebugLog() override { return Done("ClearDebugLog", host_.log->GetLog()->Clear()); }

  int GetStatus(unsigned long* status) override {
    *status = host_.servers->Summarize().Status();
    return Done("GetStatus", 1);
  }

  int GetStatusObj(SCA_ConfigObj** status) override {
    return Done("GetStatusObj", HandOut("Status", status, [&](SCA_ConfigObj* object) {
                  SCA_ConfigObj* history = nullptr;
                  return service_.FillServiceFields(object) != 0 &&
                                 (history = object->AddConfigObj(SCA_ServiceFields::History)) !=
                                     nullptr &&
                                 host_.blackBox->CopyTo(history, std::nullopt) != 0
                             ? 1
                             : 0;
                }));
  }

  int GetServerInfo(char* serverVersion, char* serverHostName) override {
    SCA_CopyText(serverVersion, SCA_ServiceTextSize, SCA_VERSION, SCA_TextFit::Cut);
    SCA_CopyText(serverHostName, SCA_ServiceTextSize, HostName().c_str(), SCA_TextFit::Cut);
    return Done("GetServerInfo", 1);
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
    return Done("GetServiceStatus", HandOutServers(serversStatus));
  }

  int GetServiceStatusEx(SCA_ConfigObj** serviceStatus, SCA_ConfigObj** serversStatus) override {
    SCA_ConfigObj* service = nullptr;
    const int isFilled = HandOut("Status", &service, [&](SCA_ConfigObj* object) {
      return service_.FillServiceFields(object);
    });
    SCA_Owned<SCA_ConfigObj> owned(service);
    if (isFilled == 0 || HandOutServers(serversStatus) == 0) return Done("GetServiceStatusEx", 0);
    *serviceStatus = owned.release();
    return Done("GetServiceStatusEx", 1);
  }

  int StopServer() override {
    Say(SCA_LevelInfo, "connection %lu asks for the end", agent_);
    host_.stop->Set();
    return Done("StopServer", 1);
  }

  int Suspend() override { return Done("Suspend", host_.servers->Suspend()); }

  int GetServerList(SCA_ConfigObj** serverList) override {
    return Done("GetServerList", HandOut("Servers", serverList, [&](SCA_ConfigObj* object) {
                  return host_.servers->SerializeList(object);
                }));
  }

  int GetServer(unsigned long serverId, SCA_ConfigObj** server) override {
    return Done("GetServer", HandOut("Server", server, [&](SCA_ConfigObj* object) {
                  return host_.servers->Serialize(serverId, object);
                }));
  }

  int GetServerStatusEx(unsigned long serverId, SCA_ConfigObj** status) override {
    return Done("GetServerStatusEx", HandOut("Status", status, [&](SCA_ConfigObj* object) {
                  return host_.servers->FillStatus(serverId, object);
                }));
  }

  int SaveTikaLog(unsigned long status, const char* logDir, unsigned long* statusCode) override {
    const bool isKnown = status == SCA_TikaLogOff || status == SCA_TikaLogOn;
    if (isKnown) host_.installation->SaveTikaLog(status == SCA_TikaLogOn, logDir, statusCode);
    return Done("SaveTikaLog", isKnown ? 1 : 0);
  }

  int GetServerLog(unsigned long serverId, unsigned long lastMessageId, unsigned long count,
                   SCA_ConfigObj** log) override {
    return Done("GetServerLog", HandOut("Log", log, [&](SCA_ConfigObj* object) {
                  return host_.servers->SerializeLog(serverId, lastMessageId, count, object);
                }));
  }

  int ClearServerLog(unsigned long serverId) override {
    return Done("ClearServerLog", host_.servers->ClearLog(serverId));
  }

  int AddServer(const char* fileName, unsigned short portNumber, unsigned long heapSize,
                const char* javaOptions, unsigned long* serverId, unsigned long* serverStatus,
                unsigned long* statusCode) override {
    return Done("AddServer", host_.servers->Add(agent_, fileName, portNumber, heapSize, javaOptions,
                                                serverId, serverStatus, statusCode));
  }

  int StartServer(unsigned long serverId, unsigned long* serverStatus,
                  unsigned long* statusCode) override {
    return Done("StartServer", host_.servers->Start(serverId, serverStatus, statusCode));
  }

  int DeleteServer(unsigned long serverId) override {
    return Done("DeleteServer", host_.servers->Delete(serverId));
  }

  int DeleteAllServers() override {
    return Done("DeleteAllServers", host_.servers->DeleteAllOf(agent_));
  }

 private:
  int Done(const char* command, int result) { return service_.counts_.Add(command, result); }

  int HandOutServers(SCA_ConfigObj** servers) {
    return HandOut("Servers", servers,
                   [&](SCA_ConfigObj* object) { return host_.servers->AddStatuses(object); });
  }

  ControlService& service_;
  const HostParts& host_;
  const unsigned long agent_;
};

ControlService::ControlService(const HostParts& parts) : parts_(parts) {
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

unsigned long long ControlService::RefusedLogins() const {
  const SCA_TikaServiceServer* server = server_.load();
  return server != nullptr ? server->GetRefusedLogins() : 0;
}

int ControlService::FillServiceFields(SCA_ConfigObj* status) const {
  namespace Fields = SCA_ServiceFields;
  const ServersSummary summary = parts_.servers->Summarize();
  const Installation::LogSwitches logs = parts_.installation->GetLogSwitches();
  const RequestCounts::Count requests = counts_.Total();
  const SelfFigures self = GetSelfFigures();
  const SCA_TikaServiceServer* server = server_.load();
  const auto number = [status](const char* name, auto value) {
    return status->AddField(name, value, 0) != 0;
  };
  const auto text = [status](const char* name, const std::string& value) {
    return status->AddField(name, value.c_str(), 0) != 0;
  };
  const bool isWhole =
      number(Fields::Status, summary.Status()) &&
      text(Fields::StatusText, SCA_FindProcessStatus(summary.Status()).serviceWord) &&
      text(Fields::Version, SCA_VERSION) && text(Fields::HostName, HostName()) &&
      number(Fields::ProcessId, static_cast<unsigned long>(::getpid())) &&
      number(Fields::StartTime, parts_.startTime) && number(Fields::UpTime, parts_.UpTimeMs()) &&
      number(Fields::ControlPort, server != nullptr ? server->GetPort() : 0U) &&
      number(Fields::LoginMode, 1U) && number(Fields::RefusedLogins, RefusedLogins()) &&
      text(Fields::ControlSocket, parts_.installation->ControlSocket()) &&
      text(Fields::DataDirectory, parts_.installation->DataDirectory()) &&
      number(Fields::SaveTikaLog, logs.saveTikaLog ? 1U : 0U) &&
      text(Fields::TikaLogDir, logs.tikaLogDir) && number(Fields::Connections, ConnectionCount()) &&
      number(Fields::Requests, requests.requests) &&
      number(Fields::FailedRequests, requests.failed) && number(Fields::Servers, summary.servers) &&
      number(Fields::ActiveServers, summary.active) &&
      number(Fields::ReadyServers, summary.ready) && number(Fields::ErrorServers, summary.error) &&
      number(Fields::MemoryUsage, summary.memoryUsage) && number(Fields::HostMemory, self.memory) &&
      number(Fields::HostThreads, self.threads) &&
      number(Fields::HostDescriptors, self.descriptors) &&
      number(Fields::Deaths, parts_.blackBox->Count(BlackBox::Mortal::Server)) &&
      number(Fields::WorkerDeaths, parts_.blackBox->Count(BlackBox::Mortal::Worker)) &&
      number(Fields::ServersStatusId, summary.statusId) &&
      number(Fields::DebugLogSession, parts_.log->GetLog()->GetSessionId());
  return isWhole ? 1 : 0;
}
