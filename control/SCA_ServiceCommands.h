/// The commands of the control port, one row each. The client's operations, the server's handlers
/// and their registration are made from these rows; docs/control-protocol.md lists them too, and a
/// test compares.
#ifndef SCA_CONTROL_SCA_SERVICECOMMANDS_H
#define SCA_CONTROL_SCA_SERVICECOMMANDS_H

#include <array>
#include <cstddef>

#include "control/SCA_TikaServiceVirtual.h"

/// The rows, in the order in which the commands are registered. `COMMAND` is a macro that takes:
///
/// - the name of the command, of the operation and of the server's handler,
/// - the parameters of the operation, and only their names,
/// - the fields of request and reply, one for each parameter: a value or a `const char*` is a field
///   of the request, any other pointer is filled from a field of the reply. The field's type is
///   that of the parameter.
// clang-format off
#define SCA_SERVICE_COMMANDS(COMMAND)                                                              \
  COMMAND(GetVersionInfo, (char* versionInfo), (versionInfo), ("VersionInfo"))                     \
  COMMAND(GetDebugLog,                                                                             \
          (unsigned long lastMessageId, unsigned long count, SCA_ConfigObj** debugLog),            \
          (lastMessageId, count, debugLog), ("LastMessageId", "Count", "DebugLogObj"))             \
  COMMAND(ClearDebugLog, (), (), ())                                                               \
  COMMAND(GetStatus, (unsigned long* status), (status), ("Status"))                                \
  COMMAND(GetStatusObj, (SCA_ConfigObj** status), (status), ("StatusObj"))                         \
  COMMAND(GetServerInfo, (char* serverVersion, char* serverHostName),                              \
          (serverVersion, serverHostName), ("ServerVersion", "ServerHostName"))                    \
  COMMAND(GetServiceStatus,                                                                        \
          (unsigned long* serviceStatus, unsigned long* errorServers,                              \
           unsigned long* activeServers, unsigned long long* memoryUsage,                          \
           unsigned long long* upTime, SCA_ConfigObj** serversStatus),                             \
          (serviceStatus, errorServers, activeServers, memoryUsage, upTime, serversStatus),        \
          ("ServiceStatus", "ErrorServers", "ActiveServers", "MemoryUsage", "UpTime",              \
           "ServersStatusObj"))                                                                    \
  COMMAND(GetServiceStatusEx, (SCA_ConfigObj** serviceStatus, SCA_ConfigObj** serversStatus),      \
          (serviceStatus, serversStatus), ("ServiceStatusObj", "ServersStatusObj"))                \
  COMMAND(StopServer, (), (), ())                                                                  \
  COMMAND(Suspend, (), (), ())                                                                     \
  COMMAND(GetServerList, (SCA_ConfigObj** serverList), (serverList), ("ServerListObj"))            \
  COMMAND(GetServer, (unsigned long serverId, SCA_ConfigObj** server), (serverId, server),         \
          ("ServerId", "ServerObj"))                                                               \
  COMMAND(GetServerStatusEx, (unsigned long serverId, SCA_ConfigObj** status), (serverId, status), \
          ("ServerId", "StatusObj"))                                                               \
  COMMAND(SaveTikaLog, (unsigned long status, const char* logDir, unsigned long* statusCode),      \
          (status, logDir, statusCode), ("Status", "LogDir", "StatusCode"))                        \
  COMMAND(GetServerLog,                                                                            \
          (unsigned long serverId, unsigned long lastMessageId, unsigned long count,               \
           SCA_ConfigObj** log),                                                                   \
          (serverId, lastMessageId, count, log), ("ServerId", "LastMessageId", "Count", "LogObj")) \
  COMMAND(ClearServerLog, (unsigned long serverId), (serverId), ("ServerId"))                      \
  COMMAND(AddServer,                                                                               \
          (const char* fileName, unsigned short portNumber, unsigned long heapSize,                \
           const char* javaOptions, unsigned long* serverId, unsigned long* serverStatus,          \
           unsigned long* statusCode),                                                             \
          (fileName, portNumber, heapSize, javaOptions, serverId, serverStatus, statusCode),       \
          ("FileName", "PortNumber", "HeapSize", "JavaOptions", "ServerId", "ServerStatus",        \
           "StatusCode"))                                                                          \
  COMMAND(StartServer,                                                                             \
          (unsigned long serverId, unsigned long* serverStatus, unsigned long* statusCode),        \
          (serverId, serverStatus, statusCode), ("ServerId", "ServerStatus", "StatusCode"))        \
  COMMAND(DeleteServer, (unsigned long serverId), (serverId), ("ServerId"))                        \
  COMMAND(DeleteAllServers, (), (), ())
// clang-format on

/// Declares a member function that implements the operation of a row.
#define SCA_DECLARE_OPERATION(name, parameters, arguments, fields) int name parameters override;

/// A row as a value: what the two ends need to know of a field they take from `Args`.
template <class... Args>
struct SCA_ServiceCommand {
  using Operation = int (SCA_TikaServiceVirtual::*)(Args...);

  const char* name;
  Operation operation;
  std::array<const char*, sizeof...(Args)> fields;
};

template <class... Names>
constexpr std::array<const char*, sizeof...(Names)> SCA_FieldNames(Names... names) {
  return {names...};
}

template <class... Args>
constexpr SCA_ServiceCommand<Args...> SCA_MakeCommand(
    const char* name, int (SCA_TikaServiceVirtual::*operation)(Args...),
    const std::array<const char*, sizeof...(Args)>& fields) {
  return {name, operation, fields};
}

/// The rows by their names: `SCA_Commands::AddServer`.
namespace SCA_Commands {
// NOLINTBEGIN(bugprone-macro-parentheses): they are names
#define SCA_DEFINE_COMMAND(name, parameters, arguments, fields) \
  constexpr auto name =                                         \
      SCA_MakeCommand(#name, &SCA_TikaServiceVirtual::name, SCA_FieldNames fields);
// NOLINTEND(bugprone-macro-parentheses)
SCA_SERVICE_COMMANDS(SCA_DEFINE_COMMAND)
#undef SCA_DEFINE_COMMAND
}  // namespace SCA_Commands

#endif  // SCA_CONTROL_SCA_SERVICECOMMANDS_H
