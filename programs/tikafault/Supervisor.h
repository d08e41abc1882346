/// Servers in processes of their own, which come back when they die.
#ifndef SCA_PROGRAMS_TIKAFAULT_SUPERVISOR_H
#define SCA_PROGRAMS_TIKAFAULT_SUPERVISOR_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "faultlab/ServerConnection.h"

/// Made and run while the process has one thread.
class Supervisor {
 public:
  struct Plan {
    std::string address;
    unsigned short port;  ///< of the first server; 0: free ones
    unsigned servers;
    bool restart;
    std::chrono::milliseconds down;  ///< before a server is started again
    bool verbose;
    /// Runs one server in its process, which ends with it; calls `ready` once it listens.
    std::function<void(unsigned short port, const std::function<void()>& ready)> serve;
  };

  explicit Supervisor(Plan plan) : plan_(std::move(plan)) {}

  /// Runs until SIGTERM or SIGINT, or until the last server has ended for good.
  /// @return True after a signal. Throws std::system_error when the servers cannot be started.
  bool Run();

 private:
  using Clock = std::chrono::steady_clock;

  struct Server {
    std::unique_ptr<Listener> port;  // bound and never listening: nobody else gets the port
    pid_t pid = 0;
    Clock::time_point dueAt;  // of its next start, while it has no process
  };

  void Start(Server* server);
  void Reap();
  void StartDue();
  bool IsOver() const;
  std::string NameOf(const Server& server) const;
  void Say(const Server& server, const std::string& what) const;

  const Plan plan_;
  std::vector<Server> servers_;
};

#endif  // SCA_PROGRAMS_TIKAFAULT_SUPERVISOR_H
