#include "client/SCA_TikaExtraction.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/SCA_File.h"
#include "platform/SCA_Report.h"

namespace {

// Lends the cancel event and the time-out of one call to the socket.
class CallLimits {
 public:
  CallLimits(SCA_TcpSock* socket, SCA_Event* cancel, unsigned long timeoutMs, SCA_Event* former)
      : socket_(socket), former_(former) {
    Set(cancel, timeoutMs);
  }
  ~CallLimits() { Set(former_, 0); }
  CallLimits(const CallLimits&) = delete;
  CallLimits& operator=(const CallLimits&) = delete;

 private:
  void Set(SCA_Event* cancel, unsigned long timeoutMs) {
    if (socket_ == nullptr) return;
    socket_->SetCancelEvent(cancel);
    socket_->SetIdleTimeout(timeoutMs);
  }

  SCA_TcpSock* const socket_;
  SCA_Event* const former_;
};

}  // namespace

// The frame: upload, reply header, checks, decoding, bookkeeping.

int SCA_TikaClient::ExtractText(Exchange* exchange, const char* fileName, unsigned long* textLength,
                                unsigned long* error) {
  lastTextLength_.Set(0);
  const CallLimits limits(socket_.get(), exchange->cancel, settings_->GetNetworkTimeout(), cancel_);
  Outcome outcome = Upload(*exchange, fileName);
  if (outcome.kind == Outcome::Kind::Cancelled && exchange->variant.countsCancelledUpload) {
    outcome.kind = Outcome::Kind::Failed;
  }
  if (outcome.IsDone()) outcome = ReadReply(exchange);
  if (outcome.IsDone()) {
    lastTextLength_.Set(static_cast<std::uint32_t>(exchange->delivered));
    *textLength = exchange->delivered;
  }
  return Conclude(outcome, error);
}

int SCA_TikaClient::Conclude(const Outcome& outcome, unsigned long* error) {
  switch (outcome.kind) {
    case Outcome::Kind::Done:
      return 1;
    case Outcome::Kind::Cancelled:
      break;
    case Outcome::Kind::Broken:
      SetValid(0);
      [[fallthrough]];
    case Outcome::Kind::Failed:
      totalErrors_.Add(1);
      break;
  }
  *error = outcome.code;
  return 0;
}

bool SCA_TikaClient::Traces(const Variant& variant) const {
  return variant.traces && debugLevel_ > 1;
}

SCA_TikaClient::Outcome SCA_TikaClient::Upload(const Exchange& exchange, const char* fileName) {
  const Variant& variant = exchange.variant;
  lastFileSize_.Set(0);
  refusalCode_.Set(0);
  if (dataBuffer_ == nullptr) {
    SCA_GetReportFunction(variant.uploadSource, __LINE__)(
        SCA_LevelError, "SCA_TikaClient::%s: data buffer is not initialized", variant.uploadName);
    return Outcome::Broken(SCA_ErrorInvalidData);
  }
  SCA_File file;
  unsigned long code = 0;
  unsigned long long size = 0;
  if (file.Open(fileName, SCA_FileOpenRead, &code) == 0 || file.GetSize(&size, &code) == 0) {
    return Outcome::Failed(code);
  }
  lastFileSize_.Set(size);
  totalFiles_.Add(1);
  if (Traces(variant)) {
    SCA_GetReportFunction(variant.source, __LINE__)(
        SCA_LevelInfo, "SCA_TikaClient::%s: file size %llu bytes", variant.name, size);
  }

  char request[512];  // holds the longest server name
  const int length = std::snprintf(request, sizeof request,
                                   "PUT /tika HTTP/1.1\r\n"
                                   "Host: %s:%d\r\n"
                                   "User-Agent: Orvane HTTP Client\r\n"
                                   "Accept: text/plain\r\n"
                                   "Content-Length: %llu\r\n"
                                   "\r\n",
                                   SCA_HostLine(serverName_).text, port_, size);
  // A small file then takes one packet, and the server wakes once.
  if (size > 0 && socket_ != nullptr) socket_->SetOption(SCA_SockOptionMoreFollows, 1);
  unsigned long sent = 0;
  if (SendAll(request, static_cast<unsigned long>(length), &sent, &code) == 0) {
    return SendFailed(code);
  }
  return SendContent(exchange, &file);
}

SCA_TikaClient::Outcome SCA_TikaClient::SendContent(const Exchange& exchange, SCA_File* file) {
  unsigned long code = 0;
  unsigned long long total = 0;
  for (unsigned long long remaining = lastFileSize_.Get(); remaining > 0;) {
    const auto wanted =
        static_cast<unsigned long>(std::min<unsigned long long>(remaining, dataCapacity_));
    unsigned long count = 0;
    if (file->Read(dataBuffer_.get(), wanted, &count, &code) == 0) return Outcome::Failed(code);
    if (count == 0) return Outcome::Failed(SCA_ErrorFileShrank);
    unsigned long sent = 0;
    if (SendAll(dataBuffer_.get(), count, &sent, &code) == 0) return SendFailed(code);
    remaining -= count;
    total += sent;
    sentData_.Add(sent);
    if (exchange.IsCancelled()) return Outcome::Cancelled();
  }
  // What was announced is what was sent; it is the file only if nothing follows. The files of /proc
  // announce nothing and hold something.
  char further = 0;
  unsigned long count = 0;
  if (file->Read(&further, 1, &count, &code) == 0) return Outcome::Failed(code);
  if (count != 0) return Outcome::Failed(SCA_ErrorFileGrew);
  if (Traces(exchange.variant)) {
    SCA_GetReportFunction(exchange.variant.source, __LINE__)(
        SCA_LevelInfo, "SCA_TikaClient::%s: %llu bytes od data sent to the Tika server",
        exchange.variant.name, total);
  }
  return Outcome::Done();
}

// A server may refuse a file and close before it has read it all. What it said lies in the receive
// queue then, behind the failure of the send.
SCA_TikaClient::Outcome SCA_TikaClient::SendFailed(unsigned long code) {
  const Outcome outcome = Outcome::FromSocket(code);
  char header[2048];
  unsigned long headerLength = 0;
  unsigned long received = 0;
  unsigned long ignored = 0;
  tagSCA_HTTP_REQUEST reply;
  if (outcome.kind == Outcome::Kind::Broken &&
      ReadReplyHeader(0, header, sizeof header - 1, &reply, &headerLength, &received, &ignored) !=
          0) {
    refusalCode_.Set(reply.replyCode);
  }
  return outcome;
}

int SCA_TikaClient::SendFile(const char* fileName, SCA_Event* cancel, unsigned long* error) {
  static constexpr Variant kPlainUpload = {
      "SCA_TikaClient", "SendFile", "SCA_TikaClient", "SendFile", false, false, false, nullptr};
  const Exchange exchange{kPlainUpload, nullptr, nullptr, cancel, nullptr, 0};
  const CallLimits limits(socket_.get(), cancel, settings_->GetNetworkTimeout(), cancel_);
  const Outcome outcome = Upload(exchange, fileName);
  if (outcome.kind == Outcome::Kind::Broken) SetValid(0);
  if (!outcome.IsDone()) *error = outcome.code;
  return outcome.IsDone() ? 1 : 0;
}

SCA_TikaClient::Outcome SCA_TikaClient::ReadReply(Exchange* exchange) {
  const Variant& variant = exchange->variant;
  const SCA_ReportFunction report = SCA_GetReportFunction(variant.source, __LINE__);
  unsigned long code = 0;
  tagSCA_HTTP_REQUEST reply;
  const int isRead =
      ReadReplyHeader(settings_->GetNetworkTimeout(), exchange->network, exchange->networkSize - 1,
                      &reply, &exchange->position, &exchange->received, &code);
  const bool isUnreadable = isRead == 0 && code == SCA_ErrorInvalidData;
  if (isRead == 0 && !isUnreadable) return Outcome::FromSocket(code);
  if (Traces(variant)) {
    report(SCA_LevelInfo, "SCA_TikaClient::%s: %lu bytes received (%lu bytes HTTP header)",
           variant.name, exchange->received, exchange->position);
  }
  if (isUnreadable) return Outcome::Broken(code);
  if (Traces(variant)) {
    report(SCA_LevelInfo, "SCA_TikaClient::%s: HTTP Reply Code %lu, transfer encoding %s",
           variant.name, reply.replyCode, reply.transferEncoding);
  }
  if (reply.replyCode == 422) return Outcome::Failed(SCA_ErrorTika422);
  if (reply.replyCode == 500) return Outcome::Broken(SCA_ErrorTika500);
  if (reply.replyCode != 200) {
    report(SCA_LevelError, "SCA_TikaClient::%s: Unknown Tika server reply code - %lu", variant.name,
           reply.replyCode);
    return Outcome::Broken(reply.replyCode);
  }
  if (reply.isContentEncoded != 0) return Outcome::Broken(SCA_ErrorContentEncoding);
  // Of a chunked reply the length says nothing (RFC 9112, section 6.3).
  const bool isChunked = reply.transferEncoding[0] != '\0';
  if (!isChunked && reply.hasContentLength != 0 && reply.contentLength == 0) return Outcome::Done();
  if (std::strcmp(reply.transferEncoding, "chunked") != 0) {
    report(SCA_LevelError, "SCA_TikaClient::%s: unsupported transfer encoding - %s", variant.name,
           reply.transferEncoding);
    return Outcome::Broken(SCA_ErrorInvalidData);
  }
  return (this->*variant.decode)(exchange);
}

// What the decoders share.

unsigned long SCA_TikaClient::Room(const Exchange& exchange) const {
  return dataCapacity_ - exchange.collected;
}

SCA_TikaClient::Outcome SCA_TikaClient::Flush(Exchange* exchange) {
  const unsigned long length = exchange->collected;
  if (length == 0) return Outcome::Done();
  dataBuffer_[length] = '\0';
  if (exchange->callback(dataBuffer_.get(), length, exchange->delivered, exchange->context) == 0) {
    return Outcome::Cancelled();
  }
  exchange->delivered += length;
  exchange->collected = 0;
  recvData_.Add(length);
  if (exchange->variant.growsTextLength) {
    lastTextLength_.Set(static_cast<std::uint32_t>(exchange->delivered));
  }
  return Outcome::Done();
}

SCA_TikaClient::Outcome SCA_TikaClient::MakeRoom(Exchange* exchange, unsigned long needed) {
  if (needed <= Room(*exchange)) return Outcome::Done();
  const Outcome flushed = Flush(exchange);
  if (!flushed.IsDone() || needed <= Room(*exchange)) return flushed;
  return ChunkDoesNotFit(*exchange, needed);
}

SCA_TikaClient::Outcome SCA_TikaClient::ChunkDoesNotFit(const Exchange& exchange,
                                                        unsigned long long needed) {
  SCA_GetReportFunction(exchange.variant.source, __LINE__)(
      SCA_LevelError,
      "SCA_TikaClient::%s: %llu bytes of a data chunk do not fit the data buffer of %lu bytes",
      exchange.variant.name, needed, dataCapacity_);
  return Outcome::Broken(SCA_ErrorInvalidData);
}

void SCA_TikaClient::TakeReceived(Exchange* exchange, unsigned long count) {
  std::memcpy(dataBuffer_.get() + exchange->collected, exchange->network + exchange->position,
              count);
  exchange->collected += count;
  exchange->position += count;
}

SCA_TikaClient::Outcome SCA_TikaClient::Receive(const Exchange& exchange, const ReceiveTexts& texts,
                                                char* buffer, unsigned long length,
                                                unsigned long* received) {
  unsigned long code = 0;
  const char* failed = nullptr;
  if (socket_->WaitForData(settings_->GetNetworkTimeout(), &code) == 0) {
    failed = texts.waitFailed;
  } else if (socket_->Receive(buffer, length, received, &code) == 0) {
    failed = texts.receiveFailed;
  }
  if (failed == nullptr) return Outcome::Done();
  const Outcome outcome = Outcome::FromSocket(code);
  if (outcome.kind == Outcome::Kind::Broken) {
    SCA_GetReportFunction(exchange.variant.source, __LINE__)(
        SCA_LevelError, "SCA_TikaClient::%s: %s (ERR:%lu)", exchange.variant.name, failed, code);
  }
  return outcome;
}

SCA_TikaClient::Outcome SCA_TikaClient::Refill(Exchange* exchange) {
  static constexpr ReceiveTexts kTexts = {"data network timeout",
                                          "cannot receive the next data chunk"};
  exchange->position = exchange->received = 0;
  return Receive(*exchange, kTexts, exchange->network, exchange->networkSize - 1,
                 &exchange->received);
}

SCA_TikaClient::Outcome SCA_TikaClient::ReceiveRest(Exchange* exchange, unsigned long missing) {
  static constexpr ReceiveTexts kTexts = {"data wait timeout", "cannot receive data chunk"};
  while (missing > 0) {
    unsigned long count = 0;
    const Outcome outcome =
        Receive(*exchange, kTexts, dataBuffer_.get() + exchange->collected, missing, &count);
    if (!outcome.IsDone()) return outcome;
    exchange->collected += count;
    missing -= count;
    if (exchange->IsCancelled()) return Outcome::Cancelled();
  }
  return Outcome::Done();
}

SCA_TikaClient::Outcome SCA_TikaClient::DecodeByLines(Exchange* exchange, ReadSizeLine readSizeLine,
                                                      FinishChunk finishChunk) {
  for (;;) {
    unsigned long size = 0;
    Outcome outcome = (this->*readSizeLine)(exchange, &size);
    if (!outcome.IsDone()) return outcome;
    if (size == 0) return Flush(exchange);
    const unsigned long held = std::min(size, exchange->Unread());
    outcome = MakeRoom(exchange, held);
    if (!outcome.IsDone()) return outcome;
    TakeReceived(exchange, held);
    if (held == size) {
      outcome = (this->*finishChunk)(exchange);
      if (!outcome.IsDone()) return outcome;
      continue;
    }
    // The rest comes straight into the data buffer together with its CR LF, which is dropped.
    const unsigned long rest = size - held + 2;
    outcome = MakeRoom(exchange, rest);
    if (outcome.IsDone()) outcome = ReceiveRest(exchange, rest);
    if (!outcome.IsDone()) return outcome;
    exchange->collected -= 2;
  }
}

unsigned long SCA_FindCrLf(const char* buffer, unsigned long length, unsigned long position) {
  while (position < length && length - position >= 2) {
    const void* cr = std::memchr(buffer + position, '\r', length - position - 1);
    if (cr == nullptr) break;
    position = static_cast<unsigned long>(static_cast<const char*>(cr) - buffer);
    if (buffer[position + 1] == '\n') return position;
    ++position;
  }
  return length;
}

namespace {

// Reads a line of up to 16 hexadecimal digits and nothing else, as nearly every size line is: a
// third of what the general way takes, which is felt with small chunks.
bool ParsePlainSize(const char* line, unsigned long length, unsigned long long* size) {
  if (length == 0 || length > 16) return false;
  unsigned long long value = 0;
  for (unsigned long i = 0; i < length; ++i) {
    const unsigned digit = static_cast<unsigned char>(line[i]) - unsigned{'0'};
    const unsigned letter = (static_cast<unsigned char>(line[i]) | 0x20U) - unsigned{'a'};
    if (digit > 9 && letter > 5) return false;
    value = value << 4 | (digit <= 9 ? digit : letter + 10);
  }
  *size = value;
  return true;
}

}  // namespace

bool SCA_ParseChunkSize(const char* line, unsigned long length, unsigned long long* size) {
  if (ParsePlainSize(line, length, size)) return true;
  char text[256];
  if (length >= sizeof text || (length > 0 && *line == '\n')) return false;
  std::memcpy(text, line, length);
  text[length] = '\0';
  char* end = nullptr;
  const unsigned long long value = std::strtoull(text, &end, 16);
  const bool hasDigit = end != text;
  const bool isNegative = std::memchr(text, '-', static_cast<std::size_t>(end - text)) != nullptr;
  // Of "0x" without digits the zero alone is read: the sign that ends a reply.
  const bool isBarePrefix = *end == 'x' || *end == 'X';
  if (!hasDigit || isNegative || isBarePrefix) return false;
  *size = value;
  return true;
}
