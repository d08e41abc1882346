/// One connection of a command server, on a thread of its own.
/// Threads: its own thread serves it; any thread may ask for its id and its flag.
#ifndef SCA_CONTROL_SCA_NETSERVERAGENT_H
#define SCA_CONTROL_SCA_NETSERVERAGENT_H

#include <cstdint>
#include <memory>

#include "control/SCA_NetMessage.h"
#include "platform/SCA_Lock.h"
#include "platform/SCA_TcpSock.h"
#include "platform/SCA_ThreadObj.h"

class SCA_NetChannel;
class SCA_VirtualCmdServer;
struct SCA_AcceptedPeer;

/// Made by the server for each accepted connection; handlers and events get it as the key of the
/// connection.
class SCA_API SCA_NetServerAgent : public SCA_ThreadObj {
 public:
  /// @param server  Outlives the agent.
  /// @param peer    The connection, whose descriptor the agent takes over.
  SCA_NetServerAgent(SCA_VirtualCmdServer* server, const SCA_AcceptedPeer& peer);
  ~SCA_NetServerAgent() override;

  /// The number of the connection, given before the connect event and not given again while the
  /// server lives.
  unsigned long GetId() const { return id_.Get(); }
  /// @return 1.
  int SetId(unsigned long id);
  /// @return 1 when the peer has passed a login, or has come over the Unix socket, where the system
  ///         vouches for its account; 0 for TCP in mode 0, which asks for none.
  int IsAuthenticated() const { return isAuthenticated_.Get(); }
  /// @return 1 for the transport's own kinds of frames, 2 to 11.
  int IsInternalCommand(unsigned long code) const { return code >= 2 && code <= 11 ? 1 : 0; }

  /// The connection's thread: logs in, then serves requests until the connection ends.
  unsigned long ThreadFunc() override;

 private:
  friend class SCA_VirtualCmdServer;

  void Serve();
  bool AcceptPeer();
  bool CallCommand();
  bool ServeRequest();
  bool AnswerRequest();
  bool Reply();
  // Says that a request is being served, whose reply goes out whoever stops the agent meanwhile.
  // @return False when it is stopping already.
  bool BeginServing() SCA_EXCLUDES(socketLock_);
  void EndServing() SCA_EXCLUDES(socketLock_);
  // Lets the thread end after the request that it is serving, or at once.
  void Stop();
  bool HasEnded() const { return hasEnded_.Get() != 0; }
  // The agent on whose thread the caller runs, or null.
  static const SCA_NetServerAgent* Current();

  SCA_VirtualCmdServer& server_;
  const std::unique_ptr<const SCA_AcceptedPeer> peer_;
  SCA_AtomicValue<std::uint32_t> id_{0xFFFFFFFF};
  SCA_AtomicValue<int> isAuthenticated_{0};
  SCA_AtomicValue<int> isKnown_{0};  // logged in, or without a login has sent a request
  SCA_AtomicValue<int> isStopping_{0};
  SCA_AtomicValue<int> hasEnded_{0};

  SCA_Lock socketLock_;  // held to stop the socket, and to end it; the thread itself needs none
  bool isServing_ SCA_GUARDED_BY(socketLock_) = false;
  SCA_Owned<SCA_VirtualTcpSock> socket_;
  std::unique_ptr<SCA_NetChannel> channel_;
  std::uint32_t sequence_ = 0;  // of the last request
  SCA_NetMessage request_;
  SCA_NetMessage reply_;
};

#endif  // SCA_CONTROL_SCA_NETSERVERAGENT_H
