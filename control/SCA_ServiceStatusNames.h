/// What a service host and whoever watches it agree on beyond the commands themselves: the fields
/// of the status objects, and what the operations mean that the protocol only carries. tikasvc
/// fills the objects and tikactl reads them by these names.
///
/// A reader passes over fields that it does not know and does without those that are missing, so
/// that either end may be the newer one.
#ifndef SCA_CONTROL_SCA_SERVICESTATUSNAMES_H
#define SCA_CONTROL_SCA_SERVICESTATUSNAMES_H

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
///   `SCA_ErrorDataTooLarge` beyond `SCA_MaxHostedServers`, `EBUSY` while a suspension is still
///   stopping the server. `AddServer` then gives the id `SCA_NoServerId`.
/// - `DeleteServer` stops and deletes any server; `DeleteAllServers` those that the connection has
///   added, but for those that another live connection has asked for since, which pass to that one.
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

/// Deaths that a host remembers, and the lines of output that it keeps of each.
constexpr unsigned long SCA_MaxDeaths = 100;
constexpr unsigned long SCA_MaxDeathLines = 50;

/// Fields of the service. Times are absolute (100 ns since 1601, UTC), lengths of time
/// milliseconds, sizes bytes, switches 0 or 1; texts have at most 259 bytes unless said otherwise.
/// "u32" and "u64" are unsigned numbers.
namespace SCA_ServiceFields {
constexpr char Status[] = "Status";                  ///< u32, as `GetStatus`
constexpr char StatusText[] = "Status Text";         ///< the same in a word, "active"
constexpr char Version[] = "Version";                ///< text, of the product
constexpr char HostName[] = "Host Name";             ///< text
constexpr char ProcessId[] = "Process Id";           ///< u32
constexpr char StartTime[] = "Start Time";           ///< u64, time
constexpr char UpTime[] = "Up Time";                 ///< u64, ms
constexpr char ControlPort[] = "Control Port";       ///< u32
constexpr char LoginMode[] = "Login Mode";           ///< u32: 0 loopback alone, 1 with the key
constexpr char RefusedLogins[] = "Refused Logins";   ///< u64, since the host's start
constexpr char ControlSocket[] = "Control Socket";   ///< text of at most 4095 bytes
constexpr char DataDirectory[] = "Data Directory";   ///< text of at most 4095 bytes
constexpr char SaveTikaLog[] = "Save Tika Log";      ///< u32, switch of the daily files
constexpr char TikaLogDir[] = "Tika Log Directory";  ///< text of at most 4095 bytes
constexpr char Connections[] = "Connections";        ///< u32, control connections now
constexpr char Requests[] = "Requests";  ///< u64, control requests that reached an operation
constexpr char FailedRequests[] = "Failed Requests";    ///< u64, those answered with "ERR"
constexpr char Servers[] = "Servers";                   ///< u32
constexpr char ActiveServers[] = "Active Servers";      ///< u32, whose workers run
constexpr char ReadyServers[] = "Ready Servers";        ///< u32, which answer
constexpr char ErrorServers[] = "Error Servers";        ///< u32, given up
constexpr char MemoryUsage[] = "Memory Usage";          ///< u64, of all servers together
constexpr char HostMemory[] = "Host Memory";            ///< u64, of the service host itself
constexpr char HostThreads[] = "Host Threads";          ///< u32
constexpr char HostDescriptors[] = "Host Descriptors";  ///< u32, open files
constexpr char Deaths[] = "Deaths";                     ///< u64, unexpected, since the host's start
constexpr char WorkerDeaths[] = "Worker Deaths";        ///< u64, of workers whose servers ran on
constexpr char ServersStatusId[] = "Servers Status Id";  ///< u32, changes with the list of servers
constexpr char DebugLogSession[] = "Debug Log Session";  ///< u32, changes when the log is cleared
constexpr char History[] = "History";  ///< object of deaths, oldest first, named by their numbers
}  // namespace SCA_ServiceFields

/// Fields of a server.
namespace SCA_ServerFields {
constexpr char ServerId[] = "Server Id";        ///< u32
constexpr char FileName[] = "File Name";        ///< text of at most 4095 bytes, the jar
constexpr char Port[] = "Port";                 ///< u32
constexpr char HeapSize[] = "Heap Size";        ///< u32, megabytes
constexpr char JavaOptions[] = "Java Options";  ///< text
constexpr char Status[] = "Status";             ///< u32, process status
constexpr char StatusText[] = "Status Text";    ///< in words: "ready", "starting", "silent", ...
constexpr char Ready[] = "Ready";               ///< u32, switch: it answered when asked last
constexpr char TikaVersion[] = "Tika Version";  ///< text, as it answered; empty before
constexpr char AnswerTime[] = "Answer Time";    ///< u64, ms that its last answer took
constexpr char Silence[] = "Silence";           ///< u64, ms since its last answer, or its start
constexpr char StatusCode[] = "Status Code";    ///< u32, why its last start failed, or 0
constexpr char StatusCodeText[] = "Status Code Text";  ///< the same in words, or empty
constexpr char ProcessId[] = "Process Id";             ///< u32, 0 when none runs
constexpr char Restarts[] = "Restarts";                ///< u32, since the server was started
constexpr char WorkerDeaths[] = "Worker Deaths";       ///< u32, since the server was started
constexpr char StartTime[] = "Start Time";             ///< u64, time; of the running process
constexpr char UpTime[] = "Up Time";                   ///< u64, ms; of the running process
constexpr char MemoryUsage[] = "Memory Usage";         ///< u64, with all its processes
constexpr char ReadIops[] = "Read Operations";         ///< u64
constexpr char WriteIops[] = "Write Operations";       ///< u64
constexpr char ReadData[] = "Read Data";               ///< u64
constexpr char WriteData[] = "Write Data";             ///< u64
constexpr char LogSession[] = "Log Session";           ///< u32, changes when the log is cleared
constexpr char LogLastId[] = "Log Last Id";            ///< u32, 0xFFFFFFFF when the log is empty
constexpr char LogErrors[] = "Log Errors";             ///< u32
constexpr char LastDeath[] = "Last Death";           ///< text, the cause; empty when it never died
constexpr char LastDeathTime[] = "Last Death Time";  ///< u64, time; 0 when it never died
constexpr char Owner[] = "Owner";                    ///< text: "host", or "connection 12"
constexpr char History[] = "History";  ///< as of the service, of servers on this port alone
}  // namespace SCA_ServerFields

/// Fields of a death: how a run of a server's process ended, or one of its worker processes, which
/// answer and parse from Tika 2 on and which the server replaces.
namespace SCA_DeathFields {
constexpr char Number[] = "Number";             ///< u64, counts up over all lives of the host and
                                                ///< is never given twice; some may be left out
constexpr char Time[] = "Time";                 ///< u64, time
constexpr char ServerId[] = "Server Id";        ///< u32, as it was then
constexpr char Port[] = "Port";                 ///< u32
constexpr char FileName[] = "File Name";        ///< text of at most 4095 bytes
constexpr char ProcessId[] = "Process Id";      ///< u32
constexpr char Worker[] = "Worker";             ///< u32, switch: a worker's, whose server ran on
constexpr char Kind[] = "Kind";                 ///< text, one of `SCA_DeathKindTexts`
constexpr char Cause[] = "Cause";               ///< text, a sentence
constexpr char ExitCode[] = "Exit Code";        ///< int; of a process that no signal ended. Missing
                                                ///< where it is not known; a worker's is what the
                                                ///< server has said, from 129 on 128 and a signal
constexpr char Signal[] = "Signal";             ///< u32, or 0; missing where it is not known
constexpr char RunTime[] = "Run Time";          ///< u64, ms
constexpr char Restart[] = "Restart";           ///< u32, how often it had been restarted before
constexpr char MemoryUsage[] = "Memory Usage";  ///< u64, as seen last; 0 when never seen
constexpr char Lines[] = "Lines";  ///< object of what it printed last, oldest first, "0", "1", ...
constexpr char Memory[] = "Memory";  ///< object of u64: its memory use over its last minutes, each
                                     ///< named by how many ms before the end it was, oldest first
}  // namespace SCA_DeathFields

/// Kinds of deaths, for counting and filtering. In the fields and in metrics they are texts.
enum class SCA_DeathKind {
  Stopped,         ///< on request; not remembered
  Silent,          ///< restarted, since it had not answered
  HeapExhausted,   ///< out of Java memory
  PortTaken,       ///< another program has its port
  JarRefused,      ///< java could not run the jar
  OptionsRefused,  ///< java did not take its options
  Killed,          ///< by a signal from elsewhere
  Exited           ///< by itself, for a reason not told here
};

/// Their texts, in the order of the enumerators.
inline constexpr const char* SCA_DeathKindTexts[] = {"stopped",    "silent",      "heap exhausted",
                                                     "port taken", "jar refused", "options refused",
                                                     "killed",     "exited"};

constexpr const char* SCA_DeathKindText(SCA_DeathKind kind) {
  return SCA_DeathKindTexts[static_cast<int>(kind)];
}

#endif  // SCA_CONTROL_SCA_SERVICESTATUSNAMES_H
