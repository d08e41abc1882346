/// A service host as tikactl sees it: its connection, and failures in words.
#ifndef SCA_PROGRAMS_TIKACTL_HOST_H
#define SCA_PROGRAMS_TIKACTL_HOST_H

#include <string>

#include "control/SCA_TikaServiceClient.h"
#include "programs/tikactl/Options.h"

using ConfigObject = SCA_Owned<SCA_ConfigObj>;

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
  /// @param operation  Calls the client and gives the call's result.
  template <class Operation>
  void Ask(const std::string& what, Operation operation) {
    if (operation(client_) == 0) throw Explain(what);
  }
  /// The same about one server, which there may not be.
  template <class Operation>
  void AskServer(unsigned long serverId, const std::string& what, Operation operation) {
    if (operation(client_) == 0) throw ExplainServer(serverId, what);
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
