#include "supervision/SCA_TikaWatch.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <thread>

#include "platform/SCA_Deadline.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Lock.h"
#include "platform/SCA_PortHolder.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"
#include "platform/SCA_Text.h"
#include "platform/SCA_Time.h"
#include "supervision/SCA_DeathCause.h"
#include "supervision/SCA_TikaProbe.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kSource[] = "SCA_TikaWatch";
constexpr unsigned long long kFirstAnswerMs = 60000;  // to come up takes long on a busy machine
constexpr unsigned long kFirstDocumentMs = 30000;     // for a worker to start, and the document
constexpr unsigned long kTooManyRequests = 429;       // HTTP
constexpr unsigned long kFirstLineThatExtractsLater = 4;
constexpr std::size_t kSamples = 60;
constexpr std::chrono::seconds kFirstSampleAfter{1};
constexpr std::chrono::seconds kSampleEvery{5};  // so the curve covers five minutes
constexpr unsigned long kDownMs = 1000;          // between two looks at a server that does not run
constexpr unsigned long kWaitSliceMs = 20;

unsigned long long Ms(Clock::duration duration) {
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
  return ms > 0 ? static_cast<unsigned long long>(ms) : 0;
}

// The first number of a version such as "Apache Tika 4.0.0"; 0 without one.
unsigned long LineOf(const char* version) {
  return std::strtoul(version + std::strcspn(version, "0123456789"), nullptr, 10);
}

// The text of a message in its serialized form: level, date and time stand before it.
std::string TextOf(const SCA_Field& field) {
  std::string text = field.GetValue();
  for (int word = 0; word < 3; ++word) text.erase(0, text.find(' ') + 1);
  return text;
}

// Not by a signal that others send: from outside, or as memory runs out.
bool HasFailedItself(const SCA_TikaObituary& obituary) {
  constexpr int kSignalBase = 128;  // of the exit code that a JVM or a shell gives for a signal
  const int signal = obituary.signal != 0 ? obituary.signal : obituary.exitCode - kSignalBase;
  const bool isSent =
      signal == SIGHUP || signal == SIGINT || signal == SIGKILL || signal == SIGTERM;
  return obituary.isRequested == 0 && obituary.isExitKnown != 0 && !isSent;
}

}  // namespace

SCA_TikaWatchObserver::~SCA_TikaWatchObserver() = default;
void SCA_TikaWatchObserver::OnStart(const SCA_TikaServer& /*server*/, unsigned long /*processId*/) {
}
void SCA_TikaWatchObserver::OnReady(const SCA_TikaServer& /*server*/, const char* /*version*/) {}
void SCA_TikaWatchObserver::OnDeath(const SCA_TikaServer& /*server*/,
                                    const SCA_TikaDeath& /*death*/, const char* /*text*/) {}
void SCA_TikaWatchObserver::OnRevival(const SCA_TikaServer& /*server*/, unsigned long /*code*/) {}

// One half runs on a thread of its own, which asks the server; the other is the server's observer
// and runs on its worker.
class SCA_TikaWatch::Core final : public SCA_TikaServerObserver {
 public:
  Core(SCA_TikaServer* server, const SCA_TikaWatchRules& rules, SCA_TikaDeathHistory* history,
       SCA_TikaWatchObserver* observer);
  ~Core() override;

  int Start(unsigned long* error) SCA_EXCLUDES(order_);
  void RequestStop() SCA_EXCLUDES(order_);
  void Stop();
  bool IsStopping() const SCA_EXCLUDES(order_);
  int WaitReady(unsigned long timeoutMs, SCA_Event* cancel, unsigned long* error)
      SCA_EXCLUDES(lock_);
  int GetState(SCA_TikaWatchState* state, SCA_ConfigObj* history) const SCA_EXCLUDES(lock_);
  int GetLastDeath(SCA_TikaDeath* death) const SCA_EXCLUDES(lock_);

  void OnStart(unsigned long processId) override SCA_EXCLUDES(lock_);
  void OnEnd(const SCA_TikaObituary& obituary) override SCA_EXCLUDES(lock_);
  void OnWorkerEnd(const SCA_TikaObituary& obituary) override SCA_EXCLUDES(lock_);
  unsigned long GetRestartDelay() override;
  std::string GetJvmOptions(const SCA_TikaLaunch& launch) override SCA_EXCLUDES(lock_);

 private:
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
  unsigned long LookIfPossible() SCA_EXCLUDES(lock_);
  unsigned long Look() SCA_EXCLUDES(lock_);
  unsigned long AnswerLimitMs() const;
  bool IsFromStranger(unsigned long long epoch) SCA_EXCLUDES(lock_);
  bool Extracts(unsigned long long epoch, const char* version) SCA_EXCLUDES(lock_);
  void NoteAnswer(unsigned long long epoch, bool answers, const SCA_TikaAnswer& answer)
      SCA_EXCLUDES(lock_);
  void JudgeArchive(unsigned long long epoch) SCA_EXCLUDES(lock_);
  bool IsArchiveRefused() const;
  bool DropArchive() SCA_EXCLUDES(lock_);
  void SampleMemory() SCA_REQUIRES(lock_);
  void RestartWhenSilent() SCA_EXCLUDES(lock_);
  unsigned long ReviveWhenGivenUp() SCA_EXCLUDES(order_);
  int StartServer(unsigned long* error) SCA_REQUIRES(order_);

  void RecordEnd(const SCA_TikaObituary& obituary) SCA_EXCLUDES(lock_);
  void RecordWorkerEnd(const SCA_TikaObituary& obituary) SCA_EXCLUDES(lock_);
  SCA_TikaDeath Describe(const SCA_TikaObituary& obituary, SCA_DeathOf who, unsigned long after)
      SCA_EXCLUDES(lock_);
  std::vector<std::string> LastLines(const SCA_TikaObituary& obituary, unsigned long after) const;
  int Note(const SCA_TikaDeath& death) SCA_EXCLUDES(lock_);
  void EndReadiness(SCA_DeathOf who) SCA_REQUIRES(lock_);
  void Tell(const SCA_TikaDeath& death, const SCA_TikaObituary& obituary) SCA_EXCLUDES(lock_);

  SCA_TikaServer* const server_;
  const std::string address_;
  const SCA_TikaWatchRules rules_;  // except the address
  SCA_TikaDeathHistory* const history_;
  SCA_TikaWatchObserver* const observer_;

  // Orders starts and requests to stop. The server's worker, which a start may join, never takes
  // it.
  mutable SCA_Lock order_;
  bool isWanted_ SCA_GUARDED_BY(order_) = false;  // started, and not asked to stop since

  // Taken after the owner's locks and before the history's, and held only while values are copied.
  mutable SCA_Lock lock_;
  Run run_ SCA_GUARDED_BY(lock_);
  // Changes with each process and worker: an answer of an earlier one says nothing about the next.
  unsigned long long epoch_ SCA_GUARDED_BY(lock_) = 0;
  unsigned long long asked_ SCA_GUARDED_BY(lock_) = 0;     // questions so far
  unsigned long long answered_ SCA_GUARDED_BY(lock_) = 0;  // the last that was
  SCA_TikaAnswer answer_ SCA_GUARDED_BY(lock_);
  char lastDeath_[sizeof SCA_TikaWatchState::lastDeath] SCA_GUARDED_BY(lock_) = "";
  unsigned long long lastDeathTime_ SCA_GUARDED_BY(lock_) = 0;
  std::optional<SCA_TikaDeath> lastEnd_ SCA_GUARDED_BY(lock_);
  SCA_ClassArchiveState archive_ SCA_GUARDED_BY(lock_) = SCA_ClassArchiveState::Off;
  SCA_TikaLaunch launch_ SCA_GUARDED_BY(lock_);  // of the process that was started last

  // The worker's.
  unsigned long logSession_ = 0;
  unsigned long beforeOutput_ = 0;  // last message before the process's first
  unsigned long beforeWorker_ = 0;  // as that, or the one that told of the former worker's end
  bool isWorkerTold_ = false;       // that one died before the server has answered
  unsigned long deathsInVain_ = 0;  // in a row, before an answer

  std::optional<Clock::time_point> givenUpSince_;  // the watch's thread's
  SCA_Event ending_{1, 0};
  SCA_Event wake_{0, 0};
  std::thread thread_;
};

SCA_TikaWatch::Core::Core(SCA_TikaServer* server, const SCA_TikaWatchRules& rules,
                          SCA_TikaDeathHistory* history, SCA_TikaWatchObserver* observer)
    : server_(server),
      address_(rules.address),
      rules_(rules),
      history_(history),
      observer_(observer) {
  if (ending_.IsValid() == 0 || wake_.IsValid() == 0) throw std::bad_alloc();
  thread_ = std::thread([this] { Watch(); });
  server_->SetObserver(this);
}

SCA_TikaWatch::Core::~Core() {
  RequestStop();
  ending_.Set();
  wake_.Set();
  thread_.join();
  server_->StopAll();
  // One that gave up by itself may still be on its way out, through this object.
  server_->Unlock(kSource);
  server_->SetObserver(nullptr);
}

// Starting and stopping

int SCA_TikaWatch::Core::Start(unsigned long* error) {
  const SCA_LockGuard guard(order_);
  // One that is stopping still counts as active, and will not be.
  if (!isWanted_ && server_->IsActive() != 0) return SCA_Fail(EBUSY, error);
  if (StartServer(error) == 0) return 0;
  isWanted_ = true;
  wake_.Set();
  return 1;
}

int SCA_TikaWatch::Core::StartServer(unsigned long* error) {
  if (server_->IsActive() != 0) return SCA_Fail(SCA_ErrorAlreadyActive, error);
  // Before the start: its worker may fail at once, and says so there.
  server_->SetStatusCode(0);
  if (server_->StartProcess(error) != 0) return 1;
  server_->SetStatusCode(*error);
  return 0;
}

void SCA_TikaWatch::Core::RequestStop() {
  const SCA_LockGuard guard(order_);
  isWanted_ = false;
  server_->RequestStop();
}

void SCA_TikaWatch::Core::Stop() {
  RequestStop();
  server_->StopAll();
}

bool SCA_TikaWatch::Core::IsStopping() const {
  const SCA_LockGuard guard(order_);
  return !isWanted_ && server_->IsActive() != 0;
}

// Gives how long to wait for the next look, in milliseconds. The server gives up what cannot be
// started, or has died a thousand times, which may have taken months: java may have been missing
// for a moment only.
unsigned long SCA_TikaWatch::Core::ReviveWhenGivenUp() {
  unsigned long formerCode = 0;
  {
    const SCA_LockGuard guard(order_);
    if (!isWanted_ || rules_.reviveAfterMs == 0) return SCA_Infinite;
    if (server_->GetProcessStatus() != SCA_ServerError) {
      givenUpSince_.reset();
      return kDownMs;
    }
    if (!givenUpSince_) givenUpSince_ = Clock::now();
    const unsigned long long downMs = Ms(Clock::now() - *givenUpSince_);
    if (downMs < rules_.reviveAfterMs) {
      return std::min(kDownMs, static_cast<unsigned long>(rules_.reviveAfterMs - downMs));
    }
    givenUpSince_.reset();
    formerCode = server_->GetStatusCode();
    unsigned long ignored = 0;
    StartServer(&ignored);
  }
  if (observer_ != nullptr) observer_->OnRevival(*server_, formerCode);
  return kDownMs;
}

// What is known

int SCA_TikaWatch::Core::GetState(SCA_TikaWatchState* state, SCA_ConfigObj* history) const {
  const SCA_LockGuard guard(lock_);
  *state = SCA_TikaWatchState();
  SCA_CopyText(state->version, answer_.version, SCA_TextFit::Cut);
  state->answerMs = answer_.timeMs;
  if (run_.isOver) {
    state->restarts = server_->GetSessionId();
    state->workerDeaths = server_->GetWorkerEnds();
  } else {
    state->isReady = run_.isReady ? 1 : 0;
    state->hasAnswered = run_.hasAnswered ? 1 : 0;
    state->silenceMs = Ms(Clock::now() - run_.lastAnswer);
    state->processId = run_.processId;
    // What the watch has recorded: the server counted it a moment earlier.
    state->restarts = run_.restarts;
    state->workerDeaths = run_.workerDeaths;
  }
  SCA_CopyText(state->lastDeath, lastDeath_, SCA_TextFit::Cut);
  state->lastDeathTime = lastDeathTime_;
  state->archive = archive_;
  if (history == nullptr || history_ == nullptr) return 1;
  return history_->CopyTo(history, server_->GetPortNumber());
}

int SCA_TikaWatch::Core::GetLastDeath(SCA_TikaDeath* death) const try {
  const SCA_LockGuard guard(lock_);
  if (!lastEnd_) return 0;
  *death = *lastEnd_;
  return 1;
} catch (const std::exception&) {
  return 0;
}

int SCA_TikaWatch::Core::WaitReady(unsigned long timeoutMs, SCA_Event* cancel,
                                   unsigned long* error) {
  const SCA_Deadline deadline(timeoutMs);
  SCA_Event never(1, 0);
  unsigned long long wanted = 0;
  {
    const SCA_LockGuard guard(lock_);
    wanted = asked_ + 1;
  }
  wake_.Set();
  // An answer usually comes within a millisecond or two.
  for (unsigned long pauseMs = 1;; pauseMs = std::min(2 * pauseMs, kWaitSliceMs)) {
    {
      const SCA_LockGuard guard(lock_);
      if (answered_ >= wanted && run_.isReady && !run_.isOver) return 1;
    }
    if (server_->IsActive() == 0) {
      const unsigned long code = server_->GetStatusCode();
      return SCA_Fail(code != 0 ? code : SCA_ErrorProcessEnded, error);
    }
    if (deadline.HasPassed()) return SCA_Fail(ETIMEDOUT, error);
    const unsigned long sliceMs = std::min(deadline.MsLeft(), pauseMs);
    if ((cancel != nullptr ? cancel : &never)->Wait(sliceMs) != 0) {
      return SCA_Fail(SCA_ErrorCancelled, error);
    }
  }
}

// The thread that asks

void SCA_TikaWatch::Core::Watch() {
  while (ending_.Wait(0) == 0) {
    wake_.Wait(LookIfPossible());
  }
}

// As `Look`. Without memory nothing is known of the server; it is asked again soon.
unsigned long SCA_TikaWatch::Core::LookIfPossible() {
  try {
    return Look();
  } catch (const std::exception&) {
    return rules_.firstAskMs;
  }
}

// Gives how long to wait for the next look, in milliseconds.
unsigned long SCA_TikaWatch::Core::Look() {
  unsigned long long epoch = 0;
  bool runs = false;
  {
    const SCA_LockGuard guard(lock_);
    runs = !run_.isOver;
    epoch = epoch_;
    if (runs) {
      ++asked_;
      SampleMemory();
    }
  }
  if (!runs) return ReviveWhenGivenUp();
  givenUpSince_.reset();
  SCA_TikaAnswer answer;
  unsigned long ignored = 0;
  const SCA_TikaProbe probe(address_.c_str(), server_->GetPortNumber(), AnswerLimitMs());
  const bool answers = probe.Ask(&ending_, &answer, &ignored) != 0 && !IsFromStranger(epoch) &&
                       Extracts(epoch, answer.version);
  NoteAnswer(epoch, answers, answer);
  RestartWhenSilent();
  if (!answers) return rules_.firstAskMs;
  if (rules_.silenceLimitMs == 0) return rules_.askMs;
  // Often enough to find out soon when the limit has passed.
  return std::min(rules_.askMs, std::max(rules_.silenceLimitMs / 4, rules_.firstAskMs));
}

unsigned long SCA_TikaWatch::Core::AnswerLimitMs() const {
  const bool hasLimit = rules_.silenceLimitMs != 0;
  return hasLimit ? std::min(rules_.answerLimitMs, rules_.silenceLimitMs) : rules_.answerLimitMs;
}

// A server of Tika 4 answers before it can extract, and its workers come with documents: the first
// document of a process, or after a worker's death, is ours.
bool SCA_TikaWatch::Core::Extracts(unsigned long long epoch, const char* version) {
  {
    const SCA_LockGuard guard(lock_);
    if (run_.isOver || epoch_ != epoch || run_.isReady) return true;
  }
  if (LineOf(version) < kFirstLineThatExtractsLater) return true;
  unsigned long error = 0;
  const SCA_TikaProbe probe(address_.c_str(), server_->GetPortNumber(), kFirstDocumentMs);
  // A server whose workers are all busy extracts.
  return probe.TryDocument(&ending_, &error) != 0 || error == kTooManyRequests;
}

// Where another program has the port, its answers are not the server's. Such a server is restarted:
// some go on for minutes without their port, and say no more than a line in their log.
bool SCA_TikaWatch::Core::IsFromStranger(unsigned long long epoch) {
  unsigned long processId = 0;
  {
    const SCA_LockGuard guard(lock_);
    if (run_.isOver || epoch_ != epoch || run_.isReady) return false;
    processId = run_.processId;
  }
  if (SCA_FindPortHolder(server_->GetPortNumber(), processId) != SCA_PortHolder::Stranger) {
    return false;
  }
  {
    const SCA_LockGuard guard(lock_);
    if (run_.isOver || epoch_ != epoch || run_.isCondemned) return true;
    run_.isCondemned = true;
    run_.verdict = SCA_DeathKind::PortTaken;
  }
  server_->RequestRestart("another program has its port and answers there", processId);
  return true;
}

void SCA_TikaWatch::Core::NoteAnswer(unsigned long long epoch, bool answers,
                                     const SCA_TikaAnswer& answer) {
  bool isNews = false;
  if (answers) JudgeArchive(epoch);
  {
    const SCA_LockGuard guard(lock_);
    if (run_.isOver || epoch_ != epoch) return;
    isNews = answers && !run_.isReady;
    run_.isReady = answers;
    if (!answers) return;
    run_.hasAnswered = true;
    run_.lastAnswer = Clock::now();
    answer_ = answer;
    answered_ = asked_;
  }
  if (isNews && observer_ != nullptr) observer_->OnReady(*server_, answer.version);
}

// At the first answer of a process its JVM has said what it thinks of the archive.
void SCA_TikaWatch::Core::JudgeArchive(unsigned long long epoch) {
  SCA_TikaLaunch launch;
  {
    const SCA_LockGuard guard(lock_);
    if (rules_.archive == nullptr || run_.isOver || epoch_ != epoch || run_.hasAnswered) return;
    launch = launch_;
  }
  if (IsArchiveRefused()) DropArchive();
  {
    const SCA_LockGuard guard(lock_);
    if (archive_ == SCA_ClassArchiveState::Used) return;
  }
  rules_.archive->MakeLater(launch);
}

// The newest lines are those of its start, or of the start and a second more.
bool SCA_TikaWatch::Core::IsArchiveRefused() const {
  constexpr unsigned long kLines = 100;
  SCA_ConfigObj messages("Log", nullptr);
  server_->GetLog()->Serialize(&messages, kLines, SCA_NoItemId);
  bool isRefused = false;
  for (const SCA_Field* field = messages.GetFields().GetHead(); field != nullptr;
       field = field->GetNext()) {
    const std::string text = TextOf(*field);
    // Of an earlier process the lines no longer count.
    if (text.compare(0, 14, "Tika Command: ") == 0) isRefused = false;
    isRefused = isRefused || SCA_IsArchiveRefusal(text);
  }
  return isRefused;
}

// @return Whether there was one.
bool SCA_TikaWatch::Core::DropArchive() {
  SCA_TikaLaunch launch;
  {
    const SCA_LockGuard guard(lock_);
    if (archive_ != SCA_ClassArchiveState::Used) return false;
    archive_ = SCA_ClassArchiveState::Refused;
    launch = launch_;
  }
  rules_.archive->Discard(launch);
  SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelInfo,
                                           "the class archive for %s was refused and thrown away",
                                           launch.fileName.c_str());
  return true;
}

void SCA_TikaWatch::Core::SampleMemory() {
  const Clock::time_point now = Clock::now();
  // At first the figure is the previous process's.
  if (now - run_.begin < kFirstSampleAfter) return;
  if (!run_.memory.empty() && now - run_.memory.back().time < kSampleEvery) return;
  const unsigned long long bytes = server_->GetMemoryUsage();
  if (bytes == 0) return;
  run_.memory.push_back({now, bytes});
  if (run_.memory.size() > kSamples) run_.memory.pop_front();
}

void SCA_TikaWatch::Core::RestartWhenSilent() {
  unsigned long long silenceMs = 0;
  unsigned long processId = 0;
  {
    const SCA_LockGuard guard(lock_);
    if (run_.isOver || run_.isCondemned || rules_.silenceLimitMs == 0) return;
    silenceMs = Ms(Clock::now() - run_.lastAnswer);
    const unsigned long long limitMs = rules_.silenceLimitMs;
    if (silenceMs < (run_.hasAnswered ? limitMs : std::max(limitMs, kFirstAnswerMs))) return;
    run_.isCondemned = true;
    processId = run_.processId;
  }
  const std::string cause = "it had not answered for " + std::to_string(silenceMs / 1000) + " s";
  server_->RequestRestart(cause.c_str(), processId);
}

// The server's worker

void SCA_TikaWatch::Core::OnStart(unsigned long processId) {
  logSession_ = server_->GetLog()->GetSessionId();
  beforeOutput_ = beforeWorker_ = server_->GetLog()->GetLastMessageId();
  isWorkerTold_ = false;
  {
    const SCA_LockGuard guard(lock_);
    const unsigned long restarts = server_->GetSessionId();
    const unsigned long workerDeaths = restarts != 0 ? run_.workerDeaths : 0;
    run_ = Run();
    run_.isOver = false;
    run_.begin = Clock::now();
    run_.lastAnswer = run_.begin;
    run_.processId = processId;
    run_.restarts = restarts;
    run_.workerDeaths = workerDeaths;
    ++epoch_;
  }
  wake_.Set();
  if (observer_ != nullptr) observer_->OnStart(*server_, processId);
}

void SCA_TikaWatch::Core::OnEnd(const SCA_TikaObituary& obituary) {
  try {
    RecordEnd(obituary);
  } catch (const std::exception&) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelError, "not enough memory to record the death of server %lu: %s",
        obituary.serverId, obituary.text);
    const SCA_LockGuard guard(lock_);
    EndReadiness(SCA_DeathOf::Server);
  }
  wake_.Set();
}

void SCA_TikaWatch::Core::RecordEnd(const SCA_TikaObituary& obituary) {
  SCA_TikaDeath death = Describe(obituary, SCA_DeathOf::Server, beforeOutput_);
  bool hasAnswered = false;
  SCA_DeathKind verdict = SCA_DeathKind::Silent;
  {
    const SCA_LockGuard guard(lock_);
    hasAnswered = run_.hasAnswered;
    verdict = run_.verdict;
  }
  SCA_FindDeathCause(obituary, verdict, hasAnswered, &death);
  const bool isInVain = !hasAnswered || death.kind == SCA_DeathKind::PortTaken;
  // A JVM may die of its archive, and one that has forked it ends with a status of its own. Without
  // the archive the next may live.
  if (!hasAnswered && death.kind != SCA_DeathKind::PortTaken && HasFailedItself(obituary) &&
      DropArchive()) {
    deathsInVain_ = 0;
    return Tell(death, obituary);
  }
  if (obituary.isRequested == 0) deathsInVain_ = isInVain ? deathsInVain_ + 1 : 0;
  Tell(death, obituary);
}

void SCA_TikaWatch::Core::OnWorkerEnd(const SCA_TikaObituary& obituary) {
  try {
    RecordWorkerEnd(obituary);
  } catch (const std::exception&) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelError, "not enough memory to record the death of a worker of server %lu: %s",
        obituary.serverId, obituary.text);
    const SCA_LockGuard guard(lock_);
    EndReadiness(SCA_DeathOf::Worker);
  }
  beforeWorker_ = server_->GetLog()->GetLastMessageId();
  wake_.Set();
}

void SCA_TikaWatch::Core::RecordWorkerEnd(const SCA_TikaObituary& obituary) {
  if (obituary.isRequested != 0) return;  // an idle worker is no death
  SCA_TikaDeath death = Describe(obituary, SCA_DeathOf::Worker, beforeWorker_);
  SCA_FindWorkerDeathCause(&death);
  {
    const SCA_LockGuard guard(lock_);
    const bool hasAnswered = run_.hasAnswered;
    // A server that cannot come up replaces its worker every few seconds: one death tells it all.
    const bool isMore = !hasAnswered && isWorkerTold_;
    isWorkerTold_ = !hasAnswered;
    if (isMore) {
      EndReadiness(SCA_DeathOf::Worker);
      if (history_ != nullptr) history_->Count(death.who, death.kind);
      return;
    }
  }
  Tell(death, obituary);
}

std::string SCA_TikaWatch::Core::GetJvmOptions(const SCA_TikaLaunch& launch) {
  std::string options = SCA_JvmOptions(rules_.purpose, launch);
  std::string option;
  const SCA_ClassArchiveState state = rules_.archive != nullptr
                                          ? rules_.archive->Find(launch, &option)
                                          : SCA_ClassArchiveState::Off;
  if (!option.empty()) options += (options.empty() ? "" : " ") + option;
  const SCA_LockGuard guard(lock_);
  archive_ = state;
  launch_ = launch;
  return options;
}

unsigned long SCA_TikaWatch::Core::GetRestartDelay() {
  if (deathsInVain_ == 0) return 0;
  if (rules_.vainEnd == SCA_TikaVainEnd::GiveUp) return SCA_Infinite;
  const unsigned long shift = std::min(deathsInVain_ - 1, 6UL);
  return std::min(rules_.firstDelayMs << shift, rules_.lastDelayMs);
}

void SCA_TikaWatch::Core::Tell(const SCA_TikaDeath& death, const SCA_TikaObituary& obituary) {
  const bool isNoted = Note(death) != 0;
  if (observer_ != nullptr) observer_->OnDeath(*server_, death, obituary.text);
  if (isNoted) return;
  SCA_GetReportFunction(kSource, __LINE__)(
      SCA_LevelError, "not enough memory to record the death of process %lu of server %lu",
      obituary.processId, obituary.serverId);
}

// All in one step, as seen by a reader of the state.
int SCA_TikaWatch::Core::Note(const SCA_TikaDeath& death) {
  std::optional<SCA_TikaDeath> copy(death);
  const SCA_LockGuard guard(lock_);
  EndReadiness(death.who);
  lastEnd_.swap(copy);
  if (death.kind == SCA_DeathKind::Stopped) return 1;
  SCA_CopyText(lastDeath_, death.cause.c_str(), SCA_TextFit::Cut);
  lastDeathTime_ = death.time;
  return history_ != nullptr ? history_->Add(death) : 1;
}

void SCA_TikaWatch::Core::EndReadiness(SCA_DeathOf who) {
  run_.isReady = false;  // of a worker's server until the next worker answers
  ++epoch_;
  if (who == SCA_DeathOf::Worker) ++run_.workerDeaths;
  if (who == SCA_DeathOf::Server) run_.isOver = true;
}

SCA_TikaDeath SCA_TikaWatch::Core::Describe(const SCA_TikaObituary& obituary, SCA_DeathOf who,
                                            unsigned long after) {
  SCA_TikaDeath death;
  death.who = who;
  death.time = SCA_GetAbsTime();
  death.serverId = obituary.serverId;
  death.port = server_->GetPortNumber();
  death.fileName = server_->GetFileName();
  death.processId = obituary.processId;
  death.isExitKnown = obituary.isExitKnown;
  death.exitCode = obituary.exitCode;
  death.signal = obituary.signal;
  death.runTimeMs = obituary.runTimeMs;
  death.restart = server_->GetSessionId();
  death.memoryUsage = obituary.memoryUsage;
  death.lines = LastLines(obituary, after);
  const Clock::time_point now = Clock::now();
  const SCA_LockGuard guard(lock_);
  for (const Sample& sample : run_.memory) {
    death.memory.push_back({Ms(now - sample.time), sample.bytes});
  }
  return death;
}

// What the process printed last; the obituary itself is not part of it. The log may have been
// cleared meanwhile: its numbers restart then.
std::vector<std::string> SCA_TikaWatch::Core::LastLines(const SCA_TikaObituary& obituary,
                                                        unsigned long after) const {
  SCA_TikaLog* log = server_->GetLog();
  const bool isCleared = log->GetSessionId() != logSession_;
  const unsigned long before = isCleared ? SCA_NoItemId : after;
  SCA_ConfigObj messages("Log", nullptr);
  log->Serialize(&messages, SCA_MaxDeathLines, SCA_NoItemId);
  std::vector<std::string> lines;
  for (const SCA_Field* field = messages.GetFields().GetHead(); field != nullptr;
       field = field->GetNext()) {
    const unsigned long id = std::strtoul(field->GetName(), nullptr, 10);
    if (before == SCA_NoItemId || id > before) lines.push_back(TextOf(*field));
  }
  if (!lines.empty() && lines.back() == obituary.text) lines.pop_back();
  if (lines.size() > SCA_MaxDeathLines) lines.erase(lines.begin());
  return lines;
}

// The public edge

SCA_TikaWatch::SCA_TikaWatch(SCA_TikaServer* server, const SCA_TikaWatchRules& rules,
                             SCA_TikaDeathHistory* history, SCA_TikaWatchObserver* observer) {
  const SCA_Result made = SCA_Guarded([&] {
    core_ = std::make_unique<Core>(server, rules, history, observer);
    return SCA_Done;
  });
  SetValid(made.HasFailed() ? 0 : 1);
}

SCA_TikaWatch::~SCA_TikaWatch() = default;

int SCA_TikaWatch::Start(unsigned long* error) {
  return core_ != nullptr ? core_->Start(error) : SCA_Fail(ENOMEM, error);
}

void SCA_TikaWatch::RequestStop() {
  if (core_ != nullptr) core_->RequestStop();
}

void SCA_TikaWatch::Stop() {
  if (core_ != nullptr) core_->Stop();
}

int SCA_TikaWatch::WaitReady(unsigned long timeoutMs, SCA_Event* cancel, unsigned long* error) {
  return core_ != nullptr ? core_->WaitReady(timeoutMs, cancel, error) : SCA_Fail(ENOMEM, error);
}

int SCA_TikaWatch::GetState(SCA_TikaWatchState* state, SCA_ConfigObj* history) const {
  return core_ != nullptr ? core_->GetState(state, history) : 0;
}

int SCA_TikaWatch::IsStopping() const {
  return core_ != nullptr && core_->IsStopping() ? 1 : 0;
}

int SCA_TikaWatch::GetLastDeath(SCA_TikaDeath* death) const {
  return core_ != nullptr ? core_->GetLastDeath(death) : 0;
}
