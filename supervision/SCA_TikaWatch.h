/// Watches one Tika server: asks it whether it answers, restarts it when it has been silent for too
/// long, delays restarts that would be in vain, starts again what was given up, and tells of
/// deaths. Threads: any thread may call any operation; the destructor runs when no other thread
/// uses the watch.
#ifndef SCA_SUPERVISION_SCA_TIKAWATCH_H
#define SCA_SUPERVISION_SCA_TIKAWATCH_H

#include <memory>

#include "host/SCA_TikaServer.h"
#include "supervision/SCA_TikaDeathHistory.h"

/// What becomes of a process that ends before it has ever answered.
enum class SCA_TikaVainEnd {
  Retry,  ///< it is started again, after a delay that doubles with each end in a row
  GiveUp  ///< the server is given up: the next process would hardly do better
};

struct SCA_TikaWatchRules {
  const char* address = "127.0.0.1";    ///< at which the server is asked; copied
  unsigned long silenceLimitMs = 0;     ///< a longer silence is a restart; 0: never. A process that
                                        ///< comes up has a minute at least
  unsigned long askMs = 5000;           ///< between two questions to a server that answers
  unsigned long firstAskMs = 250;       ///< while it comes up
  unsigned long answerLimitMs = 5000;   ///< for an answer; at most the limit of silence
  unsigned long firstDelayMs = 200;     ///< before a restart after an end in vain
  unsigned long lastDelayMs = 10000;    ///< what it grows to
  unsigned long reviveAfterMs = 60000;  ///< a server that was given up starts again; 0: never
  SCA_TikaVainEnd vainEnd = SCA_TikaVainEnd::Retry;
};

/// What is known of a server at one moment: a death is counted, remembered and the end of its
/// readiness at once.
struct SCA_TikaWatchState {
  int isReady = 0;                       ///< it answered when it was asked last
  int hasAnswered = 0;                   ///< since its process was started
  char version[101] = "";                ///< as it answered last; empty before
  unsigned long long answerMs = 0;       ///< that the answer took
  unsigned long long silenceMs = 0;      ///< since its last answer, or its process's start
  unsigned long processId = 0;           ///< 0 when none runs
  unsigned long restarts = 0;            ///< since the server was started
  unsigned long workerDeaths = 0;        ///< as well
  char lastDeath[260] = "";              ///< the cause; empty when it never died
  unsigned long long lastDeathTime = 0;  ///< absolute time; 0 when it never died
};

/// Is told of what happens to a server, under no lock. May ask server and watch for anything, and
/// the server to stop (`RequestStop`); must not start or stop the watch, nor throw.
class SCA_API SCA_TikaWatchObserver {
 public:
  virtual ~SCA_TikaWatchObserver();
  /// The Java process was started. On the server's worker thread.
  virtual void OnStart(const SCA_TikaServer& server, unsigned long processId);
  /// The server answers, for the first time or after a silence. On the watch's thread.
  virtual void OnReady(const SCA_TikaServer& server, const char* version);
  /// The process ended, on request too (`SCA_DeathKind::Stopped`), or a worker. Of workers that die
  /// one after the other before the server has answered the first is told alone. On the server's
  /// worker thread.
  /// @param text  The line about it in the server's log.
  virtual void OnDeath(const SCA_TikaServer& server, const SCA_TikaDeath& death, const char* text);
  /// The server had been given up and is started again. On the watch's thread.
  /// @param code  Why its last start failed; 0 after too many deaths.
  virtual void OnRevival(const SCA_TikaServer& server, unsigned long code);
};

/// The watch of one server, which is started and stopped through it. Nothing is thrown.
class SCA_API SCA_TikaWatch : public SCA_Object {
 public:
  /// Takes the place of the server's observer. Without memory or a thread the watch is not valid:
  /// its operations then fail with `ENOMEM`.
  /// @param server    Not started yet; not owned, outlives the watch.
  /// @param history   Remembers the deaths; not owned, may be null, outlives the watch.
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
  /// Asks the server to stop, and comes back at once. It is not started again by itself.
  void RequestStop();
  /// Asks it to stop, and waits for its end.
  void Stop();

  /// Waits until the server answers a question that is asked after this call began.
  /// @param cancel  Ends the wait; not owned, may be null.
  /// @param error   `SCA_ErrorCancelled`, `ETIMEDOUT`; the system's code when java cannot be
  ///                started; `SCA_ErrorProcessEnded` when it was given up or stopped: the last
  ///                death tells more.
  /// @return 1 when it is ready, else 0, the server being left as it is.
  int WaitReady(unsigned long timeoutMs, SCA_Event* cancel, unsigned long* error);

  /// @param history  Receives copies of the history's deaths of servers on this one's port, as of
  ///                 the same moment; may be null.
  /// @return 1, or 0 without memory.
  int GetState(SCA_TikaWatchState* state, SCA_ConfigObj* history = nullptr) const;
  /// @return 1 while the server has been asked to stop and has not ended yet.
  int IsStopping() const;
  /// Gives the end of a process or worker that was told last, also one on request.
  /// @return 1, or 0 when there was none or memory is exhausted.
  int GetLastDeath(SCA_TikaDeath* death) const;

 private:
  class Core;
  std::unique_ptr<Core> core_;
};

#endif  // SCA_SUPERVISION_SCA_TIKAWATCH_H
