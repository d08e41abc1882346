#include "programs/tikasvc/HostedServers.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <thread>

#include "control/SCA_ServiceStatusNames.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_FreePort.h"
#include "programs/tikasvc/HostLog.h"
#include "programs/tikasvc/LogMessages.h"

namespace {

constexpr std::chrono::seconds kSuspendLimit{15};
constexpr std::chrono::milliseconds kSuspendPoll{20};

// A server that listens on all addresses is asked on loopback.
std::string AskedAddress(const std::string& bind) {
  if (bind == "0.0.0.0") return "127.0.0.1";
  return bind == "::" ? "::1" : bind;
}

}  // namespace

unsigned long ServersSummary::Status() const {
  if (isSuspended) return SCA_ServerInactive;
  if (error > 0) return SCA_ServerError;
  if (ready < active) return SCA_ServerPending;
  return active > 0 ? SCA_ServerActive : SCA_ServerIdle;
}

HostedServers::HostedServers(SCA_TikaConfigUser* config, const std::string& bind,
                             unsigned long silenceLimitMs, SCA_TikaDeathHistory* history,
                             SCA_ClassArchive* archive)
    : config_(config), bind_(bind), address_(AskedAddress(bind)), history_(history) {
  rules_.address = address_.c_str();
  rules_.silenceLimitMs = silenceLimitMs;
  rules_.purpose = SCA_JvmPurpose::Service;
  rules_.archive = archive;
}

HostedServers::~HostedServers() {
  DeleteAll();
}

// Members of the list

const HostedServer* HostedServers::Find(unsigned long id) const {
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
      hosted_.emplace(server->GetServerId(),
                      HostedServer{server, std::move(watch), ServerOwners(agent)});
    }
  } catch (const std::exception&) {  // there is no memory
    isMade = false;
  }
  if (isMade) return true;
  watch.reset();
  list_.DeleteServer(server->GetServerId());
  return false;
}

// Whether a server has the port that has left the list, and still finishes its documents there.
bool HostedServers::IsWithdrawn(unsigned short port) const {
  return std::any_of(withdrawn_.begin(), withdrawn_.end(), [port](const auto& entry) {
    return entry.second.server->GetPortNumber() == port;
  });
}

// @return An error code, or 0 where a server may be added, or is there already.
unsigned long HostedServers::WhyNotOn(unsigned short port) const {
  SCA_TikaServer* server = nullptr;
  if (list_.GetServerByPort(port, &server) != 0) return 0;
  if (IsWithdrawn(port)) return EADDRINUSE;
  return list_.Count() >= SCA_MaxHostedServers ? SCA_ErrorDataTooLarge : 0;
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
    *code = WhyNotOn(port);
    if (*code != 0) return 1;
    SCA_TikaServer* server = nullptr;
    if (list_.AddServer(config_, fileName, port, heapSize, javaOptions, &server, code) == 0) {
      return 1;
    }
    const auto hosted = hosted_.find(server->GetServerId());
    isNew = hosted == hosted_.end();
    if (isNew && !Adopt(server, agent)) {
      *code = EAGAIN;
      return 1;
    }
    if (!isNew) hosted->second.owners.Claim(agent);
    isAnother = server->CheckConfig(fileName, port, heapSize, javaOptions) == 0;
    *id = server->GetServerId();
    *status = server->GetProcessStatus();
  }
  if (isNew) {
    Say(SCA_LevelInfo, "server %lu added: %s on port %u, heap %lu MB, for %s", *id, fileName, port,
        heapSize, ServerOwners::TextOf(agent).c_str());
  } else if (isAnother) {
    Say(SCA_LevelWarning,
        "%s asked for %s on port %u with heap %lu MB and got server %lu, which has that port and "
        "other settings",
        ServerOwners::TextOf(agent).c_str(), fileName, port, heapSize, *id);
  }
  return 1;
}

int HostedServers::Start(unsigned long id, unsigned long* status, unsigned long* code) {
  *code = 0;
  {
    const SCA_LockGuard guard(lock_);
    const HostedServer* hosted = Find(id);
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
      if (hosted.owners.Leave(agent)) going.push_back(id);
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
    for (auto& [id, one] : withdrawn_) leaving.push_back(std::move(one));
    withdrawn_.clear();
  }
  End(std::move(leaving));
}

void HostedServers::Forget(unsigned long agent) {
  const SCA_LockGuard guard(lock_);
  for (auto& [id, hosted] : hosted_) hosted.owners.Forget(agent);
}

void HostedServers::StopAll() {
  for (auto& [id, hosted] : hosted_) hosted.watch->RequestStop();
  for (auto& [id, one] : withdrawn_) one.watch->RequestStop();
}

bool HostedServers::IsStopping() const {
  const SCA_LockGuard guard(lock_);
  const auto isStopping = [](const auto& entry) { return entry.second.watch->IsStopping() != 0; };
  return std::any_of(hosted_.begin(), hosted_.end(), isStopping) ||
         std::any_of(withdrawn_.begin(), withdrawn_.end(), isStopping);
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

// Successions

std::vector<SCA_TikaTenure> HostedServers::GetTenures() const {
  std::vector<SCA_TikaTenure> tenures;
  const SCA_LockGuard guard(lock_);
  for (const auto& [id, hosted] : hosted_) {
    SCA_TikaTenure tenure;
    tenure.serverId = id;
    tenure.port = hosted.server->GetPortNumber();
    tenure.isReady = hosted.IsReady() ? 1 : 0;
    tenure.isBound = hosted.owners.HasConnection() || isSuspended_ ? 1 : 0;
    tenure.documents = hosted.server->GetDocuments();
    tenure.upTimeMs = hosted.server->GetUpTime();
    tenure.memoryBytes = hosted.server->GetMemoryUsage();
    tenures.push_back(tenure);
  }
  return tenures;
}

// @return 0 when there is none.
unsigned short HostedServers::FindSparePort() const {
  for (unsigned long port = lowestPort_; port <= kMaxPort; ++port) {
    const auto number = static_cast<unsigned short>(port);
    const auto isIts = [=](const auto& entry) {
      return entry.second.server->GetPortNumber() == number;
    };
    if (IsWithdrawn(number) || std::any_of(hosted_.begin(), hosted_.end(), isIts)) continue;
    if (SCA_IsPortFree(number) != 0) return number;
  }
  return 0;
}

// @return Null when there can be none.
SCA_TikaServer* HostedServers::AddSuccessor(const HostedServer& hosted, unsigned long* error) {
  ServerStatus status;
  const unsigned short port = FindSparePort();
  *error = port == 0 ? EADDRINUSE : SCA_ErrorDataTooLarge;
  if (port == 0 || list_.Count() >= SCA_MaxHostedServers) return nullptr;
  SCA_TikaServer* server = nullptr;
  *error = ENOMEM;
  if (hosted.GetStatus(&status) == 0 ||
      list_.AddServer(config_, status.FileName.c_str(), port,
                      static_cast<unsigned long>(status.HeapSize), status.JavaOptions.c_str(),
                      &server, error) == 0) {
    return nullptr;
  }
  *error = EAGAIN;
  return Adopt(server, kHost) ? server : nullptr;
}

int HostedServers::StartSuccessor(unsigned long id, unsigned long* successorId,
                                  unsigned short* port, unsigned long* error) {
  std::vector<Leaving> leaving;
  {
    const SCA_LockGuard guard(lock_);
    const HostedServer* hosted = Find(id);
    *error = SCA_ErrorStopping;
    if (hosted == nullptr || isSuspended_ || isEnding_) return 0;
    lowestPort_ = std::min(lowestPort_, hosted->server->GetPortNumber());
    SCA_TikaServer* server = AddSuccessor(*hosted, error);
    if (server == nullptr) return 0;
    *successorId = server->GetServerId();
    *port = server->GetPortNumber();
    if (Find(*successorId)->watch->Start(error) != 0) return 1;
    leaving.push_back(Take(*successorId));
  }
  End(std::move(leaving));
  return 0;
}

int HostedServers::Withdraw(unsigned long id, unsigned long successorId) {
  const SCA_LockGuard guard(lock_);
  const HostedServer* hosted = Find(id);
  const HostedServer* successor = Find(successorId);
  const bool mayGo = hosted != nullptr && !hosted->owners.HasConnection() && !isSuspended_;
  if (!mayGo || successor == nullptr || !successor->IsReady()) return 0;
  withdrawn_[id] = Take(id);
  ++recycled_;
  return 1;
}

void HostedServers::DeleteWithdrawn(unsigned long id) {
  std::vector<Leaving> leaving;
  {
    const SCA_LockGuard guard(lock_);
    const auto found = withdrawn_.find(id);
    if (found == withdrawn_.end()) return;
    leaving.push_back(std::move(found->second));
    withdrawn_.erase(found);
  }
  End(std::move(leaving));
}

void HostedServers::DeleteUnclaimed(unsigned long id) {
  std::vector<Leaving> leaving;
  {
    const SCA_LockGuard guard(lock_);
    const HostedServer* hosted = Find(id);
    if (hosted == nullptr || hosted->owners.HasConnection()) return;
    leaving.push_back(Take(id));
  }
  End(std::move(leaving));
}

// What is told

int HostedServers::SerializeList(SCA_ConfigObj* list) const {
  const SCA_LockGuard guard(lock_);
  return list_.Serialize(list);
}

int HostedServers::Serialize(unsigned long id, SCA_ConfigObj* server) const {
  const SCA_LockGuard guard(lock_);
  const HostedServer* hosted = Find(id);
  return hosted != nullptr ? hosted->server->Serialize(server) : 0;
}

int HostedServers::SerializeLog(unsigned long id, unsigned long lastMessageId, unsigned long count,
                                SCA_ConfigObj* log) const {
  const SCA_LockGuard guard(lock_);
  const HostedServer* hosted = Find(id);
  if (hosted == nullptr) return 0;
  return SerializeMessages(*hosted->server->GetLog(), lastMessageId, count, log);
}

int HostedServers::ClearLog(unsigned long id) {
  const SCA_LockGuard guard(lock_);
  const HostedServer* hosted = Find(id);
  return hosted != nullptr ? hosted->server->GetLog()->Clear() : 0;
}

ServersSummary HostedServers::Summarize() const {
  const SCA_LockGuard guard(lock_);
  ServersSummary summary;
  summary.servers = hosted_.size();
  summary.statusId = list_.GetServersStatusId();
  summary.leaving = withdrawn_.size();
  summary.recycled = recycled_;
  summary.isSuspended = isSuspended_;
  // Each is looked at once: what is counted here must add up.
  for (const auto& [id, hosted] : hosted_) {
    const unsigned long status = hosted.server->GetProcessStatus();
    const bool isActive = status == SCA_ServerActive;
    if (isActive) ++summary.active;
    if (status == SCA_ServerError) ++summary.error;
    if (isActive && hosted.IsReady()) ++summary.ready;
    if (hosted.server->GetProcessId() != 0) summary.memoryUsage += hosted.server->GetMemoryUsage();
  }
  for (const auto& [id, one] : withdrawn_) {
    if (one.server->GetProcessId() != 0) summary.memoryUsage += one.server->GetMemoryUsage();
  }
  return summary;
}

std::vector<ServerStatus> HostedServers::GetStatuses() const {
  std::vector<ServerStatus> statuses;
  const SCA_LockGuard guard(lock_);
  for (const auto& [id, hosted] : hosted_) {
    ServerStatus status;
    if (hosted.GetStatus(&status) != 0) {
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
    if (object == nullptr || hosted.GetStatus(&status) == 0 || AddFields(status, object) == 0) {
      return 0;
    }
  }
  return 1;
}

int HostedServers::FillStatus(unsigned long id, SCA_ConfigObj* object) const {
  const SCA_LockGuard guard(lock_);
  const HostedServer* hosted = Find(id);
  SCA_Owned<SCA_ConfigObj> history(new SCA_ConfigObj(SCA_ServerFields::History, nullptr));
  ServerStatus status;
  if (hosted == nullptr || hosted->GetStatus(&status, history.get()) == 0 ||
      AddFields(status, object) == 0 || object->AddField(history.get()) == 0) {
    return 0;
  }
  static_cast<void>(history.release());
  return 1;
}
