/// Watches one server: asks it whether it answers, restarts it when it has been silent for too
/// long, keeps the curve of its memory, and writes up its deaths.
#ifndef SCA_PROGRAMS_TIKASVC_SERVERWATCH_H
#define SCA_PROGRAMS_TIKASVC_SERVERWATCH_H

#include <chrono>
#include <deque>
#include <string>
#include <thread>
#include <vector>

#include "host/SCA_TikaServer.h"
#include "platform/SCA_Lock.h"
#include "platform/SCA_Sync.h"
#include "programs/common/Event.h"
#include "programs/tikasvc/BlackBox.h"
#include "programs/tikasvc/DeathCause.h"
#include "supervision/SCA_TikaProbe.h"

struct WatchRules {
  std::string address;               ///< at which the server is asked
  unsigned long silenceLimitMs = 0;  ///< 0: a silent server is let be
};

/// What is known of a server at one moment: a death is counted, remembered and the end of its
/// readiness at once.
struct ServerHealth {
  unsigned long processId = 0;     ///< 0 when none runs
  unsigned long restarts = 0;      ///< since the server was started
  unsigned long workerDeaths = 0;  ///< as well
  bool isReady = false;            ///< it answered when it was asked last
  bool hasAnswered = false;        ///< since its process was started
  std::string version;             ///< as it answered last
  unsigned long long answerMs = 0;
  unsigned long long silenceMs = 0;  ///< since its last answer, or its process's start
  std::string lastDeath;
  unsigned long long lastDeathTime = 0;  ///< absolute time
};

/// The server's observer. A thread of its own asks the server; the rest runs on the server's
/// worker. A process that dies before it has ever answered is started again with growing delay,
/// since the next one will hardly do better. Threads: any thread may ask for the health. Ends in
/// two steps: `End`, then the server is destroyed, then the watch.
class ServerWatch : public SCA_TikaServerObserver {
 public:
  /// @param server    Not owned; not started yet.
  /// @param blackBox  Not owned.
  ServerWatch(SCA_TikaServer* server, WatchRules rules, BlackBox* blackBox);
  ~ServerWatch() override;

  ServerHealth GetHealth() const SCA_EXCLUDES(lock_);
  /// @param history  Receives copies of the deaths of servers on this one's port, as of that
  /// moment.
  /// @return 0 without memory.
  int GetHealth(ServerHealth* health, SCA_ConfigObj* history) const SCA_EXCLUDES(lock_);

  /// Before the server is asked to stop: its worker will not wait for a delay any more.
  void Halt() { halted_.Set(); }
  /// Before the server is started.
  void Resume() { halted_.Reset(); }
  /// Halts, and ends the thread that uses the server.
  void End();

  void OnStart(unsigned long processId) override SCA_EXCLUDES(lock_);
  void OnEnd(const SCA_TikaObituary& obituary) override SCA_EXCLUDES(lock_);
  void OnWorkerEnd(const SCA_TikaObituary& obituary) override SCA_EXCLUDES(lock_);

 private:
  using Clock = std::chrono::steady_clock;

  struct Sample {
    Clock::time_point time;
    unsigned long long bytes;
  };

  // One life of the server's process.
  struct Run {
    bool isOver = true;
    bool hasAnswered = false;
    bool isReady = false;
    bool isCondemned = false;                       // a restart has been asked for
    SCA_DeathKind verdict = SCA_DeathKind::Silent;  // with which it has been
    Clock::time_point begin;
    Clock::time_point lastAnswer;
    std::deque<Sample> memory;  // oldest first
    unsigned long processId = 0;
    unsigned long restarts = 0;
    unsigned long workerDeaths = 0;  // since the server was started
  };

  void Watch();
  unsigned long Look() SCA_EXCLUDES(lock_);
  unsigned long AnswerLimitMs() const;
  ServerHealth Health() const SCA_REQUIRES(lock_);
  bool IsFromStranger(unsigned long long epoch) SCA_EXCLUDES(lock_);
  void NoteAnswer(unsigned long long epoch, bool answers, const SCA_TikaAnswer& answer)
      SCA_EXCLUDES(lock_);
  void SampleMemory() SCA_REQUIRES(lock_);
  void RestartWhenSilent() SCA_EXCLUDES(lock_);
  void RecordEnd(const SCA_TikaObituary& obituary) SCA_EXCLUDES(lock_);
  void RecordWorkerEnd(SCA_TikaObituary obituary) SCA_EXCLUDES(lock_);
  bool NoteDeath(BlackBox::Mortal mortal, const DeathCause& cause, SCA_Owned<SCA_ConfigObj> death)
      SCA_EXCLUDES(lock_);
  void CountDeath(BlackBox::Mortal mortal) SCA_REQUIRES(lock_);
  std::vector<std::string> LastLines(const SCA_TikaObituary& obituary, unsigned long after) const;
  SCA_Owned<SCA_ConfigObj> WriteUp(const SCA_TikaObituary& obituary, BlackBox::Mortal mortal,
                                   const DeathCause& cause, const std::vector<std::string>& lines)
      SCA_EXCLUDES(lock_);
  int AddMemoryCurve(SCA_ConfigObj* curve) SCA_EXCLUDES(lock_);
  void DelayRestart();

  SCA_TikaServer* const server_;
  const WatchRules rules_;
  BlackBox* const blackBox_;

  mutable SCA_Lock lock_;
  Run run_ SCA_GUARDED_BY(lock_);
  // Changes with each process and worker: an answer of a former one says nothing of the next.
  unsigned long long epoch_ SCA_GUARDED_BY(lock_) = 0;
  std::string version_ SCA_GUARDED_BY(lock_);
  unsigned long long answerMs_ SCA_GUARDED_BY(lock_) = 0;
  std::string lastDeath_ SCA_GUARDED_BY(lock_);
  unsigned long long lastDeathTime_ SCA_GUARDED_BY(lock_) = 0;

  // The worker's.
  unsigned long logSession_ = 0;
  unsigned long beforeOutput_ = 0;  // last message before the process's first
  unsigned long beforeWorker_ = 0;  // as that, or the one that told of the former worker's end
  bool isWorkerTold_ = false;       // that one died before the server has answered
  unsigned long deathsInVain_ = 0;  // in a row, before an answer

  ProgramEvent halted_{1, 0};
  ProgramEvent ending_{1, 0};
  ProgramEvent wake_{0, 0};
  std::thread thread_;
};

#endif  // SCA_PROGRAMS_TIKASVC_SERVERWATCH_H
