/// A Tika server of this run's own, on a free port of the loopback interface.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_PRIVATESERVER_H
#define SCA_PROGRAMS_TIKAEXTRACT_PRIVATESERVER_H

#include <deque>
#include <string>
#include <thread>

#include "client/SCA_TikaClient.h"
#include "platform/SCA_Lock.h"
#include "platform/SCA_Sync.h"
#include "programs/tikaextract/Options.h"

/// Starts the server, waits until it answers, reads what it prints and stops it with all its
/// processes, whatever ends the run.
/// Threads: used by one thread; a thread of its own starts and watches the process.
class PrivateServer {
 public:
  /// @param cancel  Ends the waits; not owned.
  PrivateServer(const Options& options, SCA_Event* cancel);
  ~PrivateServer();
  PrivateServer(const PrivateServer&) = delete;
  PrivateServer& operator=(const PrivateServer&) = delete;

  /// Makes sure that a server answers: starts one when none runs, waits for one that is coming up.
  /// @param complaint  Receives what went wrong, with the last lines that the server printed; empty
  ///                   when the cancel event ended the wait.
  /// @return false when there is no server.
  bool EnsureReady(std::string* complaint);

  unsigned short Port() const { return port_; }

 private:
  enum class State { Starting, Running, Ended };

  bool Launch(std::string* complaint);
  void StopThread();
  void Watch(const std::string& command, const std::string& javaOptions);
  void AddLine(const char* line) SCA_EXCLUDES(lock_);
  void SetState(State state, const std::string& cause) SCA_EXCLUDES(lock_);
  State GetState() SCA_EXCLUDES(lock_);
  std::string Describe(const std::string& what) SCA_EXCLUDES(lock_);
  bool Answers();

  const Options& options_;
  SCA_Event* const cancel_;
  unsigned short port_ = 0;
  SCA_Event stop_{1, 0};
  std::thread thread_;

  SCA_Lock lock_;
  State state_ SCA_GUARDED_BY(lock_) = State::Ended;
  std::string cause_ SCA_GUARDED_BY(lock_);  // why it ended
  std::deque<std::string> lines_ SCA_GUARDED_BY(lock_);
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_PRIVATESERVER_H
