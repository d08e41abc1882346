#include "control/SCA_TikaInterface.h"

#include "host/SCA_TikaLog.h"
#include "host/SCA_TikaServer.h"
#include "host/SCA_TikaServerList.h"
#include "platform/SCA_Report.h"

namespace {

constexpr char kSource[] = "SCA_TikaInterface";

// Fills one of the library's objects with what a call has handed out, which ends here.
template <class T>
int Fill(T* target, SCA_ConfigObj* received) {
  const SCA_Owned<SCA_ConfigObj> object(received);
  return target->Deserialize(object.get());
}

}  // namespace

SCA_TikaInterface::SCA_TikaInterface() = default;
SCA_TikaInterface::~SCA_TikaInterface() = default;

int SCA_TikaInterface::GetDebugLog(unsigned long lastMessageId, unsigned long count,
                                   SCA_TikaLog* log) {
  SCA_ConfigObj* object = nullptr;
  if (SCA_TikaServiceClient::GetDebugLog(lastMessageId, count, &object) != 0) {
    return Fill(log, object);
  }
  SCA_GetReportFunction(kSource, __LINE__)(
      SCA_LevelError, "SCA_TikaInterface::GetDebugLog: Cannot get remote debug log");
  return 0;
}

int SCA_TikaInterface::GetServerList(SCA_TikaServerList* list) {
  SCA_ConfigObj* object = nullptr;
  if (SCA_TikaServiceClient::GetServerList(&object) != 0) return Fill(list, object);
  SCA_GetReportFunction(kSource, __LINE__)(
      SCA_LevelError, "SCA_TikaInterface::GetServerList: Cannot get server list");
  return 0;
}

int SCA_TikaInterface::GetServer(unsigned long serverId, SCA_TikaServer* server) {
  SCA_ConfigObj* object = nullptr;
  if (SCA_TikaServiceClient::GetServer(serverId, &object) != 0) return Fill(server, object);
  SCA_GetReportFunction(kSource, __LINE__)(
      SCA_LevelError, "SCA_TikaInterface::GetServer: Cannot get server - %lu", serverId);
  return 0;
}

int SCA_TikaInterface::GetServerLog(unsigned long serverId, unsigned long lastMessageId,
                                    unsigned long count, SCA_TikaLog* log) {
  SCA_ConfigObj* object = nullptr;
  if (SCA_TikaServiceClient::GetServerLog(serverId, lastMessageId, count, &object) != 0) {
    return Fill(log, object);
  }
  SCA_GetReportFunction(kSource, __LINE__)(
      SCA_LevelError, "SCA_TikaInterface::GetServerLog: Cannot get log of server - %lu", serverId);
  return 0;
}
