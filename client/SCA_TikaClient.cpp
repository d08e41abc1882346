#include "client/SCA_TikaClient.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "client/SCA_TikaExtraction.h"
#include "client/SCA_TikaLink.h"
#include "client/SCA_TikaRequestHead.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"
#include "platform/SCA_Text.h"
#include "platform/SCA_Time.h"

namespace {

constexpr char kSource[] = "SCA_TikaClient";
constexpr char kUserAgent[] = "Orvane HTTP Client";

constexpr unsigned long kHeaderBufferSize = 2048;
constexpr unsigned long kPieceSize = 4096;    // of a body sent or received by HTTP/1.0
constexpr unsigned long kMaxGetBody = 65535;  // bytes
constexpr unsigned long kMaxPutReplyBody = 0x3D090000;
constexpr unsigned long kMaxVersionLength = 100;
constexpr unsigned long kFirstHttpCode = 200;  // of the codes that an answer shows

// The data buffer begins at a page's start, as what is read into it from a file does. A few bytes
// behind it, where large blocks of the heap begin, some processors copy at a twentieth of the
// speed.
constexpr std::align_val_t kPageSize{4096};

// Sends the head of a request by HTTP/1.0.
// @param link  Null without a connection.
int SendHead(SCA_TikaLink* link, const char* method, const char* path, const char* serverName,
             unsigned long* error) {
  if (link == nullptr) return SCA_Fail(ENOTCONN, error);
  char request[kHeaderBufferSize];
  const int length =
      std::snprintf(request, sizeof request, "%s %s HTTP/1.0\r\nHost: %s\r\nUser-Agent: %s\r\n\r\n",
                    method, path, SCA_HostLine(serverName).text, kUserAgent);
  if (length < 0 || static_cast<unsigned long>(length) >= sizeof request) {
    return SCA_Fail(SCA_ErrorHeaderTooLong, error);
  }
  unsigned long sent = 0;
  return link->Socket().Send(request, static_cast<unsigned long>(length), &sent, error);
}

}  // namespace

SCA_TikaClient::SCA_TikaClient(SCA_TikaConfigOrv* settings, const char* serverName,
                               unsigned short port)
    : settings_(settings), port_(port) {
  SetValid(SetServerName(serverName) != 0 && settings != nullptr ? 1 : 0);
}

SCA_TikaClient::~SCA_TikaClient() {
  Disconnect();
}

int SCA_TikaClient::SetServerName(const char* serverName) {
  if (SCA_CopyText(serverName_, serverName, SCA_TextFit::Refuse) != 0) {
    serverVersion_ = {};
    return 1;
  }
  SCA_GetReportFunction(kSource, __LINE__)(
      SCA_LevelError, "SCA_TikaClient::SetServerName: a server name of %lu bytes is too long",
      static_cast<unsigned long>(std::strlen(serverName)));
  return 0;
}

void SCA_TikaClient::SetCancelEvent(SCA_Event* cancel) {
  cancel_ = cancel;
  if (link_ != nullptr) link_->SetCancelEvent(cancel);
}

int SCA_TikaClient::Connect(unsigned long timeout, unsigned long* error) {
  if (link_ != nullptr) {
    SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelError,
                                             "SCA_TikaClient::Connect: already connected");
    return SCA_Fail(SCA_ErrorCannotCreate, error);
  }
  link_.reset(new (std::nothrow) SCA_TikaLink);
  if (link_ == nullptr || !link_->IsValid()) {
    SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelError,
                                             "SCA_TikaClient::Connect: cannot create socket");
    Disconnect();
    return SCA_Fail(SCA_ErrorCannotCreate, error);
  }
  link_->SetCancelEvent(cancel_);
  if (link_->Socket().Connect(serverName_, port_, timeout, error) == 0) {
    Disconnect();
    return 0;
  }
  // A request's header and its first block are two sends; the second must not wait for the
  // acknowledgement of the first. Without the option the client still works, only slower.
  link_->Socket().SetOption(SCA_SockOptionNoDelay, 1);
  connectTime_.Set(SCA_GetAbsTime());
  connectCount_.Add(1);
  return 1;
}

int SCA_TikaClient::Disconnect() {
  link_.reset();
  return 1;
}

int SCA_TikaClient::IsUsable() {
  bool isClosed = false;
  return link_ != nullptr && link_->Look(&isClosed) == SCA_TikaLink::State::Clean && !isClosed ? 1
                                                                                               : 0;
}

void SCA_TikaClient::AlignedDelete::operator()(char* memory) const noexcept {
  ::operator delete[](memory, kPageSize);
}

int SCA_TikaClient::InitDataBuffer() {
  dataBuffer_.reset();
  dataCapacity_ = 0;
  if (bufferSize_ == 0) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelError, "SCA_TikaClient::InitDataBuffer: a data buffer of 0 bytes holds no text");
    return 0;
  }
  // In 64 bits: the extra byte of the largest buffer size must not wrap to nothing.
  const unsigned long bytes = static_cast<unsigned long>(bufferSize_) + 1;
  dataBuffer_.reset(new (kPageSize, std::nothrow) char[bytes]);
  if (dataBuffer_ == nullptr) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelError, "SCA_TikaClient::InitDataBuffer: cannot alloc %lu bytes of memory", bytes);
    return 0;
  }
  dataCapacity_ = bufferSize_;
  return 1;
}

int SCA_TikaClient::ReadHttpHeader(char* buffer, unsigned long capacity,
                                   unsigned long* headerLength, unsigned long* received,
                                   unsigned long* error) {
  if (link_ == nullptr) return SCA_Fail(ENOTCONN, error);
  return link_->ReadHeader(settings_->GetNetworkTimeout(), buffer, capacity, headerLength, received)
      .Store(error);
}

int SCA_TikaClient::GetRequest(const char* path, SCA_HttpClientRequest* reply,
                               unsigned long* error) {
  char header[kHeaderBufferSize];
  unsigned long headerLength = 0;
  unsigned long received = 0;
  tagSCA_HTTP_REQUEST answer;
  if (SendHead(link_.get(), "GET", path, serverName_, error) == 0) return 0;
  const SCA_Result read = link_->ReadReplyHeader(
      settings_->GetNetworkTimeout(), header, sizeof header - 1, &answer, &headerLength, &received);
  if (read.HasFailed()) return read.Store(error);
  reply->SetReplyCode(answer.replyCode);
  if (answer.replyCode != 200) return SCA_Fail(answer.replyCode, error);
  if (answer.isContentEncoded != 0) return SCA_Fail(SCA_ErrorContentEncoding, error);
  // What was asked for by HTTP/1.0 comes without framing.
  if (answer.transferEncoding[0] != '\0') return SCA_Fail(SCA_ErrorInvalidData, error);
  reply->SetContentLength(kMaxGetBody);
  if (reply->InitContentBuffer() == 0) return SCA_Fail(SCA_ErrorInvalidData, error);

  char* body = reply->GetContentBuffer();
  unsigned long held = received - headerLength;
  std::memcpy(body, header + headerLength, held);
  // By HTTP/1.0 the end of the connection is the end of the body, however much was announced. The
  // room for one byte more than the limit tells a body that is too long from one that just fits.
  unsigned long count = 0;
  unsigned long ended = 0;
  while (held <= kMaxGetBody &&
         link_->Socket().Receive(body + held, std::min(kPieceSize, kMaxGetBody + 1 - held), &count,
                                 &ended) != 0) {
    held += count;
  }
  if (held > kMaxGetBody) return SCA_Fail(SCA_ErrorInvalidData, error);
  // Another end, or one that comes early, has cut the body. A wait tells a close in good order from
  // a reset.
  const bool isClosed = ended == static_cast<unsigned long>(ECONNRESET) &&
                        link_->Socket().WaitForData(settings_->GetNetworkTimeout(), &ended) != 0;
  const bool isWhole = answer.hasContentLength != 0 ? held >= answer.contentLength : isClosed;
  if (!isWhole || ended == SCA_ErrorCancelled) return SCA_Fail(ended, error);
  body[held] = '\0';
  reply->SetContentLength(held);
  return 1;
}

int SCA_TikaClient::GetVersion(char* version, unsigned long size, unsigned long* error) {
  SCA_HttpClientRequest reply;
  if (GetRequest("/version", &reply, error) == 0) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelError, "SCA_TikaClient::GetVersion: cannot execute GET version request (ERR:%lu)",
        *error);
    return 0;
  }
  const unsigned long length = reply.GetContentLength();
  if (length == 0) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelError, "SCA_TikaClient::GetVersion: no content returned by GET version request");
    return SCA_Fail(SCA_ErrorInvalidData, error);
  }
  if (length > kMaxVersionLength) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelError,
        "SCA_TikaClient::GetVersion: invalid content returned by GET version request");
    return SCA_Fail(SCA_ErrorInvalidData, error);
  }
  if (length >= size) return SCA_Fail(ENOBUFS, error);
  std::memcpy(version, reply.GetContentBuffer(), length);
  version[length] = '\0';
  serverVersion_ = SCA_TikaVersion::Parse(version);
  return 1;
}

// On a connection of its own: the question uses it up. A server that answers otherwise has a
// version that is not known.
int SCA_TikaClient::LearnVersion(SCA_Event* cancel, unsigned long* error) {
  SCA_TikaClient asking(settings_, serverName_, port_);
  if (asking.IsValid() == 0) return SCA_Fail(SCA_ErrorHostNameInvalid, error);
  asking.SetCancelEvent(cancel);
  char version[kMaxVersionLength + 1];
  if (asking.Connect(settings_->GetNetworkTimeout(), error) == 0) return 0;
  unsigned long code = 0;
  if (asking.GetVersion(version, sizeof version, &code) == 0 &&
      (code < kFirstHttpCode || code == SCA_ErrorCancelled)) {
    return SCA_Fail(code, error);
  }
  serverVersion_ = asking.serverVersion_;
  return 1;
}

int SCA_TikaClient::PutRequest(const char* path, SCA_HttpClientRequest* request,
                               unsigned long* error) {
  if (SendHead(link_.get(), "PUT", path, serverName_, error) == 0) return 0;
  unsigned long sent = 0;
  for (unsigned long done = 0; done < request->GetContentLength(); done += sent) {
    const unsigned long piece = std::min(kPieceSize, request->GetContentLength() - done);
    if (link_->Socket().Send(request->GetContentBuffer() + done, piece, &sent, error) == 0) {
      return 0;
    }
  }

  char header[kHeaderBufferSize];
  unsigned long headerLength = 0;
  unsigned long received = 0;
  tagSCA_HTTP_REQUEST answer;
  const SCA_Result read = link_->ReadReplyHeader(
      settings_->GetNetworkTimeout(), header, sizeof header - 1, &answer, &headerLength, &received);
  if (read.HasFailed()) return read.Code() == SCA_ErrorInvalidData ? 0 : read.Store(error);
  const unsigned long length = answer.contentLength;
  request->SetReplyCode(answer.replyCode);
  request->SetContentLength(length);
  if (answer.replyCode != 200 || answer.isContentEncoded != 0) return 0;
  if (length == 0 || length > kMaxPutReplyBody || request->InitContentBuffer() == 0) return 0;

  char* body = request->GetContentBuffer();
  unsigned long held = std::min(received - headerLength, length);
  std::memcpy(body, header + headerLength, held);
  while (held < length) {
    unsigned long count = 0;
    if (link_->Socket().Receive(body + held, std::min(kPieceSize, length - held), &count, error) ==
        0) {
      return 0;
    }
    held += count;
  }
  body[length] = '\0';
  return 1;
}

int SCA_TikaClient::SendFile(const char* fileName, SCA_Event* cancel, unsigned long* error) {
  static constexpr SCA_TikaVariant kPlainUpload = {
      kSource, "SendFile", kSource, "SendFile", SCA_TikaReply::kMaxNetworkSize,
      false,   false,      false,   nullptr};
  return SCA_TikaExtraction(this, kPlainUpload, nullptr, nullptr, cancel,
                            SCA_TikaPlainHead(serverVersion_))
      .SendFile(fileName, error);
}

int SCA_TikaClient::GetFileText(unsigned long variant, const char* fileName, const char* secondName,
                                SCA_TikaTextCallback callback, void* context, SCA_Event* cancel,
                                unsigned long* textLength, unsigned long* error) {
  switch (variant) {
    case 2:
      return GetFileTextV2(fileName, secondName, callback, context, cancel, textLength, error);
    case 3:
      return GetFileTextV3(fileName, secondName, callback, context, cancel, textLength, error);
    default:
      return GetFileTextV1(fileName, secondName, callback, context, cancel, textLength, error);
  }
}

int SCA_TikaClient::GetFileText(const char* fileName, const SCA_TikaRequestOptions& options,
                                SCA_TikaTextCallback callback, void* context, SCA_Event* cancel,
                                unsigned long* textLength, unsigned long* error) try {
  ignoredOptions_ = refusedOptions_ = 0;
  const char* complaint = nullptr;
  if (const unsigned long code = SCA_CheckTikaOptions(options, &complaint)) {
    SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelError, "SCA_TikaClient::GetFileText: %s",
                                             complaint);
    return SCA_Fail(code, error);
  }
  if (!serverVersion_.IsKnown() && LearnVersion(cancel, error) == 0) return 0;
  const SCA_TikaRequestHead head = SCA_MakeRequestHead(options, serverVersion_);
  ignoredOptions_ = head.ignored;
  refusedOptions_ = head.refused;
  if (head.refused != 0) return SCA_Fail(SCA_ErrorOptionRefused, error);
  return SendRequest(head, fileName, callback, context, cancel, textLength, error);
} catch (const std::bad_alloc&) {
  return SCA_Fail(ENOMEM, error);
}
