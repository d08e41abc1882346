#include "control/SCA_NetChannel.h"

#include <algorithm>
#include <cerrno>

#include "platform/SCA_Deadline.h"
#include "platform/SCA_Error.h"

namespace {

constexpr unsigned long kSendTimeoutMs = 10000;

}  // namespace

SCA_Result SCA_NetChannel::Send(SCA_FrameKind kind, std::uint32_t sequence,
                                const SCA_NetMessage& message, unsigned long timeoutMs) {
  output_.clear();
  if (const SCA_Result written = frames_.Write(kind, sequence, message, &output_);
      written.HasFailed()) {
    return written;
  }
  socket_.SetIdleTimeout(timeoutMs != 0 ? timeoutMs : kSendTimeoutMs);
  unsigned long sent = 0;
  unsigned long error = 0;
  const bool isSent = socket_.Send(output_.data(), output_.size(), &sent, &error) != 0;
  SCA_TrimFrameMemory(&output_);
  return isSent ? SCA_Done : SCA_Result(error);
}

SCA_Result SCA_NetChannel::ReadMore(unsigned long timeoutMs) {
  return SCA_Guarded([&] {
    std::size_t room = 0;
    char* buffer = input_.MakeRoom(&room);
    socket_.SetIdleTimeout(std::max(timeoutMs, 1UL));
    unsigned long received = 0;
    unsigned long error = 0;
    if (socket_.Receive(buffer, room, &received, &error) == 0) return SCA_Result(error);
    input_.Arrived(received);
    return SCA_Done;
  });
}

SCA_Result SCA_NetChannel::Receive(unsigned long timeoutMs, SCA_NetFrame* frame) {
  const SCA_Deadline end(std::max(timeoutMs, 1UL));
  for (input_.Drop();;) {
    const SCA_Result found = input_.Find(frames_, frame);
    if (!found.HasFailed()) {
      return frames_.IsGenuine(*frame) ? SCA_Done : SCA_Result(SCA_ErrorFrameForged);
    }
    if (found.Code() != EAGAIN) return found;
    const unsigned long left = end.MsLeft();
    if (left == 0) return SCA_Result(ETIMEDOUT);
    if (const SCA_Result read = ReadMore(left); read.HasFailed()) return read;
  }
}
