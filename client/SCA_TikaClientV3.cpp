// The third decoder: lines and data in any number of pieces; unread bytes are kept and more are
// appended.

#include <cerrno>
#include <cstring>

#include "client/SCA_ChunkSize.h"
#include "client/SCA_TikaDecoders.h"
#include "client/SCA_TikaExtraction.h"
#include "client/SCA_TikaLink.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"

namespace {

constexpr char kSource[] = "SCA_TikaClientV3";
constexpr unsigned long kNetworkSize = 512;

// Moves the unread bytes (`position` to `length`) to the buffer's start and receives more after
// them. A failure that is no cancel is reported.
// @param length    In and out: the bytes held.
// @param position  In and out: of the first unread byte.
SCA_TikaStep ReceiveMore(SCA_TcpSock* socket, unsigned long timeoutMs, char* buffer,
                         unsigned long bufferSize, unsigned long* length, unsigned long* position) {
  const SCA_ReportFunction report = SCA_GetReportFunction(kSource, __LINE__);
  const unsigned long unread = *length - *position;
  unsigned long code = 0;
  if (unread >= bufferSize) {
    report(SCA_LevelError, "SCA_TikaClient::GetMoreData: no CRLF in %lu bytes of data", unread);
    return SCA_TikaStep::Broken(SCA_ErrorInvalidData);
  }
  if (socket->WaitForData(timeoutMs, &code) == 0) {
    if (code != SCA_ErrorCancelled) {
      report(SCA_LevelError, "SCA_TikaClient::GetMoreData: data network timeout (ERR:%lu)", code);
    }
    return SCA_TikaStep::FromSocket(code);
  }
  if (*position > 0) std::memmove(buffer, buffer + *position, unread);
  *position = 0;
  *length = unread;
  unsigned long count = 0;
  if (socket->Receive(buffer + unread, bufferSize - unread, &count, &code) != 0) {
    *length += count;
    return SCA_TikaStep::Done();
  }
  if (code != SCA_ErrorCancelled && unread == 0) {
    report(SCA_LevelError, "SCA_TikaClient::GetMoreData: cannot receive data (RDL=0, ERR=%lu)",
           code);
  } else if (code != SCA_ErrorCancelled) {
    report(SCA_LevelError, "SCA_TikaClient::GetMoreData: cannot receive data (RDL=%lu, ERR:%lu)",
           unread, code);
  }
  return SCA_TikaStep::FromSocket(code);
}

}  // namespace

int SCA_TikaClient::GetFileTextV3(const char* fileName, const char* /*secondName*/,
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
  SCA_TikaExtraction extraction(this, kVariant, callback, context, cancel);
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
  const SCA_TikaStep step = ReceiveMore(&link_->Socket(), settings_->GetNetworkTimeout(), buffer,
                                        bufferSize, &length, &position);
  if (step.IsDone()) {
    *newLength = length;
    *newPosition = position;
    return 1;
  }
  if (step.kind == SCA_TikaStep::Kind::Broken) SetValid(0);
  return SCA_Fail(step.code, error);
}

SCA_TikaStep SCA_TikaDecoderV3::ReadSizeLine(unsigned long* chunkSize) {
  for (;;) {
    unsigned long crlf = 0;
    while ((crlf = SCA_FindCrLf(reply_.network, reply_.received, reply_.position)) >=
           reply_.received) {
      const SCA_TikaStep more = ReceiveMore(reply_.Socket(), reply_.TimeoutMs(), reply_.network,
                                            kNetworkSize, &reply_.received, &reply_.position);
      if (!more.IsDone()) return more;
    }
    const char* line = reply_.Next();
    const unsigned long length = crlf - reply_.position;
    reply_.position = crlf + 2;
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

SCA_TikaStep SCA_TikaDecoderV3::FinishChunk() {
  // Whatever else follows the data is left to the search for the next line.
  if (reply_.Unread() >= 2 && SCA_IsCrLf(reply_.Next())) {
    reply_.position += 2;
  }
  return SCA_TikaStep::Done();
}
