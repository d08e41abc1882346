#include "programs/tikasvc/HostedServers.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <thread>

#include "control/SCA_ServiceStatusNames.h"
#include "platform/SCA_Error.h"
#include "programs/tikasvc/HostLog.h"

namespace {

constexpr std::chrono::seconds kSuspendLimit{15};
constexpr std::chrono::milliseconds kSuspendPoll{20};

// A server that listens on all addresses is asked on loopback.
std::string AskedAddress(const std::string& bind) {
  if (bind == "0.0.0.0") return "127.0.0.1";
  return bind == "::" ? "::1" : bind;
}

const char* StatusText(const SCA_TikaServer& server, const SCA_TikaWatchState& health) {
  const unsigned long status = server.GetProcessStatus();
  const bool isAwaited = status == SCA_ServerActive && !health.isReady;
  if (isAwaited) return health.hasAnswered != 0 ? "silent" : "starting";
  return SCA_FindProcessStatus(status).serverWord;
}

// Only the start of java itself gives the system's codes.
const char* StartErrorText(unsigned long code) {
  return code == ENOENT ? "java is not on the search path of tikasvc; install a Java runtime"
                        : SCA_ErrorText(code);
}

std::string OwnerText(unsigned long owner) {
  return owner == HostedServers::kHost ? "host" : "connection " + std::to_string(owner);
}

SCA_TikaWatchState StateOf(const SCA_TikaWatch& watch) {
  SCA_TikaWatchState state;
  watch.GetState(&state);
  return state;
}

}  // namespace

void WatchReports::OnReady(const SCA_TikaServer& server, const char* version) {
  Say(SCA_LevelInfo, "server %lu on port %u answers: %s", server.GetServerId(),
      server.GetPortNumber(), version);
}

void WatchReports::OnDeath(const SCA_TikaServer& server, const SCA_TikaDeath& death,
                           const char* text) {
  if (death.kind == SCA_DeathKind::Stopped) {
    return Say(SCA_LevelInfo, "server %lu on port %u: %s", server.GetServerId(),
               server.GetPortNumber(), text);
  }
  Say(SCA_LevelError, "%sserver %lu on port %u died: %s (%s)",
      death.who == SCA_DeathOf::Worker ? "a worker of " : "", server.GetServerId(),
      server.GetPortNumber(), death.cause.c_str(), text);
}

void WatchReports::OnRevival(const SCA_TikaServer& server, unsigned long code) {
  Say(SCA_LevelWarning, "gave up on server %lu (%s); trying again", server.GetServerId(),
      code != 0 ? StartErrorText(code) : "it had died too often");
}

unsigned long ServersSummary::Status() const {
  if (isSuspended) return SCA_ServerInactive;
  if (error > 0) return SCA_ServerError;
  if (ready < active) return SCA_ServerPending;
  return active > 0 ? SCA_ServerActive : SCA_ServerIdle;
}

int SerializeMessages(const SCA_TikaLog& log, unsigned long lastMessageId, unsigned long count,
                      SCA_ConfigObj* object) {
  const unsigned long newest = log.GetLastMessageId();
  const bool isEmpty = newest == SCA_NoItemId;
  const unsigned long newer = lastMessageId == SCA_NoItemId ? SCA_NoItemId : newest - lastMessageId;
  // A log that was cleared has lower ids than its reader remembers.
  const bool isStale = lastMessageId != SCA_NoItemId && (isEmpty || newest < lastMessageId);
  if (isStale) return 1;
  if (count == 0 || newer <= count) return log.Serialize(object, SCA_NoItemId, lastMessageId);
  return log.Serialize(object, count - 1, SCA_NoItemId);
}

HostedServers::HostedServers(SCA_TikaConfigUser* config, const std::string& bind,
                             unsigned long silenceLimitMs, SCA_TikaDeathHistory* history)
    : config_(config), bind_(bind), address_(AskedAddress(bind)), history_(history) {
  rules_.address = address_.c_str();
  rules_.silenceLimitMs = silenceLimitMs;
}

HostedServers::~HostedServers() {
  DeleteAll();
}

// Members of the list

const HostedServers::Hosted* HostedServers::Find(unsigned long id) const {
  const auto found = hosted_.find(id);
  return found != hosted_.end() ? &found->second : nullptr;
}

HostedServers::Hosted* HostedServers::Find(unsigned long id) {
  const auto found = hosted_.find(id);
  return found != hosted_.end() ? &found->second : nullptr;
}

bool HostedServers::Adopt(SCA_TikaServer* server, unsigned long agent) {
  std::unique_ptr<SCA_TikaWatch> watch;
  // Never on all addresses for want of the one that was asked for.
  bool isMade = server->SetBindAddress(bind_.c_str()) != 0;
  try {
    if (isMade) {
      watch = std::make_unique<SCA_TikaWatch>(server, rules_, history_, &reports_);
      isMade = watch->IsValid() != 0;  // there may be no further thread
    }
    if (isMade) {
      Hosted& hosted = hosted_[server->GetServerId()];
      hosted.server = server;
      hosted.owner = agent;
      hosted.watch = std::move(watch);
    }
  } catch (const std::exception&) {  // there is no memory
    isMade = false;
  }
  if (isMade) return true;
  watch.reset();
  list_.DeleteServer(server->GetServerId());
  return false;
}

void HostedServers::Claim(Hosted* hosted, unsigned long agent) {
  if (hosted->owner == kHost || hosted->owner == agent) return;
  if (agent == kHost) {  // whoever was quicker, what the host is to run is its own
    hosted->owner = kHost;
    hosted->claims.clear();
    return;
  }
  const auto end = hosted->claims.end();
  if (std::find(hosted->claims.begin(), end, agent) == end) hosted->claims.push_back(agent);
}

int HostedServers::Add(unsigned long agent, const char* fileName, unsigned short port,
                       unsigned long heapSize, const char* javaOptions, unsigned long* id,
                       unsigned long* status, unsigned long* code) {
  *id = SCA_NoServerId;
  *status = SCA_ServerError;
  *code = 0;
  if (*fileName == '\0' || port == 0 || heapSize == 0) {
    *code = EINVAL;
    return 1;
  }
  bool isNew = false;
  bool isAnother = false;
  {
    const SCA_LockGuard guard(lock_);
    SCA_TikaServer* server = nullptr;
    if (list_.GetServerByPort(port, &server) == 0 && list_.Count() >= SCA_MaxHostedServers) {
      *code = SCA_ErrorDataTooLarge;
      return 1;
    }
    if (list_.AddServer(config_, fileName, port, heapSize, javaOptions, &server, code) == 0) {
      return 1;
    }
    Hosted* hosted = Find(server->GetServerId());
    isNew = hosted == nullptr;
    if (isNew && !Adopt(server, agent)) {
      *code = EAGAIN;
      return 1;
    }
    if (!isNew) Claim(hosted, agent);
    isAnother = server->CheckConfig(fileName, port, heapSize, javaOptions) == 0;
    *id = server->GetServerId();
    *status = server->GetProcessStatus();
  }
  if (isNew) {
    Say(SCA_LevelInfo, "server %lu added: %s on port %u, heap %lu MB, for %s", *id, fileName, port,
        heapSize, OwnerText(agent).c_str());
  } else if (isAnother) {
    Say(SCA_LevelWarning,
        "%s asked for %s on port %u with heap %lu MB and got server %lu, which has that port and "
        "other settings",
        OwnerText(agent).c_str(), fileName, port, heapSize, *id);
  }
  return 1;
}

int HostedServers::Start(unsigned long id, unsigned long* status, unsigned long* code) {
  *code = 0;
  {
    const SCA_LockGuard guard(lock_);
    Hosted* hosted = Find(id);
    if (hosted == nullptr) return 0;
    if (isEnding_) {
      *code = SCA_ErrorStopping;
    } else if (hosted->watch->Start(code) != 0 || *code != EBUSY) {
      isSuspended_ = false;  // only one that a suspension is still stopping leaves it as it is
    }
    *status = hosted->server->GetProcessStatus();
  }
  if (*code != 0 && *code != SCA_ErrorAlreadyActive) {
    Say(SCA_LevelError, "server %lu cannot be started: %s", id, SCA_ErrorText(*code));
  }
  return 1;
}

// Ends

HostedServers::Leaving HostedServers::Take(unsigned long id) {
  Leaving leaving;
  SCA_TikaServer* server = nullptr;
  const auto found = hosted_.find(id);
  if (found == hosted_.end() || list_.TakeServer(id, &server) == 0) return leaving;
  leaving.server.reset(server);
  leaving.watch = std::move(found->second.watch);
  hosted_.erase(found);
  return leaving;
}

// All are asked before any is waited for, so that their ends overlap.
void HostedServers::End(std::vector<Leaving> leaving) {
  for (const Leaving& one : leaving) one.watch->RequestStop();
  for (Leaving& one : leaving) {
    const unsigned long id = one.server->GetServerId();
    one.watch.reset();
    one.server.reset();
    Say(SCA_LevelInfo, "server %lu deleted", id);
  }
}

int HostedServers::Delete(unsigned long id) {
  std::vector<Leaving> leaving;
  {
    const SCA_LockGuard guard(lock_);
    if (Find(id) == nullptr) return 0;
    leaving.push_back(Take(id));
  }
  End(std::move(leaving));
  return 1;
}

int HostedServers::DeleteAllOf(unsigned long agent) {
  std::vector<Leaving> leaving;
  {
    const SCA_LockGuard guard(lock_);
    std::vector<unsigned long> going;
    for (auto& [id, hosted] : hosted_) {
      auto& claims = hosted.claims;
      claims.erase(std::remove(claims.begin(), claims.end(), agent), claims.end());
      if (hosted.owner != agent) continue;
      if (claims.empty()) {
        going.push_back(id);
      } else {
        hosted.owner = claims.front();
        claims.pop_front();
      }
    }
    for (const unsigned long id : going) leaving.push_back(Take(id));
  }
  End(std::move(leaving));
  return 1;
}

void HostedServers::DeleteAll() {
  std::vector<Leaving> leaving;
  {
    const SCA_LockGuard guard(lock_);
    while (!hosted_.empty()) leaving.push_back(Take(hosted_.begin()->first));
  }
  End(std::move(leaving));
}

void HostedServers::Forget(unsigned long agent) {
  const SCA_LockGuard guard(lock_);
  for (auto& [id, hosted] : hosted_) {
    auto& claims = hosted.claims;
    claims.erase(std::remove(claims.begin(), claims.end(), agent), claims.end());
    if (hosted.owner != agent) continue;
    hosted.owner = kHost;
    claims.clear();
  }
}

void HostedServers::StopAll() {
  for (auto& [id, hosted] : hosted_) hosted.watch->RequestStop();
}

bool HostedServers::IsStopping() const {
  const SCA_LockGuard guard(lock_);
  return std::any_of(hosted_.begin(), hosted_.end(),
                     [](const auto& entry) { return entry.second.watch->IsStopping() != 0; });
}

void HostedServers::BeginEnd() {
  const SCA_LockGuard guard(lock_);
  isEnding_ = true;
  StopAll();
}

int HostedServers::Suspend() {
  {
    const SCA_LockGuard guard(lock_);
    isSuspended_ = true;
    StopAll();
  }
  Say(SCA_LevelInfo, "suspended: all servers are being stopped");
  const auto limit = std::chrono::steady_clock::now() + kSuspendLimit;
  while (IsStopping()) {
    if (std::chrono::steady_clock::now() > limit) return 0;
    std::this_thread::sleep_for(kSuspendPoll);
  }
  return 1;
}

// What is told

int HostedServers::SerializeList(SCA_ConfigObj* list) const {
  const SCA_LockGuard guard(lock_);
  return list_.Serialize(list);
}

int HostedServers::Serialize(unsigned long id, SCA_ConfigObj* server) const {
  const SCA_LockGuard guard(lock_);
  const Hosted* hosted = Find(id);
  return hosted != nullptr ? hosted->server->Serialize(server) : 0;
}

int HostedServers::SerializeLog(unsigned long id, unsigned long lastMessageId, unsigned long count,
                                SCA_ConfigObj* log) const {
  const SCA_LockGuard guard(lock_);
  const Hosted* hosted = Find(id);
  if (hosted == nullptr) return 0;
  return SerializeMessages(*hosted->server->GetLog(), lastMessageId, count, log);
}

int HostedServers::ClearLog(unsigned long id) {
  const SCA_LockGuard guard(lock_);
  const Hosted* hosted = Find(id);
  return hosted != nullptr ? hosted->server->GetLog()->Clear() : 0;
}

ServersSummary HostedServers::Summarize() const {
  const SCA_LockGuard guard(lock_);
  ServersSummary summary;
  summary.servers = hosted_.size();
  summary.statusId = list_.GetServersStatusId();
  summary.isSuspended = isSuspended_;
  // Each is looked at once: what is counted here must add up.
  for (const auto& [id, hosted] : hosted_) {
    const unsigned long status = hosted.server->GetProcessStatus();
    const bool isActive = status == SCA_ServerActive;
    if (isActive) ++summary.active;
    if (status == SCA_ServerError) ++summary.error;
    if (isActive && StateOf(*hosted.watch).isReady != 0) ++summary.ready;
    if (hosted.server->GetProcessId() != 0) summary.memoryUsage += hosted.server->GetMemoryUsage();
  }
  return summary;
}

std::vector<ServerStatus> HostedServers::GetStatuses() const {
  std::vector<ServerStatus> statuses;
  const SCA_LockGuard guard(lock_);
  for (const auto& [id, hosted] : hosted_) {
    ServerStatus status;
    if (GetStatus(hosted, StateOf(*hosted.watch), &status) != 0) {
      statuses.push_back(std::move(status));
    }
  }
  return statuses;
}

int HostedServers::AddStatuses(SCA_ConfigObj* servers) const {
  const SCA_LockGuard guard(lock_);
  for (const auto& [id, hosted] : hosted_) {
    ServerStatus status;
    SCA_ConfigObj* object = servers->AddConfigObj(std::to_string(id).c_str());
    if (object == nullptr || GetStatus(hosted, StateOf(*hosted.watch), &status) == 0 ||
        AddFields(status, object) == 0) {
      return 0;
    }
  }
  return 1;
}

int HostedServers::FillStatus(unsigned long id, SCA_ConfigObj* object) const {
  const SCA_LockGuard guard(lock_);
  const Hosted* hosted = Find(id);
  SCA_Owned<SCA_ConfigObj> history(new SCA_ConfigObj(SCA_ServerFields::History, nullptr));
  SCA_TikaWatchState health;
  ServerStatus status;
  if (hosted == nullptr || hosted->watch->GetState(&health, history.get()) == 0 ||
      GetStatus(*hosted, health, &status) == 0 || AddFields(status, object) == 0 ||
      object->AddField(history.get()) == 0) {
    return 0;
  }
  static_cast<void>(history.release());
  return 1;
}

int HostedServers::GetStatus(const Hosted& hosted, const SCA_TikaWatchState& health,
                             ServerStatus* status) {
  SCA_TikaServer& server = *hosted.server;
  const unsigned long code = server.GetStatusCode();
  const bool runs = health.processId != 0;
  // Texts that a start may change are copied under the server's own lock.
  SCA_ConfigObj copy("Server", nullptr);
  char fileName[SCA_MaxPath] = "";
  char javaOptions[260] = "";
  if (server.Serialize(&copy) == 0 || copy.GetField("FileName", fileName, sizeof fileName) == 0) {
    return 0;
  }
  copy.GetField("JavaOptions", javaOptions, sizeof javaOptions);
  status->ServerId = server.GetServerId();
  status->FileName = fileName;
  status->Port = server.GetPortNumber();
  status->HeapSize = server.GetHeapSize();
  status->JavaOptions = javaOptions;
  status->Status = server.GetProcessStatus();
  status->StatusText = StatusText(server, health);
  status->Ready = server.IsActive() != 0 && health.isReady != 0 ? 1 : 0;
  status->TikaVersion = health.version;
  status->AnswerTime = health.answerMs;
  status->Silence = health.silenceMs;
  status->StatusCode = code;
  status->StatusCodeText = code != 0 ? StartErrorText(code) : "";
  status->ProcessId = health.processId;
  status->Restarts = health.restarts;
  status->WorkerDeaths = health.workerDeaths;
  status->StartTime = server.GetStartTime();
  status->UpTime = runs ? server.GetUpTime() : 0;
  status->MemoryUsage = runs ? server.GetMemoryUsage() : 0;
  status->ReadIops = server.GetReadIOPS();
  status->WriteIops = server.GetWriteIOPS();
  status->ReadData = server.GetReadData();
  status->WriteData = server.GetWriteData();
  status->LogSession = server.GetLog()->GetSessionId();
  status->LogLastId = server.GetLog()->GetLastMessageId();
  status->LogErrors = server.GetLog()->GetErrorCount();
  status->LastDeath = health.lastDeath;
  status->LastDeathTime = health.lastDeathTime;
  status->Owner = OwnerText(hosted.owner);
  return 1;
}
