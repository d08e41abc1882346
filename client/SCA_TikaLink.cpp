#include "client/SCA_TikaLink.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/SCA_Error.h"

namespace {

constexpr int kMaxInterimReplies = 32;
constexpr unsigned long kFirstFinalCode = 200;
constexpr unsigned long kSwitchingProtocols = 101;

constexpr std::string_view kEmptyLine = "\r\n";
constexpr std::string_view kHeaderEnd = "\r\n\r\n";

bool BeginsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

// Whether a header that follows a chunked reply without its end is the trailer of that reply:
// fields, where a reply begins with its status line.
bool IsTrailer(std::string_view header) {
  const std::string_view line = header.substr(0, header.find(kEmptyLine));
  return line.find(':') != std::string_view::npos && !BeginsWith(line, "HTTP/");
}

}  // namespace

SCA_HostLine::SCA_HostLine(const char* serverName) {
  const bool isAddress = std::strchr(serverName, ':') != nullptr;
  // The zone of an address is this machine's affair.
  const auto length =
      static_cast<int>(isAddress ? std::strcspn(serverName, "%") : std::strlen(serverName));
  std::snprintf(text, sizeof text, isAddress ? "[%.*s]" : "%.*s", length, serverName);
}

void SCA_TikaLink::SetCancelEvent(SCA_Event* cancel) {
  cancel_ = cancel;
  socket_.SetCancelEvent(cancel);
}

void SCA_TikaLink::EndExchange(const char* unread, unsigned long length, ReplyEnd end) {
  phase_ = Phase::Between;
  owesEnd_ = end == ReplyEnd::Owed;
  restLength_ = std::min(length, kRestSize);
  std::memcpy(rest_, unread, restLength_);
}

SCA_TikaLink::State SCA_TikaLink::Look(bool* isClosed) {
  unsigned long count = 0;
  unsigned long code = ETIMEDOUT;
  socket_.SetCancelEvent(nullptr);
  while (restLength_ < kRestSize && socket_.WaitForData(0, &code) != 0 &&
         socket_.Receive(rest_ + restLength_, kRestSize - restLength_, &count, &code) != 0) {
    restLength_ += count;
    code = ETIMEDOUT;
  }
  *isClosed = code != ETIMEDOUT;
  socket_.SetCancelEvent(cancel_);
  return phase_ == Phase::Exchange ? State::Unusable : SortRest();
}

void SCA_TikaLink::DropRest(unsigned long count) {
  restLength_ -= count;
  std::memmove(rest_, rest_ + count, restLength_);
}

// Takes the end of the last reply away, with empty lines that follow it.
SCA_TikaLink::State SCA_TikaLink::SortRest() {
  if (restLength_ == kRestSize) return State::Unusable;
  if (owesEnd_ && restLength_ > 0 && *rest_ != '\r') {
    const std::string_view rest(rest_, restLength_);
    const std::size_t end = rest.find(kHeaderEnd);
    if (end == std::string_view::npos) return State::Unfinished;
    if (!IsTrailer(rest)) return State::Unusable;
    owesEnd_ = false;
    DropRest(end + kHeaderEnd.size());
  }
  while (BeginsWith({rest_, restLength_}, kEmptyLine)) {
    owesEnd_ = false;
    DropRest(kEmptyLine.size());
  }
  if (restLength_ == 0) return owesEnd_ ? State::Unfinished : State::Clean;
  return restLength_ == 1 && *rest_ == '\r' ? State::Unfinished : State::Unusable;
}

unsigned long SCA_TikaLink::TakeRest(char* buffer, unsigned long capacity) {
  const unsigned long count = std::min(std::exchange(restLength_, 0), capacity);
  std::memcpy(buffer, rest_, count);
  return count;
}

SCA_Result SCA_TikaLink::ReadHeader(unsigned long timeoutMs, char* buffer, unsigned long capacity,
                                    unsigned long* headerLength, unsigned long* received) {
  *received = TakeRest(buffer, capacity);
  return ReadOn(timeoutMs, buffer, capacity, headerLength, received);
}

// Receives after the bytes held until a complete header is there.
// @param received  In and out: the bytes held.
SCA_Result SCA_TikaLink::ReadOn(unsigned long timeoutMs, char* buffer, unsigned long capacity,
                                unsigned long* headerLength, unsigned long* received) {
  for (;;) {
    buffer[*received] = '\0';
    if (SCA_HttpParser::IsHeaderReady(buffer, *received + 1, headerLength) != 0) return SCA_Done;
    if (*received == capacity) return SCA_Result(SCA_ErrorHeaderTooLong);
    unsigned long count = 0;
    unsigned long code = 0;
    if (socket_.WaitForData(timeoutMs, &code) == 0 ||
        socket_.Receive(buffer + *received, capacity - *received, &count, &code) == 0) {
      return SCA_Result(code);
    }
    *received += count;
  }
}

SCA_Result SCA_TikaLink::ReadReplyHeader(unsigned long timeoutMs, char* buffer,
                                         unsigned long capacity, tagSCA_HTTP_REQUEST* reply,
                                         unsigned long* headerLength, unsigned long* received) {
  *received = TakeRest(buffer, capacity);
  for (int dropped = 0; dropped <= kMaxInterimReplies; ++dropped) {
    const SCA_Result read = ReadOn(timeoutMs, buffer, capacity, headerLength, received);
    if (read.HasFailed()) return read;
    if (!std::exchange(owesEnd_, false) || !IsTrailer({buffer, *headerLength})) {
      if (SCA_HttpParser::ParseHttpHeader(buffer, *headerLength, reply) == 0) {
        return SCA_Result(SCA_ErrorInvalidData);
      }
      if (reply->replyCode >= kFirstFinalCode) return SCA_Done;
      if (reply->replyCode == kSwitchingProtocols) break;
    }
    *received -= *headerLength;
    std::memmove(buffer, buffer + *headerLength, *received);
  }
  return SCA_Result(SCA_ErrorInterimReplies);
}
