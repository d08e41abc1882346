#include "programs/tikaextract/ServiceHost.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "control/SCA_ServiceStatusNames.h"
#include "platform/SCA_Error.h"
#include "programs/common/Advice.h"
#include "programs/common/LocalHost.h"
#include "programs/tikaextract/ServerProbe.h"

namespace {

constexpr unsigned long kConnectMs = 3000;
constexpr unsigned long kReplyMs = 10000;
constexpr unsigned long kFarewellMs = 5000;
constexpr unsigned long kLookMs = 1000;        // between two looks at the host's servers
constexpr unsigned long kPendingLookMs = 200;  // while one of them is coming up
constexpr unsigned long kFirstDelayMs = 200;
constexpr unsigned long kLastDelayMs = 10000;
constexpr unsigned long kFirstAddDelayMs = 2000;
constexpr unsigned long kLastAddDelayMs = 60000;
constexpr unsigned long kHopelessEnds = 3;  // of a server that has never answered
constexpr std::chrono::seconds kReadyLimit{60};

constexpr char kStopped[] = "is stopped there";
constexpr char kNoWords[] = "the service host gives no reason";

bool Runs(unsigned long processStatus) {
  return processStatus == SCA_ServerActive || processStatus == SCA_ServerPending;
}

std::string List(const Ports& ports) {
  std::string text = ports.size() == 1 ? "port " : "ports ";
  for (const unsigned short port : ports) {
    text += (port == *ports.begin() ? "" : ", ") + std::to_string(port);
  }
  return text;
}

std::string TextOf(const SCA_ConfigObj& object, const char* name) {
  char text[SCA_ServiceTextSize] = "";
  object.GetField(name, text, sizeof text);
  return text;
}

}  // namespace

ServiceHost::ServiceHost(ServiceBoard* board, SCA_TikaServiceStatus* status,
                         std::string javaOptions)
    : board_(board),
      status_(status),
      serviceId_(status->GetServiceId()),
      javaOptions_(std::move(javaOptions)) {
  status_->SetSvcConnectTimeout(kConnectMs);
}

ServiceHost::~ServiceHost() {
  AskToLeave();
  Join();
}

void ServiceHost::Start() {
  thread_ = std::thread([this] { Run(); });
}

void ServiceHost::Join() {
  if (thread_.joinable()) thread_.join();
}

bool ServiceHost::Wants(unsigned short port) const {
  const unsigned long first = Record().GetDataPort();
  return port >= first && port < first + Record().GetNumOfServers();
}

void ServiceHost::Run() {
  unsigned long delayMs = kFirstDelayMs;
  while (!IsStopping()) {
    hasLooked_ = false;
    const bool isConnected = Connect();
    if (isConnected) Follow();
    // One that was lost is tried anew before anybody despairs.
    if (!loss_.empty()) EndConnection(!isConnected);
    if (hasLooked_) delayMs = kFirstDelayMs;
    stop_.Wait(delayMs);
    delayMs = std::min(delayMs * 2, kLastDelayMs);
  }
  Leave();
}

bool ServiceHost::Connect() {
  unsigned long error = 0;
  // Only the first time through the status: it would take leave of the service before it connects
  // anew, and a host that has merely been slow would delete the servers.
  const int isConnected =
      Link() == nullptr
          ? status_->DoConnect(&error)
          : Link()->Connect(Record().GetHostName(), Record().GetControlPort(), kConnectMs, &error);
  loss_ = isConnected != 0 ? "" : "no connection: " + Explain(error, ErrorOf::ServiceHost);
  if (isConnected == 0) return false;
  Link()->SetReplyTimeout(kReplyMs);
  return IsTheOnlyOne();
}

// Several addresses may lead to one machine. The time when the port was opened names the process.
bool ServiceHost::IsTheOnlyOne() {
  char version[SCA_ServiceTextSize] = "";
  char name[SCA_ServiceTextSize] = "";
  if (Link()->GetServerInfo(version, name) == 0 && HasLost("ask for its name")) return false;
  const unsigned long long start = Link()->GetNetTransport()->GetServerStartTime();
  const std::string other = board_->Claim(serviceId_, name + (" " + std::to_string(start)));
  if (!other.empty()) {
    loss_ = "is the same service host as " + other + ", which is used once";
    return false;
  }
  board_->TellDetail(
      serviceId_, (hasServed_ ? "is back: " : "connected: ") + ("version " + std::string(version)));
  hasServed_ = true;
  toldLoss_.clear();
  return true;
}

void ServiceHost::Follow() {
  while (!IsStopping() && Look()) {
    hasLooked_ = true;
    stop_.Wait(IsComingUp() ? kPendingLookMs : kLookMs);
  }
}

bool ServiceHost::IsComingUp() const {
  return std::any_of(servers_.begin(), servers_.end(), [](const auto& entry) {
    return !entry.second.isUsable && entry.second.why.empty();
  });
}

void ServiceHost::EndConnection(bool isSettled) {
  Ports ours;
  for (const auto& [port, server] : servers_) {
    if (server.isOurs) ours.insert(port);
  }
  leftBehind_.insert(ours.begin(), ours.end());
  servers_.clear();
  toldUsable_.clear();
  if (loss_ != toldLoss_) {
    // Whoever is not there when the run begins is worth a line in any case.
    hasServed_ ? board_->TellDetail(serviceId_, loss_) : board_->Tell(serviceId_, loss_);
  }
  toldLoss_ = loss_;
  if (!ours.empty()) {
    board_->TellDetail(serviceId_, "what was added on " + List(ours) +
                                       " over this connection stays there if the host lives on");
  }
  board_->Disconnected(serviceId_, loss_, isSettled);
}

void ServiceHost::Leave() {
  Ports asked;
  for (const auto& [port, server] : servers_) {
    if (server.isAsked) asked.insert(port);
    if (server.isOurs || !server.isListed) leftBehind_.erase(port);
  }
  if (!leftBehind_.empty()) {
    board_->TellDetail(serviceId_, "what was added on " + List(leftBehind_) +
                                       " over a connection that was lost may run on");
  }
  if (!asked.empty()) {
    Link()->SetReplyTimeout(kFarewellMs);
    if (Link()->DeleteAllServers() != 0) {
      board_->TellDetail(serviceId_, "gave back " + List(asked));
    } else {
      const unsigned long code = Link()->GetLastStatusCode();
      board_->Tell(serviceId_,
                   "what was added on " + List(asked) + " may run on: " +
                       (code != 0 ? SCA_ErrorText(code) : "the host refused to delete") +
                       "; look with 'tikactl servers'");
    }
  }
  status_->DoDisconnect();
}

// Looks after all servers once. @return False when the connection is lost.
bool ServiceHost::Look() {
  SCA_TikaServerList list;
  if (Link()->GetServerList(&list) == 0) {
    if (HasLost("ask for its servers")) return false;
    board_->Publish(serviceId_, {}, 0, "the service host does not give its list of servers", true);
    return true;
  }
  TakeList(list);
  // The list does not know yet what is asked for now.
  if (!AskForWanted()) {
    for (auto& [port, server] : servers_) {
      SCA_TikaServer* listed = nullptr;
      if (!loss_.empty() || (WantsServers() && !server.isAsked)) continue;
      if (list.GetServerByPort(port, &listed) != 0) {
        Watch(*listed, &server);
      } else {
        server.why = "was deleted there";
        server.isDown = true;
        server.isUsable = false;
      }
      if (listed != nullptr && !server.isDown && !server.isUsable) Probe(*listed, &server);
    }
  }
  if (!loss_.empty()) return false;
  Publish();
  return true;
}

void ServiceHost::TakeList(const SCA_TikaServerList& list) {
  for (auto& [port, server] : servers_) server.isListed = false;
  for (const auto* node = list.GetHead(); node != nullptr; node = node->GetNext()) {
    const unsigned short port = node->GetItem()->GetPortNumber();
    if (WantsServers() && !Wants(port)) continue;
    servers_[port].id = node->GetItem()->GetServerId();
    servers_[port].isListed = true;
  }
}

// Once for each connection, and again after a failure: what somebody stops or deletes later stays
// so. @return True when the host was asked for something.
bool ServiceHost::AskForWanted() {
  bool hasAsked = false;
  for (unsigned long i = 0; i < Record().GetNumOfServers() && !IsStopping(); ++i) {
    const auto port = static_cast<unsigned short>(Record().GetDataPort() + i);
    Server& server = servers_[port];
    if (server.isAsked || Clock::now() < server.nextTry) continue;
    hasAsked = true;
    server.isAsked = Ask(port, &server);
    if (!loss_.empty()) break;
  }
  return hasAsked;
}

bool ServiceHost::Ask(unsigned short port, Server* server) {
  unsigned long processStatus = SCA_ServerIdle;
  if (!Add(port, server, &processStatus)) return false;
  if (!Runs(processStatus) && !StartIt(server)) return false;
  server->why.clear();
  server->since = Clock::now();
  return true;
}

// Also one that is there: who has asked for a server keeps it when the one that added it leaves.
bool ServiceHost::Add(unsigned short port, Server* server, unsigned long* processStatus) {
  unsigned long code = 0;
  const bool isAnswered =
      Link()->AddServer(Record().GetFileName(), port, Record().GetHeapSize(), javaOptions_.c_str(),
                        &server->id, processStatus, &code) != 0;
  if (!isAnswered && HasLost("add a server")) return false;
  if (!isAnswered || code != 0 || server->id == SCA_NoServerId) {
    GiveUp(server, std::string("could not be added: ") +
                       (code != 0 ? SCA_ErrorText(code) : "the service host refused"));
    return false;
  }
  server->isOurs = !server->isListed && *processStatus == SCA_ServerIdle;
  return true;
}

bool ServiceHost::StartIt(Server* server) {
  unsigned long processStatus = 0;
  unsigned long code = 0;
  const bool isAnswered = Link()->StartServer(server->id, &processStatus, &code) != 0;
  if (!isAnswered && HasLost("start a server")) return false;
  if (isAnswered && (code == 0 || code == SCA_ErrorAlreadyActive)) {
    return true;
  }
  GiveUp(server, std::string("could not be started: ") +
                     (code != 0 ? SCA_ErrorText(code) : "the service host refused"));
  return false;
}

// Until the next try nothing is left there that came from here.
void ServiceHost::GiveUp(Server* server, const std::string& why) {
  server->why = why;
  server->delayMs = std::clamp(server->delayMs * 2, kFirstAddDelayMs, kLastAddDelayMs);
  server->nextTry = Clock::now() + std::chrono::milliseconds(server->delayMs);
  server->isAsked = false;
  server->ends.reset();
  if (std::exchange(server->isOurs, false) && Link()->DeleteServer(server->id) == 0) {
    HasLost("delete a server");
  }
}

// Takes over what the host's list says of a server.
void ServiceHost::Watch(const SCA_TikaServer& listed, Server* server) {
  if (Runs(listed.GetProcessStatus())) return WatchRunning(listed, server);
  if (server->isDown) return;
  const bool isError = listed.GetProcessStatus() == SCA_ServerError;
  const std::string why = isError ? "is in error: " + HostsWords(server->id) : kStopped;
  if (isError && server->isAsked && !server->isUsable) return GiveUp(server, why);
  server->why = why;
  server->isDown = true;
  server->isUsable = false;
}

// One that has died since it answered is coming up once more.
void ServiceHost::WatchRunning(const SCA_TikaServer& listed, Server* server) {
  const unsigned long ends = listed.GetTikaErrors();
  const bool hasDied = server->isUsable && ends != server->ends;
  if (hasDied) {
    board_->TellDetail(serviceId_, "port " + std::to_string(listed.GetPortNumber()) +
                                       ": died and restarts; " + HostsWords(server->id));
  }
  if (hasDied || server->isDown) {
    server->isDown = false;
    server->isUsable = false;
    server->why.clear();
    server->since = Clock::now();
  }
  // It counts from 0 when the server is started anew.
  if (!server->ends || ends < *server->ends) server->ends = ends;
}

// Asks a server that is coming up whether it answers.
void ServiceHost::Probe(const SCA_TikaServer& listed, Server* server) {
  const unsigned short port = listed.GetPortNumber();
  const std::string version =
      AskTikaVersion(TikaHostOf(Record().GetHostName()).c_str(), port, &stop_);
  if (!version.empty()) {
    server->isUsable = true;
    server->why.clear();
    server->delayMs = 0;
    server->ends = listed.GetTikaErrors();
    board_->TellDetail(serviceId_, "port " + std::to_string(port) + ": " + version + " answers");
  } else if (server->why.empty() && !IsStopping()) {
    const std::string why = Hopelessness(listed, *server);
    if (why.empty() || !server->isAsked) {
      server->why = why;
    } else {
      GiveUp(server, why);
    }
  }
}

// @return Why a server will not come up; nothing while it may.
std::string ServiceHost::Hopelessness(const SCA_TikaServer& listed, const Server& server) {
  if (listed.GetTikaErrors() >= *server.ends + kHopelessEnds) {
    return "does not come up: " + HostsWords(server.id);
  }
  if (Clock::now() - server.since < kReadyLimit) return {};
  return "has not answered for " + std::to_string(kReadyLimit.count()) +
         " s: " + HostsWords(server.id);
}

// What the service host says of a server.
std::string ServiceHost::HostsWords(unsigned long serverId) {
  SCA_ConfigObj* received = nullptr;
  if (Link()->GetServerStatusEx(serverId, &received) == 0) {
    return HasLost("ask for a server") ? loss_ : kNoWords;
  }
  const SCA_Owned<SCA_ConfigObj> object(received);
  std::string words = TextOf(*object, SCA_ServerFields::StatusText);
  const std::string code = TextOf(*object, SCA_ServerFields::StatusCodeText);
  const std::string death = TextOf(*object, SCA_ServerFields::LastDeath);
  if (!code.empty()) words += (words.empty() ? "" : "; ") + code;
  if (!death.empty()) words += (words.empty() ? "" : "; ") + ("its last end: " + death);
  return words.empty() ? kNoWords : words;
}

// @return True when the last call failed since the connection did.
bool ServiceHost::HasLost(const char* operation) {
  const unsigned long code = Link()->GetLastStatusCode();
  const bool isLost = code == ETIMEDOUT || Link()->GetNetTransport()->Connected() == 0;
  if (isLost && loss_.empty()) {
    loss_ = std::string("lost the connection, to ") + operation + ": " +
            Explain(code, ErrorOf::ServiceHost);
  }
  return isLost;
}

void ServiceHost::Publish() {
  Ports usable;
  std::size_t expected = 0;
  for (const auto& [port, server] : servers_) {
    if (server.isUsable) usable.insert(port);
    if (server.why.empty()) ++expected;
  }
  const std::string complaint = Complaint(!usable.empty());
  if (usable != toldUsable_) {
    board_->TellDetail(serviceId_, "has " + CountServers(usable.size()) +
                                       (usable.empty() ? "" : " on " + List(usable)));
    toldUsable_ = usable;
  }
  if (!IsComingUp() && complaint != toldComplaint_) {
    if (!complaint.empty()) board_->Tell(serviceId_, complaint);
    toldComplaint_ = complaint;
  }
  // Last: whoever waits for it finds the notes there.
  board_->Publish(serviceId_, usable, expected, complaint, !IsComingUp());
}

// @return Why something cannot be used; nothing when all is well.
std::string ServiceHost::Complaint(bool hasUsable) const {
  if (servers_.empty()) {
    return "it has no server: add one there with 'tikactl add', or for this run with --service-jar";
  }
  std::string text;
  bool isStopped = false;
  for (const auto& [port, server] : servers_) {
    // Who keeps stopped servers beside others has his reasons.
    if (server.isUsable || (hasUsable && !server.isAsked && server.why == kStopped)) continue;
    isStopped = isStopped || server.why == kStopped;
    text += (text.empty() ? "" : "; ") + ("the server on port " + std::to_string(port) + " ") +
            (server.why.empty() ? "does not answer yet" : server.why);
  }
  return text + (isStopped ? ": start it there with 'tikactl start'" : "");
}
