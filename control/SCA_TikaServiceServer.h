/// The control port of a service host.
#ifndef SCA_CONTROL_SCA_TIKASERVICESERVER_H
#define SCA_CONTROL_SCA_TIKASERVICESERVER_H

#include "control/SCA_NetServer.h"
#include "control/SCA_ServiceCommands.h"

/// Answers the commands of the control protocol by the service objects of a factory.
/// docs/control-protocol.md lists the commands with their fields.
/// Threads: as `SCA_VirtualCmdServer`.
class SCA_API SCA_TikaServiceServer final : public SCA_NetServer<SCA_TikaServiceServer> {
 public:
  /// Registers the commands and opens the port.
  /// @param factory  Not owned; outlives the server.
  /// @param port     0 for a free one, which `GetPort` tells.
  /// @param error    Why the server is not valid, as in `OpenGate`.
  SCA_TikaServiceServer(SCA_TikaServiceVirtualFactory* factory, unsigned short port,
                        unsigned long* error);
  ~SCA_TikaServiceServer() override;  ///< Ends every connection.

  int ConnectEvent(SCA_NetServerAgent* agent) override;
  int DisconnectEvent(SCA_NetServerAgent* agent) override;
  unsigned long GetLoginMode();
  const char* GetServerAddress() override;

  /// @name Handlers, one for each command
  /// They read the fields of the request, call the operation of the connection's service object and
  /// put its results into the reply. A field that is missing, or a text that is longer than 259
  /// bytes, makes them fail before the object is asked for.
  /// @{
#define SCA_DECLARE_HANDLER(name, parameters, arguments, fields) \
  int name(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply);
  SCA_SERVICE_COMMANDS(SCA_DECLARE_HANDLER)
#undef SCA_DECLARE_HANDLER
  /// @}

 private:
  SCA_TikaServiceVirtualFactory* factory_;
};

#endif  // SCA_CONTROL_SCA_TIKASERVICESERVER_H
