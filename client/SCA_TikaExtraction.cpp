#include "client/SCA_TikaExtraction.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "client/SCA_TikaLink.h"
#include "client/SCA_TikaMetadataReader.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Text.h"

namespace {

constexpr unsigned long kMaxMessageBody = 4096;
constexpr unsigned long kMessageWaitMs = 1000;  // for a body that should be there

// Takes the message, or else the status, of a JSON object that tells of a failure.
class ServerMessage final : public SCA_TikaMetadataReceiver {
 public:
  explicit ServerMessage(char (&text)[256]) : text_(text) {}

 private:
  int TakeText(const char* /*text*/, unsigned long /*length*/) override { return 1; }
  int TakeDocument(const SCA_TikaMetadata& told) override {
    const std::string* text = told.Find("message");
    if (text == nullptr || text->empty()) text = told.Find("status");
    if (text == nullptr) return 0;
    const unsigned long length =
        SCA_CutLength(text->data(), std::min<unsigned long>(text->size(), sizeof text_ - 1));
    std::memcpy(text_, text->data(), length);
    text_[length] = '\0';
    SCA_BlankControls(text_, length);
    return 0;
  }

  char (&text_)[256];
};

}  // namespace

namespace {

// From this size on a file goes straight from the system's cache to the connection.
constexpr unsigned long long kLeastStraight = 512 << 10;
constexpr unsigned long kStraightBlock = 1 << 20;  // between two looks at the cancel event

// Of a file that goes through the data buffer. Larger ones leave the second-level cache before they
// are sent, and a connection that is paced takes them in many small parts.
constexpr unsigned long kBlockSize = 128 << 10;

}  // namespace

// Lends the cancel event and the time-out of one call to the socket.
class SCA_TikaExtraction::Limits {
 public:
  Limits(SCA_TikaLink* link, SCA_Event* cancel, unsigned long timeoutMs, SCA_Event* former)
      : link_(link), former_(former) {
    Set(cancel, timeoutMs);
  }
  ~Limits() { Set(former_, 0); }
  Limits(const Limits&) = delete;
  Limits& operator=(const Limits&) = delete;

 private:
  void Set(SCA_Event* cancel, unsigned long timeoutMs) {
    if (link_ == nullptr) return;
    link_->SetCancelEvent(cancel);
    link_->Socket().SetIdleTimeout(timeoutMs);
  }

  SCA_TikaLink* const link_;
  SCA_Event* const former_;
};

SCA_TikaExtraction::SCA_TikaExtraction(SCA_TikaClient* client, const SCA_TikaVariant& variant,
                                       SCA_TikaTextCallback callback, void* context,
                                       SCA_Event* cancel, const SCA_TikaRequestHead& head)
    : client_(*client),
      link_(client->link_.get()),
      variant_(variant),
      head_(head),
      loan_{callback,
            context,
            cancel,
            client->settings_,
            client->dataBuffer_.get(),
            client->dataCapacity_,
            &client->recvData_,
            &client->lastTextLength_,
            variant.traces && client->debugLevel_ > 1},
      reply_(variant, loan_, link_ != nullptr ? &link_->Socket() : nullptr) {}

int SCA_TikaExtraction::Run(const char* fileName, unsigned long* textLength, unsigned long* error) {
  client_.lastTextLength_.Set(0);
  const Limits limits(link_, loan_.cancel, reply_.TimeoutMs(), client_.cancel_);
  SCA_TikaStep step = Open(fileName);
  if (step.IsDone()) step = Begin();
  if (step.IsDone()) step = Send();
  if (step.kind == SCA_TikaStep::Kind::Cancelled && variant_.countsCancelledUpload) {
    step.kind = SCA_TikaStep::Kind::Failed;
  }
  if (step.IsDone()) step = CheckFile(ReadReply());
  if (step.IsDone()) {
    client_.lastTextLength_.Set(static_cast<std::uint32_t>(reply_.Delivered()));
    *textLength = reply_.Delivered();
  }
  return Conclude(step, error);
}

int SCA_TikaExtraction::SendFile(const char* fileName, unsigned long* error) {
  const Limits limits(link_, loan_.cancel, reply_.TimeoutMs(), client_.cancel_);
  SCA_TikaStep step = Open(fileName);
  if (step.IsDone()) step = Send();
  if (step.kind == SCA_TikaStep::Kind::Broken) client_.SetValid(0);
  if (!step.IsDone()) *error = step.code;
  return step.IsDone() ? 1 : 0;
}

int SCA_TikaExtraction::Conclude(const SCA_TikaStep& step, unsigned long* error) {
  switch (step.kind) {
    case SCA_TikaStep::Kind::Done:
      return 1;
    case SCA_TikaStep::Kind::Cancelled:
      break;
    case SCA_TikaStep::Kind::Broken:
      client_.SetValid(0);
      [[fallthrough]];
    case SCA_TikaStep::Kind::Failed:
      client_.totalErrors_.Add(1);
      break;
  }
  *error = step.code;
  return 0;
}

SCA_TikaStep SCA_TikaExtraction::Open(const char* fileName) {
  client_.lastFileSize_.Set(0);
  client_.refusalCode_.Set(0);
  client_.retryAfterS_ = SCA_HttpNoRetryAfter;
  client_.serverMessage_[0] = '\0';
  if (loan_.text == nullptr) {
    SCA_GetReportFunction(variant_.uploadSource, __LINE__)(
        SCA_LevelError, "SCA_TikaClient::%s: data buffer is not initialized", variant_.uploadName);
    return SCA_TikaStep::Broken(SCA_ErrorInvalidData);
  }
  unsigned long code = 0;
  if (file_.Open(fileName, SCA_FileOpenRead, &code) == 0) return SCA_TikaStep::Failed(code);
  const unsigned long long size = file_.GetSizeAtOpen();
  client_.lastFileSize_.Set(size);
  client_.totalFiles_.Add(1);
  if (loan_.traces) {
    SCA_GetReportFunction(variant_.source, __LINE__)(
        SCA_LevelInfo, "SCA_TikaClient::%s: file size %llu bytes", variant_.name, size);
  }
  return SCA_TikaStep::Done();
}

// What is left of the exchange before must not be taken for the reply to this request.
SCA_TikaStep SCA_TikaExtraction::Begin() {
  if (link_ == nullptr) return SCA_TikaStep::Done();
  bool isClosed = false;
  if (!link_->IsFresh() && link_->Look(&isClosed) == SCA_TikaLink::State::Unusable) {
    return SCA_TikaStep::Broken(EPROTO);
  }
  link_->BeginExchange();
  return SCA_TikaStep::Done();
}

SCA_TikaStep SCA_TikaExtraction::Send() {
  if (link_ == nullptr) return SCA_TikaStep::Broken(ENOTCONN);
  const SCA_TikaStep step = SendHead();
  return step.IsDone() ? SendContent() : step;
}

SCA_TikaStep SCA_TikaExtraction::SendHead() {
  const unsigned long long size = client_.lastFileSize_.Get();
  char lines[512];  // holds the longest server name
  const int length =
      std::snprintf(lines, sizeof lines,
                    "PUT %s HTTP/1.1\r\n"
                    "Host: %s:%d\r\n"
                    "User-Agent: Orvane HTTP Client\r\n"
                    "Accept: %s\r\n"
                    "Content-Length: %llu\r\n"
                    "%s",
                    head_.path, SCA_HostLine(client_.serverName_).text, client_.port_, head_.accept,
                    size, head_.fields.empty() ? "\r\n" : "");
  // A small file then takes one packet, and the server wakes once.
  if (size > 0) link_->Socket().SetOption(SCA_SockOptionMoreFollows, 1);
  unsigned long sent = 0;
  unsigned long code = 0;
  if (head_.fields.empty()) {
    return link_->Socket().Send(lines, static_cast<unsigned long>(length), &sent, &code) != 0
               ? SCA_TikaStep::Done()
               : SendFailed(code);
  }
  const std::string request =
      std::string(lines, static_cast<std::size_t>(length)) + head_.fields + "\r\n";
  return link_->Socket().Send(request.data(), request.size(), &sent, &code) != 0
             ? SCA_TikaStep::Done()
             : SendFailed(code);
}

SCA_TikaStep SCA_TikaExtraction::SendContent() {
  unsigned long long remaining = client_.lastFileSize_.Get();
  SCA_TikaStep step = SCA_TikaStep::Done();
  if (remaining >= kLeastStraight) step = SendStraight(&remaining);
  if (step.IsDone()) step = SendThroughBuffer(remaining);
  if (step.IsDone() && loan_.traces) {
    SCA_GetReportFunction(variant_.source, __LINE__)(
        SCA_LevelInfo, "SCA_TikaClient::%s: %llu bytes od data sent to the Tika server",
        variant_.name, client_.lastFileSize_.Get());
  }
  return step;
}

// Sends as much as the system sends without copying it through the data buffer.
SCA_TikaStep SCA_TikaExtraction::SendStraight(unsigned long long* remaining) {
  while (*remaining > 0) {
    const auto wanted =
        static_cast<unsigned long>(std::min<unsigned long long>(*remaining, kStraightBlock));
    unsigned long sent = 0;
    unsigned long code = 0;
    if (link_->Socket().SendFile(&file_, wanted, &sent, &code) == 0) return SendFailed(code);
    wentStraight_ = wentStraight_ || sent > 0;
    *remaining -= sent;
    client_.sentData_.Add(sent);
    if (loan_.IsCancelled()) return SCA_TikaStep::Cancelled();
    if (sent < wanted) break;
  }
  return SCA_TikaStep::Done();
}

// Sends the rest of the file. What was announced is what was sent; it is the file only if nothing
// follows. The files of /proc announce nothing and hold something.
SCA_TikaStep SCA_TikaExtraction::SendThroughBuffer(unsigned long long remaining) {
  const unsigned long block = std::min(loan_.capacity, kBlockSize);
  for (;;) {
    const auto wanted = static_cast<unsigned long>(std::min<unsigned long long>(remaining, block));
    // The last read asks for one byte more, for which the data buffer always has room.
    const unsigned long further = wanted == remaining ? 1 : 0;
    unsigned long count = 0;
    unsigned long code = 0;
    if (file_.ReadSome(loan_.text, wanted + further, &count, &code) == 0) {
      return SCA_TikaStep::Failed(code);
    }
    if (count == 0 && wanted > 0) return SCA_TikaStep::Failed(SCA_ErrorFileShrank);
    const bool grew = count > wanted;
    count -= grew ? 1 : 0;
    if (count > 0) {
      unsigned long sent = 0;
      if (link_->Socket().Send(loan_.text, count, &sent, &code) == 0) return SendFailed(code);
      remaining -= count;
      client_.sentData_.Add(sent);
      if (loan_.IsCancelled()) return SCA_TikaStep::Cancelled();
    }
    if (grew) return SCA_TikaStep::Failed(SCA_ErrorFileGrew);
    if (remaining == 0) return SCA_TikaStep::Done();
  }
}

// A server may refuse a file and close before it has read it all. What it said lies in the receive
// queue then, behind the failure of the send.
SCA_TikaStep SCA_TikaExtraction::SendFailed(unsigned long code) {
  const SCA_TikaStep step = SCA_TikaStep::FromSocket(code);
  char header[2048];
  unsigned long headerLength = 0;
  unsigned long received = 0;
  tagSCA_HTTP_REQUEST reply;
  if (step.kind == SCA_TikaStep::Kind::Broken &&
      !link_->ReadReplyHeader(0, header, sizeof header - 1, &reply, &headerLength, &received)
           .HasFailed()) {
    client_.refusalCode_.Set(reply.replyCode);
    TakeMessage(reply, header + headerLength, received - headerLength, 0);
  }
  return step;
}

// What was cut off while the server was still to read it has arrived as zeros.
SCA_TikaStep SCA_TikaExtraction::CheckFile(const SCA_TikaStep& outcome) {
  const bool isJudged =
      outcome.IsDone() || outcome.kind == SCA_TikaStep::Kind::Failed;  // not a broken connection
  unsigned long long size = 0;
  unsigned long code = 0;
  if (!wentStraight_ || !isJudged) return outcome;
  if (file_.GetSize(&size, &code) == 0) return SCA_TikaStep::Failed(code);
  return size < client_.lastFileSize_.Get() ? SCA_TikaStep::Failed(SCA_ErrorFileShrank) : outcome;
}

SCA_TikaStep SCA_TikaExtraction::ReadReply() {
  const SCA_ReportFunction report = SCA_GetReportFunction(variant_.source, __LINE__);
  tagSCA_HTTP_REQUEST header;
  const unsigned long code =
      link_
          ->ReadReplyHeader(reply_.TimeoutMs(), reply_.network, variant_.networkSize - 1, &header,
                            &reply_.position, &reply_.received)
          .Code();
  const bool isUnreadable = code == SCA_ErrorInvalidData;
  if (code != 0 && !isUnreadable) return SCA_TikaStep::FromSocket(code);
  if (loan_.traces) {
    report(SCA_LevelInfo, "SCA_TikaClient::%s: %lu bytes received (%lu bytes HTTP header)",
           variant_.name, reply_.received, reply_.position);
  }
  if (isUnreadable) return SCA_TikaStep::Broken(code);
  if (loan_.traces) {
    report(SCA_LevelInfo, "SCA_TikaClient::%s: HTTP Reply Code %lu, transfer encoding %s",
           variant_.name, header.replyCode, header.transferEncoding);
  }
  return TakeText(header);
}

// Keeps what a server says about a failure. From Tika 4 on its body is JSON; one that is larger,
// does not come soon or is something else is left alone, since the code is enough to go on with.
// @param held    The bytes of the body that are there, and what follows it.
// @return Whether the whole body has been received, if it was not among those.
bool SCA_TikaExtraction::TakeMessage(const tagSCA_HTTP_REQUEST& header, const char* held,
                                     unsigned long length, unsigned long waitMs) {
  client_.retryAfterS_ = header.retryAfterS;
  const unsigned long size = header.contentLength;
  if (header.isJson == 0 || header.isContentEncoded != 0 || header.transferEncoding[0] != '\0' ||
      size > std::min(kMaxMessageBody, loan_.capacity)) {
    return false;
  }
  // In the data buffer, which holds nothing any more.
  unsigned long count = std::min(length, size);
  std::memcpy(loan_.text, held, count);
  while (count < size) {
    unsigned long more = 0;
    unsigned long code = 0;
    if (link_->Socket().WaitForData(waitMs, &code) == 0 ||
        link_->Socket().Receive(loan_.text + count, size - count, &more, &code) == 0) {
      return false;
    }
    count += more;
  }
  ServerMessage message(client_.serverMessage_);
  SCA_TikaMetadataReader(&message, kMaxMessageBody).Take(loan_.text, size);
  return size > length;
}

// Checks what the header says, and lets the decoder take the text.
SCA_TikaStep SCA_TikaExtraction::TakeText(const tagSCA_HTTP_REQUEST& header) {
  const SCA_ReportFunction report = SCA_GetReportFunction(variant_.source, __LINE__);
  // Of a chunked reply the length says nothing (RFC 9112, section 6.3).
  const bool isChunked = header.transferEncoding[0] != '\0';
  if (header.replyCode != 200 && TakeMessage(header, reply_.Next(), reply_.Unread(),
                                             std::min(reply_.TimeoutMs(), kMessageWaitMs))) {
    link_->EndExchange(reply_.Next(), 0, SCA_TikaLink::ReplyEnd::Seen);
  }
  const bool isWhole =
      !isChunked && header.hasContentLength != 0 && header.contentLength <= reply_.Unread();
  if (isWhole) {
    link_->EndExchange(reply_.Next() + header.contentLength, reply_.Unread() - header.contentLength,
                       SCA_TikaLink::ReplyEnd::Seen);
  }
  if (header.replyCode == 422) return SCA_TikaStep::Failed(SCA_ErrorTika422);
  if (header.replyCode == 500) return SCA_TikaStep::Broken(SCA_ErrorTika500);
  if (header.replyCode != 200) {
    report(SCA_LevelError, "SCA_TikaClient::%s: Unknown Tika server reply code - %lu",
           variant_.name, header.replyCode);
    return SCA_TikaStep::Broken(header.replyCode);
  }
  if (header.isContentEncoded != 0) return SCA_TikaStep::Broken(SCA_ErrorContentEncoding);
  if (isWhole && header.contentLength == 0) return SCA_TikaStep::Done();
  if (std::strcmp(header.transferEncoding, "chunked") != 0) {
    report(SCA_LevelError, "SCA_TikaClient::%s: unsupported transfer encoding - %s", variant_.name,
           header.transferEncoding);
    return SCA_TikaStep::Broken(SCA_ErrorInvalidData);
  }
  const SCA_TikaStep step = variant_.decode(&reply_);
  if (step.IsDone()) {
    link_->EndExchange(reply_.Next(), reply_.Unread(), SCA_TikaLink::ReplyEnd::Owed);
  }
  return step;
}
