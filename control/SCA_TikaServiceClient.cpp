#include "control/SCA_TikaServiceClient.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "control/SCA_ServiceCommands.h"
#include "platform/SCA_Text.h"

namespace {

// What becomes of an operation's parameter, by its type: values go into the request, pointers are
// filled from the reply, objects after everything else.
template <class T>
bool Ask(SCA_ConfigObj* request, const char* name, T value) {
  return request->AddField(name, value, 0) != 0;
}
template <class T>
bool Ask(SCA_ConfigObj* /*request*/, const char* /*name*/, T* /*output*/) {
  return true;
}
bool Ask(SCA_ConfigObj* request, const char* name, const char* text) {
  return text != nullptr && request->AddField(name, text, 0) != 0;
}

template <class T>
bool Take(const SCA_ConfigObj& /*reply*/, const char* /*name*/, T /*input*/) {
  return true;
}
template <class T>
bool Take(const SCA_ConfigObj& reply, const char* name, T* output) {
  return reply.GetField(name, output) != 0;
}
bool Take(const SCA_ConfigObj& /*reply*/, const char* /*name*/, const char* /*input*/) {
  return true;
}
bool Take(const SCA_ConfigObj& reply, const char* name, char* text) {
  return reply.GetField(name, text, SCA_ServiceTextSize) != 0;
}
bool Take(const SCA_ConfigObj& reply, const char* name, SCA_ConfigObj** /*object*/) {
  return reply.GetConfigObj(name) != nullptr;
}

template <class T>
void HandOver(SCA_ConfigObj* /*reply*/, const char* /*name*/, T /*other*/) {}
void HandOver(SCA_ConfigObj* reply, const char* name, SCA_ConfigObj** object) {
  *object = reply->GetConfigObj(name);
  reply->RemoveField(name);
}

}  // namespace

SCA_TikaServiceClient::SCA_TikaServiceClient() : transport_(nullptr) {
  SetValid(1);
}

SCA_TikaServiceClient::~SCA_TikaServiceClient() = default;

int SCA_TikaServiceClient::Connect(const char* host, unsigned short port, unsigned long timeoutMs,
                                   unsigned long* error) {
  if (transport_.Connect(host, port, timeoutMs, error) == 0) return 0;
  port_ = port;
  SCA_CopyText(name_, host, SCA_TextFit::Cut);
  std::snprintf(fullName_, sizeof fullName_, "%s:%u", host, static_cast<unsigned>(port));
  return 1;
}

void SCA_TikaServiceClient::SetReplyTimeout(unsigned long timeoutMs) {
  replyTimeout_ = static_cast<std::uint32_t>(std::min(timeoutMs, SCA_MaxReplyTimeoutMs));
}

template <class... Args, class... Given>
int SCA_TikaServiceClient::Call(const SCA_ServiceCommand<Args...>& command, Given... arguments) {
  request_.Init(command.name);
  reply_.Init("ERR");
  // Unused for a command without fields.
  [[maybe_unused]] auto field = command.fields.begin();
  lastStatusCode_ = 0;
  if (!(Ask(request_.GetData(), *field++, arguments) && ...)) {
    lastStatusCode_ = EINVAL;
    return 0;
  }
  unsigned long code = 0;
  if (transport_.SendMessage(0, &request_, &code) == 0 ||
      transport_.WaitForMessage(replyTimeout_, &reply_, &code) == 0) {
    SetLastStatusCode(code);
    return 0;
  }
  if (std::strcmp(reply_.GetCommandName(), "ERR") == 0) return 0;
  field = command.fields.begin();
  if (!(Take(*reply_.GetData(), *field++, arguments) && ...)) return 0;
  field = command.fields.begin();
  (HandOver(reply_.GetData(), *field++, arguments), ...);
  return 1;
}

int SCA_TikaServiceClient::GetVersionInfo(char* versionInfo) {
  return Call(SCA_Commands::GetVersionInfo, versionInfo);
}

int SCA_TikaServiceClient::GetDebugLog(unsigned long lastMessageId, unsigned long count,
                                       SCA_ConfigObj** debugLog) {
  return Call(SCA_Commands::GetDebugLog, lastMessageId, count, debugLog);
}

int SCA_TikaServiceClient::ClearDebugLog() {
  return Call(SCA_Commands::ClearDebugLog);
}

int SCA_TikaServiceClient::GetStatus(unsigned long* status) {
  return Call(SCA_Commands::GetStatus, status);
}

int SCA_TikaServiceClient::GetStatusObj(SCA_ConfigObj** status) {
  return Call(SCA_Commands::GetStatusObj, status);
}

int SCA_TikaServiceClient::GetServerInfo(char* serverVersion, char* serverHostName) {
  return Call(SCA_Commands::GetServerInfo, serverVersion, serverHostName);
}

int SCA_TikaServiceClient::GetServiceStatus(
    unsigned long* serviceStatus, unsigned long* errorServers, unsigned long* activeServers,
    unsigned long long* memoryUsage, unsigned long long* upTime, SCA_ConfigObj** serversStatus) {
  return Call(SCA_Commands::GetServiceStatus, serviceStatus, errorServers, activeServers,
              memoryUsage, upTime, serversStatus);
}

int SCA_TikaServiceClient::GetServiceStatusEx(SCA_ConfigObj** serviceStatus,
                                              SCA_ConfigObj** serversStatus) {
  return Call(SCA_Commands::GetServiceStatusEx, serviceStatus, serversStatus);
}

int SCA_TikaServiceClient::StopServer() {
  return Call(SCA_Commands::StopServer);
}

int SCA_TikaServiceClient::Suspend() {
  return Call(SCA_Commands::Suspend);
}

int SCA_TikaServiceClient::GetServerList(SCA_ConfigObj** serverList) {
  return Call(SCA_Commands::GetServerList, serverList);
}

int SCA_TikaServiceClient::GetServer(unsigned long serverId, SCA_ConfigObj** server) {
  return Call(SCA_Commands::GetServer, serverId, server);
}

int SCA_TikaServiceClient::GetServerStatusEx(unsigned long serverId, SCA_ConfigObj** status) {
  return Call(SCA_Commands::GetServerStatusEx, serverId, status);
}

int SCA_TikaServiceClient::SaveTikaLog(unsigned long status, const char* logDir,
                                       unsigned long* statusCode) {
  return Call(SCA_Commands::SaveTikaLog, status, logDir, statusCode);
}

int SCA_TikaServiceClient::GetServerLog(unsigned long serverId, unsigned long lastMessageId,
                                        unsigned long count, SCA_ConfigObj** log) {
  return Call(SCA_Commands::GetServerLog, serverId, lastMessageId, count, log);
}

int SCA_TikaServiceClient::ClearServerLog(unsigned long serverId) {
  return Call(SCA_Commands::ClearServerLog, serverId);
}

int SCA_TikaServiceClient::AddServer(const char* fileName, unsigned short portNumber,
                                     unsigned long heapSize, const char* javaOptions,
                                     unsigned long* serverId, unsigned long* serverStatus,
                                     unsigned long* statusCode) {
  return Call(SCA_Commands::AddServer, fileName, portNumber, heapSize, javaOptions, serverId,
              serverStatus, statusCode);
}

int SCA_TikaServiceClient::StartServer(unsigned long serverId, unsigned long* serverStatus,
                                       unsigned long* statusCode) {
  return Call(SCA_Commands::StartServer, serverId, serverStatus, statusCode);
}

int SCA_TikaServiceClient::DeleteServer(unsigned long serverId) {
  return Call(SCA_Commands::DeleteServer, serverId);
}

int SCA_TikaServiceClient::DeleteAllServers() {
  return Call(SCA_Commands::DeleteAllServers);
}
