/// One run of tikactl: several hosts asked in parallel and shown one after another.
#ifndef SCA_PROGRAMS_TIKACTL_SESSION_H
#define SCA_PROGRAMS_TIKACTL_SESSION_H

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/SCA_Sync.h"
#include "programs/common/Event.h"
#include "programs/common/Signals.h"
#include "programs/tikactl/Host.h"
#include "programs/tikactl/Options.h"
#include "programs/tikactl/Table.h"

/// Collects what is to be said of one host until its turn comes, or says it at once.
/// Threads: one at a time; several outputs may be live at once.
class Output {
 public:
  /// @param prefix  Of each line of a live one, to tell hosts apart.
  Output(std::string prefix, bool isLive) : prefix_(std::move(prefix)), isLive_(isLive) {}

  /// A line to standard output, without its end.
  void Print(const std::string& line) { Put(false, line); }
  void Print(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) Print(line);
  }
  /// A line to standard error, after "tikactl: ".
  void Complain(const std::string& line) { Put(true, line); }

  bool IsEmpty() const { return lines_.empty(); }
  /// Says what has been collected.
  void Flush();

 private:
  void Put(bool isError, const std::string& line);

  const std::string prefix_;
  const bool isLive_;
  std::vector<std::pair<bool, std::string>> lines_;
};

/// @return False once standard output could not be written.
bool IsOutputGood();

/// A thread that says when it has finished.
class Task {
 public:
  explicit Task(std::function<void()> work);
  ~Task() { thread_.join(); }
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;

  /// @return True when it has finished.
  bool Wait(unsigned long timeoutMs) { return done_.Wait(timeoutMs) != 0; }

 private:
  ProgramEvent done_{1, 0};
  std::thread thread_;
};

/// A command under way with one host.
struct Call {
  Call(const Options& theOptions, SCA_Event& theCancel, std::size_t theIndex, bool isLive);

  /// Says a failure, of a server where its id is given, on standard error; the command may go on.
  void Fail(const Failure& failure, std::optional<unsigned long> serverId = std::nullopt);
  /// Says what was done, to a server where its id is given.
  void Succeed(const std::string& done, std::optional<unsigned long> serverId = std::nullopt);
  /// With --json: prints the one record of all that was done or failed.
  void PrintResults();
  /// @return A record that begins with the host's name.
  nlohmann::ordered_json Record() const;
  void Print(const nlohmann::ordered_json& record);
  /// Something to know that is no failure.
  void Note(const std::string& text) { output.Complain(host.Name() + ": " + text); }
  /// Waits; throws when the run is interrupted.
  void Sleep(unsigned long ms);

  const Options& options;
  SCA_Event& cancel;
  const std::size_t index;  ///< of the host
  Host host;
  Output output;
  Status status = kDone;  ///< the worst so far

 private:
  void AddResult(nlohmann::ordered_json result, std::optional<unsigned long> serverId);

  nlohmann::ordered_json results_ = nlohmann::ordered_json::array();
};

class Session {
 public:
  Session(const Options& options, SCA_Event* cancel, const Signals& signals)
      : options_(options), cancel_(*cancel), signals_(signals) {}

  const Options& GetOptions() const { return options_; }
  SCA_Event& Cancel() { return cancel_; }

  /// Does something with each host, connected, at the same time.
  /// @param isLive  Says everything at once instead of in the hosts' order.
  /// @return The worst status.
  Status OnEachHost(const std::function<void(Call&)>& work, bool isLive);
  /// Ends the program without waiting for calls that nothing can interrupt.
  [[noreturn]] void Leave(Status status) const;

 private:
  bool WaitFor(Task* task);
  void Show(Call* call, bool* isFirst) const;

  const Options& options_;
  SCA_Event& cancel_;
  const Signals& signals_;
};

#endif  // SCA_PROGRAMS_TIKACTL_SESSION_H
