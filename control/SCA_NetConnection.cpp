#include "control/SCA_NetConnection.h"

#include <cerrno>
#include <exception>
#include <new>

#include "control/SCA_NetChannel.h"
#include "control/SCA_NetLogin.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Listener.h"
#include "platform/SCA_Report.h"

namespace {

constexpr char kSource[] = "SCA_NetServerAgent";
// From the first byte of a request to its last: a slower peer is not a client of ours.
constexpr unsigned long kFrameTimeoutMs = 30000;
constexpr unsigned long kSendTimeoutMs = 30000;

thread_local const SCA_CommandGate* currentGate = nullptr;

}  // namespace

SCA_NetServerAgent::SCA_NetServerAgent() = default;
SCA_NetServerAgent::~SCA_NetServerAgent() = default;

SCA_NetConnection::SCA_NetConnection(SCA_CommandGate* gate, const SCA_AcceptedPeer& peer)
    : gate_(*gate),
      peer_(new (std::nothrow) SCA_AcceptedPeer(peer)),
      socket_(SCA_CreateTcpSock(peer.handle)) {
  if (socket_ != nullptr && peer_ != nullptr) {
    channel_.reset(new (std::nothrow) SCA_NetChannel(socket_.get(), SCA_NetSide::Server));
  }
  SetValid(channel_ != nullptr ? 1 : 0);
}

SCA_NetConnection::~SCA_NetConnection() {
  Stop();
  Unlock(kSource);
}

bool SCA_NetConnection::IsCaller(const SCA_CommandGate* gate) {
  return currentGate == gate;
}

void SCA_NetConnection::Refuse(unsigned long error) {
  channel_->SendCode(SCA_FrameKind::Refused, 0, error, 1);
}

void SCA_NetConnection::Stop() {
  isStopping_.Set(1);
  const SCA_LockGuard guard(socketLock_);
  // A reply that is due, to the request that stops the server say, goes out first.
  if (socket_ != nullptr && !isServing_) socket_->Shutdown();
}

unsigned long SCA_NetConnection::ThreadFunc() {
  currentGate = &gate_;
  Serve();
  channel_.reset();
  {
    const SCA_LockGuard guard(socketLock_);
    socket_.reset();
  }
  currentGate = nullptr;
  hasEnded_.Set(1);
  gate_.NoteEnd();
  return 0;
}

// What the hosting program throws, out of memory say, ends a request or a connection and not the
// program.
void SCA_NetConnection::Serve() {
  if (!AcceptPeer()) return;
  try {
    gate_.Connected(this);
    while (isStopping_.Get() == 0 && ServeRequest()) {
    }
  } catch (const std::exception& failure) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelError, "SCA_NetServerAgent: control connection %lu is ended: %s", GetId(),
        failure.what());
  }
  try {
    gate_.Disconnected(this);
  } catch (const std::exception& failure) {
    SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelError,
                                             "SCA_NetServerAgent: after control connection %lu: %s",
                                             GetId(), failure.what());
  }
}

bool SCA_NetConnection::AcceptPeer() {
  const bool isLocal = peer_->isLocal;
  const SCA_ControlKey* key = isLocal ? nullptr : gate_.Key();
  unsigned long error = SCA_ErrorPeerAccount;
  if (!peer_->isWelcome || SCA_AcceptLogin(channel_.get(), gate_.Greeting(key), key, &error) == 0) {
    gate_.NoteRefusal(*peer_, error);
    channel_->SendCode(SCA_FrameKind::Refused, 0, error, kSendTimeoutMs);
    return false;
  }
  SetAuthenticated(key != nullptr || isLocal);
  isKnown_.Set(IsAuthenticated());
  SetId(gate_.NextAgentId());
  return true;
}

bool SCA_NetConnection::ServeRequest() {
  SCA_NetFrame frame;
  unsigned long error = 0;
  if (channel_->Receive(SCA_Infinite, kFrameTimeoutMs, &frame, &error) != 0) {
    // Increasing numbers make a recorded frame worthless.
    if (frame.kind == SCA_FrameKind::Message && frame.sequence == sequence_ + 1 &&
        SCA_NetChannel::Decode(frame, &request_) != 0) {
      sequence_ = frame.sequence;
      isKnown_.Set(1);
      return AnswerRequest();
    }
    error = SCA_ErrorFrame;
  }
  // A peer that has closed is the usual end.
  if (error != ECONNRESET && isStopping_.Get() == 0) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelWarning, "SCA_NetServerAgent: control connection %lu is ended: %s (ERR:%lu)",
        GetId(), SCA_ErrorText(error), error);
    channel_->SendCode(SCA_FrameKind::Refused, 0, error, kSendTimeoutMs);
  }
  return false;
}

bool SCA_NetConnection::BeginServing() {
  const SCA_LockGuard guard(socketLock_);
  isServing_ = isStopping_.Get() == 0;
  return isServing_;
}

void SCA_NetConnection::EndServing() {
  const SCA_LockGuard guard(socketLock_);
  isServing_ = false;
}

bool SCA_NetConnection::CallCommand() try {
  return gate_.Execute(this, &request_, &reply_);
} catch (const std::exception& failure) {
  SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelError, "SCA_NetServerAgent: %s failed: %s",
                                           request_.GetCommandName(), failure.what());
  return false;
}

bool SCA_NetConnection::AnswerRequest() {
  if (!BeginServing()) return false;
  reply_.Init("ERR");
  if (!CallCommand()) reply_.SetCommandName("ERR");
  // A peer that does not take its reply holds up nobody who is waiting for the end.
  socket_->SetCancelEvent(GetStopEvent());
  const bool isReplied = Reply();
  socket_->SetCancelEvent(nullptr);
  EndServing();
  // What a large exchange took is not kept until the next one.
  request_.Init("");
  reply_.Init("");
  return isReplied;
}

bool SCA_NetConnection::Reply() {
  unsigned long error = 0;
  if (channel_->Send(SCA_FrameKind::Message, sequence_, reply_, kSendTimeoutMs, &error) != 0) {
    return true;
  }
  // Of these nothing has been sent.
  if (error != SCA_ErrorFrameTooLarge && error != SCA_ErrorDataTooLarge && error != ENOMEM) {
    return false;
  }
  SCA_GetReportFunction(kSource, __LINE__)(
      SCA_LevelError, "SCA_NetServerAgent: the reply to %s cannot be sent: %s (ERR:%lu)",
      request_.GetCommandName(), SCA_ErrorText(error), error);
  return channel_->SendCode(SCA_FrameKind::Failure, sequence_, error, kSendTimeoutMs) != 0;
}
