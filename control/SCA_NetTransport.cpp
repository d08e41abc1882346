#include "control/SCA_NetTransport.h"

#include <cerrno>
#include <new>

#include "control/SCA_NetChannel.h"
#include "control/SCA_NetLogin.h"
#include "platform/SCA_Deadline.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Result.h"
#include "platform/SCA_Time.h"

SCA_NetTransport::SCA_NetTransport(SCA_NetLink* /*link*/) : clientStartTime_(SCA_GetAbsTime()) {
  SetValid(1);
}

SCA_NetTransport::~SCA_NetTransport() = default;

int SCA_NetTransport::Drop(unsigned long code, unsigned long* error) {
  channel_.reset();
  socket_.reset();
  return SCA_Fail(code, error);
}

int SCA_NetTransport::Connect(const char* host, unsigned short port, unsigned long timeoutMs,
                              unsigned long* error) {
  channel_.reset();
  socket_.reset(SCA_CreateTcpSock(-1));
  sequence_ = 0;
  unsigned long code = ENOMEM;
  if (socket_ == nullptr) return SCA_Fail(code, error);
  if (socket_->Connect(host, port, timeoutMs, &code) == 0) return Drop(code, error);
  socket_->SetOption(SCA_SockOptionNoDelay, 1);
  channel_.reset(new (std::nothrow) SCA_NetChannel(socket_.get(), SCA_NetSide::Client));
  if (channel_ == nullptr) return Drop(ENOMEM, error);
  SCA_NetGreeting greeting;
  const bool mayLackLogin = *host == '/' || allowNoLogin_;
  const SCA_Result login = SCA_Login(channel_.get(), host, port, mayLackLogin, &greeting);
  if (login.HasFailed()) return Drop(login.Code(), error);
  SetServerLoginMode(greeting.loginMode);
  serverStartTime_ = greeting.startTime;
  serverConnectTime_ = greeting.connectTime;
  clientConnectTime_ = SCA_GetAbsTime();
  return 1;
}

int SCA_NetTransport::SendMessage(unsigned long timeoutMs, SCA_NetMessage* message,
                                  unsigned long* error) {
  if (channel_ == nullptr) return SCA_Fail(ENOTCONN, error);
  const SCA_Result sent =
      channel_->Send(SCA_FrameKind::Message, sequence_ + 1, *message, timeoutMs);
  if (!sent.HasFailed()) {
    ++sequence_;
    return 1;
  }
  const bool isUsable =
      sent.Code() == SCA_ErrorFrameTooLarge || sent.Code() == SCA_ErrorDataTooLarge;
  return isUsable ? sent.Store(error) : Drop(sent.Code(), error);
}

int SCA_NetTransport::WaitForMessage(unsigned long timeoutMs, SCA_NetMessage* message,
                                     unsigned long* error) {
  if (channel_ == nullptr) return SCA_Fail(ENOTCONN, error);
  const SCA_Deadline end(timeoutMs);
  for (unsigned long leftMs = timeoutMs;;) {
    SCA_NetFrame frame;
    if (const SCA_Result received = channel_->Receive(leftMs, &frame); received.HasFailed()) {
      return received.Code() == ETIMEDOUT ? received.Store(error) : Drop(received.Code(), error);
    }
    if (frame.kind == SCA_FrameKind::Refused) return Drop(SCA_NetFrames::CodeOf(frame), error);
    const bool isReply =
        frame.kind == SCA_FrameKind::Message || frame.kind == SCA_FrameKind::Failure;
    // How many requests ago this one's was; more than half of all numbers means the future.
    const std::uint32_t age = sequence_ - frame.sequence;
    if (!isReply || age > UINT32_MAX / 2) return Drop(SCA_ErrorFrame, error);
    if (age == 0) return TakeReply(frame, message, error);
    leftMs = end.MsLeft();
    if (leftMs == 0) return SCA_Fail(ETIMEDOUT, error);
  }
}

int SCA_NetTransport::TakeReply(const SCA_NetFrame& frame, SCA_NetMessage* message,
                                unsigned long* error) {
  const bool isFailure = frame.kind == SCA_FrameKind::Failure;
  const unsigned long failure = isFailure ? SCA_NetFrames::CodeOf(frame) : 0;
  const bool isRead = isFailure || SCA_NetFrames::Decode(frame, message);
  // A connection that waits for its next request keeps no large reply.
  channel_->Drop();
  if (!isRead) return Drop(SCA_ErrorFrame, error);
  return SCA_Result(failure).Store(error);
}
