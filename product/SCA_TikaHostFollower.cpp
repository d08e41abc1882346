#include "product/SCA_TikaHostFollower.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <new>
#include <utility>

#include "control/SCA_ServiceStatusNames.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_TcpSock.h"

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
constexpr unsigned long kAnswerMs = 2000;

constexpr char kNoWords[] = "the service host gives no reason";

bool Runs(unsigned long processStatus) {
  return processStatus == SCA_ServerActive || processStatus == SCA_ServerPending;
}

std::string List(const std::set<unsigned short>& ports) {
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

// A host is named by its address, or by the path of its socket.
bool IsSocket(const char* host) {
  return *host == '/';
}

std::string NameOf(const SCA_TikaService& service) {
  if (IsSocket(service.GetHostName())) return service.GetHostName();
  char name[SCA_HostPortSize];
  SCA_FormatHostPort(service.GetHostName(), service.GetControlPort(), name, sizeof name);
  return name;
}

}  // namespace

int SCA_AskTikaVersion(const char* host, unsigned short port, SCA_Event* cancel,
                       SCA_TikaAnswer* answer) {
  unsigned long error = 0;
  return SCA_TikaProbe(host, port, kAnswerMs).Ask(cancel, answer, &error);
}

std::string SCA_TikaFleetParts::Claim(unsigned long serviceId, const std::string& host,
                                      const std::string& name) {
  const SCA_LockGuard guard(lock);
  for (const auto& [id, holder] : holders) {
    if (id != serviceId && holder.host == host) return holder.name;
  }
  holders[serviceId] = {host, name};
  return {};
}

void SCA_TikaFleetParts::Unclaim(unsigned long serviceId) {
  const SCA_LockGuard guard(lock);
  holders.erase(serviceId);
}

SCA_TikaHostFollower::SCA_TikaHostFollower(SCA_TikaFleetParts* parts, SCA_TikaService* service,
                                           const char* javaOptions)
    : parts_(parts), javaOptions_(javaOptions) {
  isValid_ = stop_.IsValid() != 0 && status_.Init(service) != 0;
  serviceId_ = Record().GetServiceId();
  wanted_ = Record().GetNumOfServers();
  expected_ = std::max(1UL, wanted_);
  status_.SetSvcConnectTimeout(kConnectMs);
}

SCA_TikaHostFollower::~SCA_TikaHostFollower() {
  AskToLeave();
  Join();
}

void SCA_TikaHostFollower::Start() {
  thread_ = std::thread([this] { Run(); });
}

void SCA_TikaHostFollower::Join() {
  if (thread_.joinable()) thread_.join();
}

SCA_TikaHostFollower::Outlook SCA_TikaHostFollower::Prospect() const {
  const SCA_LockGuard guard(lock_);
  const bool isReady = std::any_of(states_.begin(), states_.end(), [](const auto& entry) {
    return entry.second == ServerState::Ready;
  });
  if (!offered_.empty()) return Outlook::Ready;
  return isSettled_ && !isReady ? Outlook::Hopeless : Outlook::Pending;
}

bool SCA_TikaHostFollower::IsReady(unsigned short port) const {
  const SCA_LockGuard guard(lock_);
  const auto found = states_.find(port);
  return found != states_.end() && found->second == ServerState::Ready;
}

bool SCA_TikaHostFollower::MayBeUsed(unsigned short port) const {
  const SCA_LockGuard guard(lock_);
  return usable_.count(port) != 0;
}

unsigned long SCA_TikaHostFollower::Expected() const {
  const SCA_LockGuard guard(lock_);
  return expected_;
}

void SCA_TikaHostFollower::Recount() {
  expected_ = static_cast<unsigned long>(
      std::count_if(states_.begin(), states_.end(), [](const auto& entry) {
        return entry.second == ServerState::Ready || SCA_IsComingUp(entry.second);
      }));
}

const char* SCA_TikaHostFollower::TikaHost() {
  return IsSocket(Record().GetHostName()) ? "127.0.0.1" : Record().GetHostName();
}

bool SCA_TikaHostFollower::Wants(unsigned short port) {
  const unsigned long first = Record().GetDataPort();
  return port >= first && port < first + wanted_;
}

// Whether this connection has asked the host for a server, and holds to that.
bool SCA_TikaHostFollower::IsAsked(const Server& server) {
  return wanted_ > 0 && server.state != ServerState::Wanted && server.state != ServerState::Failed;
}

bool SCA_TikaHostFollower::IsConnected() const {
  return state_ == HostState::Connected || state_ == HostState::Following ||
         state_ == HostState::Refusing;
}

bool SCA_TikaHostFollower::IsComingUp() const {
  return std::any_of(servers_.begin(), servers_.end(),
                     [](const auto& entry) { return SCA_IsComingUp(entry.second.state); });
}

void SCA_TikaHostFollower::Run() {
  unsigned long delayMs = kFirstDelayMs;
  while (!IsStopping()) {
    if (Attempt()) delayMs = kFirstDelayMs;
    stop_.Wait(delayMs);
    delayMs = std::min(delayMs * 2, kLastDelayMs);
  }
  try {
    Leave();
  } catch (const std::exception&) {
    // Without memory nobody can be told; the status takes leave all the same.
  }
  status_.DoDisconnect();
}

// Connects, and follows the host for as long as the connection holds.
// @return True when the host has given its list of servers.
bool SCA_TikaHostFollower::Attempt() {
  bool hasListed = false;
  try {
    if (!Connect()) return false;
    while (!IsStopping() && Look()) {
      hasListed = hasListed || state_ == HostState::Following;
      stop_.Wait(IsComingUp() ? kPendingLookMs : kLookMs);
    }
    if (!IsConnected()) Forget();
  } catch (const std::exception&) {
    servers_.clear();
    Enter(SCA_NextState(state_, LossEvent()), ENOMEM, SCA_ErrorText(ENOMEM));
  }
  return hasListed;
}

bool SCA_TikaHostFollower::Connect() {
  unsigned long error = 0;
  // Only the first time through the status: it would take leave of the service before it connects
  // anew, and a host that has merely been slow would delete the servers.
  const int isConnected =
      Link() == nullptr
          ? status_.DoConnect(&error)
          : Link()->Connect(Record().GetHostName(), Record().GetControlPort(), kConnectMs, &error);
  if (isConnected == 0) {
    Move(HostEvent::FailsToConnect, error, std::string("no connection: ") + SCA_ErrorText(error));
    return false;
  }
  Link()->SetReplyTimeout(kReplyMs);
  return Introduce();
}

// Several addresses may lead to one machine. The time when the port was opened names the process.
bool SCA_TikaHostFollower::Introduce() {
  char version[SCA_ServiceTextSize] = "";
  char name[SCA_ServiceTextSize] = "";
  if (Link()->GetServerInfo(version, name) == 0 && HasLost("ask for its name")) return false;
  const unsigned long long start = Link()->GetNetTransport()->GetServerStartTime();
  const std::string other =
      parts_->Claim(serviceId_, name + (" " + std::to_string(start)), NameOf(Record()));
  if (!other.empty()) {
    Move(HostEvent::IsDuplicate, SCA_ErrorAlreadyActive,
         "is the same service host as " + other + ", which is used once");
    return false;
  }
  Move(HostEvent::Connects, 0, std::string("version ") + version);
  return true;
}

// What was known over a connection that broke.
void SCA_TikaHostFollower::Forget() {
  Ports ours;
  for (const auto& [port, server] : servers_) {
    if (server.isOurs) ours.insert(port);
  }
  servers_.clear();
  if (ours.empty()) return;
  leftBehind_.insert(ours.begin(), ours.end());
  const std::string text =
      "what was added on " + List(ours) + " over this connection stays there if the host lives on";
  TellHost(0, text.c_str());
}

void SCA_TikaHostFollower::Leave() {
  Ports asked;
  for (const auto& [port, server] : servers_) {
    if (IsAsked(server)) asked.insert(port);
    if (server.isOurs || !server.isListed) leftBehind_.erase(port);
  }
  Move(HostEvent::Leaves, 0, "");
  if (!leftBehind_.empty()) {
    const std::string text =
        "what was added on " + List(leftBehind_) + " over a connection that was lost may run on";
    TellHost(0, text.c_str());
  }
  if (!asked.empty()) TakeLeave(asked);
}

void SCA_TikaHostFollower::TakeLeave(const Ports& asked) {
  Link()->SetReplyTimeout(kFarewellMs);
  if (Link()->DeleteAllServers() != 0) return TellHost(0, ("gave back " + List(asked)).c_str());
  const unsigned long code = Link()->GetLastStatusCode();
  const std::string why = code != 0 ? SCA_ErrorText(code) : "the host refused to delete";
  TellHost(code != 0 ? code : EPROTO,
           ("what was added on " + List(asked) + " may run on: " + why).c_str());
}

// Looks after all servers once. @return False when the connection is lost.
bool SCA_TikaHostFollower::Look() {
  SCA_TikaServerList list;
  if (Link()->GetServerList(&list) == 0) {
    if (HasLost("ask for its servers")) return false;
    Move(HostEvent::Refuses, EPROTO, "the service host does not give its list of servers");
    return true;
  }
  Move(HostEvent::Lists, 0, "");
  TakeList(list);
  // The list does not know yet what is asked for now.
  if (!AskForWanted()) {
    for (auto& [port, server] : servers_) {
      if (IsConnected() && (wanted_ == 0 || IsAsked(server))) Examine(list, &server);
    }
  }
  if (!IsConnected()) return false;
  EndLook();
  return true;
}

void SCA_TikaHostFollower::TakeList(const SCA_TikaServerList& list) {
  for (auto& [port, server] : servers_) server.isListed = false;
  for (const auto* node = list.GetHead(); node != nullptr; node = node->GetNext()) {
    const unsigned short port = node->GetItem()->GetPortNumber();
    if (wanted_ > 0 && !Wants(port)) continue;
    Server& server = Know(port);
    server.id = node->GetItem()->GetServerId();
    server.isListed = true;
  }
  // A host that comes back may have lost servers that the dispatcher still has.
  for (const unsigned short port : fed_) Know(port);
}

SCA_TikaHostFollower::Server& SCA_TikaHostFollower::Know(unsigned short port) {
  const auto [place, isNew] = servers_.try_emplace(port);
  Server& server = place->second;
  if (isNew) {
    server.port = port;
    server.state = wanted_ > 0 ? ServerState::Wanted : ServerState::Starting;
    TellServer(server, 0, "");
    Publish(server);
  }
  return server;
}

// Once for each connection, and again after a failure: what is stopped or deleted later stays
// so. @return True when the host was asked for something.
bool SCA_TikaHostFollower::AskForWanted() {
  bool hasAsked = false;
  for (unsigned long i = 0; i < wanted_ && !IsStopping() && IsConnected(); ++i) {
    Server& server = Know(static_cast<unsigned short>(Record().GetDataPort() + i));
    if (IsAsked(server) || Clock::now() < server.nextTry) continue;
    hasAsked = true;
    Ask(&server);
  }
  return hasAsked;
}

void SCA_TikaHostFollower::Ask(Server* server) {
  unsigned long processStatus = SCA_ServerIdle;
  if (!Add(server, &processStatus)) return;
  if (Runs(processStatus) || StartIt(server)) Move(server, ServerEvent::Starts, "");
}

// Also one that is there: who has asked for a server keeps it when the one that added it leaves.
bool SCA_TikaHostFollower::Add(Server* server, unsigned long* processStatus) {
  unsigned long code = 0;
  const bool isAnswered =
      Link()->AddServer(Record().GetFileName(), server->port, Record().GetHeapSize(),
                        javaOptions_.c_str(), &server->id, processStatus, &code) != 0;
  if (!isAnswered && HasLost("add a server")) return false;
  if (!isAnswered || code != 0 || server->id == SCA_NoServerId) {
    GiveUp(server, std::string("could not be added: ") +
                       (code != 0 ? SCA_ErrorText(code) : "the service host refused"));
    return false;
  }
  server->isOurs = !server->isListed && *processStatus == SCA_ServerIdle;
  return true;
}

bool SCA_TikaHostFollower::StartIt(Server* server) {
  unsigned long processStatus = 0;
  unsigned long code = 0;
  const bool isAnswered = Link()->StartServer(server->id, &processStatus, &code) != 0;
  if (!isAnswered && HasLost("start a server")) return false;
  if (isAnswered && (code == 0 || code == SCA_ErrorAlreadyActive)) return true;
  GiveUp(server, std::string("could not be started: ") +
                     (code != 0 ? SCA_ErrorText(code) : "the service host refused"));
  return false;
}

// Until the next try nothing is left there that came from here.
void SCA_TikaHostFollower::GiveUp(Server* server, const std::string& why) {
  if (!IsConnected()) return;  // lost while the host was asked why
  server->delayMs = std::clamp(server->delayMs * 2, kFirstAddDelayMs, kLastAddDelayMs);
  server->nextTry = Clock::now() + std::chrono::milliseconds(server->delayMs);
  server->ends.reset();
  Move(server, ServerEvent::Fails, why);
  if (std::exchange(server->isOurs, false) && Link()->DeleteServer(server->id) == 0) {
    HasLost("delete a server");
  }
}

// Takes over what the host's list says of a server, and asks one that is coming up whether it
// answers.
void SCA_TikaHostFollower::Examine(const SCA_TikaServerList& list, Server* server) {
  SCA_TikaServer* listed = nullptr;
  if (list.GetServerByPort(server->port, &listed) == 0) {
    Move(server, ServerEvent::Vanishes, "was deleted there");
    return;
  }
  TakeStatus(*listed, server);
  const bool mayAnswer =
      server->state == ServerState::Starting || server->state == ServerState::Silent;
  if (IsConnected() && mayAnswer) Probe(*listed, server);
}

void SCA_TikaHostFollower::TakeStatus(const SCA_TikaServer& listed, Server* server) {
  if (Runs(listed.GetProcessStatus())) return TakeRunning(listed, server);
  if (SCA_IsGone(server->state)) return;
  if (listed.GetProcessStatus() != SCA_ServerError) {
    return Move(server, ServerEvent::Stops, "is stopped there");
  }
  const std::string why = "is in error: " + HostsWords(*server);
  // One that has been of use is left as it is: its host starts it anew.
  if (IsAsked(*server) && server->state != ServerState::Ready) return GiveUp(server, why);
  Move(server, ServerEvent::Errs, why);
}

// A server that died after it answered is starting again.
void SCA_TikaHostFollower::TakeRunning(const SCA_TikaServer& listed, Server* server) {
  const unsigned long ends = listed.GetTikaErrors();
  if (server->state == ServerState::Ready && ends != server->ends) {
    Move(server, ServerEvent::Dies, "died and restarts; " + HostsWords(*server));
  }
  Move(server, ServerEvent::Runs, "");
  // It counts from 0 when the server restarts.
  if (!server->ends || ends < *server->ends) server->ends = ends;
}

void SCA_TikaHostFollower::Probe(const SCA_TikaServer& listed, Server* server) {
  SCA_TikaAnswer answer;
  if (SCA_AskTikaVersion(TikaHost(), server->port, &stop_, &answer) != 0) {
    server->delayMs = 0;
    server->ends = listed.GetTikaErrors();
    Move(server, ServerEvent::Answers, std::string(answer.version) + " answers");
  } else if (server->state == ServerState::Starting && !IsStopping()) {
    const std::string why = Hopelessness(listed, *server);
    if (why.empty()) return;
    IsAsked(*server) ? GiveUp(server, why) : Move(server, ServerEvent::StaysSilent, why);
  }
}

// @return Why a server will not come up; nothing while it may.
std::string SCA_TikaHostFollower::Hopelessness(const SCA_TikaServer& listed, const Server& server) {
  if (listed.GetTikaErrors() >= *server.ends + kHopelessEnds) {
    return "does not come up: " + HostsWords(server);
  }
  if (Clock::now() - server.since < kReadyLimit) return {};
  return "has not answered for " + std::to_string(kReadyLimit.count()) +
         " s: " + HostsWords(server);
}

// What the service host says of a server.
std::string SCA_TikaHostFollower::HostsWords(const Server& server) {
  SCA_ConfigObj* received = nullptr;
  if (Link()->GetServerStatusEx(server.id, &received) == 0) {
    HasLost("ask for a server");
    return kNoWords;
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
bool SCA_TikaHostFollower::HasLost(const char* operation) {
  const unsigned long code = Link()->GetLastStatusCode();
  const bool isLost = code == ETIMEDOUT || Link()->GetNetTransport()->Connected() == 0;
  if (isLost) {
    Move(LossEvent(), code,
         std::string("lost the connection, to ") + operation + ": " + SCA_ErrorText(code));
  }
  return isLost;
}

void SCA_TikaHostFollower::EndLook() {
  if (parts_->observer != nullptr) parts_->observer->OnLooked(serviceId_);
  {
    const SCA_LockGuard guard(lock_);
    Recount();
    isSettled_ = !IsComingUp();
  }
  parts_->changed.Set();
}

// What happens, and what follows from it. Others learn of a state once the observer and the
// dispatcher have.

void SCA_TikaHostFollower::Move(HostEvent event, unsigned long code, const std::string& text) {
  const HostState next = SCA_NextState(state_, event);
  if (next == state_ && (next == HostState::Following || text == told_)) return;
  told_ = text;
  Enter(next, code, told_);
}

void SCA_TikaHostFollower::Enter(HostState state, unsigned long code, std::string_view text) {
  state_ = state;
  TellHost(code, text.data());
  if (!IsConnected()) parts_->Unclaim(serviceId_);
  {
    const SCA_LockGuard guard(lock_);
    if (!IsConnected()) {
      states_.clear();
      offered_.clear();
    }
    // A host that has given its list is settled once its servers have been looked at.
    if (state != HostState::Following) {
      isSettled_ = state != HostState::Connected && state != HostState::Lost;
    }
  }
  parts_->changed.Set();
}

void SCA_TikaHostFollower::Move(Server* server, ServerEvent event, const std::string& text) {
  if (!IsConnected()) return;  // lost while the host was asked why
  const ServerState former = std::exchange(server->state, SCA_NextState(server->state, event));
  if (server->state == former && event != ServerEvent::Fails) return;
  if (server->state == ServerState::Starting) server->since = Clock::now();
  TellServer(*server, 0, text);
  if (SCA_IsGone(server->state)) Unfeed(server->port);
  Publish(*server);
  // A worker asks at once whether its server is ready; who waits for a server wants a worker.
  if (server->state == ServerState::Ready) {
    Feed(*server);
    Offer(*server);
  }
}

void SCA_TikaHostFollower::TellHost(unsigned long code, const char* text) {
  if (parts_->observer != nullptr) parts_->observer->OnHost({serviceId_, state_, code, text});
}

void SCA_TikaHostFollower::TellServer(const Server& server, unsigned long code,
                                      const std::string& text) {
  if (parts_->observer != nullptr) {
    parts_->observer->OnServer({serviceId_, server.port, server.state, code, text.c_str()});
  }
}

void SCA_TikaHostFollower::Feed(const Server& server) {
  if (!fed_.insert(server.port).second) return;
  const unsigned long clients =
      parts_->observer != nullptr ? parts_->observer->ClientsFor(serviceId_, server.port) : 1;
  for (unsigned long i = 0; i < clients; ++i) {
    unsigned long error = 0;
    if (parts_->dispatcher->AddServer(TikaHost(), server.port, serviceId_, &error) != 0) continue;
    if (error != SCA_ErrorStopping) {
      TellServer(server, error, std::string("cannot be used: ") + SCA_ErrorText(error));
    }
    return;
  }
}

void SCA_TikaHostFollower::Unfeed(unsigned short port) {
  if (fed_.erase(port) == 0) return;
  unsigned long error = 0;
  parts_->dispatcher->RemoveServer(TikaHost(), port, serviceId_, &error);
}

void SCA_TikaHostFollower::Publish(const Server& server) {
  {
    const SCA_LockGuard guard(lock_);
    states_[server.port] = server.state;
    if (server.state == ServerState::Ready) {
      usable_.insert(server.port);
    } else {
      usable_.erase(server.port);
    }
    if (server.state != ServerState::Ready) offered_.erase(server.port);
    Recount();
  }
  parts_->changed.Set();
}

void SCA_TikaHostFollower::Offer(const Server& server) {
  {
    const SCA_LockGuard guard(lock_);
    offered_.insert(server.port);
  }
  parts_->changed.Set();
}
