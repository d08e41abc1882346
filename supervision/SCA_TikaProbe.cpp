#include "supervision/SCA_TikaProbe.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "platform/SCA_Deadline.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_HttpParser.h"
#include "platform/SCA_Result.h"
#include "platform/SCA_TcpSock.h"
#include "platform/SCA_Text.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned long kReplySize = 16384;  // far more than any server's header with a version

// The bytes of a reply as far as they have come.
struct Reply {
  char bytes[kReplySize + 1];
  unsigned long length = 0;
  unsigned long headerLength = 0;  // 0 until the header is whole
  tagSCA_HTTP_REQUEST header;

  unsigned long BodyLength() const { return length - headerLength; }
  bool IsWhole() const {
    return headerLength != 0 && header.hasContentLength != 0 &&
           BodyLength() >= header.contentLength;
  }
};

int SendRequest(SCA_TcpSock* socket, const char* host, unsigned long* error) {
  // An address of IPv6 stands in brackets, without its zone, which is this machine's affair.
  const bool isIpv6 = std::strchr(host, ':') != nullptr;
  const auto length = static_cast<int>(isIpv6 ? std::strcspn(host, "%") : std::strlen(host));
  char request[512];
  const int size = std::snprintf(request, sizeof request,
                                 "GET /version HTTP/1.0\r\nHost: %s%.*s%s\r\n"
                                 "User-Agent: Orvane HTTP Client\r\n\r\n",
                                 isIpv6 ? "[" : "", length, host, isIpv6 ? "]" : "");
  unsigned long sent = 0;
  return socket->Send(request, static_cast<unsigned long>(size), &sent, error);
}

int ReadHeader(Reply* reply, unsigned long* error) {
  reply->bytes[reply->length] = '\0';
  if (reply->headerLength != 0 ||
      SCA_HttpParser::IsHeaderReady(reply->bytes, reply->length + 1, &reply->headerLength) == 0) {
    return 1;
  }
  if (SCA_HttpParser::ParseHttpHeader(reply->bytes, reply->headerLength, &reply->header) == 0) {
    return SCA_Fail(SCA_ErrorInvalidData, error);
  }
  return reply->header.replyCode == 200 ? 1 : SCA_Fail(reply->header.replyCode, error);
}

// Receives until the announced length is there or the server has closed in good order.
int Receive(SCA_TcpSock* socket, const SCA_Deadline& deadline, Reply* reply, unsigned long* error) {
  while (!reply->IsWhole()) {
    if (reply->length == kReplySize) return SCA_Fail(SCA_ErrorInvalidData, error);
    const unsigned long leftMs = deadline.MsLeft();
    if (leftMs == 0) return SCA_Fail(ETIMEDOUT, error);
    // Before each receive, which would not look at the cancel event while bytes keep coming.
    if (socket->WaitForData(leftMs, error) == 0) return 0;
    unsigned long count = 0;
    unsigned long code = 0;
    if (socket->Receive(reply->bytes + reply->length, kReplySize - reply->length, &count, &code) ==
        0) {
      const bool isEnd = code == static_cast<unsigned long>(ECONNRESET) &&
                         reply->headerLength != 0 && reply->header.hasContentLength == 0;
      return isEnd ? 1 : SCA_Fail(code, error);
    }
    reply->length += count;
    if (ReadHeader(reply, error) == 0) return 0;
  }
  return 1;
}

int ReadVersion(const Reply& reply, SCA_TikaAnswer* answer, unsigned long* error) {
  const unsigned long length = reply.header.hasContentLength != 0
                                   ? std::min(reply.header.contentLength, reply.BodyLength())
                                   : reply.BodyLength();
  // What was asked for by HTTP/1.0 comes without framing.
  const bool isText =
      reply.header.transferEncoding[0] == '\0' && reply.header.isContentEncoded == 0;
  if (!isText || length == 0 || length >= sizeof answer->version) {
    return SCA_Fail(SCA_ErrorInvalidData, error);
  }
  std::memcpy(answer->version, reply.bytes + reply.headerLength, length);
  answer->version[length] = '\0';
  SCA_BlankControls(answer->version, length);
  return 1;
}

}  // namespace

SCA_TikaProbe::SCA_TikaProbe(const char* host, unsigned short port, unsigned long limitMs)
    : port_(port), limitMs_(limitMs) {
  SetValid(host != nullptr && *host != '\0' && SCA_CopyText(host_, host, SCA_TextFit::Refuse) != 0);
}

int SCA_TikaProbe::Ask(SCA_Event* cancel, SCA_TikaAnswer* answer, unsigned long* error) const {
  if (IsValid() == 0) return SCA_Fail(SCA_ErrorHostNameInvalid, error);
  const SCA_Deadline deadline(limitMs_);
  const Clock::time_point begin = Clock::now();
  SCA_TcpSock socket;
  if (socket.IsValid() == 0) return SCA_Fail(ENOMEM, error);
  socket.SetCancelEvent(cancel);
  socket.SetIdleTimeout(limitMs_);
  Reply reply;
  if (socket.Connect(host_, port_, limitMs_, error) == 0 ||
      SendRequest(&socket, host_, error) == 0 || Receive(&socket, deadline, &reply, error) == 0 ||
      ReadVersion(reply, answer, error) == 0) {
    return 0;
  }
  answer->timeMs = static_cast<unsigned long long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count());
  return 1;
}
