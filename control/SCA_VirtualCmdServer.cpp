#include "control/SCA_VirtualCmdServer.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "control/SCA_CommandLoop.h"
#include "control/SCA_LoginGuard.h"
#include "control/SCA_NetLogin.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Listener.h"
#include "platform/SCA_Path.h"
#include "platform/SCA_Poller.h"
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
  SCA_Event* StopEvent() const override { return server_.GetStopEvent(); }

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
      gate_(new (std::nothrow) Gate(this)),
      loop_(gate_ != nullptr ? new (std::nothrow) SCA_CommandLoop(gate_.get()) : nullptr) {
  SCA_CopyText(version_, version, SCA_TextFit::Cut);
  SCA_GetHostName(hostName_, sizeof hostName_);
  SetValid(IsWhole() ? 1 : 0);
  if (IsValid() == 0) *error = ENOMEM;
}

SCA_VirtualCmdServer::~SCA_VirtualCmdServer() {
  StopAll();
}

bool SCA_VirtualCmdServer::IsWhole() const {
  return listener_ != nullptr && listener_->IsValid() != 0 && guard_ != nullptr &&
         gate_ != nullptr && loop_ != nullptr && loop_->IsWhole();
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
  return listener_->Open(scope, port_, GetServerAddress()).Store(error);
}

int SCA_VirtualCmdServer::OpenGate(unsigned long* error) {
  if (isOpen_ || isStopping_.Get() != 0) return SCA_Fail(EALREADY, error);
  if (BindPort(error) != 0) {
    port_ = listener_->GetPort();
    isOpen_ = true;
    loop_->SetMaxConnections(MaxConnections());
    if (loop_->Start().Store(error) != 0 && Lock(kSource, error) != 0) return 1;
    isOpen_ = false;
  }
  SetValid(0);
  return 0;
}

// The process needs descriptors for other things too.
unsigned long SCA_VirtualCmdServer::MaxConnections() const {
  const unsigned long wanted = maxConnections_.Get();
  return wanted != 0 ? wanted : std::clamp(SCA_GetMaxHandles() / 2, 1UL, SCA_DefaultMaxConnections);
}

void SCA_VirtualCmdServer::SetMaxConnections(unsigned long count) {
  maxConnections_.Set(count);
  if (loop_ != nullptr) loop_->SetMaxConnections(MaxConnections());
}

unsigned long SCA_VirtualCmdServer::GetConnectionCount() const {
  return loop_ != nullptr ? loop_->GetConnectionCount() : 0;
}

int SCA_VirtualCmdServer::OpenLocal(const char* path, const char* group, unsigned long* error) {
  return isOpen_ ? listener_->OpenLocal(path, group).Store(error) : SCA_Fail(ENOTCONN, error);
}

unsigned long long SCA_VirtualCmdServer::GetRefusedLogins() const {
  return guard_ != nullptr ? guard_->RefusedLogins() : 0;
}

void SCA_VirtualCmdServer::AddConnection(const SCA_AcceptedPeer& peer) {
  const bool isAdmitted = peer.isLocal || guard_->Admits(peer.network);
  if (!isAdmitted) guard_->NoteRefusal(peer, SCA_ErrorTooManyLogins);
  loop_->Add(peer, isAdmitted ? 0 : SCA_ErrorTooManyLogins);
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
  }
  listener_->Close();
  return 0;
}

int SCA_VirtualCmdServer::StopAll() {
  isStopping_.Set(1);
  if (SCA_Event* stop = GetStopEvent(); stop != nullptr) stop->Set();
  if (listener_ != nullptr) listener_->Wake();
  if (loop_ == nullptr) return 1;
  loop_->Stop();
  // A call must not wait for itself, nor for another that waits for it.
  if (loop_->IsCaller()) return 1;
  Unlock(kSource);
  loop_->Join();
  return 1;
}
