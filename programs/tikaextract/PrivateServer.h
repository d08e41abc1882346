/// A Tika server of this run's own, on a free port of the loopback interface.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_PRIVATESERVER_H
#define SCA_PROGRAMS_TIKAEXTRACT_PRIVATESERVER_H

#include <string>
#include <thread>

#include "programs/common/Event.h"
#include "programs/tikaextract/ClassArchive.h"
#include "programs/tikaextract/Options.h"
#include "supervision/SCA_TikaWatch.h"

/// Starts the server, waits until it answers, starts it again when it dies, and stops it with all
/// its processes, whatever ends the run.
/// Threads: used by one thread. The watch calls the observer's operations; with `--verbose` a
/// thread of its own prints what the server says.
class PrivateServer : private SCA_TikaWatchObserver {
 public:
  /// @param cancel  Ends the waits; not owned.
  PrivateServer(const Options& options, SCA_Event* cancel);
  ~PrivateServer() override;
  PrivateServer(const PrivateServer&) = delete;
  PrivateServer& operator=(const PrivateServer&) = delete;

  /// Makes sure that a server answers: starts one when none runs, waits for one that is coming up.
  /// @param complaint  Receives what went wrong, with the last lines that the server printed; empty
  ///                   when the cancel event ended the wait.
  /// @return false when there is no server.
  bool EnsureReady(std::string* complaint);

  unsigned short Port() const { return port_; }

  /// Makes the class archive, as `--make-class-archive` asks. @return The exit status.
  static ExitStatus MakeArchive(const Options& options, SCA_Event* cancel);
  /// Has the class archive made for later runs, if it is missing. Does not wait for it.
  void MakeArchiveLater();

 private:
  void OnStart(const SCA_TikaServer& server, unsigned long processId) override;
  void OnReady(const SCA_TikaServer& server, const char* version) override;

  bool Launch(std::string* complaint);
  std::string Explain(unsigned long error) const;
  void PrintLines();

  const Options& options_;
  SCA_Event* const cancel_;
  unsigned short port_ = 0;
  SCA_ClassArchive archive_;
  SCA_TikaConfigUser config_{nullptr, nullptr};
  SCA_TikaServer server_{&config_};
  SCA_TikaWatch watch_;
  ProgramEvent stopPrinting_{1, 0};
  std::thread printer_;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_PRIVATESERVER_H
