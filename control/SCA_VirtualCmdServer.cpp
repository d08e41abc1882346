#include "control/SCA_VirtualCmdServer.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "control/SCA_NetChannel.h"
#include "control/SCA_NetLogin.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Fail.h"
#include "platform/SCA_Path.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_TcpListener.h"
#include "platform/SCA_Text.h"
#include "platform/SCA_Time.h"

namespace {

constexpr char kSource[] = "SCA_VirtualCmdServer";
// How long accepting rests when the system has no descriptor or no memory left.
constexpr unsigned long kAcceptPauseMs = 100;

}  // namespace

SCA_VirtualCmdServer::SCA_VirtualCmdServer(const char* version, unsigned short port,
                                           unsigned long* error)
    : port_(port), startTime_(SCA_GetAbsTime()), listener_(new (std::nothrow) SCA_TcpListener()) {
  SCA_CopyText(version_, version, SCA_TextFit::Cut);
  SCA_GetHostName(hostName_, sizeof hostName_);
  SetValid(listener_ != nullptr && listener_->IsValid() != 0 ? 1 : 0);
  if (IsValid() == 0) *error = ENOMEM;
}

SCA_VirtualCmdServer::~SCA_VirtualCmdServer() {
  StopAll();
}

int SCA_VirtualCmdServer::Lock(const char* caller, unsigned long* error) {
  if (isOpen_) return SCA_ThreadObj::Lock(caller, error);
  return listener_ != nullptr && listener_->IsValid() != 0 ? 1 : SCA_Fail(ENOMEM, error);
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
  return listener_->Open(scope, port_, error);
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

SCA_NetGreeting SCA_VirtualCmdServer::MakeGreeting() const {
  SCA_NetGreeting greeting;
  greeting.loginMode = key_ != nullptr ? SCA_LoginKey : SCA_LoginNone;
  SCA_CopyText(greeting.version, version_, SCA_TextFit::Cut);
  SCA_CopyText(greeting.hostName, hostName_, SCA_TextFit::Cut);
  greeting.startTime = startTime_;
  greeting.connectTime = SCA_GetAbsTime();
  return greeting;
}

// The accepting thread joins ended agents, so that their threads do not pile up.
void SCA_VirtualCmdServer::AgentEnded() {
  listener_->Wake();
}

SCA_VirtualCmdServer::Agents SCA_VirtualCmdServer::TakeEnded() {
  const SCA_LockGuard guard(agentsLock_);
  const auto ended = std::stable_partition(agents_.begin(), agents_.end(),
                                           [](const auto& agent) { return !agent->HasEnded(); });
  Agents taken(std::make_move_iterator(ended), std::make_move_iterator(agents_.end()));
  agents_.erase(ended, agents_.end());
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
  const auto stranger = std::find_if(agents_.begin(), agents_.end(), [](const auto& agent) {
    return agent->isKnown_.Get() == 0 && agent->isStopping_.Get() == 0;
  });
  if (stranger == agents_.end() || agents_.size() >= 2 * maxConnections_.Get()) return false;
  (*stranger)->Stop();
  return true;
}

void SCA_VirtualCmdServer::AddConnection(int handle) try {
  const bool hasRoom = MakeRoom();
  SCA_Owned<SCA_NetServerAgent> agent(new (std::nothrow) SCA_NetServerAgent(this, handle));
  if (agent == nullptr || agent->IsValid() == 0) return;
  if (!hasRoom) {
    agent->channel_->SendCode(SCA_FrameKind::Refused, 0, SCA_ErrorConnectionLimit, 1);
    return;
  }
  unsigned long error = 0;
  const SCA_LockGuard guard(agentsLock_);
  agents_.reserve(agents_.size() + 1);
  if (agent->Lock(kSource, &error) == 0) return;
  agents_.push_back(std::move(agent));
  // Whoever is stopping has gone through the others already.
  if (isStopping_.Get() != 0) agents_.back()->Stop();
} catch (const std::bad_alloc&) {
  // Nothing was started; the peer sees its connection close.
}

unsigned long SCA_VirtualCmdServer::ThreadFunc() {
  SCA_Event* stop = GetStopEvent();
  bool isShort = false;  // of descriptors, which is reported once
  while (isStopping_.Get() == 0 && stop->Wait(0) == 0) {
    int handle = -1;
    unsigned long error = 0;
    if (listener_->Accept(&handle, &error) != 0) {
      isShort = false;
      AddConnection(handle);
    } else if (error != EINTR) {
      if (!isShort) {
        SCA_GetReportFunction(kSource, __LINE__)(
            SCA_LevelError, "SCA_VirtualCmdServer: cannot accept control connections: %s (ERR:%lu)",
            SCA_ErrorText(error), error);
      }
      isShort = true;
      stop->Wait(kAcceptPauseMs);
    }
    TakeEnded();
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
  const SCA_NetServerAgent* caller = SCA_NetServerAgent::Current();
  if (caller != nullptr && &caller->server_ == this) return 1;
  Unlock(kSource);
  // What was accepted in between.
  StopAgents();
  const Agents ending = TakeAll();
  return 1;
}
