/// A service host as tikactl sees it: its connection, and failures in words.
#ifndef SCA_PROGRAMS_TIKACTL_HOST_H
#define SCA_PROGRAMS_TIKACTL_HOST_H

#include <string>

#include "control/SCA_TikaServiceClient.h"
#include "programs/tikactl/Options.h"

using ConfigObject = SCA_Owned<SCA_ConfigObj>;

using Service = SCA_TikaServiceVirtual;
template <class... Args>
using Operation = int (Service::*)(Args...);

/// Why a command ended; thrown. The text does not name the host.
struct Failure {
  Status status = kFailed;
  unsigned long code = 0;  ///< of `SCA_ErrorText`, or 0
  std::string text;
};

/// Makes the keys come from a file instead of the default one.
/// @param file  Empty keeps the default.
/// @return A complaint about the file, or nothing.
std::string UseKeyFile(const std::string& file);

/// Threads: one at a time.
class Host {
 public:
  Host(const HostPort& address, unsigned long timeoutMs);

  /// "host:port", "local" or the path of a socket
  const std::string& Name() const { return name_; }
  /// @return A command line to type: "'tikactl -H name history 2'".
  std::string Hint(const std::string& command) const;
  /// @return True when the host is surely the machine that this program runs on.
  bool IsThisMachine() const;

  /// Connects, or connects again; throws.
  void Connect();
  bool IsConnected() { return client_.GetNetTransport()->Connected() != 0; }
  /// @return When the host opened its port, which tells one life of it from the next.
  unsigned long long StartTime() { return client_.GetNetTransport()->GetServerStartTime(); }

  /// Makes one call; throws when it fails.
  /// @param what       What is asked, to follow "refused to ": "suspend".
  /// @param arguments  Of the operation.
  template <class... Args, class... Given>
  void Ask(const std::string& what, Operation<Args...> operation, Given... arguments) {
    if ((client_.*operation)(arguments...) == 0) throw Explain(what);
  }
  /// The same about one server, which there may not be and whose id is the first argument.
  template <class... Args, class... Given>
  void AskServer(const std::string& what, Operation<Args...> operation, unsigned long serverId,
                 Given... arguments) {
    if ((client_.*operation)(serverId, arguments...) == 0) throw ExplainServer(serverId, what);
  }
  /// The object that an operation hands out last.
  template <class... Args, class... Given>
  ConfigObject Get(const std::string& what, Operation<Args...> operation, Given... arguments) {
    SCA_ConfigObj* object = nullptr;
    Ask(what, operation, arguments..., &object);
    return ConfigObject(object);
  }
  template <class... Args, class... Given>
  ConfigObject GetOfServer(const std::string& what, Operation<Args...> operation,
                           unsigned long serverId, Given... arguments) {
    SCA_ConfigObj* object = nullptr;
    AskServer(what, operation, serverId, arguments..., &object);
    return ConfigObject(object);
  }

  /// @name Objects that the host gives; each throws
  /// @{
  void GetStatus(ConfigObject* service, ConfigObject* servers);
  ConfigObject GetServiceStatus();
  ConfigObject GetServerStatus(unsigned long serverId);
  /// @}

 private:
  Failure Explain(const std::string& what);
  Failure ExplainServer(unsigned long serverId, const std::string& what);
  Failure ExplainConnect(unsigned long code) const;

  void ConnectLocally();

  const HostPort address_;
  std::string socket_;  ///< that answered first: another host of this machine is another host
  const std::string name_;
  const unsigned long timeoutMs_;
  SCA_TikaServiceClient client_;
};

#endif  // SCA_PROGRAMS_TIKACTL_HOST_H
