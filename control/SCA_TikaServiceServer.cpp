#include "control/SCA_TikaServiceServer.h"

#include <cstring>
#include <tuple>
#include <utility>

#include "control/SCA_ServiceCommands.h"
#include "host/SCA_TikaConfig.h"

namespace {

// A parameter of an operation on its way from a request to a reply. Values are read from the
// request; what pointers lead to is written into the reply.
template <class T>
class Slot {
 public:
  bool Read(const SCA_ConfigObj& request, const char* name) {
    return request.GetField(name, &value_) != 0;
  }
  T Argument() { return value_; }
  bool Write(SCA_ConfigObj* /*reply*/, const char* /*name*/) { return true; }

 private:
  T value_{};
};

template <>
class Slot<const char*> {
 public:
  bool Read(const SCA_ConfigObj& request, const char* name) {
    SCA_Field* field = nullptr;
    // A cut path would be another path.
    return request.GetFieldByName(name, &field) != 0 &&
           field->GetValueLength() <= SCA_ServiceTextSize &&
           request.GetField(name, text_, sizeof text_) != 0;
  }
  const char* Argument() { return text_; }
  bool Write(SCA_ConfigObj* /*reply*/, const char* /*name*/) { return true; }

 private:
  char text_[SCA_ServiceTextSize] = "";
};

template <class T>
class Slot<T*> {
 public:
  bool Read(const SCA_ConfigObj& /*request*/, const char* /*name*/) { return true; }
  T* Argument() { return &value_; }
  bool Write(SCA_ConfigObj* reply, const char* name) {
    return reply->AddField(name, value_, 0) != 0;
  }

 private:
  T value_{};
};

template <>
class Slot<char*> {
 public:
  bool Read(const SCA_ConfigObj& /*request*/, const char* /*name*/) { return true; }
  char* Argument() { return text_; }
  bool Write(SCA_ConfigObj* reply, const char* name) {
    return reply->AddField(name, text_, 0) != 0;
  }

 private:
  char text_[SCA_ServiceTextSize] = "";
};

// Whatever happens, the object is linked or ended.
template <>
class Slot<SCA_ConfigObj**> {
 public:
  Slot() = default;
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;
  ~Slot() { SCA_Destroyer()(object_); }

  bool Read(const SCA_ConfigObj& /*request*/, const char* /*name*/) { return true; }
  SCA_ConfigObj** Argument() { return &object_; }
  bool Write(SCA_ConfigObj* reply, const char* name) {
    if (object_ == nullptr || reply->AddField(name, object_, 0) == 0) return false;
    object_ = nullptr;
    return true;
  }

 private:
  SCA_ConfigObj* object_ = nullptr;
};

}  // namespace

template <class... Args>
void SCA_TikaServiceServer::Register(const SCA_ServiceCommand<Args...>& command, Handler handler) {
  RegisterCommand(command.name, handler);
}

SCA_TikaServiceServer::SCA_TikaServiceServer(SCA_TikaServiceVirtualFactory* factory,
                                             unsigned short port, unsigned long* error)
    : SCA_NetServer(this, SCA_ProductVersion, port, error), factory_(factory) {
  if (IsValid() == 0) return;
  SetValid(0);
  Register(SCA_Commands::GetVersionInfo, &SCA_TikaServiceServer::GetVersionInfo);
  Register(SCA_Commands::GetDebugLog, &SCA_TikaServiceServer::GetDebugLog);
  Register(SCA_Commands::ClearDebugLog, &SCA_TikaServiceServer::ClearDebugLog);
  Register(SCA_Commands::GetStatus, &SCA_TikaServiceServer::GetStatus);
  Register(SCA_Commands::GetStatusObj, &SCA_TikaServiceServer::GetStatusObj);
  Register(SCA_Commands::GetServerInfo, &SCA_TikaServiceServer::GetServerInfo);
  Register(SCA_Commands::GetServiceStatus, &SCA_TikaServiceServer::GetServiceStatus);
  Register(SCA_Commands::GetServiceStatusEx, &SCA_TikaServiceServer::GetServiceStatusEx);
  Register(SCA_Commands::StopServer, &SCA_TikaServiceServer::StopServer);
  Register(SCA_Commands::Suspend, &SCA_TikaServiceServer::Suspend);
  Register(SCA_Commands::GetServerList, &SCA_TikaServiceServer::GetServerList);
  Register(SCA_Commands::GetServer, &SCA_TikaServiceServer::GetServer);
  Register(SCA_Commands::GetServerStatusEx, &SCA_TikaServiceServer::GetServerStatusEx);
  Register(SCA_Commands::SaveTikaLog, &SCA_TikaServiceServer::SaveTikaLog);
  Register(SCA_Commands::GetServerLog, &SCA_TikaServiceServer::GetServerLog);
  Register(SCA_Commands::ClearServerLog, &SCA_TikaServiceServer::ClearServerLog);
  Register(SCA_Commands::AddServer, &SCA_TikaServiceServer::AddServer);
  Register(SCA_Commands::StartServer, &SCA_TikaServiceServer::StartServer);
  Register(SCA_Commands::DeleteServer, &SCA_TikaServiceServer::DeleteServer);
  Register(SCA_Commands::DeleteAllServers, &SCA_TikaServiceServer::DeleteAllServers);
  SetValid(1);
  OpenGate(error);
}

SCA_TikaServiceServer::~SCA_TikaServiceServer() {
  StopAll();
}

int SCA_TikaServiceServer::ConnectEvent(SCA_NetServerAgent* agent) {
  factory_->OnConnect(agent);
  return 1;
}

int SCA_TikaServiceServer::DisconnectEvent(SCA_NetServerAgent* agent) {
  factory_->OnDisconnect(agent->GetId());
  return 1;
}

unsigned long SCA_TikaServiceServer::GetLoginMode() {
  return factory_->GetLoginMode();
}

template <class... Args>
int SCA_TikaServiceServer::Serve(const SCA_ServiceCommand<Args...>& command,
                                 const SCA_NetServerAgent& agent, const SCA_NetMessage& request,
                                 SCA_NetMessage* reply) {
  std::tuple<Slot<Args>...> slots;
  // Unused for a command without fields.
  [[maybe_unused]] auto field = command.fields.begin();
  const bool isRead = std::apply(
      [&](auto&... slot) { return (slot.Read(*request.GetData(), *field++) && ...); }, slots);
  if (!isRead) return 0;
  SCA_TikaServiceVirtual* service = factory_->GetServiceObject(agent.GetId());
  const int isDone = std::apply(
      [&](auto&... slot) { return (service->*command.operation)(slot.Argument()...); }, slots);
  if (isDone == 0) return 0;
  field = command.fields.begin();
  const bool isWritten = std::apply(
      [&](auto&... slot) { return (slot.Write(reply->GetData(), *field++) && ...); }, slots);
  return isWritten ? reply->SetCommandName("OK") : 0;
}

int SCA_TikaServiceServer::GetVersionInfo(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                          SCA_NetMessage* reply) {
  return Serve(SCA_Commands::GetVersionInfo, *agent, *request, reply);
}

int SCA_TikaServiceServer::GetDebugLog(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                       SCA_NetMessage* reply) {
  return Serve(SCA_Commands::GetDebugLog, *agent, *request, reply);
}

int SCA_TikaServiceServer::ClearDebugLog(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                         SCA_NetMessage* reply) {
  return Serve(SCA_Commands::ClearDebugLog, *agent, *request, reply);
}

int SCA_TikaServiceServer::GetStatus(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                     SCA_NetMessage* reply) {
  return Serve(SCA_Commands::GetStatus, *agent, *request, reply);
}

int SCA_TikaServiceServer::GetStatusObj(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                        SCA_NetMessage* reply) {
  return Serve(SCA_Commands::GetStatusObj, *agent, *request, reply);
}

int SCA_TikaServiceServer::GetServerInfo(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                         SCA_NetMessage* reply) {
  return Serve(SCA_Commands::GetServerInfo, *agent, *request, reply);
}

int SCA_TikaServiceServer::GetServiceStatus(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                            SCA_NetMessage* reply) {
  return Serve(SCA_Commands::GetServiceStatus, *agent, *request, reply);
}

int SCA_TikaServiceServer::GetServiceStatusEx(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                              SCA_NetMessage* reply) {
  return Serve(SCA_Commands::GetServiceStatusEx, *agent, *request, reply);
}

int SCA_TikaServiceServer::StopServer(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                      SCA_NetMessage* reply) {
  return Serve(SCA_Commands::StopServer, *agent, *request, reply);
}

int SCA_TikaServiceServer::Suspend(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                   SCA_NetMessage* reply) {
  return Serve(SCA_Commands::Suspend, *agent, *request, reply);
}

int SCA_TikaServiceServer::GetServerList(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                         SCA_NetMessage* reply) {
  return Serve(SCA_Commands::GetServerList, *agent, *request, reply);
}

int SCA_TikaServiceServer::GetServer(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                     SCA_NetMessage* reply) {
  return Serve(SCA_Commands::GetServer, *agent, *request, reply);
}

int SCA_TikaServiceServer::GetServerStatusEx(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                             SCA_NetMessage* reply) {
  return Serve(SCA_Commands::GetServerStatusEx, *agent, *request, reply);
}

int SCA_TikaServiceServer::SaveTikaLog(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                       SCA_NetMessage* reply) {
  return Serve(SCA_Commands::SaveTikaLog, *agent, *request, reply);
}

int SCA_TikaServiceServer::GetServerLog(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                        SCA_NetMessage* reply) {
  return Serve(SCA_Commands::GetServerLog, *agent, *request, reply);
}

int SCA_TikaServiceServer::ClearServerLog(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                          SCA_NetMessage* reply) {
  return Serve(SCA_Commands::ClearServerLog, *agent, *request, reply);
}

int SCA_TikaServiceServer::AddServer(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                     SCA_NetMessage* reply) {
  return Serve(SCA_Commands::AddServer, *agent, *request, reply);
}

int SCA_TikaServiceServer::StartServer(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                       SCA_NetMessage* reply) {
  return Serve(SCA_Commands::StartServer, *agent, *request, reply);
}

int SCA_TikaServiceServer::DeleteServer(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                        SCA_NetMessage* reply) {
  return Serve(SCA_Commands::DeleteServer, *agent, *request, reply);
}

int SCA_TikaServiceServer::DeleteAllServers(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                                            SCA_NetMessage* reply) {
  return Serve(SCA_Commands::DeleteAllServers, *agent, *request, reply);
}
