#include "control/SCA_VirtualCmdServer.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "control/SCA_LoginGuard.h"
#include "control/SCA_NetConnection.h"
#include "control/SCA_NetLogin.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Listener.h"
#include "platform/SCA_Path.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"
#include "platform/SCA_Text.h"
#include "platform/SCA_Time.h"

namespace {

constexpr char kSource[] = "SCA_VirtualCmdServer";
// How long accepting rests when the system has no descriptor or no memory left.
constexpr unsigned long kAcceptPauseMs = 100;

}  // namespace

class SCA_VirtualCmdServer::Gate final : public SCA_CommandGate {
 public:
  explicit Gate(SCA_VirtualCmdServer* server) : server_(*server) {}

  const SCA_ControlKey* Key() const override { return server_.key_.get(); }
  SCA_NetGreeting Greeting(const SCA_ControlKey* key) const override {
    SCA_NetGreeting greeting;
    greeting.loginMode = key != nullptr ? SCA_LoginKey : SCA_LoginNone;
    SCA_CopyText(greeting.version, server_.version_, SCA_TextFit::Cut);
    SCA_CopyText(greeting.hostName, server_.hostName_, SCA_TextFit::Cut);
    greeting.startTime = server_.startTime_;
    greeting.connectTime = SCA_GetAbsTime();
    return greeting;
  }
  void NoteRefusal(const SCA_AcceptedPeer& peer, unsigned long error) override {
    server_.guard_->NoteRefusal(peer, error);
  }
  unsigned long NextAgentId() override { return server_.nextAgentId_.fetch_add(1); }
  // The accepting thread joins ended agents, so that their threads do not pile up.
  void NoteEnd() override { server_.listener_->Wake(); }

  void Connected(SCA_NetServerAgent* agent) override { server_.ConnectEvent(agent); }
  void Disconnected(SCA_NetServerAgent* agent) override { server_.DisconnectEvent(agent); }
  bool Execute(SCA_NetServerAgent* agent, SCA_NetMessage* request, SCA_NetMessage* reply) override {
    return server_.DoCommand(agent, request, reply) != 0;
  }

 private:
  SCA_VirtualCmdServer& server_;
};

SCA_VirtualCmdServer::SCA_VirtualCmdServer(const char* version, unsigned short port,
                                           unsigned long* error)
    : port_(port),
      startTime_(SCA_GetAbsTime()),
      listener_(new (std::nothrow) SCA_Listener()),
      guard_(new (std::nothrow) SCA_LoginGuard()),
      gate_(new (std::nothrow) Gate(this)) {
  SCA_CopyText(version_, version, SCA_TextFit::Cut);
  SCA_GetHostName(hostName_, sizeof hostName_);
  SetValid(IsWhole() ? 1 : 0);
  if (IsValid() == 0) *error = ENOMEM;
}

SCA_VirtualCmdServer::~SCA_VirtualCmdServer() {
  StopAll();
}

bool SCA_VirtualCmdServer::IsWhole() const {
  return listener_ != nullptr && listener_->IsValid() != 0 && guard_ != nullptr && gate_ != nullptr;
}

int SCA_VirtualCmdServer::Lock(const char* caller, unsigned long* error) {
  if (isOpen_) return SCA_ThreadObj::Lock(caller, error);
  return IsWhole() ? 1 : SCA_Fail(ENOMEM, error);
}

int SCA_VirtualCmdServer::BindPort(unsigned long* error) {
  const unsigned long mode = GetServerLoginMode();
  if (mode > SCA_LoginKey) return SCA_Fail(EINVAL, error);
  if (mode == SCA_LoginKey) {
    key_.reset(new (std::nothrow) SCA_ControlKey);
    if (key_ == nullptr) return SCA_Fail(ENOMEM, error);
    if (SCA_GetControlKey("", port_, key_.get(), error) == 0) return 0;
  }
  const SCA_ListenScope scope =
      mode == SCA_LoginKey ? SCA_ListenScope::AllInterfaces : SCA_ListenScope::Loopback;
  return listener_->Open(scope, port_).Store(error);
}

int SCA_VirtualCmdServer::OpenGate(unsigned long* error) {
  if (isOpen_ || isStopping_.Get() != 0) return SCA_Fail(EALREADY, error);
  if (BindPort(error) != 0) {
    port_ = listener_->GetPort();
    isOpen_ = true;
    if (Lock(kSource, error) != 0) return 1;
    isOpen_ = false;
  }
  SetValid(0);
  return 0;
}

int SCA_VirtualCmdServer::OpenLocal(const char* path, const char* group, unsigned long* error) {
  return isOpen_ ? listener_->OpenLocal(path, group).Store(error) : SCA_Fail(ENOTCONN, error);
}

unsigned long long SCA_VirtualCmdServer::GetRefusedLogins() const {
  return guard_ != nullptr ? guard_->RefusedLogins() : 0;
}

// @return One that has ended, or null. One by one: there may be no memory for a list of them.
SCA_Owned<SCA_NetConnection> SCA_VirtualCmdServer::TakeEnded() {
  const SCA_LockGuard guard(agentsLock_);
  const auto ended = std::find_if(agents_.begin(), agents_.end(),
                                  [](const auto& agent) { return agent->HasEnded(); });
  if (ended == agents_.end()) return nullptr;
  SCA_Owned<SCA_NetConnection> taken = std::move(*ended);
  agents_.erase(ended);
  return taken;
}

SCA_VirtualCmdServer::Agents SCA_VirtualCmdServer::TakeAll() {
  const SCA_LockGuard guard(agentsLock_);
  return std::exchange(agents_, {});
}

unsigned long SCA_VirtualCmdServer::GetConnectionCount() {
  const SCA_LockGuard guard(agentsLock_);
  return static_cast<unsigned long>(std::count_if(
      agents_.begin(), agents_.end(), [](const auto& agent) { return !agent->HasEnded(); }));
}

// @return False when there are too many connections and none can be given up: strangers are, of
// whom nothing is known yet. Until such a one has ended there is one more than there should be.
bool SCA_VirtualCmdServer::MakeRoom() {
  const SCA_LockGuard guard(agentsLock_);
  if (agents_.size() < maxConnections_.Get()) return true;
  const auto stranger = std::find_if(agents_.begin(), agents_.end(),
                                     [](const auto& agent) { return agent->IsStranger(); });
  if (stranger == agents_.end() || agents_.size() >= 2 * maxConnections_.Get()) return false;
  (*stranger)->Stop();
  return true;
}

void SCA_VirtualCmdServer::AddConnection(const SCA_AcceptedPeer& peer) try {
  const bool isAdmitted = peer.isLocal || guard_->Admits(peer.network);
  const bool hasRoom = isAdmitted && MakeRoom();
  SCA_Owned<SCA_NetConnection> agent(new (std::nothrow) SCA_NetConnection(gate_.get(), peer));
  if (agent == nullptr || agent->IsValid() == 0) {
    // An agent would have taken the descriptor over; a socket of its own closes it.
    if (agent == nullptr) SCA_Owned<SCA_VirtualTcpSock>(SCA_CreateTcpSock(peer.handle));
    return;
  }
  unsigned long error = isAdmitted ? SCA_ErrorConnectionLimit : SCA_ErrorTooManyLogins;
  if (!isAdmitted) guard_->NoteRefusal(peer, error);
  if (hasRoom) {
    const SCA_LockGuard guard(agentsLock_);
    agents_.reserve(agents_.size() + 1);
    if (agent->Lock(kSource, &error) != 0) {
      agents_.push_back(std::move(agent));
      // The stopping thread has gone through the others already.
      if (isStopping_.Get() != 0) agents_.back()->Stop();
      return;
    }
  }
  agent->Refuse(error);
} catch (const std::bad_alloc&) {
  // Nothing was started; the peer sees its connection close.
}

unsigned long SCA_VirtualCmdServer::ThreadFunc() {
  SCA_Event* stop = GetStopEvent();
  bool isShort = false;  // of descriptors, which is reported once
  while (isStopping_.Get() == 0 && stop->Wait(0) == 0) {
    SCA_AcceptedPeer peer;
    unsigned long error = 0;
    if (listener_->Accept(&peer).Store(&error) != 0) {
      isShort = false;
      AddConnection(peer);
    } else if (error != EINTR) {
      if (!isShort) {
        SCA_GetReportFunction(kSource, __LINE__)(
            SCA_LevelError, "SCA_VirtualCmdServer: cannot accept control connections: %s (ERR:%lu)",
            SCA_ErrorText(error), error);
      }
      isShort = true;
      stop->Wait(kAcceptPauseMs);
    }
    while (TakeEnded() != nullptr) {
    }
  }
  listener_->Close();
  return 0;
}

void SCA_VirtualCmdServer::StopAgents() {
  const SCA_LockGuard guard(agentsLock_);
  for (const auto& agent : agents_) agent->Stop();
}

int SCA_VirtualCmdServer::StopAll() {
  isStopping_.Set(1);
  if (listener_ != nullptr) listener_->Wake();
  StopAgents();
  // An agent must not wait for itself, nor for another that waits for it.
  if (gate_ != nullptr && SCA_NetConnection::IsCaller(gate_.get())) return 1;
  Unlock(kSource);
  // What was accepted in between.
  StopAgents();
  const Agents ending = TakeAll();
  return 1;
}
