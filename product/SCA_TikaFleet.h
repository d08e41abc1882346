/// Follows service hosts over their control ports, and keeps a dispatcher supplied with their Tika
/// servers.
#ifndef SCA_PRODUCT_SCA_TIKAFLEET_H
#define SCA_PRODUCT_SCA_TIKAFLEET_H

#include <memory>

#include "product/SCA_TikaDispatcher.h"
#include "settings/SCA_TikaService.h"

/// How far a service host can be used.
enum class SCA_TikaHostState {
  Connecting,   ///< no attempt to connect has ended yet
  Connected,    ///< its servers are not known yet
  Following,    ///< connected, with a current list of its servers
  Refusing,     ///< connected, but the host does not give its list of servers
  Lost,         ///< the connection broke; the next attempt follows
  Unreachable,  ///< the last attempt to connect failed; the next one follows
  Duplicate,    ///< another service of the fleet leads to the same host; the next attempt follows
  Left          ///< the fleet has left it
};

/// How far a server of a service host can be used.
enum class SCA_TikaServerState {
  Wanted,    ///< the host has not been asked for it yet
  Starting,  ///< it runs and has not answered yet
  Ready,     ///< it has answered; the dispatcher has it
  Silent,    ///< it did not answer in time; it may still do so
  Failed,    ///< it could not be added or started, or did not come up; the next attempt follows
  Stopped,   ///< it is stopped on the host
  InError,   ///< the host could not start it
  Deleted    ///< it was deleted on the host
};

/// @return True while a server that cannot be used yet may become ready soon.
inline bool SCA_IsComingUp(SCA_TikaServerState state) {
  return state == SCA_TikaServerState::Wanted || state == SCA_TikaServerState::Starting;
}

/// @return True for a server that is of no use until something is done about it: the dispatcher
///         does not have it.
inline bool SCA_IsGone(SCA_TikaServerState state) {
  return state == SCA_TikaServerState::Failed || state == SCA_TikaServerState::Stopped ||
         state == SCA_TikaServerState::InError || state == SCA_TikaServerState::Deleted;
}

/// News of a service host. Texts are valid during the call.
struct SCA_TikaHostNews {
  unsigned long serviceId;
  SCA_TikaHostState state;
  /// 0, or what went wrong: the code of `SCA_ErrorText` where there is one, else `EPROTO`.
  unsigned long code;
  /// One line in English, such as "no connection: Connection refused"; empty when the state says
  /// all.
  const char* text;
};

/// News of a server. Texts are valid during the call.
struct SCA_TikaServerNews {
  unsigned long serviceId;
  unsigned short port;
  SCA_TikaServerState state;
  /// 0, or why the dispatcher cannot take a server that is ready.
  unsigned long code;
  /// One line in English, which goes with "the server on port 9998", such as "is stopped there";
  /// empty when the state says all.
  const char* text;
};

/// Receives the events of a fleet. Calls come on the threads of the fleet: one at a time for each
/// service, those of several services at the same time, under no lock of the library. They must not
/// throw, and must not call `Follow` or `Leave` of the fleet.
class SCA_API SCA_TikaFleetObserver : public SCA_Object {
 public:
  SCA_TikaFleetObserver() { SetValid(1); }

  /// The state of a host has changed, the reason for its state has, or there is something else to
  /// know about it. When a connection ends, all servers of the host are forgotten without a call of
  /// `OnServer`.
  virtual void OnHost(const SCA_TikaHostNews& news);
  /// The state of a server has changed, or the reason for it. A port that was not named before is a
  /// new server.
  virtual void OnServer(const SCA_TikaServerNews& news);
  /// All servers of a host have been looked at, about once a second: what was told is complete.
  virtual void OnLooked(unsigned long serviceId);
  /// @return How many clients the dispatcher is to have for a server that is ready now. 1 by
  ///         default; 0 keeps the server from the dispatcher.
  virtual unsigned long ClientsFor(unsigned long serviceId, unsigned short port);
};

/// Each service is followed on a thread of its own, which
/// - connects to the host's control port, as often as needed, with a delay between 0.2 and 10 s;
/// - has the servers added and started that the service's record wants. A record that wants 0
///   servers takes those that the host has;
/// - asks each server for its version until it answers, and gives it to the dispatcher then;
/// - looks at the host's list of servers once a second, and takes those out of the dispatcher that
///   are stopped or deleted there. What was stopped or deleted there stays so. A server that could
///   not be started is tried again, with a delay between 2 and 60 s.
/// A server that restarts, and the servers of a host that cannot be reached, stay in the
/// dispatcher: they may come back, and the dispatcher does not use a server before it answers.
///
/// A host deletes the servers that a connection has added when that connection takes its leave, and
/// no other connection has asked for them since. So each follower keeps one connection for as long
/// as it holds; what it added over one that was lost stays on the host.
///
/// Threads: `Follow` and `Leave` are called by one thread at a time; the other operations by any.
class SCA_API SCA_TikaFleet : public SCA_Object {
 public:
  /// Installs `Prepare` in the dispatcher, which must have no servers yet.
  /// @param dispatcher  Not owned; must outlive the fleet.
  /// @param observer    Not owned; must outlive the fleet. May be null.
  SCA_TikaFleet(SCA_TikaDispatcher* dispatcher, SCA_TikaFleetObserver* observer);
  ~SCA_TikaFleet() override;  ///< Leaves.
  SCA_TikaFleet(const SCA_TikaFleet&) = delete;
  SCA_TikaFleet& operator=(const SCA_TikaFleet&) = delete;

  /// Begins to follow a service. Its servers are reached at the record's host name; at 127.0.0.1
  /// when that is the path of a control socket.
  /// @param service      Copied: host name and control port; number of servers wanted, with the
  ///                     first one's port, their jar on the host and heap. Its id is one that the
  ///                     settings of the dispatcher have, and that the fleet does not follow yet.
  /// @param javaOptions  Of the servers wanted; copied.
  /// @param error        `SCA_ErrorInvalidData` for a service that is followed already,
  ///                     `SCA_ErrorStopping` after `Leave`, `ENOMEM`, `EAGAIN` without a thread.
  int Follow(SCA_TikaService* service, const char* javaOptions, unsigned long* error);

  /// Waits until a server is ready.
  /// @param timeoutMs  `SCA_Infinite` waits as long as one may become ready soon.
  /// @param cancel     Ends the wait within 100 ms; not owned, may be null.
  /// @return 1; 0 after the time-out, once cancelled, and when every host has been tried and no
  ///         server is starting.
  int WaitForServer(unsigned long timeoutMs, SCA_Event* cancel);

  /// @return 1 when a server is ready, else 0.
  int IsReady(unsigned long serviceId, unsigned short port) const;
  /// @return How many servers are ready or starting. A service whose servers are not known yet
  ///         counts for as many as it wants, and for one at least.
  unsigned long GetExpectedServers() const;

  /// The preparation of the dispatcher's servers: a server of a service that is followed must
  /// answer, and must be ready, or have been when the connection to its host was lost. One that
  /// restarts takes documents before it can serve them.
  /// @param fleet  The fleet. @return As in `SCA_TikaPrepareServer`.
  static int Prepare(SCA_TikaClient* client, SCA_Event* stop, void* fleet, unsigned long* error);

  /// Stops the dispatcher, gives back at all hosts at the same time what was added there, and ends
  /// the threads. Takes a few seconds at most. Called again, it does nothing.
  void Leave();

 private:
  class Crew;

  SCA_TikaDispatcher* const dispatcher_;
  std::unique_ptr<Crew> crew_;
};

#endif  // SCA_PRODUCT_SCA_TIKAFLEET_H
