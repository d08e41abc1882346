#include "control/SCA_TikaServiceServer.h"

#include <cstring>
#include <tuple>
#include <utility>

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

template <class... Args>
int Serve(const SCA_ServiceCommand<Args...>& command, SCA_TikaServiceVirtualFactory* factory,
          const SCA_NetServerAgent& agent, const SCA_NetMessage& request, SCA_NetMessage* reply) {
  std::tuple<Slot<Args>...> slots;
  // Unused for a command without fields.
  [[maybe_unused]] auto field = command.fields.begin();
  const bool isRead = std::apply(
      [&](auto&... slot) { return (slot.Read(*request.GetData(), *field++) && ...); }, slots);
  if (!isRead) return 0;
  SCA_TikaServiceVirtual* service = factory->GetServiceObject(agent.GetId());
  const int isDone = std::apply(
      [&](auto&... slot) { return (service->*command.operation)(slot.Argument()...); }, slots);
  if (isDone == 0) return 0;
  field = command.fields.begin();
  const bool isWritten = std::apply(
      [&](auto&... slot) { return (slot.Write(reply->GetData(), *field++) && ...); }, slots);
  return isWritten ? reply->SetCommandName("OK") : 0;
}

}  // namespace

SCA_TikaServiceServer::SCA_TikaServiceServer(SCA_TikaServiceVirtualFactory* factory,
                                             unsigned short port, unsigned long* error)
    : SCA_NetServer(this, SCA_ProductVersion, port, error), factory_(factory) {
  if (IsValid() == 0) return;
  SetValid(0);
#define SCA_REGISTER(name, parameters, arguments, fields) \
  RegisterCommand(#name, &SCA_TikaServiceServer::name);
  SCA_SERVICE_COMMANDS(SCA_REGISTER)
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

const char* SCA_TikaServiceServer::GetServerAddress() {
  return factory_->GetAddress();
}

#define SCA_DEFINE_HANDLER(name, parameters, arguments, fields)                       \
  int SCA_TikaServiceServer::name(SCA_NetServerAgent* agent, SCA_NetMessage* request, \
                                  SCA_NetMessage* reply) {                            \
    return Serve(SCA_Commands::name, factory_, *agent, *request, reply);              \
  }
SCA_SERVICE_COMMANDS(SCA_DEFINE_HANDLER)
