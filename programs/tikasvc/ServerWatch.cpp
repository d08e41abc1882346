#include "programs/tikasvc/ServerWatch.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "client/SCA_TikaClient.h"
#include "control/SCA_ServiceStatusNames.h"
#include "platform/SCA_Text.h"
#include "platform/SCA_Time.h"
#include "programs/tikasvc/DeathCause.h"
#include "programs/tikasvc/HostLog.h"

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
  ServerHealth health;
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
  while (ending_.Wait(0) == 0) wake_.Wait(Look());
}

// @return How long to wait for the next look, in milliseconds.
unsigned long ServerWatch::Look() {
  unsigned long long run = 0;
  {
    const SCA_LockGuard guard(lock_);
    if (run_.isOver) return SCA_Infinite;
    run = run_.number;
    SampleMemory();
  }
  std::string version;
  const Clock::time_point begin = Clock::now();
  const bool answers = Ask(&version);
  NoteAnswer(run, answers, version, Clock::now() - begin);
  RestartWhenSilent();
  if (!answers) return kFirstAskMs;
  // Often enough to find out soon when the limit has passed.
  const unsigned long quarter = std::max(rules_.silenceLimitMs / 4, kFirstAskMs);
  return rules_.silenceLimitMs != 0 ? std::min(kAskMs, quarter) : kAskMs;
}

bool ServerWatch::Ask(std::string* version) {
  const QuietReports quiet;  // the health says whether it answers
  const bool hasLimit = rules_.silenceLimitMs != 0;
  const unsigned long limitMs =
      hasLimit ? std::min(kAnswerLimitMs, rules_.silenceLimitMs) : kAnswerLimitMs;
  SCA_TikaConfigOrv settings;
  settings.SetNetworkTimeout(limitMs);
  SCA_TikaClient client(&settings, rules_.address.c_str(), server_->GetPortNumber());
  client.SetCancelEvent(&ending_);
  char answer[101];
  unsigned long error = 0;
  if (client.Connect(limitMs, &error) == 0) return false;
  if (client.GetVersion(answer, sizeof answer, &error) == 0) return false;
  SCA_BlankControls(answer, std::strlen(answer));
  *version = answer;
  return true;
}

// An answer that has come from a former process, or from a stranger on its port, says nothing of
// this one.
void ServerWatch::NoteAnswer(unsigned long long run, bool answers, const std::string& version,
                             Clock::duration time) {
  bool isNews = false;
  {
    const SCA_LockGuard guard(lock_);
    if (run_.isOver || run_.number != run) return;
    isNews = answers && !run_.isReady;
    run_.isReady = answers;
    if (!answers) return;
    run_.hasAnswered = true;
    run_.lastAnswer = Clock::now();
    version_ = version;
    answerMs_ = Ms(time);
  }
  if (isNews) {
    Say(SCA_LevelInfo, "server %lu on port %u answers: %s", server_->GetServerId(),
        server_->GetPortNumber(), version.c_str());
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
  // It may have died by itself meanwhile: the next one is not to suffer for it.
  if (server_->GetProcessId() != processId) return;
  const std::string cause = "it had not answered for " + std::to_string(silenceMs / 1000) + " s";
  server_->RequestRestart(cause.c_str());
}

// The server's worker

void ServerWatch::OnStart(unsigned long processId) {
  logSession_ = server_->GetLog()->GetSessionId();
  beforeOutput_ = server_->GetLog()->GetLastMessageId();
  {
    const SCA_LockGuard guard(lock_);
    const unsigned long long number = run_.number + 1;
    run_ = Run();
    run_.isOver = false;
    run_.begin = Clock::now();
    run_.lastAnswer = run_.begin;
    run_.number = number;
    run_.processId = processId;
  }
  wake_.Set();
}

void ServerWatch::OnEnd(const SCA_TikaObituary& obituary) {
  const std::vector<std::string> lines = LastLines(obituary);
  const DeathCause cause = FindDeathCause(obituary, lines);
  bool hasAnswered = false;
  {
    const SCA_LockGuard guard(lock_);
    run_.isOver = true;
    hasAnswered = run_.hasAnswered;
    if (obituary.isRequested == 0) {
      lastDeath_ = cause.text;
      lastDeathTime_ = SCA_GetAbsTime();
    }
  }
  if (obituary.isRequested != 0) {
    Say(SCA_LevelInfo, "server %lu on port %u: %s", server_->GetServerId(),
        server_->GetPortNumber(), obituary.text);
    return;
  }
  Say(SCA_LevelError, "server %lu on port %u died: %s (%s)", server_->GetServerId(),
      server_->GetPortNumber(), cause.text.c_str(), obituary.text);
  SCA_Owned<SCA_ConfigObj> death = WriteUp(obituary, cause.kind, cause.text, lines);
  if (death != nullptr) blackBox_->Add(std::move(death), cause.kind);
  // Where the port is taken it was a stranger who answered.
  const bool isInVain = !hasAnswered || cause.kind == SCA_DeathKinds::PortTaken;
  deathsInVain_ = isInVain ? deathsInVain_ + 1 : 0;
  if (isInVain) DelayRestart();
}

void ServerWatch::DelayRestart() {
  const unsigned long shift = std::min(deathsInVain_ - 1, 6UL);
  halted_.Wait(std::min(kFirstDelayMs << shift, kLastDelayMs));
}

// What the process printed last; the obituary itself is not part of it. The log may have been
// cleared meanwhile: its numbers begin anew then.
std::vector<std::string> ServerWatch::LastLines(const SCA_TikaObituary& obituary) const {
  SCA_TikaLog* log = server_->GetLog();
  const bool isCleared = log->GetSessionId() != logSession_;
  const unsigned long before = isCleared ? SCA_NoItemId : beforeOutput_;
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

SCA_Owned<SCA_ConfigObj> ServerWatch::WriteUp(const SCA_TikaObituary& obituary, const char* kind,
                                              const std::string& cause,
                                              const std::vector<std::string>& lines) {
  namespace Fields = SCA_DeathFields;
  SCA_Owned<SCA_ConfigObj> death(new SCA_ConfigObj("Death", nullptr));
  SCA_ConfigObj* object = death.get();
  const bool isWhole = object->AddField(Fields::Time, SCA_GetAbsTime(), 0) != 0 &&
                       object->AddField(Fields::ServerId, obituary.serverId, 0) != 0 &&
                       object->AddField(Fields::Port, server_->GetPortNumber(), 0) != 0 &&
                       object->AddField(Fields::FileName, server_->GetFileName(), 0) != 0 &&
                       object->AddField(Fields::ProcessId, obituary.processId, 0) != 0 &&
                       object->AddField(Fields::Kind, kind, 0) != 0 &&
                       object->AddField(Fields::Cause, cause.c_str(), 0) != 0 &&
                       object->AddField(Fields::ExitCode, obituary.exitCode, 0) != 0 &&
                       object->AddField(Fields::Signal, obituary.signal, 0) != 0 &&
                       object->AddField(Fields::RunTime, obituary.runTimeMs, 0) != 0 &&
                       object->AddField(Fields::Restart, server_->GetSessionId(), 0) != 0 &&
                       object->AddField(Fields::MemoryUsage, obituary.memoryUsage, 0) != 0 &&
                       AddTexts(object->AddConfigObj(Fields::Lines), lines) != 0 &&
                       AddMemoryCurve(object->AddConfigObj(Fields::Memory)) != 0;
  if (isWhole) return death;
  Say(SCA_LevelError, "no memory to write up the death of server %lu", obituary.serverId);
  return nullptr;
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
