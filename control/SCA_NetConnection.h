/// The agent's own side: one connection of a command server. Internal to the library.
#ifndef SCA_CONTROL_SCA_NETCONNECTION_H
#define SCA_CONTROL_SCA_NETCONNECTION_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "control/SCA_NetFrames.h"
#include "control/SCA_NetServerAgent.h"
#include "platform/SCA_Poller.h"

class SCA_ServerLogin;
struct SCA_AcceptedPeer;
struct SCA_ControlKey;
struct SCA_NetGreeting;

/// What a connection needs of its server.
class SCA_CommandGate {
 public:
  virtual ~SCA_CommandGate() = default;

  /// @return The key of this host, or null where no login is asked for.
  virtual const SCA_ControlKey* Key() const = 0;
  virtual SCA_NetGreeting Greeting(const SCA_ControlKey* key) const = 0;
  virtual void NoteRefusal(const SCA_AcceptedPeer& peer, unsigned long error) = 0;
  virtual unsigned long NextAgentId() = 0;
  /// @return What is set when the server stops.
  virtual SCA_Event* StopEvent() const = 0;

  /// @name Calls of the hosting program, which may wait
  /// @{
  virtual void Connected(SCA_NetServerAgent* agent) = 0;
  virtual void Disconnected(SCA_NetServerAgent* agent) = 0;
  /// @return False for a command that failed.
  virtual bool Execute(SCA_NetServerAgent* agent, SCA_NetMessage* request,
                       SCA_NetMessage* reply) = 0;
  /// @}
};

/// What a connection waits for.
enum class SCA_NetNext {
  Input,   ///< bytes of its peer, which `OnInput` takes
  Output,  ///< room for bytes to its peer, which `OnOutput` fills
  Call,    ///< a call of the hosting program: `Call`, and then `AfterCall`
  End      ///< nothing any more
};

/// A state machine of which nothing waits but `Call`. Threads: one at a time.
class SCA_NetConnection final : public SCA_NetServerAgent {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr Clock::time_point kNever = Clock::time_point::max();

  /// Memory that connections share while they have neither input nor output.
  struct Memory {
    std::vector<char> input;
    std::vector<char> output;
  };

  /// @param gate  Outlives the connection.
  /// @param peer  The connection, whose descriptor this takes over.
  /// @param shared  Outlives the connection; no `Call` touches it.
  SCA_NetConnection(SCA_CommandGate* gate, const SCA_AcceptedPeer& peer, Memory* shared);
  ~SCA_NetConnection() override;

  /// @name What has happened; each gives what the connection waits for next
  /// @{
  /// @param refusal  Why it is not to be served, or 0.
  SCA_NetNext Begin(unsigned long refusal);
  SCA_NetNext OnInput();
  /// @param isBroken  The peer will take none.
  SCA_NetNext OnOutput(bool isBroken);
  /// It may not wait any longer: `ETIMEDOUT` for its limit, or `ENOBUFS` for want of memory.
  SCA_NetNext OnLimit(unsigned long code);
  /// Ends it, as it waits for something: at most for a call that has not begun.
  SCA_NetNext Stop() { return End(); }
  SCA_NetNext AfterCall();
  /// @}

  /// Makes the call that is due. May wait; any thread, with nothing else under way.
  void Call();

  int Handle() const { return socket_.Handle(); }
  /// @return False when it has ended, and is to be closed.
  bool IsOpen() const { return !isEnded_; }
  void Close();
  /// @return When it has waited for too long; `kNever` without a limit.
  Clock::time_point Limit() const { return limit_; }
  /// @return Bytes of memory that it has for what it receives and sends.
  std::size_t Held() const { return input_.Capacity() + output_.capacity(); }
  /// @return True while nothing is known of the peer: it has neither logged in nor, without a
  ///         login, sent a request.
  bool IsStranger() const { return !isKnown_; }

  /// The threads are those of the server: there is none to start or to wait for.
  /// @param error  `EBUSY`.
  int Lock(const char* caller, unsigned long* error) override;
  int Unlock(const char* caller) override;
  unsigned long ThreadFunc() override;

 private:
  enum class State { Login, Joining, Serving, Leaving };
  enum class Due { Nothing, Connect, Command, Disconnect };

  SCA_NetNext Challenge();
  SCA_NetNext Judge(const SCA_NetFrame& frame);
  SCA_NetNext Admit();
  SCA_NetNext Proceed();
  SCA_NetNext TakeFrame();
  SCA_NetNext CallFor(Due due);
  SCA_NetNext Fault(unsigned long code);
  SCA_NetNext Refuse(unsigned long code);
  SCA_NetNext Flush();
  SCA_NetNext AwaitRoom(bool hasMoved);
  SCA_NetNext End();

  void CallConnected();
  void CallDisconnected();
  SCA_Result ReadRequest();
  bool Execute();
  void WriteReply();

  SCA_CommandGate& gate_;
  const std::unique_ptr<const SCA_AcceptedPeer> peer_;
  Memory& shared_;
  SCA_PolledSock socket_;
  std::unique_ptr<SCA_ServerLogin> login_;  // until it has passed
  State state_ = State::Login;
  Due due_ = Due::Nothing;
  bool isKnown_ = false;
  bool isEnded_ = false;
  bool hasConnected_ = false;  // it has had its connect event, and not its disconnect event
  Clock::time_point limit_ = kNever;

  SCA_NetFrames frames_;
  SCA_NetInput input_;
  SCA_NetFrame frame_;  // of the request that is to be served
  std::vector<char> output_;
  std::size_t sent_ = 0;           // of the output
  std::uint32_t sequence_ = 0;     // of the last request
  unsigned long callFailure_ = 0;  // why the connection ends after a call
  SCA_NetMessage request_;
  SCA_NetMessage reply_;
};

#endif  // SCA_CONTROL_SCA_NETCONNECTION_H
