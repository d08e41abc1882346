#include "control/SCA_NetConnection.h"

#include <cerrno>
#include <exception>
#include <new>
#include <utility>

#include "control/SCA_NetLogin.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Listener.h"
#include "platform/SCA_Report.h"

namespace {

constexpr char kSource[] = "SCA_NetServerAgent";
constexpr std::chrono::milliseconds kLoginLimit{SCA_LoginTimeoutMs};
// From the first byte of a request to its last: a slower peer is not a client of ours.
constexpr std::chrono::seconds kFrameLimit{30};
// Between two moments at which the peer takes some of a reply.
constexpr std::chrono::seconds kSendLimit{30};

}  // namespace

SCA_NetServerAgent::SCA_NetServerAgent() = default;
SCA_NetServerAgent::~SCA_NetServerAgent() = default;

SCA_NetConnection::SCA_NetConnection(SCA_CommandGate* gate, const SCA_AcceptedPeer& peer,
                                     Memory* shared)
    : gate_(*gate),
      peer_(new (std::nothrow) SCA_AcceptedPeer(peer)),
      shared_(*shared),
      socket_(peer.handle),
      login_(new (std::nothrow) SCA_ServerLogin()),
      frames_(SCA_NetSide::Server) {
  LendStopEvent(gate_.StopEvent());
  SetValid(peer_ != nullptr && login_ != nullptr ? 1 : 0);
}

SCA_NetConnection::~SCA_NetConnection() {
  LendStopEvent(nullptr);
}

int SCA_NetConnection::Lock(const char* /*caller*/, unsigned long* error) {
  return SCA_Fail(EBUSY, error);
}

int SCA_NetConnection::Unlock(const char* /*caller*/) {
  return 1;
}

unsigned long SCA_NetConnection::ThreadFunc() {
  Call();
  return 0;
}

SCA_NetNext SCA_NetConnection::Begin(unsigned long refusal) {
  if (refusal != 0) return Refuse(refusal);
  return peer_->isWelcome ? Challenge() : Fault(SCA_ErrorPeerAccount);
}

SCA_NetNext SCA_NetConnection::Challenge() {
  const SCA_ControlKey* key = peer_->isLocal ? nullptr : gate_.Key();
  const SCA_Result challenged = login_->Challenge(gate_.Greeting(key), frames_, &output_);
  if (challenged.HasFailed()) return Fault(challenged.Code());
  if (key == nullptr) return Admit();
  limit_ = Clock::now() + kLoginLimit;
  return Flush();
}

// The next operations call each other as the connection moves on. Each state is entered once, and a
// call or a wait ends the chain.
// NOLINTBEGIN(misc-no-recursion)

SCA_NetNext SCA_NetConnection::Judge(const SCA_NetFrame& frame) {
  const SCA_ControlKey* key = gate_.Key();
  const SCA_Result judged = login_->Judge(frame, *key, gate_.Greeting(key), &frames_, &output_);
  input_.Drop();
  if (judged.HasFailed()) return Fault(judged.Code());
  isKnown_ = true;
  SetAuthenticated(true);
  return Admit();
}

SCA_NetNext SCA_NetConnection::Admit() {
  if (peer_->isLocal) {
    isKnown_ = true;
    SetAuthenticated(true);
  }
  frames_.AllowLargeFrames();
  login_.reset();
  SetId(gate_.NextAgentId());
  state_ = State::Joining;
  return Flush();
}

SCA_NetNext SCA_NetConnection::OnInput() {
  const SCA_Result read = SCA_Guarded([&] {
    input_.TakeMemory(&shared_.input);
    std::size_t room = 0;
    char* buffer = input_.MakeRoom(&room);
    std::size_t received = 0;
    const SCA_Result result = socket_.Receive(buffer, room, &received);
    input_.Arrived(received);
    return result;
  });
  if (read.Code() == EAGAIN) return SCA_NetNext::Input;
  return read.HasFailed() ? Fault(read.Code()) : TakeFrame();
}

SCA_NetNext SCA_NetConnection::TakeFrame() {
  const SCA_Result found = input_.Find(frames_, &frame_);
  if (found.Code() == EAGAIN) {
    // A login has its limit already, which no byte extends.
    if (state_ == State::Serving && limit_ == kNever && !input_.IsEmpty()) {
      limit_ = Clock::now() + kFrameLimit;
    }
    input_.GiveMemory(&shared_.input);
    return SCA_NetNext::Input;
  }
  if (found.HasFailed()) return Fault(found.Code());
  if (state_ == State::Login) return Judge(frame_);
  limit_ = kNever;
  SCA_TakeFrameMemory(&output_, &shared_.output);
  return CallFor(Due::Command);
}

SCA_NetNext SCA_NetConnection::CallFor(Due due) {
  due_ = due;
  return SCA_NetNext::Call;
}

// The peer is told why its connection ends, if it listens.
SCA_NetNext SCA_NetConnection::Fault(unsigned long code) {
  if (state_ == State::Login) {
    gate_.NoteRefusal(*peer_, code);
  } else if (code != ECONNRESET) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelWarning, "SCA_NetServerAgent: control connection %lu is ended: %s (ERR:%lu)",
        GetId(), SCA_ErrorText(code), code);
  }
  return code == ECONNRESET ? End() : Refuse(code);
}

SCA_NetNext SCA_NetConnection::Refuse(unsigned long code) {
  state_ = State::Leaving;
  return frames_.WriteCode(SCA_FrameKind::Refused, 0, code, &output_).HasFailed() ? End() : Flush();
}

SCA_NetNext SCA_NetConnection::OnOutput(bool isBroken) {
  return isBroken ? End() : Flush();
}

SCA_NetNext SCA_NetConnection::Flush() {
  bool hasMoved = false;
  while (sent_ < output_.size()) {
    std::size_t count = 0;
    const SCA_Result sent = socket_.Send(output_.data() + sent_, output_.size() - sent_, &count);
    if (sent.HasFailed()) return sent.Code() == EAGAIN ? AwaitRoom(hasMoved) : End();
    sent_ += count;
    hasMoved = true;
  }
  output_.clear();
  sent_ = 0;
  SCA_GiveFrameMemory(&output_, &shared_.output);
  if (state_ != State::Login) limit_ = kNever;
  return Proceed();
}

SCA_NetNext SCA_NetConnection::AwaitRoom(bool hasMoved) {
  // A login has its limit already.
  if (state_ != State::Login && (hasMoved || limit_ == kNever)) limit_ = Clock::now() + kSendLimit;
  return SCA_NetNext::Output;
}

SCA_NetNext SCA_NetConnection::Proceed() {
  switch (state_) {
    case State::Joining:
      return CallFor(Due::Connect);
    case State::Leaving:
      return End();
    default:
      return TakeFrame();
  }
}

// NOLINTEND(misc-no-recursion)

SCA_NetNext SCA_NetConnection::OnLimit(unsigned long code) {
  const bool isSending = sent_ < output_.size();
  return isSending ? End() : Fault(code);
}

SCA_NetNext SCA_NetConnection::End() {
  isEnded_ = true;
  limit_ = kNever;
  return hasConnected_ ? CallFor(Due::Disconnect) : SCA_NetNext::End;
}

// Its last call may have to wait for a thread, which needs no message.
void SCA_NetConnection::Close() {
  socket_.Close();
  input_ = SCA_NetInput();
  std::vector<char>().swap(output_);
}

void SCA_NetConnection::Call() {
  switch (due_) {
    case Due::Connect:
      return CallConnected();
    case Due::Disconnect:
      return CallDisconnected();
    default:
      break;
  }
  callFailure_ = ReadRequest().Code();
  if (callFailure_ == 0) WriteReply();
}

SCA_NetNext SCA_NetConnection::AfterCall() {
  const Due done = std::exchange(due_, Due::Nothing);
  if (done == Due::Disconnect) return SCA_NetNext::End;
  if (done == Due::Connect) {
    state_ = State::Serving;
    return callFailure_ == 0 ? TakeFrame() : End();
  }
  input_.Drop();
  return callFailure_ == 0 ? Flush() : Fault(std::exchange(callFailure_, 0));
}

// What the hosting program throws, out of memory say, ends a request or a connection and not the
// program.
void SCA_NetConnection::CallConnected() {
  hasConnected_ = true;
  try {
    gate_.Connected(this);
  } catch (const std::exception& failure) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelError, "SCA_NetServerAgent: control connection %lu is ended: %s", GetId(),
        failure.what());
    callFailure_ = ECANCELED;
  }
}

void SCA_NetConnection::CallDisconnected() {
  hasConnected_ = false;
  try {
    gate_.Disconnected(this);
  } catch (const std::exception& failure) {
    SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelError,
                                             "SCA_NetServerAgent: after control connection %lu: %s",
                                             GetId(), failure.what());
  }
}

SCA_Result SCA_NetConnection::ReadRequest() {
  if (!frames_.IsGenuine(frame_)) return SCA_Result(SCA_ErrorFrameForged);
  // Increasing numbers make a recorded frame worthless.
  if (frame_.kind != SCA_FrameKind::Message || frame_.sequence != sequence_ + 1 ||
      !SCA_NetFrames::Decode(frame_, &request_)) {
    return SCA_Result(SCA_ErrorFrame);
  }
  sequence_ = frame_.sequence;
  isKnown_ = true;
  return SCA_Done;
}

bool SCA_NetConnection::Execute() try {
  return gate_.Execute(this, &request_, &reply_);
} catch (const std::exception& failure) {
  SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelError, "SCA_NetServerAgent: %s failed: %s",
                                           request_.GetCommandName(), failure.what());
  return false;
}

void SCA_NetConnection::WriteReply() {
  reply_.Init("ERR");
  if (!Execute()) reply_.SetCommandName("ERR");
  SCA_Result written = frames_.Write(SCA_FrameKind::Message, sequence_, reply_, &output_);
  if (written.HasFailed()) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelError, "SCA_NetServerAgent: the reply to %s cannot be sent: %s (ERR:%lu)",
        request_.GetCommandName(), SCA_ErrorText(written.Code()), written.Code());
    written = frames_.WriteCode(SCA_FrameKind::Failure, sequence_, written.Code(), &output_);
  }
  callFailure_ = written.Code();
  // What a large exchange took is not kept until the next one.
  request_.Init("");
  reply_.Init("");
}
