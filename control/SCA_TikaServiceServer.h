/// The control port of a service host.
#ifndef SCA_CONTROL_SCA_TIKASERVICESERVER_H
#define SCA_CONTROL_SCA_TIKASERVICESERVER_H

#include "control/SCA_NetServer.h"
#include "control/SCA_TikaServiceVirtual.h"

template <class... Args>
struct SCA_ServiceCommand;

/// Answers the commands of the control protocol by the service objects of a factory.
/// docs/control-protocol.md lists the commands with their fields.
/// Threads: as `SCA_VirtualCmdServer`.
class SCA_API SCA_TikaServiceServer final : public SCA_NetServer<SCA_TikaServiceServer> {
 public:
  /// Registers the commands and opens the port.
  /// @param factory  Not owned; outlives the server.
  /// @param port     0 for a free one, which `GetPort` tells.
  /// @param error    Why the server is not valid, as `OpenGate` has it.
  SCA_TikaServiceServer(SCA_TikaServiceVirtualFactory* factory, unsigned short port,
                        unsigned long* error);
  ~SCA_TikaServiceServer() override;  ///< Ends every connection.

  int ConnectEvent(SCA_NetServerAgent* agent) override;
  int DisconnectEvent(SCA_NetServerAgent* agent) override;
  unsigned long GetLoginMode();

  /// @name Handlers, one for each command
  /// They read the fields of the request, call the operation of the connection's service object and
  /// put its results into the reply. A field that is missing, or a text that is longer than 259
  /// bytes, makes them fail before the object is asked for.
  /// @{
  int GetVersionInfo(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int GetDebugLog(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int ClearDebugLog(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int GetStatus(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int GetStatusObj(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int GetServerInfo(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int GetServiceStatus(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int GetServiceStatusEx(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int StopServer(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int Suspend(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int GetServerList(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int GetServer(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int GetServerStatusEx(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int SaveTikaLog(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int GetServerLog(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int ClearServerLog(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int AddServer(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int StartServer(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int DeleteServer(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  int DeleteAllServers(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  /// @}

 private:
  template <class... Args>
  void Register(const SCA_ServiceCommand<Args...>& command, Handler handler);
  template <class... Args>
  int Serve(const SCA_ServiceCommand<Args...>& command, const SCA_NetServerAgent& agent,
            const SCA_NetMessage& request, SCA_NetMessage* reply);

  SCA_TikaServiceVirtualFactory* factory_;
};

#endif  // SCA_CONTROL_SCA_TIKASERVICESERVER_H
