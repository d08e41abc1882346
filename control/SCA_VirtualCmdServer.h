/// The command server: a control port and, if wanted, a Unix socket. One thread accepts, and one
/// serves every connection. Threads: one thread builds, opens, stops and destroys it; events and
/// commands come on the server's threads, those of a connection one after the other, those of
/// several connections at the same time when they last.
#ifndef SCA_CONTROL_SCA_VIRTUALCMDSERVER_H
#define SCA_CONTROL_SCA_VIRTUALCMDSERVER_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "control/SCA_ControlKey.h"
#include "control/SCA_NetServerAgent.h"

class SCA_CommandLoop;
class SCA_Listener;
class SCA_LoginGuard;
struct SCA_AcceptedPeer;

/// Connections that a server serves at a time, unless it is told otherwise: half of the descriptors
/// that the process may have open, and at most this many.
constexpr unsigned long SCA_DefaultMaxConnections = 16384;

/// Nothing of a derived class is called before `OpenGate`, which is the last step of the most
/// derived constructor. The most derived class calls `StopAll` in its own destructor, because its
/// threads call it until then.
class SCA_API SCA_VirtualCmdServer : public SCA_ThreadObj {
 public:
  /// Opens nothing yet.
  /// @param version  Sent to clients; cut at 63 bytes.
  /// @param port     0 for a free one.
  /// @param error    Receives `ENOMEM` when the server is not valid.
  SCA_VirtualCmdServer(const char* version, unsigned short port, unsigned long* error);
  ~SCA_VirtualCmdServer() override;

  /// @return The name of this machine, up to 259 bytes.
  const char* GetServerHostName() const { return hostName_; }
  const char* GetServerVersion() const { return version_; }
  /// @return The port: as given, and as bound once the gate is open.
  unsigned short GetPort() const { return port_; }

  /// Before the gate is open only says whether the server is valid; the thread starts with it.
  int Lock(const char* caller, unsigned long* error) override;

  /// Asks for the login mode, fetches the key in mode 1, binds the port (on loopback only in mode
  /// 0) and starts to accept. May succeed once. A failure before that makes the server invalid.
  /// @param error  `EADDRINUSE`, `EACCES` and the like; the key provider's; `EINVAL` for another
  ///               mode or an address that is none; `EALREADY`.
  int OpenGate(unsigned long* error);

  /// Accepts connections over a Unix socket too, without a login: the system tells which account
  /// they come from, and root, the account of this process and the members of the group are
  /// accepted. To be called once the gate is open, and before another thread may stop the server.
  /// The file is removed when the port closes.
  /// @param path   Absolute. A socket of this account that a process has left there is replaced.
  /// @param group  Name or number, of which this account must be a member unless it is root; null
  ///               or empty for none. The file is for its owner only, or for the group too.
  /// @param error  `SCA_ErrorSocketPath`, `SCA_ErrorSocketTaken` when something else lies there,
  ///               `SCA_ErrorNoGroup`; `EADDRINUSE` while a process listens there, `ENOTCONN`
  ///               before the gate is open, `EALREADY`; else the system's.
  int OpenLocal(const char* path, const char* group, unsigned long* error);

  /// Closes the port and ends every connection; one in the middle of a request still replies. No
  /// connection is in an event or a command when it returns; called by one of them it only starts
  /// the stop, and the reply is still sent. @return 1.
  int StopAll();

  /// @param count  Beyond it a new connection replaces the oldest one without a login or a request,
  ///               and is refused when there is none. 0 for the default.
  void SetMaxConnections(unsigned long count);
  /// @return Logins that were refused since the gate was opened, with the connections that were
  ///         turned away at once: an address that has failed 20 times may try once a second.
  unsigned long long GetRefusedLogins() const;
  /// @return The connections that have not ended, with their disconnect event.
  unsigned long GetConnectionCount() const;

  /// Serves one request. It may wait: other connections are served meanwhile, and requests that
  /// wait at the same time, beyond 64, one after the other.
  /// @param reply  Prepared with the name "ERR", which a result of 0 gives it again.
  virtual int DoCommand(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                        SCA_NetMessage* reply) = 0;
  /// A peer may send requests from now on: it is accepted, and logged in where that is required.
  virtual int ConnectEvent(SCA_NetServerAgent* agent) = 0;
  /// A connection that had its connect event has ended.
  virtual int DisconnectEvent(SCA_NetServerAgent* agent) = 0;
  virtual unsigned long GetServerLoginMode() = 0;
  /// Asked once, when the port is opened.
  /// @return A numeric address to listen on it alone, which in mode 0 is one of the loopback
  ///         interface; null or empty for the whole loopback interface or all interfaces.
  virtual const char* GetServerAddress() { return nullptr; }

  /// The accepting thread.
  unsigned long ThreadFunc() override;

 private:
  class Gate;  // what the connections see of this server

  bool IsWhole() const;
  int BindPort(unsigned long* error);
  unsigned long MaxConnections() const;
  void AddConnection(const SCA_AcceptedPeer& peer);

  char version_[64] = "";
  char hostName_[260] = "";
  unsigned short port_;
  const unsigned long long startTime_;
  bool isOpen_ = false;
  std::unique_ptr<SCA_ControlKey> key_;  // null in mode 0
  std::unique_ptr<SCA_Listener> listener_;
  std::unique_ptr<SCA_LoginGuard> guard_;
  std::unique_ptr<Gate> gate_;
  std::unique_ptr<SCA_CommandLoop> loop_;
  SCA_AtomicValue<unsigned long> maxConnections_{0};
  std::atomic<std::uint32_t> nextAgentId_{0};
  SCA_AtomicValue<int> isStopping_{0};
};

#endif  // SCA_CONTROL_SCA_VIRTUALCMDSERVER_H
