/// The commands of the control port, one row each: name, operation and the names of its fields, in
/// the order of the operation's parameters. What else the two ends need to know of a field (whether
/// it is asked or answered, and its type) they take from the operation. Internal to the library.
#ifndef SCA_CONTROL_SCA_SERVICECOMMANDS_H
#define SCA_CONTROL_SCA_SERVICECOMMANDS_H

#include <array>

#include "control/SCA_TikaServiceVirtual.h"

/// Values are fields of the request, pointers are filled from fields of the reply; but a const
/// char* is a text of the request.
template <class... Args>
struct SCA_ServiceCommand {
  using Operation = int (SCA_TikaServiceVirtual::*)(Args...);

  const char* name;
  Operation operation;
  std::array<const char*, sizeof...(Args)> fields;
};

template <class... Args, class... Names>
constexpr SCA_ServiceCommand<Args...> SCA_MakeCommand(
    const char* name, int (SCA_TikaServiceVirtual::*operation)(Args...), Names... fields) {
  static_assert(sizeof...(Args) == sizeof...(Names), "one name for each parameter");
  return {name, operation, {fields...}};
}

namespace SCA_Commands {

using Service = SCA_TikaServiceVirtual;

constexpr auto GetVersionInfo =
    SCA_MakeCommand("GetVersionInfo", &Service::GetVersionInfo, "VersionInfo");
constexpr auto GetDebugLog =
    SCA_MakeCommand("GetDebugLog", &Service::GetDebugLog, "LastMessageId", "Count", "DebugLogObj");
constexpr auto ClearDebugLog = SCA_MakeCommand("ClearDebugLog", &Service::ClearDebugLog);
constexpr auto GetStatus = SCA_MakeCommand("GetStatus", &Service::GetStatus, "Status");
constexpr auto GetStatusObj = SCA_MakeCommand("GetStatusObj", &Service::GetStatusObj, "StatusObj");
constexpr auto GetServerInfo =
    SCA_MakeCommand("GetServerInfo", &Service::GetServerInfo, "ServerVersion", "ServerHostName");
constexpr auto GetServiceStatus =
    SCA_MakeCommand("GetServiceStatus", &Service::GetServiceStatus, "ServiceStatus", "ErrorServers",
                    "ActiveServers", "MemoryUsage", "UpTime", "ServersStatusObj");
constexpr auto GetServiceStatusEx = SCA_MakeCommand(
    "GetServiceStatusEx", &Service::GetServiceStatusEx, "ServiceStatusObj", "ServersStatusObj");
constexpr auto StopServer = SCA_MakeCommand("StopServer", &Service::StopServer);
constexpr auto Suspend = SCA_MakeCommand("Suspend", &Service::Suspend);
constexpr auto GetServerList =
    SCA_MakeCommand("GetServerList", &Service::GetServerList, "ServerListObj");
constexpr auto GetServer =
    SCA_MakeCommand("GetServer", &Service::GetServer, "ServerId", "ServerObj");
constexpr auto GetServerStatusEx =
    SCA_MakeCommand("GetServerStatusEx", &Service::GetServerStatusEx, "ServerId", "StatusObj");
constexpr auto SaveTikaLog =
    SCA_MakeCommand("SaveTikaLog", &Service::SaveTikaLog, "Status", "LogDir", "StatusCode");
constexpr auto GetServerLog = SCA_MakeCommand("GetServerLog", &Service::GetServerLog, "ServerId",
                                              "LastMessageId", "Count", "LogObj");
constexpr auto ClearServerLog =
    SCA_MakeCommand("ClearServerLog", &Service::ClearServerLog, "ServerId");
constexpr auto AddServer =
    SCA_MakeCommand("AddServer", &Service::AddServer, "FileName", "PortNumber", "HeapSize",
                    "JavaOptions", "ServerId", "ServerStatus", "StatusCode");
constexpr auto StartServer =
    SCA_MakeCommand("StartServer", &Service::StartServer, "ServerId", "ServerStatus", "StatusCode");
constexpr auto DeleteServer = SCA_MakeCommand("DeleteServer", &Service::DeleteServer, "ServerId");
constexpr auto DeleteAllServers = SCA_MakeCommand("DeleteAllServers", &Service::DeleteAllServers);

}  // namespace SCA_Commands

#endif  // SCA_CONTROL_SCA_SERVICECOMMANDS_H
