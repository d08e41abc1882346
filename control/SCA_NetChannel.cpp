#include "control/SCA_NetChannel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "foundation/SCA_ConfigBytes.h"
#include "platform/SCA_Deadline.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Result.h"

namespace {

constexpr char kMagic[] = {'S', 'C', 'A', '1'};
constexpr std::size_t kHeaderSize = 16;
constexpr std::size_t kPrefixSize = 9;  // of a message: two numbers and the length of the name
constexpr std::size_t kUsualRoom = 4096;
constexpr std::size_t kGrowth = 65536;
constexpr std::size_t kLargestKept = 1U << 20;  // memory that a connection holds between frames
constexpr unsigned long kSendTimeoutMs = 10000;
constexpr char kCode[] = "Code";

void Store(std::uint32_t number, char* at) {
  for (int i = 0; i < 4; ++i) at[i] = static_cast<char>(number >> (24 - 8 * i));
}

std::uint32_t Load(const char* at) {
  std::uint32_t number = 0;
  for (int i = 0; i < 4; ++i) number = number << 8 | static_cast<unsigned char>(at[i]);
  return number;
}

}  // namespace

SCA_Digest SCA_NetChannel::Code(SCA_NetSide sender, const char* bytes, std::size_t length) const {
  SCA_HmacSha256 code = *key_;
  code.Update(&sender, 1);
  code.Update(bytes, length);
  return code.Finish();
}

void SCA_NetChannel::Authenticate(const SCA_Digest& sessionKey) {
  key_.emplace(sessionKey.data(), sessionKey.size());
}

int SCA_NetChannel::Send(SCA_FrameKind kind, std::uint32_t sequence, const SCA_NetMessage& message,
                         unsigned long timeoutMs, unsigned long* error) try {
  const std::size_t nameLength = std::strlen(message.GetCommandName());
  const std::size_t start = kHeaderSize + kPrefixSize + nameLength;
  // As much as the message may need, but not for one that is refused anyway.
  const std::size_t room =
      std::min<std::size_t>(message.GetData()->GetDataSize(), std::size_t{SCA_MaxFrame} + 1);
  output_.resize(start + room + SCA_DigestSize);
  std::memcpy(output_.data() + start - nameLength, message.GetCommandName(), nameLength);
  unsigned long written = 0;
  if (SCA_WriteConfigBytes(*message.GetData(), output_.data() + start, room, &written, error) ==
      0) {
    return SCA_Fail(*error == ENOBUFS ? SCA_ErrorFrameTooLarge : *error, error);
  }
  const std::size_t length = start + written - kHeaderSize;
  if (length > SCA_MaxFrame) return SCA_Fail(SCA_ErrorFrameTooLarge, error);
  char* at = output_.data();
  std::memcpy(at, kMagic, sizeof kMagic);
  Store(static_cast<std::uint32_t>(length), at + 4);
  Store(static_cast<std::uint32_t>(kind), at + 8);
  Store(sequence, at + 12);
  Store(message.first, at + kHeaderSize);
  Store(message.second, at + kHeaderSize + 4);
  at[kHeaderSize + 8] = static_cast<char>(nameLength);
  std::size_t size = kHeaderSize + length;
  if (key_.has_value()) {
    const SCA_Digest code = Code(side_, at, size);
    std::memcpy(at + size, code.data(), code.size());
    size += code.size();
  }
  socket_.SetIdleTimeout(timeoutMs != 0 ? timeoutMs : kSendTimeoutMs);
  unsigned long sent = 0;
  const int isSent = socket_.Send(at, size, &sent, error);
  if (output_.capacity() > kLargestKept) std::vector<char>().swap(output_);
  return isSent;
} catch (const std::bad_alloc&) {
  return SCA_Fail(ENOMEM, error);
}

int SCA_NetChannel::SendCode(SCA_FrameKind kind, std::uint32_t sequence, unsigned long code,
                             unsigned long timeoutMs) {
  SCA_NetMessage message;
  unsigned long error = 0;
  return message.GetData()->AddField(kCode, code, 0) != 0
             ? Send(kind, sequence, message, timeoutMs, &error)
             : 0;
}

unsigned long SCA_NetChannel::CodeOf(const SCA_NetFrame& frame) {
  SCA_NetMessage message;
  unsigned long code = 0;
  const bool isRead =
      Decode(frame, &message) != 0 && message.GetData()->GetField(kCode, &code) != 0;
  return isRead && code != 0 ? code : SCA_ErrorFrame;
}

// The frame that was handed out makes room.
void SCA_NetChannel::DropFrame() {
  begin_ += std::exchange(frameSize_, 0);
  if (begin_ != end_) return;
  begin_ = end_ = 0;
  if (input_.capacity() > kLargestKept) std::vector<char>().swap(input_);
}

SCA_NetChannel::Parse SCA_NetChannel::ParseFrame(SCA_NetFrame* frame, unsigned long* error) {
  const char* at = input_.data() + begin_;
  const std::size_t held = end_ - begin_;
  wanted_ = kHeaderSize;
  if (std::memcmp(at, kMagic, std::min(held, sizeof kMagic)) != 0) {
    *error = SCA_ErrorFrame;
    return Parse::Faulty;
  }
  if (held < kHeaderSize) return Parse::Incomplete;
  const std::uint32_t length = Load(at + 4);
  if (length > limit_) {
    *error = SCA_ErrorFrameTooLarge;
    return Parse::Faulty;
  }
  wanted_ = kHeaderSize + length + TrailerSize();
  if (held < wanted_) return Parse::Incomplete;
  if (key_.has_value()) {
    SCA_Digest code;
    std::memcpy(code.data(), at + kHeaderSize + length, code.size());
    const SCA_NetSide peer =
        side_ == SCA_NetSide::Client ? SCA_NetSide::Server : SCA_NetSide::Client;
    if (!SCA_EqualDigests(code, Code(peer, at, kHeaderSize + length))) {
      *error = SCA_ErrorFrameForged;
      return Parse::Faulty;
    }
  }
  *frame = {static_cast<SCA_FrameKind>(Load(at + 8)), Load(at + 12), at + kHeaderSize, length};
  frameSize_ = wanted_;
  return Parse::Complete;
}

// Takes memory only as bytes arrive, whatever length the peer has announced.
int SCA_NetChannel::ReadMore(unsigned long timeoutMs, unsigned long* error) {
  const std::size_t held = end_ - begin_;
  if (begin_ > 0) {
    std::memmove(input_.data(), input_.data() + begin_, held);
    begin_ = 0;
    end_ = held;
  }
  const std::size_t growth = std::max(held, kGrowth);
  const std::size_t room = std::max(kUsualRoom, std::min(wanted_, held + growth));
  if (input_.size() < room) input_.resize(room);
  socket_.SetIdleTimeout(std::max(timeoutMs, 1UL));
  unsigned long received = 0;
  if (socket_.Receive(input_.data() + end_, input_.size() - end_, &received, error) == 0) return 0;
  end_ += received;
  return 1;
}

int SCA_NetChannel::Receive(unsigned long idleMs, unsigned long frameMs, SCA_NetFrame* frame,
                            unsigned long* error) try {
  DropFrame();
  SCA_Deadline end(std::max(idleMs, 1UL));
  bool hasFrameEnd = false;
  for (;;) {
    const bool isArriving = end_ != begin_;
    if (isArriving) {
      const Parse parse = ParseFrame(frame, error);
      if (parse == Parse::Complete) return 1;
      if (parse == Parse::Faulty) return 0;
      if (!hasFrameEnd && frameMs != SCA_Infinite) end = SCA_Deadline(frameMs);
      hasFrameEnd = true;
    } else {
      wanted_ = kHeaderSize;
    }
    const unsigned long left = end.MsLeft();
    if (left == 0) return SCA_Fail(ETIMEDOUT, error);
    if (ReadMore(left, error) == 0) return 0;
  }
} catch (const std::bad_alloc&) {
  return SCA_Fail(ENOMEM, error);
}

int SCA_NetChannel::Decode(const SCA_NetFrame& frame, SCA_NetMessage* message) {
  if (frame.length < kPrefixSize) return 0;
  const char* at = frame.body;
  const unsigned long nameLength = static_cast<unsigned char>(at[8]);
  if (nameLength >= SCA_MaxCommandName || frame.length < kPrefixSize + nameLength) return 0;
  char name[SCA_MaxCommandName] = "";
  std::memcpy(name, at + kPrefixSize, nameLength);
  if (std::strlen(name) != nameLength || message->Init(name) == 0) return 0;
  message->first = Load(at);
  message->second = Load(at + 4);
  const unsigned long start = kPrefixSize + nameLength;
  unsigned long error = 0;
  return SCA_ReadConfigBytes(at + start, frame.length - start, message->GetData(), nullptr, &error);
}
