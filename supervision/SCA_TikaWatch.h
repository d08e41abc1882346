/// Watches one Tika server: asks it whether it answers, restarts it when it has been silent for too
/// long, delays restarts that would fail again, starts servers again that were given up, and
/// reports deaths. Threads: any thread may call any operation; the destructor runs when no other
/// thread uses the watch.
#ifndef SCA_SUPERVISION_SCA_TIKAWATCH_H
#define SCA_SUPERVISION_SCA_TIKAWATCH_H

#include <memory>

#include "host/SCA_TikaServer.h"
#include "supervision/SCA_ClassArchive.h"
#include "supervision/SCA_JvmOptions.h"
#include "supervision/SCA_TikaDeathHistory.h"

/// What happens when a process ends before it has ever answered.
enum class SCA_TikaVainEnd {
  Retry,  ///< it is restarted, after a delay that doubles each time
  GiveUp  ///< the server is given up, because the next process would probably fail too
};

struct SCA_TikaWatchRules {
  const char* address = "127.0.0.1";    ///< of the server; copied
  unsigned long silenceLimitMs = 0;     ///< a longer silence causes a restart; 0: never. A starting
                                        ///< process has at least a minute
  unsigned long askMs = 5000;           ///< between two probes of a server that answers
  unsigned long firstAskMs = 250;       ///< while it starts
  unsigned long answerLimitMs = 5000;   ///< for an answer; at most the silence limit
  unsigned long firstDelayMs = 200;     ///< before the restart of a process that never answered
  unsigned long lastDelayMs = 10000;    ///< its upper limit
  unsigned long reviveAfterMs = 60000;  ///< a server that was given up starts again; 0: never
  SCA_TikaVainEnd vainEnd = SCA_TikaVainEnd::Retry;
  SCA_JvmPurpose purpose = SCA_JvmPurpose::Unknown;  ///< chooses options of its JVMs
  /// Speeds its starts up; not owned, outlives the watch, may be null. An archive that its JVM does
  /// not take is thrown away; a missing one is asked for once the server answers.
  SCA_ClassArchive* archive = nullptr;
};

/// The state of a server at one moment. A death is counted and recorded, and readiness withdrawn,
/// in one step.
struct SCA_TikaWatchState {
  int isReady = 0;                       ///< it answered the last probe
  int hasAnswered = 0;                   ///< since its process was started
  char version[101] = "";                ///< as it answered last; empty before
  unsigned long long answerMs = 0;       ///< duration of the last answer
  unsigned long long silenceMs = 0;      ///< since its last answer, or its process's start
  unsigned long processId = 0;           ///< 0 when none runs
  unsigned long restarts = 0;            ///< since the server was started
  unsigned long workerDeaths = 0;        ///< as well
  char lastDeath[260] = "";              ///< the cause; empty when it never died
  unsigned long long lastDeathTime = 0;  ///< absolute time; 0 when it never died
  /// Of the process that was started last; `Used` is certain once it has answered.
  SCA_ClassArchiveState archive = SCA_ClassArchiveState::Off;
};

/// Receives the events of a server, under no lock. May use the getters of server and watch, and ask
/// the server to stop (`RequestStop`). Must not start or stop the watch, and must not throw.
class SCA_API SCA_TikaWatchObserver {
 public:
  virtual ~SCA_TikaWatchObserver();
  /// The Java process was started. On the server's worker thread.
  virtual void OnStart(const SCA_TikaServer& server, unsigned long processId);
  /// The server answers, for the first time or after a silence. On the watch's thread.
  virtual void OnReady(const SCA_TikaServer& server, const char* version);
  /// The process ended, on request too (`SCA_DeathKind::Stopped`), or a worker. Of workers that die
  /// one after the other before the server has answered, only the first is reported. On the
  /// server's worker thread.
  /// @param text  The line about it in the server's log.
  virtual void OnDeath(const SCA_TikaServer& server, const SCA_TikaDeath& death, const char* text);
  /// The server had been given up and starts again. On the watch's thread.
  /// @param code  Why its last start failed; 0 after too many deaths.
  virtual void OnRevival(const SCA_TikaServer& server, unsigned long code);
};

/// The watch of one server, which is started and stopped through it. Nothing is thrown.
class SCA_API SCA_TikaWatch : public SCA_Object {
 public:
  /// Becomes the server's observer. Without memory or a thread the watch is not valid:
  /// its operations then fail with `ENOMEM`.
  /// @param server    Not started yet; not owned, outlives the watch.
  /// @param history   Records the deaths; not owned, may be null, outlives the watch.
  /// @param observer  Not owned, may be null, outlives the watch.
  SCA_TikaWatch(SCA_TikaServer* server, const SCA_TikaWatchRules& rules,
                SCA_TikaDeathHistory* history = nullptr, SCA_TikaWatchObserver* observer = nullptr);
  /// Stops the server and waits for its end.
  ~SCA_TikaWatch() override;
  SCA_TikaWatch(const SCA_TikaWatch&) = delete;
  SCA_TikaWatch& operator=(const SCA_TikaWatch&) = delete;

  /// Starts the server, which runs from now on until it is stopped.
  /// @param error  As for `SCA_TikaServer::StartProcess`, and `EBUSY` while it is still stopping.
  /// @return 1 once its worker runs.
  int Start(unsigned long* error);
  /// Asks the server to stop and returns at once. The watch does not restart it.
  void RequestStop();
  /// Asks it to stop, and waits for its end.
  void Stop();

  /// Waits until the server answers a question that is asked after this call began.
  /// @param cancel  Ends the wait; not owned, may be null.
  /// @param error   `SCA_ErrorCancelled`, `ETIMEDOUT`; the system's code when java cannot be
  ///                started; `SCA_ErrorProcessEnded` when it was given up or stopped: see the
  ///                last death.
  /// @return 1 when it is ready, else 0, the server being left as it is.
  int WaitReady(unsigned long timeoutMs, SCA_Event* cancel, unsigned long* error);

  /// @param history  Receives copies of the history's deaths of servers on this one's port, as of
  ///                 the same moment; may be null.
  /// @return 1, or 0 without memory.
  int GetState(SCA_TikaWatchState* state, SCA_ConfigObj* history = nullptr) const;
  /// @return 1 while the server has been asked to stop and has not ended yet.
  int IsStopping() const;
  /// Gives the last reported end of a process or worker, also one on request.
  /// @return 1, or 0 when there was none or memory is exhausted.
  int GetLastDeath(SCA_TikaDeath* death) const;

 private:
  class Core;
  std::unique_ptr<Core> core_;
};

#endif  // SCA_SUPERVISION_SCA_TIKAWATCH_H
