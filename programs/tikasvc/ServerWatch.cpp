#include "programs/tikasvc/ServerWatch.h"

#include <algorithm>
#include <cstdlib>
#include <exception>

#include "control/SCA_ServiceStatusNames.h"
#include "platform/SCA_Time.h"
#include "programs/tikasvc/HostLog.h"
#include "programs/tikasvc/PortHolder.h"

namespace {

constexpr unsigned long long kFirstAnswerMs = 60000;  // to come up takes long on a busy machine
constexpr unsigned long kAskMs = 5000;                // between two asks of a server that answers
constexpr unsigned long kFirstAskMs = 250;            // while it comes up
constexpr unsigned long kAnswerLimitMs = 5000;        // for one answer
constexpr std::size_t kSamples = 60;
constexpr std::chrono::seconds kFirstSampleAfter{1};
constexpr std::chrono::seconds kSampleEvery{5};  // so the curve covers five minutes
constexpr unsigned long kFirstDelayMs = 200;
constexpr unsigned long kLastDelayMs = 10000;

unsigned long long Ms(std::chrono::steady_clock::duration duration) {
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
  return ms > 0 ? static_cast<unsigned long long>(ms) : 0;
}

// The text of a message in its serialized form: level, date and time stand before it.
std::string TextOf(const SCA_Field& field) {
  std::string text = field.GetValue();
  for (int word = 0; word < 3; ++word) text.erase(0, text.find(' ') + 1);
  return text;
}

void SayForgotten(const SCA_TikaObituary& obituary) {
  Say(SCA_LevelError, "not enough memory to record the death of process %lu of server %lu",
      obituary.processId, obituary.serverId);
}

int AddTexts(SCA_ConfigObj* object, const std::vector<std::string>& texts) {
  if (object == nullptr) return 0;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (object->AddField(std::to_string(i).c_str(), texts[i].c_str(), 0) == 0) return 0;
  }
  return 1;
}

}  // namespace

ServerWatch::ServerWatch(SCA_TikaServer* server, WatchRules rules, BlackBox* blackBox)
    : server_(server), rules_(std::move(rules)), blackBox_(blackBox) {
  server_->SetObserver(this);
  thread_ = std::thread([this] { Watch(); });
}

ServerWatch::~ServerWatch() {
  End();
}

void ServerWatch::End() {
  ending_.Set();
  Halt();
  wake_.Set();
  if (thread_.joinable()) thread_.join();
}

ServerHealth ServerWatch::GetHealth() const {
  const SCA_LockGuard guard(lock_);
  return Health();
}

int ServerWatch::GetHealth(ServerHealth* health, SCA_ConfigObj* history) const {
  const SCA_LockGuard guard(lock_);
  *health = Health();
  return blackBox_->CopyTo(history, server_->GetPortNumber());
}

// Of a process that runs, counts are what the watch was told of: the server has counted a moment
// before.
ServerHealth ServerWatch::Health() const {
  ServerHealth health;
  health.processId = run_.isOver ? 0 : run_.processId;
  health.restarts = run_.isOver ? server_->GetSessionId() : run_.restarts;
  health.workerDeaths = run_.isOver ? server_->GetWorkerEnds() : run_.workerDeaths;
  health.isReady = !run_.isOver && run_.isReady;
  health.hasAnswered = !run_.isOver && run_.hasAnswered;
  health.version = version_;
  health.answerMs = answerMs_;
  if (!run_.isOver) health.silenceMs = Ms(Clock::now() - run_.lastAnswer);
  health.lastDeath = lastDeath_;
  health.lastDeathTime = lastDeathTime_;
  return health;
}

// The thread that asks

void ServerWatch::Watch() {
  while (ending_.Wait(0) == 0) {
    unsigned long pauseMs = kAskMs;
    try {
      pauseMs = Look();
    } catch (const std::exception&) {
      // Without memory nothing is known of the server; it is asked again.
    }
    wake_.Wait(pauseMs);
  }
}

// @return How long to wait for the next look, in milliseconds.
unsigned long ServerWatch::Look() {
  unsigned long long epoch = 0;
  {
    const SCA_LockGuard guard(lock_);
    if (run_.isOver) return SCA_Infinite;
    epoch = epoch_;
    SampleMemory();
  }
  SCA_TikaAnswer answer;
  unsigned long ignored = 0;
  const SCA_TikaProbe probe(rules_.address.c_str(), server_->GetPortNumber(), AnswerLimitMs());
  const bool answers = probe.Ask(&ending_, &answer, &ignored) != 0 && !IsFromStranger(epoch);
  NoteAnswer(epoch, answers, answer);
  RestartWhenSilent();
  if (!answers) return kFirstAskMs;
  // Often enough to find out soon when the limit has passed.
  const unsigned long quarter = std::max(rules_.silenceLimitMs / 4, kFirstAskMs);
  return rules_.silenceLimitMs != 0 ? std::min(kAskMs, quarter) : kAskMs;
}

unsigned long ServerWatch::AnswerLimitMs() const {
  const bool hasLimit = rules_.silenceLimitMs != 0;
  return hasLimit ? std::min(kAnswerLimitMs, rules_.silenceLimitMs) : kAnswerLimitMs;
}

// Where another program has the port, its answers are not the server's. Such a server is restarted:
// some go on for minutes without their port, and say no more than a line in their log.
bool ServerWatch::IsFromStranger(unsigned long long epoch) {
  unsigned long processId = 0;
  {
    const SCA_LockGuard guard(lock_);
    if (run_.isOver || epoch_ != epoch || run_.isReady) return false;
    processId = run_.processId;
  }
  if (FindPortHolder(server_->GetPortNumber(), processId) != PortHolder::Stranger) return false;
  {
    const SCA_LockGuard guard(lock_);
    if (run_.isOver || epoch_ != epoch || run_.isCondemned) return true;
    run_.isCondemned = true;
    run_.verdict = SCA_DeathKind::PortTaken;
  }
  server_->RequestRestart("another program has its port and answers there", processId);
  return true;
}

void ServerWatch::NoteAnswer(unsigned long long epoch, bool answers, const SCA_TikaAnswer& answer) {
  bool isNews = false;
  {
    const SCA_LockGuard guard(lock_);
    if (run_.isOver || epoch_ != epoch) return;
    isNews = answers && !run_.isReady;
    run_.isReady = answers;
    if (!answers) return;
    run_.hasAnswered = true;
    run_.lastAnswer = Clock::now();
    version_ = answer.version;
    answerMs_ = answer.timeMs;
  }
  if (isNews) {
    Say(SCA_LevelInfo, "server %lu on port %u answers: %s", server_->GetServerId(),
        server_->GetPortNumber(), answer.version);
  }
}

void ServerWatch::SampleMemory() {
  const Clock::time_point now = Clock::now();
  // At first the figure is the former process's.
  if (now - run_.begin < kFirstSampleAfter) return;
  if (!run_.memory.empty() && now - run_.memory.back().time < kSampleEvery) return;
  const unsigned long long bytes = server_->GetMemoryUsage();
  if (bytes == 0) return;
  run_.memory.push_back({now, bytes});
  if (run_.memory.size() > kSamples) run_.memory.pop_front();
}

void ServerWatch::RestartWhenSilent() {
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

void ServerWatch::OnStart(unsigned long processId) {
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
}

void ServerWatch::OnEnd(const SCA_TikaObituary& obituary) {
  try {
    RecordEnd(obituary);
  } catch (const std::exception&) {
    Say(SCA_LevelError, "not enough memory to record the death of server %lu: %s",
        obituary.serverId, obituary.text);
  }
  const SCA_LockGuard guard(lock_);
  run_.isOver = true;
}

void ServerWatch::RecordEnd(const SCA_TikaObituary& obituary) {
  const std::vector<std::string> lines = LastLines(obituary, beforeOutput_);
  bool hasAnswered = false;
  SCA_DeathKind verdict = SCA_DeathKind::Silent;
  {
    const SCA_LockGuard guard(lock_);
    hasAnswered = run_.hasAnswered;
    verdict = run_.verdict;
  }
  const DeathCause cause = FindDeathCause(obituary, lines, verdict, hasAnswered);
  if (obituary.isRequested != 0) {
    Say(SCA_LevelInfo, "server %lu on port %u: %s", server_->GetServerId(),
        server_->GetPortNumber(), obituary.text);
    return;
  }
  const bool isNoted = NoteDeath(BlackBox::Mortal::Server, cause,
                                 WriteUp(obituary, BlackBox::Mortal::Server, cause, lines));
  Say(SCA_LevelError, "server %lu on port %u died: %s (%s)", server_->GetServerId(),
      server_->GetPortNumber(), cause.text.c_str(), obituary.text);
  if (!isNoted) SayForgotten(obituary);
  const bool isInVain = !hasAnswered || cause.kind == SCA_DeathKind::PortTaken;
  deathsInVain_ = isInVain ? deathsInVain_ + 1 : 0;
  if (isInVain) DelayRestart();
}

void ServerWatch::OnWorkerEnd(const SCA_TikaObituary& obituary) {
  try {
    RecordWorkerEnd(obituary);
  } catch (const std::exception&) {
    Say(SCA_LevelError, "not enough memory to record the death of a worker of server %lu: %s",
        obituary.serverId, obituary.text);
  }
  beforeWorker_ = server_->GetLog()->GetLastMessageId();
  wake_.Set();
}

void ServerWatch::RecordWorkerEnd(SCA_TikaObituary obituary) {
  const std::vector<std::string> lines = LastLines(obituary, beforeWorker_);
  const DeathCause cause = FindWorkerDeathCause(lines, &obituary);
  bool hasAnswered = false;
  {
    const SCA_LockGuard guard(lock_);
    hasAnswered = run_.hasAnswered;
  }
  // A server that cannot come up replaces its worker every few seconds: one death tells it all.
  const bool isMore = !hasAnswered && isWorkerTold_;
  isWorkerTold_ = !hasAnswered;
  if (isMore) {
    const SCA_LockGuard guard(lock_);
    CountDeath(BlackBox::Mortal::Worker);
    return blackBox_->Add(nullptr, BlackBox::Mortal::Worker, cause.kind);
  }
  const bool isNoted = NoteDeath(BlackBox::Mortal::Worker, cause,
                                 WriteUp(obituary, BlackBox::Mortal::Worker, cause, lines));
  Say(SCA_LevelError, "a worker of server %lu on port %u died: %s (%s)", server_->GetServerId(),
      server_->GetPortNumber(), cause.text.c_str(), obituary.text);
  if (!isNoted) SayForgotten(obituary);
}

// False when there was no memory to remember it: it counts nevertheless.
bool ServerWatch::NoteDeath(BlackBox::Mortal mortal, const DeathCause& cause,
                            SCA_Owned<SCA_ConfigObj> death) {
  const bool isWritten = death != nullptr;
  const SCA_LockGuard guard(lock_);
  CountDeath(mortal);
  lastDeath_ = cause.text;
  lastDeathTime_ = SCA_GetAbsTime();
  blackBox_->Add(std::move(death), mortal, cause.kind);
  return isWritten;
}

void ServerWatch::CountDeath(BlackBox::Mortal mortal) {
  run_.isReady = false;  // of a worker's server until the next worker answers
  ++epoch_;
  if (mortal == BlackBox::Mortal::Worker) ++run_.workerDeaths;
  if (mortal == BlackBox::Mortal::Server) run_.isOver = true;
}

void ServerWatch::DelayRestart() {
  const unsigned long shift = std::min(deathsInVain_ - 1, 6UL);
  halted_.Wait(std::min(kFirstDelayMs << shift, kLastDelayMs));
}

// What the process printed last; the obituary itself is not part of it. The log may have been
// cleared meanwhile: its numbers begin anew then.
std::vector<std::string> ServerWatch::LastLines(const SCA_TikaObituary& obituary,
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

SCA_Owned<SCA_ConfigObj> ServerWatch::WriteUp(const SCA_TikaObituary& obituary,
                                              BlackBox::Mortal mortal, const DeathCause& cause,
                                              const std::vector<std::string>& lines) {
  namespace Fields = SCA_DeathFields;
  SCA_Owned<SCA_ConfigObj> death(new SCA_ConfigObj("Death", nullptr));
  SCA_ConfigObj* object = death.get();
  const bool isWorker = mortal == BlackBox::Mortal::Worker;
  const bool isEndWritten =
      obituary.isExitKnown == 0 || (object->AddField(Fields::ExitCode, obituary.exitCode, 0) != 0 &&
                                    object->AddField(Fields::Signal, obituary.signal, 0) != 0);
  const bool isWhole = object->AddField(Fields::Time, SCA_GetAbsTime(), 0) != 0 &&
                       object->AddField(Fields::ServerId, obituary.serverId, 0) != 0 &&
                       object->AddField(Fields::Port, server_->GetPortNumber(), 0) != 0 &&
                       object->AddField(Fields::FileName, server_->GetFileName(), 0) != 0 &&
                       object->AddField(Fields::ProcessId, obituary.processId, 0) != 0 &&
                       object->AddField(Fields::Kind, SCA_DeathKindText(cause.kind), 0) != 0 &&
                       object->AddField(Fields::Cause, cause.text.c_str(), 0) != 0 &&
                       object->AddField(Fields::Worker, isWorker ? 1U : 0U, 0) != 0 &&
                       isEndWritten &&
                       object->AddField(Fields::RunTime, obituary.runTimeMs, 0) != 0 &&
                       object->AddField(Fields::Restart, server_->GetSessionId(), 0) != 0 &&
                       object->AddField(Fields::MemoryUsage, obituary.memoryUsage, 0) != 0 &&
                       AddTexts(object->AddConfigObj(Fields::Lines), lines) != 0 &&
                       AddMemoryCurve(object->AddConfigObj(Fields::Memory)) != 0;
  return isWhole ? std::move(death) : nullptr;
}

int ServerWatch::AddMemoryCurve(SCA_ConfigObj* curve) {
  if (curve == nullptr) return 0;
  const Clock::time_point now = Clock::now();
  const SCA_LockGuard guard(lock_);
  for (const Sample& sample : run_.memory) {
    const std::string age = std::to_string(Ms(now - sample.time));
    if (curve->AddField(age.c_str(), sample.bytes, 0) == 0) return 0;
  }
  return 1;
}
