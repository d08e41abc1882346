/// The command server that hands each command to a member function of its owner.
#ifndef SCA_CONTROL_SCA_NETSERVER_H
#define SCA_CONTROL_SCA_NETSERVER_H

#include "control/SCA_NameHashTable.h"
#include "control/SCA_VirtualCmdServer.h"
#include "platform/SCA_Report.h"

/// @tparam T  The owner's class: has `ConnectEvent`, `DisconnectEvent`, `GetLoginMode()` and the
///            handlers. It may derive from this server and own itself; then its constructor
///            registers the commands and ends with `OpenGate`, and its destructor begins with
///            `StopAll`.
/// Threads: as `SCA_VirtualCmdServer`. Handlers of different connections run at the same time; the
/// table does not change once the gate is open.
template <class T>
class SCA_NetServer : public SCA_VirtualCmdServer {
 public:
  /// Serves one command: reads the request, fills the reply and names it "OK".
  /// @return 1, or 0 for a failure: the reply goes out named "ERR".
  using Handler = int (T::*)(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                             SCA_NetMessage* reply);

  /// @param owner  Not owned; outlives the server, or is it.
  SCA_NetServer(T* owner, const char* version, unsigned short port, unsigned long* error)
      : SCA_VirtualCmdServer(version, port, error), owner_(owner) {
    if (IsValid() == 0) return;
    SetValid(0);
    SetValid(SCA_VirtualCmdServer::Lock("SCA_NetServer", error));
  }
  ~SCA_NetServer() override { StopAll(); }

  /// Adds a command, before the gate is opened. An existing name keeps its handler.
  /// @param name  Copied; null registers nothing.
  /// @return 0, with a report, for a null handler; else 1.
  int RegisterCommand(const char* name, Handler handler) {
    if (handler == nullptr) {
      SCA_GetReportFunction("SCA_NetServer", __LINE__)(SCA_LevelError,
                                                       "Invalid callback function !!!");
      return 0;
    }
    if (name != nullptr) commands_.Add(name, handler);
    return 1;
  }

  int DoCommand(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                SCA_NetMessage* reply) override {
    Handler handler = nullptr;
    if (commands_.Find(request->GetCommandName(), &handler) != 0) {
      return (owner_->*handler)(agent, request, reply);
    }
    SCA_GetReportFunction("SCA_NetServer", __LINE__)(SCA_LevelError, "Invalid command - %s",
                                                     request->GetCommandName());
    return 0;
  }

  int ConnectEvent(SCA_NetServerAgent* agent) override { return owner_->ConnectEvent(agent); }
  int DisconnectEvent(SCA_NetServerAgent* agent) override { return owner_->DisconnectEvent(agent); }
  unsigned long GetServerLoginMode() override { return owner_->GetLoginMode(); }

  const SCA_NameHashTable<Handler>& GetCommands() const { return commands_; }

 private:
  T* owner_;
  SCA_NameHashTable<Handler> commands_;
};

#endif  // SCA_CONTROL_SCA_NETSERVER_H
