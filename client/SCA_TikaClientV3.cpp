// The third decoder: lines and data in any number of pieces; unread bytes are kept and more are
// appended.

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "client/SCA_ChunkSize.h"
#include "client/SCA_TikaDecoders.h"
#include "client/SCA_TikaExtraction.h"
#include "client/SCA_TikaLink.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"

namespace {

constexpr char kSource[] = "SCA_TikaClientV3";
constexpr unsigned long kNetworkSize = 512;

// With room for less the network buffer serves as well.
constexpr unsigned long kLeastRoom = 4096;

// Received at once, text and framing. The more, the fewer receives and acknowledgements; what is
// received is to be in the second-level cache still when it is moved.
constexpr unsigned long kStretch = 256 << 10;

// Waits for more of a reply. A failure that is no cancel is reported.
SCA_TikaStep WaitForMore(SCA_TcpSock* socket, unsigned long timeoutMs) {
  unsigned long code = 0;
  if (socket->WaitForData(timeoutMs, &code) != 0) return SCA_TikaStep::Done();
  if (code != SCA_ErrorCancelled) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelError, "SCA_TikaClient::GetMoreData: data network timeout (ERR:%lu)", code);
  }
  return SCA_TikaStep::FromSocket(code);
}

// Receives more of a reply. A failure that is no cancel is reported.
// @param unread  Bytes held before those, for the report.
SCA_TikaStep ReceiveMore(SCA_TcpSock* socket, unsigned long unread, char* buffer,
                         unsigned long length, unsigned long* count) {
  const SCA_ReportFunction report = SCA_GetReportFunction(kSource, __LINE__);
  unsigned long code = 0;
  if (socket->Receive(buffer, length, count, &code) != 0) return SCA_TikaStep::Done();
  if (code != SCA_ErrorCancelled && unread == 0) {
    report(SCA_LevelError, "SCA_TikaClient::GetMoreData: cannot receive data (RDL=0, ERR=%lu)",
           code);
  } else if (code != SCA_ErrorCancelled) {
    report(SCA_LevelError, "SCA_TikaClient::GetMoreData: cannot receive data (RDL=%lu, ERR:%lu)",
           unread, code);
  }
  return SCA_TikaStep::FromSocket(code);
}

SCA_TikaStep NoLineFound(unsigned long unread) {
  SCA_GetReportFunction(kSource, __LINE__)(
      SCA_LevelError, "SCA_TikaClient::GetMoreData: no CRLF in %lu bytes of data", unread);
  return SCA_TikaStep::Broken(SCA_ErrorInvalidData);
}

}  // namespace

int SCA_TikaClient::GetFileTextV3(const char* fileName, const char* /*secondName*/,
                                  SCA_TikaTextCallback callback, void* context, SCA_Event* cancel,
                                  unsigned long* textLength, unsigned long* error) {
  return SendRequest(SCA_TikaPlainHead(serverVersion_), fileName, callback, context, cancel,
                     textLength, error);
}

int SCA_TikaClient::SendRequest(const SCA_TikaRequestHead& head, const char* fileName,
                                SCA_TikaTextCallback callback, void* context, SCA_Event* cancel,
                                unsigned long* textLength, unsigned long* error) {
  static constexpr SCA_TikaVariant kVariant = {kSource,
                                               "GetFileTextV3",
                                               "SCA_TikaClient",
                                               "SendFile",
                                               kNetworkSize,
                                               false,
                                               true,
                                               true,
                                               &SCA_DecodeReply<SCA_TikaDecoderV3>};
  SCA_TikaExtraction extraction(this, kVariant, callback, context, cancel, head);
  return extraction.Run(fileName, textLength, error);
}

int SCA_TikaClient::FindCRLF(const char* buffer, unsigned long length, unsigned long position,
                             unsigned long* crlfPosition) {
  const unsigned long found = SCA_FindCrLf(buffer, length, position);
  if (found >= length) return 0;
  *crlfPosition = found;
  return 1;
}

int SCA_TikaClient::GetMoreData(char* buffer, unsigned long bufferSize, unsigned long length,
                                unsigned long position, unsigned long* newLength,
                                unsigned long* newPosition, unsigned long* error) {
  if (link_ == nullptr) return SCA_Fail(ENOTCONN, error);
  SCA_TcpSock& socket = link_->Socket();
  const unsigned long unread = length - position;
  unsigned long count = 0;
  SCA_TikaStep step = unread < bufferSize ? WaitForMore(&socket, settings_->GetNetworkTimeout())
                                          : NoLineFound(unread);
  if (step.IsDone()) {
    std::memmove(buffer, buffer + position, unread);
    step = ReceiveMore(&socket, unread, buffer + unread, bufferSize - unread, &count);
  }
  if (step.IsDone()) {
    *newLength = unread + count;
    *newPosition = 0;
    return 1;
  }
  if (step.kind == SCA_TikaStep::Kind::Broken) SetValid(0);
  return SCA_Fail(step.code, error);
}

SCA_TikaStep SCA_TikaDecoderV3::Decode() {
  for (;;) {
    unsigned long size = 0;
    SCA_TikaStep step = ReadSizeLine(&size);
    if (!step.IsDone()) return step;
    if (size == 0) {
      ReturnUnread();
      return reply_.Flush();
    }
    step = TakeChunk(size);
    if (!step.IsDone()) return step;
  }
}

SCA_TikaStep SCA_TikaDecoderV3::ReadSizeLine(unsigned long* chunkSize) {
  for (;;) {
    unsigned long length = 0;
    while ((length = SCA_FindCrLf(next_, seen_, 0)) >= seen_) {
      const SCA_TikaStep more = SeeMore();
      if (!more.IsDone()) return more;
    }
    const char* line = next_;
    Skip(length + 2);
    // An empty line is the CR LF after a chunk, or one that nobody minds.
    if (length == 0) continue;
    unsigned long long size = 0;
    if (length > SCA_MaxSizeText || !SCA_ParseChunkSize(line, length, &size)) {
      SCA_GetReportFunction(kSource, __LINE__)(
          SCA_LevelError, "SCA_TikaClient::GetFileTextV3: invalid chunk size (CSL=%lu)", length);
      return SCA_TikaStep::Broken(SCA_ErrorInvalidData);
    }
    *chunkSize = static_cast<unsigned long>(size);
    return SCA_TikaStep::Done();
  }
}

SCA_TikaStep SCA_TikaDecoderV3::TakeChunk(unsigned long size) {
  SCA_TikaStep step = lack_ > 0 ? SeeRest() : SCA_TikaStep::Done();
  if (!step.IsDone()) return step;
  const unsigned long held = std::min(size, seen_);
  // Nearly always the chunk is there and fits, and one move takes what the steps below take.
  if (held < size && size + 2 <= seen_ + ahead_ && size + 2 <= reply_.Room()) {
    See(size - held + 2);
    TakeText(size);
    Skip(2);
    return step;
  }
  step = reply_.MakeRoom(held);
  if (!step.IsDone()) return step;
  TakeText(held);
  if (held == size) {
    // Whatever else follows the data is left to the search for the next line.
    if (seen_ >= 2 && SCA_IsCrLf(next_)) Skip(2);
    return step;
  }
  // The rest comes with its CR LF, which is dropped.
  unsigned long missing = size - held + 2;
  step = reply_.MakeRoom(missing);
  while (step.IsDone() && missing > 0) {
    if (ahead_ == 0) {
      step = ReceiveText(&missing);
    } else {
      See(std::min(missing, ahead_));
      missing -= seen_;
      TakeText(seen_);
    }
  }
  if (step.IsDone()) reply_.Drop(2);
  return step;
}

// Lets the network buffer take in more, as much as it has room for.
SCA_TikaStep SCA_TikaDecoderV3::SeeMore() {
  if (seen_ >= kNetworkSize) return NoLineFound(seen_);
  if (ahead_ == 0) {
    SCA_TikaStep step = WaitForMore(reply_.Socket(), reply_.TimeoutMs());
    if (step.IsDone()) step = ReceiveUnread(PlaceUnread());
    if (!step.IsDone()) return step;
  }
  See(std::min(kNetworkSize - seen_, ahead_));
  lack_ = isFull_ ? kNetworkSize - seen_ : 0;
  return SCA_TikaStep::Done();
}

// Lets the network buffer take in what it would hold already, had the last receive asked for more.
SCA_TikaStep SCA_TikaDecoderV3::SeeRest() {
  const unsigned long lack = std::exchange(lack_, 0);
  unsigned long code = 0;
  if (ahead_ > 0 || reply_.Socket()->WaitForData(0, &code) == 0) {
    // What is wrong with the connection will be found when data are missing.
    return code == SCA_ErrorCancelled ? SCA_TikaStep::Cancelled() : SCA_TikaStep::Done();
  }
  const SCA_TikaStep step = ReceiveUnread(PlaceUnread());
  if (step.IsDone()) See(std::min(lack, ahead_));
  return step;
}

// Brings what is unread to where more can follow it. @return Room for that.
unsigned long SCA_TikaDecoderV3::PlaceUnread() {
  const bool isRoomy = reply_.Room() >= seen_ + kLeastRoom;
  char* const target = isRoomy ? reply_.TextEnd() : reply_.network;
  std::memmove(target, next_, seen_);
  next_ = target;
  return (isRoomy ? std::min(reply_.Room(), kStretch) : kNetworkSize) - seen_;
}

SCA_TikaStep SCA_TikaDecoderV3::ReceiveUnread(unsigned long room) {
  const SCA_TikaStep step = ReceiveMore(reply_.Socket(), seen_, next_ + seen_, room, &ahead_);
  isFull_ = ahead_ == room;
  return step;
}

// Receives straight to where the text belongs, and what follows it too.
// @param missing  In and out: the bytes that are text, and the CR LF; there is room for them.
SCA_TikaStep SCA_TikaDecoderV3::ReceiveText(unsigned long* missing) {
  static constexpr SCA_TikaReceiveTexts kTexts = {"data wait timeout", "cannot receive data chunk"};
  const unsigned long wanted = std::min(reply_.Room(), *missing + kStretch);
  unsigned long count = 0;
  const SCA_TikaStep step = reply_.Receive(kTexts, reply_.TextEnd(), wanted, &count);
  if (!step.IsDone()) return step;
  isFull_ = count == wanted;
  const unsigned long text = std::min(count, *missing);
  reply_.Keep(text);
  *missing -= text;
  next_ = reply_.TextEnd();
  ahead_ = count - text;
  return reply_.IsCancelled() ? SCA_TikaStep::Cancelled() : step;
}

void SCA_TikaDecoderV3::See(unsigned long count) {
  seen_ += count;
  ahead_ -= count;
}

void SCA_TikaDecoderV3::Skip(unsigned long count) {
  next_ += count;
  seen_ -= count;
}

void SCA_TikaDecoderV3::TakeText(unsigned long count) {
  std::memmove(reply_.TextEnd(), next_, count);
  reply_.Keep(count);
  Skip(count);
}

// Hands back what follows the reply: the connection judges it before the next request.
void SCA_TikaDecoderV3::ReturnUnread() {
  reply_.received = std::min(seen_ + ahead_, SCA_TikaReply::kMaxNetworkSize);
  reply_.position = 0;
  std::memmove(reply_.network, next_, reply_.received);
}
