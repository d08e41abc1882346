/// The agent's own side: what serves a connection of a command server. Internal to the library.
#ifndef SCA_CONTROL_SCA_NETCONNECTION_H
#define SCA_CONTROL_SCA_NETCONNECTION_H

#include <cstdint>
#include <memory>

#include "control/SCA_NetServerAgent.h"
#include "platform/SCA_Lock.h"
#include "platform/SCA_TcpSock.h"

class SCA_NetChannel;
struct SCA_AcceptedPeer;
struct SCA_ControlKey;
struct SCA_NetGreeting;

/// What a connection needs of its server, on the connection's thread.
class SCA_CommandGate {
 public:
  virtual ~SCA_CommandGate() = default;

  /// @return The key of this host, or null where no login is asked for.
  virtual const SCA_ControlKey* Key() const = 0;
  virtual SCA_NetGreeting Greeting(const SCA_ControlKey* key) const = 0;
  virtual void NoteRefusal(const SCA_AcceptedPeer& peer, unsigned long error) = 0;
  virtual unsigned long NextAgentId() = 0;
  /// The last call of a connection's thread.
  virtual void NoteEnd() = 0;

  virtual void Connected(SCA_NetServerAgent* agent) = 0;
  virtual void Disconnected(SCA_NetServerAgent* agent) = 0;
  /// @return False for a command that failed.
  virtual bool Execute(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                       SCA_NetMessage* reply) = 0;
};

/// Threads: its own thread serves it; any thread may stop it and ask how it is.
class SCA_NetConnection final : public SCA_NetServerAgent {
 public:
  /// @param gate  Outlives the connection.
  /// @param peer  The connection, whose descriptor this takes over.
  SCA_NetConnection(SCA_CommandGate* gate, const SCA_AcceptedPeer& peer);
  ~SCA_NetConnection() override;

  /// @return True on the thread of one of the gate's connections.
  static bool IsCaller(const SCA_CommandGate* gate);

  /// Lets the thread end after the request that it is serving, or at once.
  void Stop() SCA_EXCLUDES(socketLock_);
  /// Says why the connection is not served. Before its thread is started.
  void Refuse(unsigned long error);
  bool HasEnded() const { return hasEnded_.Get() != 0; }
  /// @return True while nothing is known of the peer: it has neither logged in nor, without a
  ///         login, sent a request, and has not been stopped.
  bool IsStranger() const { return isKnown_.Get() == 0 && isStopping_.Get() == 0; }

  /// Logs in, then serves requests until the connection ends.
  unsigned long ThreadFunc() override;

 private:
  void Serve();
  bool AcceptPeer();
  bool CallCommand();
  bool ServeRequest();
  bool AnswerRequest();
  bool Reply();
  // Marks a request as being served: its reply is sent even if the agent is stopped meanwhile.
  // @return False when it is stopping already.
  bool BeginServing() SCA_EXCLUDES(socketLock_);
  void EndServing() SCA_EXCLUDES(socketLock_);

  SCA_CommandGate& gate_;
  const std::unique_ptr<const SCA_AcceptedPeer> peer_;
  SCA_AtomicValue<int> isKnown_{0};
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

#endif  // SCA_CONTROL_SCA_NETCONNECTION_H
