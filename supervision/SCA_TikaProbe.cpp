#include "supervision/SCA_TikaProbe.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string_view>

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

SCA_Result ReadHeader(Reply* reply) {
  reply->bytes[reply->length] = '\0';
  if (reply->headerLength != 0 ||
      SCA_HttpParser::IsHeaderReady(reply->bytes, reply->length + 1, &reply->headerLength) == 0) {
    return SCA_Done;
  }
  if (SCA_HttpParser::ParseHttpHeader(reply->bytes, reply->headerLength, &reply->header) == 0) {
    return SCA_Result(SCA_ErrorInvalidData);
  }
  return reply->header.replyCode == 200 ? SCA_Done : SCA_Result(reply->header.replyCode);
}

// Receives until the announced length is there or the server has closed in good order.
SCA_Result Receive(SCA_TcpSock* socket, const SCA_Deadline& deadline, Reply* reply) {
  while (!reply->IsWhole()) {
    if (reply->length == kReplySize) return SCA_Result(SCA_ErrorInvalidData);
    const unsigned long leftMs = deadline.MsLeft();
    if (leftMs == 0) return SCA_Result(ETIMEDOUT);
    unsigned long count = 0;
    unsigned long code = 0;
    // Before each receive, which would not look at the cancel event while bytes keep coming.
    if (socket->WaitForData(leftMs, &code) == 0) return SCA_Result(code);
    if (socket->Receive(reply->bytes + reply->length, kReplySize - reply->length, &count, &code) ==
        0) {
      const bool isEnd = code == static_cast<unsigned long>(ECONNRESET) &&
                         reply->headerLength != 0 && reply->header.hasContentLength == 0;
      return isEnd ? SCA_Done : SCA_Result(code);
    }
    reply->length += count;
    if (const SCA_Result read = ReadHeader(reply); read.HasFailed()) return read;
  }
  return SCA_Done;
}

// A server, and how long it may take.
struct Target {
  const char* host;
  unsigned short port;
  unsigned long limitMs;
};

// One request by HTTP/1.0 on a connection of its own.
// @param request  Its first line with the line end.
// @param rest     Further header lines, the empty one and the body.
SCA_Result Exchange(const Target& target, const char* request, const char* rest, SCA_Event* cancel,
                    Reply* reply) {
  const SCA_Deadline deadline(target.limitMs);
  SCA_TcpSock socket;
  if (socket.IsValid() == 0) return SCA_Result(ENOMEM);
  socket.SetCancelEvent(cancel);
  socket.SetIdleTimeout(target.limitMs);
  unsigned long code = 0;
  if (socket.Connect(target.host, target.port, target.limitMs, &code) == 0) {
    return SCA_Result(code);
  }
  // An address of IPv6 stands in brackets, without its zone, which is this machine's affair.
  const bool isIpv6 = std::strchr(target.host, ':') != nullptr;
  const auto length =
      static_cast<int>(isIpv6 ? std::strcspn(target.host, "%") : std::strlen(target.host));
  char message[1024];
  const int size = std::snprintf(
      message, sizeof message, "%sHost: %s%.*s%s\r\nUser-Agent: Orvane HTTP Client\r\n%s", request,
      isIpv6 ? "[" : "", length, target.host, isIpv6 ? "]" : "", rest);
  unsigned long sent = 0;
  if (socket.Send(message, static_cast<unsigned long>(size), &sent, &code) == 0) {
    return SCA_Result(code);
  }
  return Receive(&socket, deadline, reply);
}

// The body of a reply without framing, as what was asked for by HTTP/1.0 is; empty when it has one.
std::string_view BodyOf(const Reply& reply) {
  if (reply.header.transferEncoding[0] != '\0' || reply.header.isContentEncoded != 0) return {};
  const unsigned long length = reply.header.hasContentLength != 0
                                   ? std::min(reply.header.contentLength, reply.BodyLength())
                                   : reply.BodyLength();
  return {reply.bytes + reply.headerLength, length};
}

SCA_Result ReadVersion(const Reply& reply, SCA_TikaAnswer* answer) {
  const std::string_view body = BodyOf(reply);
  if (body.empty() || body.size() >= sizeof answer->version) {
    return SCA_Result(SCA_ErrorInvalidData);
  }
  std::memcpy(answer->version, body.data(), body.size());
  answer->version[body.size()] = '\0';
  SCA_BlankControls(answer->version, body.size());
  return SCA_Done;
}

}  // namespace

SCA_TikaProbe::SCA_TikaProbe(const char* host, unsigned short port, unsigned long limitMs)
    : port_(port), limitMs_(limitMs) {
  SetValid(host != nullptr && *host != '\0' && SCA_CopyText(host_, host, SCA_TextFit::Refuse) != 0);
}

int SCA_TikaProbe::Ask(SCA_Event* cancel, SCA_TikaAnswer* answer, unsigned long* error) const {
  if (IsValid() == 0) return SCA_Fail(SCA_ErrorHostNameInvalid, error);
  const Clock::time_point begin = Clock::now();
  Reply reply;
  SCA_Result asked =
      Exchange({host_, port_, limitMs_}, "GET /version HTTP/1.0\r\n", "\r\n", cancel, &reply);
  if (!asked.HasFailed()) asked = ReadVersion(reply, answer);
  if (asked.HasFailed()) return asked.Store(error);
  answer->timeMs = static_cast<unsigned long long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count());
  return 1;
}

int SCA_TikaProbe::TryDocument(SCA_Event* cancel, unsigned long* error) const {
  if (IsValid() == 0) return SCA_Fail(SCA_ErrorHostNameInvalid, error);
  Reply reply;
  const SCA_Result tried =
      Exchange({host_, port_, limitMs_}, "PUT /tika/text HTTP/1.0\r\n",
               "Content-Type: text/plain\r\nContent-Length: 5\r\n\r\nready", cancel, &reply);
  if (tried.HasFailed()) return tried.Store(error);
  const bool isText = BodyOf(reply).find("ready") != std::string_view::npos;
  return isText ? 1 : SCA_Fail(SCA_ErrorInvalidData, error);
}
