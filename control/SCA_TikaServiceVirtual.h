/// The operations of a service host, which its control port offers and the control client calls.
#ifndef SCA_CONTROL_SCA_TIKASERVICEVIRTUAL_H
#define SCA_CONTROL_SCA_TIKASERVICEVIRTUAL_H

#include "foundation/SCA_ConfigObj.h"

class SCA_NetServerAgent;

/// Capacity in bytes of the texts that operations take and give.
constexpr unsigned long SCA_ServiceTextSize = 260;

/// All results are 1 for success and 0 for failure. Text buffers that are filled hold
/// `SCA_ServiceTextSize` bytes. An object that is handed out is new, never null on success, and
/// belongs to the caller, who ends it by `Destroy()`.
/// Threads: the host's objects are called on the threads of its connections, and guard what they
/// share; a client is used by one thread at a time.
class SCA_API SCA_TikaServiceVirtual : public SCA_Object {
 public:
  /// Reserved; nothing calls it. @return 0. @note Inherited.
  virtual int Reserved() { return 0; }

  virtual int GetVersionInfo(char* versionInfo) = 0;
  /// @param lastMessageId,count  Which messages, as `SCA_TikaLog::Serialize` takes them.
  /// @param debugLog             A message log.
  virtual int GetDebugLog(unsigned long lastMessageId, unsigned long count,
                          SCA_ConfigObj** debugLog) = 0;
  virtual int ClearDebugLog() = 0;
  virtual int GetStatus(unsigned long* status) = 0;
  virtual int GetStatusObj(SCA_ConfigObj** status) = 0;
  /// Of the service host. @note Inherited.
  virtual int GetServerInfo(char* serverVersion, char* serverHostName) = 0;
  /// @param memoryUsage  Bytes.
  /// @param upTime       Milliseconds.
  virtual int GetServiceStatus(unsigned long* serviceStatus, unsigned long* errorServers,
                               unsigned long* activeServers, unsigned long long* memoryUsage,
                               unsigned long long* upTime, SCA_ConfigObj** serversStatus) = 0;
  virtual int GetServiceStatusEx(SCA_ConfigObj** serviceStatus, SCA_ConfigObj** serversStatus) = 0;
  /// Stops the service host. @note Inherited.
  virtual int StopServer() = 0;
  virtual int Suspend() = 0;
  /// @param serverList  A server list.
  virtual int GetServerList(SCA_ConfigObj** serverList) = 0;
  /// @param server  One server.
  virtual int GetServer(unsigned long serverId, SCA_ConfigObj** server) = 0;
  virtual int GetServerStatusEx(unsigned long serverId, SCA_ConfigObj** status) = 0;
  virtual int SaveTikaLog(unsigned long status, const char* logDir, unsigned long* statusCode) = 0;
  virtual int GetServerLog(unsigned long serverId, unsigned long lastMessageId, unsigned long count,
                           SCA_ConfigObj** log) = 0;
  virtual int ClearServerLog(unsigned long serverId) = 0;
  /// @param heapSize      Megabytes.
  /// @param serverStatus  A process status.
  /// @param statusCode    Why a server could not be added, 0 when it was.
  virtual int AddServer(const char* fileName, unsigned short portNumber, unsigned long heapSize,
                        const char* javaOptions, unsigned long* serverId,
                        unsigned long* serverStatus, unsigned long* statusCode) = 0;
  virtual int StartServer(unsigned long serverId, unsigned long* serverStatus,
                          unsigned long* statusCode) = 0;
  virtual int DeleteServer(unsigned long serverId) = 0;
  virtual int DeleteAllServers() = 0;
};

/// Gives each connection of the control port its service object. Implemented by the hosting
/// program. Threads: called on the threads of the connections, several at a time.
class SCA_API SCA_TikaServiceVirtualFactory : public SCA_Object {
 public:
  /// A connection may send commands from now on. The result is not looked at.
  virtual int OnConnect(SCA_NetServerAgent* agent) = 0;
  /// @return The object that serves the connection, not null between its two events; not owned by
  ///         the caller.
  virtual SCA_TikaServiceVirtual* GetServiceObject(unsigned long agentId) = 0;
  /// A connection has ended. The result is not looked at.
  virtual int OnDisconnect(unsigned long agentId) = 0;
  /// @return 0: no login, and a port on loopback only; 1: login with the control key. Asked once,
  ///         when the port is opened.
  virtual unsigned long GetLoginMode() = 0;
  /// @return A numeric address on which alone the port is opened, of the loopback interface in mode
  ///         0; null or empty for all that the mode allows. Asked once, and valid until then.
  virtual const char* GetAddress() { return nullptr; }
};

#endif  // SCA_CONTROL_SCA_TIKASERVICEVIRTUAL_H
