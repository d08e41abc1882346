/// What a service host and its clients agree on beyond the commands themselves: the fields
/// of the status objects, and what the operations mean that the protocol only carries. tikasvc
/// fills the objects and tikactl reads them by these rows.
///
/// A reader passes over fields that it does not know and does without those that are missing, so
/// that either end may be the newer one.
#ifndef SCA_CONTROL_SCA_SERVICESTATUSNAMES_H
#define SCA_CONTROL_SCA_SERVICESTATUSNAMES_H

#include "supervision/SCA_TikaDeathHistory.h"

/// @name What the operations of a service host mean
///
/// `GetStatus` and the `serviceStatus` of `GetServiceStatus` are a process status
/// (`host/SCA_ProcessStatus.h`) of the whole service, the first of these that holds:
///
/// | Value | Holds when |
/// | --- | --- |
/// | `SCA_ServerInactive` | the service is suspended |
/// | `SCA_ServerError` | a server could not be started, or was given up |
/// | `SCA_ServerPending` | an active server does not answer (yet) |
/// | `SCA_ServerActive` | at least one server is active, and every active one answers |
/// | `SCA_ServerIdle` | there are no servers, or none was started |
///
/// - `AddServer` makes a server, which `StartServer` starts; on a port that is taken it gives the
///   id of the server that is there. `StartServer` starts one whatever stopped it, also after
///   `Suspend`, which ends the suspension. Both succeed with a status code other than 0 where the
///   host can say why it did not do what was asked: an `SCA_Error.h` code, `SCA_ErrorNoJar` or
///   `SCA_ErrorAlreadyActive` for instance; `EINVAL` for a port or heap of 0 or no jar,
///   `SCA_ErrorDataTooLarge` beyond `SCA_MaxHostedServers`, `EADDRINUSE` while a server that was
///   replaced finishes its documents on the port, `EBUSY` while a suspension is still stopping the
///   server. `AddServer` then gives the id `SCA_NoServerId`.
/// - `DeleteServer` stops and deletes any server; `DeleteAllServers` those that the connection has
///   added, except those that another live connection has asked for since, which pass to that one.
///   Both return when the processes are gone and the ports are free.
/// - `Suspend` stops all servers and keeps them. `StopServer` ends the service host.
/// - `SaveTikaLog` switches the daily files by `SCA_TikaLogOff` and `SCA_TikaLogOn`, for good. The
///   directory must be absolute, and is made where it is missing; an empty one keeps the directory
///   used last, at first "logs" in the data directory. The status code says why it failed.
/// - `GetServerLog` and `GetDebugLog` give the messages with an id above `LastMessageId` (all, when
///   it is 0xFFFFFFFF), and of these the newest `Count` (all, when it is 0).
/// - `GetStatusObj` gives the fields of the service and `History`; `GetServiceStatus` the fields of
///   each server, `GetServiceStatusEx` the fields of the service and those of each server;
///   `GetServerStatusEx` those of one server and a `History` of its own. The objects of servers are
///   members of the servers' status object, named by their ids in decimal.
/// - An unknown server id makes an operation fail.
/// @{
constexpr unsigned long SCA_TikaLogOff = 0;
constexpr unsigned long SCA_TikaLogOn = 1;
constexpr unsigned long SCA_NoServerId = 0xFFFFFFFF;
/// @}

/// Servers of one host, so that the statuses of all fit into one reply.
constexpr unsigned long SCA_MaxHostedServers = 1000;

/// How a field of a status object is to be read. Numbers are decimal text.
enum class SCA_FieldType {
  U32,     ///< unsigned number of 32 bits
  U64,     ///< unsigned number of 64 bits
  Switch,  ///< 0 or 1
  Time,    ///< 64 bits: absolute time, 100 ns since 1601, UTC; 0 for never
  Ms,      ///< 64 bits: milliseconds
  Bytes,   ///< 64 bits: a size
  Int,     ///< signed number
  Text,    ///< at most 259 bytes
  Path,    ///< text of at most 4095 bytes
  Object   ///< a configuration object
};

/// A field of a status object.
struct SCA_StatusField {
  const char* name;
  SCA_FieldType type;
  const char* meaning;
};

/// @name The fields, one row each
/// `FIELD` is a macro that takes the field's identifier, name, type and meaning. From these rows
/// come the names (`SCA_ServerFields::Port`), the arrays of rows, and, as a test sees to, the
/// tables in docs/control-protocol.md.
/// @{

/// The whole service.
#define SCA_SERVICE_FIELDS(FIELD)                                                          \
  FIELD(Status, "Status", U32, "process status of the whole service")                      \
  FIELD(StatusText, "Status Text", Text, "the same in a word: \"active\"")                 \
  FIELD(Version, "Version", Text, "of the product")                                        \
  FIELD(HostName, "Host Name", Text, "of the machine")                                     \
  FIELD(ProcessId, "Process Id", U32, "of the service host")                               \
  FIELD(StartTime, "Start Time", Time, "of the service host")                              \
  FIELD(UpTime, "Up Time", Ms, "of the service host")                                      \
  FIELD(ControlPort, "Control Port", U32, "TCP port of this protocol")                     \
  FIELD(LoginMode, "Login Mode", U32, "0 loopback only, 1 login with the key")             \
  FIELD(RefusedLogins, "Refused Logins", U64, "since the start of the host")               \
  FIELD(ControlSocket, "Control Socket", Path, "Unix socket; empty for none")              \
  FIELD(DataDirectory, "Data Directory", Path, "of the service host")                      \
  FIELD(SaveTikaLog, "Save Tika Log", Switch, "daily files are written")                   \
  FIELD(TikaLogDir, "Tika Log Directory", Path, "where they are written")                  \
  FIELD(Connections, "Connections", U32, "control connections now")                        \
  FIELD(Requests, "Requests", U64, "control requests that reached an operation")           \
  FIELD(FailedRequests, "Failed Requests", U64, "of these answered with \"ERR\"")          \
  FIELD(Servers, "Servers", U32, "in the list")                                            \
  FIELD(ActiveServers, "Active Servers", U32, "started, and not given up")                 \
  FIELD(ReadyServers, "Ready Servers", U32, "that answer")                                 \
  FIELD(ErrorServers, "Error Servers", U32, "given up")                                    \
  FIELD(MemoryUsage, "Memory Usage", Bytes, "of all servers together")                     \
  FIELD(HostMemory, "Host Memory", Bytes, "of the service host itself")                    \
  FIELD(HostThreads, "Host Threads", U32, "of the service host itself")                    \
  FIELD(HostDescriptors, "Host Descriptors", U32, "open files of the service host itself") \
  FIELD(Deaths, "Deaths", U64, "of servers, unexpected, since the start of the host")      \
  FIELD(WorkerDeaths, "Worker Deaths", U64, "of workers whose servers ran on")             \
  FIELD(LeavingServers, "Leaving Servers", U32, "replaced, and finishing their documents") \
  FIELD(RecycledServers, "Recycled Servers", U64, "replaced since the start of the host")  \
  FIELD(ServersStatusId, "Servers Status Id", U32, "changes with the list of servers")     \
  FIELD(DebugLogSession, "Debug Log Session", U32, "changes when the log is cleared")      \
  FIELD(History, "History", Object, "of deaths, oldest first, named by their numbers")

/// One server.
#define SCA_SERVER_FIELDS(FIELD)                                                               \
  FIELD(ServerId, "Server Id", U32, "number in the list")                                      \
  FIELD(FileName, "File Name", Path, "the jar")                                                \
  FIELD(Port, "Port", U32, "of its HTTP interface")                                            \
  FIELD(HeapSize, "Heap Size", U32, "megabytes")                                               \
  FIELD(JavaOptions, "Java Options", Text, "further options of java")                          \
  FIELD(Status, "Status", U32, "process status")                                               \
  FIELD(StatusText, "Status Text", Text, "in words: \"ready\", \"starting\", \"silent\", ...") \
  FIELD(Ready, "Ready", Switch, "it answered the last probe")                                  \
  FIELD(TikaVersion, "Tika Version", Text, "as it answered; empty before")                     \
  FIELD(AnswerTime, "Answer Time", Ms, "that its last answer took")                            \
  FIELD(Silence, "Silence", Ms, "since its last answer, or its start")                         \
  FIELD(StatusCode, "Status Code", U32, "why its last start failed, or 0")                     \
  FIELD(StatusCodeText, "Status Code Text", Text, "the same in words, or empty")               \
  FIELD(ProcessId, "Process Id", U32, "0 when none runs")                                      \
  FIELD(Restarts, "Restarts", U32, "since the server was started")                             \
  FIELD(WorkerDeaths, "Worker Deaths", U32, "since the server was started")                    \
  FIELD(Documents, "Documents", U64, "begun by the running process, as its log tells")         \
  FIELD(StartTime, "Start Time", Time, "of the running process")                               \
  FIELD(UpTime, "Up Time", Ms, "of the running process")                                       \
  FIELD(MemoryUsage, "Memory Usage", Bytes, "with all its processes")                          \
  FIELD(ReadIops, "Read Operations", U64, "of its processes")                                  \
  FIELD(WriteIops, "Write Operations", U64, "of its processes")                                \
  FIELD(ReadData, "Read Data", Bytes, "by its processes")                                      \
  FIELD(WriteData, "Write Data", Bytes, "by its processes")                                    \
  FIELD(LogSession, "Log Session", U32, "changes when the log is cleared")                     \
  FIELD(LogLastId, "Log Last Id", U32, "0xFFFFFFFF when the log is empty")                     \
  FIELD(LogErrors, "Log Errors", U32, "messages of level error")                               \
  FIELD(LastDeath, "Last Death", Text, "the cause; empty when it never died")                  \
  FIELD(LastDeathTime, "Last Death Time", Time, "0 when it never died")                        \
  FIELD(Owner, "Owner", Text, "\"host\", or \"connection 12\"")                                \
  FIELD(ClassArchive, "Class Archive", Text, "\"used\", or why there is none: \"none yet\"")   \
  FIELD(History, "History", Object, "as of the service, but only of servers on this port")

/// @}

// NOLINTNEXTLINE(bugprone-macro-parentheses): a literal
#define SCA_FIELD_NAME(identifier, name, type, meaning) constexpr char identifier[] = name;
#define SCA_FIELD_ROW(identifier, name, type, meaning) {name, SCA_FieldType::type, meaning},

namespace SCA_ServiceFields {
SCA_SERVICE_FIELDS(SCA_FIELD_NAME)
}
namespace SCA_ServerFields {
SCA_SERVER_FIELDS(SCA_FIELD_NAME)
}

inline constexpr SCA_StatusField SCA_ServiceFieldRows[] = {SCA_SERVICE_FIELDS(SCA_FIELD_ROW)};
inline constexpr SCA_StatusField SCA_ServerFieldRows[] = {SCA_SERVER_FIELDS(SCA_FIELD_ROW)};
inline constexpr SCA_StatusField SCA_DeathFieldRows[] = {SCA_DEATH_FIELDS(SCA_FIELD_ROW)};

#undef SCA_FIELD_NAME
#undef SCA_FIELD_ROW

#endif  // SCA_CONTROL_SCA_SERVICESTATUSNAMES_H
