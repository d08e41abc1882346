#include "control/SCA_NetFrames.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "foundation/SCA_ConfigBytes.h"
#include "platform/SCA_Error.h"

namespace {

constexpr char kMagic[] = {'S', 'C', 'A', '1'};
constexpr std::size_t kHeaderSize = 16;
constexpr std::size_t kPrefixSize = 9;  // of a message: two numbers and the length of the name
constexpr std::size_t kUsualRoom = 4096;
constexpr std::size_t kGrowth = 65536;
constexpr std::size_t kLargestKept = 65536;  // memory that is kept between frames
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

SCA_Digest SCA_NetFrames::Prove(SCA_NetSide sender, const char* bytes, std::size_t length) const {
  SCA_HmacSha256 proof = *key_;
  proof.Update(&sender, 1);
  proof.Update(bytes, length);
  return proof.Finish();
}

void SCA_NetFrames::Authenticate(const SCA_Digest& sessionKey) {
  key_.emplace(sessionKey.data(), sessionKey.size());
}

SCA_Result SCA_NetFrames::Write(SCA_FrameKind kind, std::uint32_t sequence,
                                const SCA_NetMessage& message, std::vector<char>* bytes) const {
  const std::size_t before = bytes->size();
  const SCA_Result written = SCA_Guarded([&] { return Append(kind, sequence, message, bytes); });
  if (written.HasFailed()) bytes->resize(before);
  return written;
}

SCA_Result SCA_NetFrames::Append(SCA_FrameKind kind, std::uint32_t sequence,
                                 const SCA_NetMessage& message, std::vector<char>* bytes) const {
  const std::size_t before = bytes->size();
  const std::size_t nameLength = std::strlen(message.GetCommandName());
  const std::size_t start = kHeaderSize + kPrefixSize + nameLength;
  // As much as the message may need, but not for one that is refused anyway.
  const std::size_t room =
      std::min<std::size_t>(message.GetData()->GetDataSize(), std::size_t{SCA_MaxFrame} + 1);
  bytes->resize(before + start + room + SCA_DigestSize);
  char* at = bytes->data() + before;
  unsigned long written = 0;
  unsigned long error = 0;
  if (SCA_WriteConfigBytes(*message.GetData(), at + start, room, &written, &error) == 0) {
    return SCA_Result(error == ENOBUFS ? SCA_ErrorFrameTooLarge : error);
  }
  const std::size_t length = start + written - kHeaderSize;
  if (length > SCA_MaxFrame) return SCA_Result(SCA_ErrorFrameTooLarge);
  std::memcpy(at, kMagic, sizeof kMagic);
  Store(static_cast<std::uint32_t>(length), at + 4);
  Store(static_cast<std::uint32_t>(kind), at + 8);
  Store(sequence, at + 12);
  Store(message.first, at + kHeaderSize);
  Store(message.second, at + kHeaderSize + 4);
  at[kHeaderSize + 8] = static_cast<char>(nameLength);
  std::memcpy(at + start - nameLength, message.GetCommandName(), nameLength);
  std::size_t size = kHeaderSize + length;
  if (key_.has_value()) {
    const SCA_Digest proof = Prove(side_, at, size);
    std::memcpy(at + size, proof.data(), proof.size());
    size += proof.size();
  }
  bytes->resize(before + size);
  return SCA_Done;
}

SCA_Result SCA_NetFrames::WriteCode(SCA_FrameKind kind, std::uint32_t sequence, unsigned long code,
                                    std::vector<char>* bytes) const {
  SCA_NetMessage message;
  return message.GetData()->AddField(kCode, code, 0) != 0 ? Write(kind, sequence, message, bytes)
                                                          : SCA_Result(ENOMEM);
}

unsigned long SCA_NetFrames::CodeOf(const SCA_NetFrame& frame) {
  SCA_NetMessage message;
  unsigned long code = 0;
  const bool isRead = Decode(frame, &message) && message.GetData()->GetField(kCode, &code) != 0;
  return isRead && code != 0 ? code : SCA_ErrorFrame;
}

SCA_Result SCA_NetFrames::Find(const char* bytes, std::size_t held, SCA_NetFrame* frame,
                               std::size_t* size) const {
  *size = kHeaderSize;
  if (std::memcmp(bytes, kMagic, std::min(held, sizeof kMagic)) != 0) {
    return SCA_Result(SCA_ErrorFrame);
  }
  if (held < kHeaderSize) return SCA_Result(EAGAIN);
  const std::uint32_t length = Load(bytes + 4);
  if (length > limit_) return SCA_Result(SCA_ErrorFrameTooLarge);
  *size = kHeaderSize + length + (key_.has_value() ? SCA_DigestSize : 0);
  if (held < *size) return SCA_Result(EAGAIN);
  *frame = {static_cast<SCA_FrameKind>(Load(bytes + 8)), Load(bytes + 12), bytes + kHeaderSize,
            length};
  return SCA_Done;
}

bool SCA_NetFrames::IsGenuine(const SCA_NetFrame& frame) const {
  if (!key_.has_value()) return true;
  const SCA_NetSide peer = side_ == SCA_NetSide::Client ? SCA_NetSide::Server : SCA_NetSide::Client;
  SCA_Digest proof;
  std::memcpy(proof.data(), frame.body + frame.length, proof.size());
  return SCA_EqualDigests(proof, Prove(peer, frame.body - kHeaderSize, kHeaderSize + frame.length));
}

bool SCA_NetFrames::Decode(const SCA_NetFrame& frame, SCA_NetMessage* message) {
  if (frame.length < kPrefixSize) return false;
  const char* at = frame.body;
  const unsigned long nameLength = static_cast<unsigned char>(at[8]);
  if (nameLength >= SCA_MaxCommandName || frame.length < kPrefixSize + nameLength) return false;
  char name[SCA_MaxCommandName] = "";
  std::memcpy(name, at + kPrefixSize, nameLength);
  if (std::strlen(name) != nameLength || message->Init(name) == 0) return false;
  message->first = Load(at);
  message->second = Load(at + 4);
  const unsigned long start = kPrefixSize + nameLength;
  unsigned long error = 0;
  return SCA_ReadConfigBytes(at + start, frame.length - start, message->GetData(), nullptr,
                             &error) != 0;
}

char* SCA_NetInput::MakeRoom(std::size_t* room) {
  const std::size_t held = end_ - begin_;
  if (begin_ > 0) {
    std::memmove(bytes_.data(), bytes_.data() + begin_, held);
    begin_ = 0;
    end_ = held;
  }
  const std::size_t growth = std::max(held, kGrowth);
  const std::size_t size = std::max({kUsualRoom, held + 1, std::min(wanted_, held + growth)});
  if (bytes_.size() < size) bytes_.resize(size);
  *room = bytes_.size() - end_;
  return bytes_.data() + end_;
}

SCA_Result SCA_NetInput::Find(const SCA_NetFrames& frames, SCA_NetFrame* frame) {
  wanted_ = kHeaderSize;
  if (IsEmpty()) return SCA_Result(EAGAIN);
  const SCA_Result found = frames.Find(bytes_.data() + begin_, end_ - begin_, frame, &wanted_);
  found_ = found.HasFailed() ? 0 : wanted_;
  return found;
}

void SCA_NetInput::Drop() {
  begin_ += std::exchange(found_, 0);
  if (!IsEmpty()) return;
  begin_ = end_ = 0;
  SCA_TrimFrameMemory(&bytes_);
}

void SCA_NetInput::TakeMemory(std::vector<char>* shared) {
  if (IsEmpty()) SCA_TakeFrameMemory(&bytes_, shared);
}

void SCA_NetInput::GiveMemory(std::vector<char>* shared) {
  if (IsEmpty()) SCA_GiveFrameMemory(&bytes_, shared);
}

void SCA_TakeFrameMemory(std::vector<char>* own, std::vector<char>* shared) {
  if (own->capacity() == 0) own->swap(*shared);
}

void SCA_GiveFrameMemory(std::vector<char>* own, std::vector<char>* shared) {
  SCA_TrimFrameMemory(own);
  if (shared->capacity() == 0) own->swap(*shared);
  std::vector<char>().swap(*own);
}

void SCA_TrimFrameMemory(std::vector<char>* memory) {
  if (memory->capacity() > kLargestKept) std::vector<char>().swap(*memory);
}
