// The first decoder: a size line must lie whole in the bytes held; the network buffer is refilled
// only where a chunk ends at its end.

#include <algorithm>

#include "client/SCA_ChunkSize.h"
#include "client/SCA_TikaDecoders.h"
#include "client/SCA_TikaExtraction.h"
#include "platform/SCA_Report.h"

namespace {

constexpr char kSource[] = "SCA_TikaClientV1";
constexpr unsigned long kNetworkSize = 2048;

}  // namespace

int SCA_TikaClient::GetFileTextV1(const char* fileName, const char* /*secondName*/,
                                  SCA_TikaTextCallback callback, void* context, SCA_Event* cancel,
                                  unsigned long* textLength, unsigned long* error) {
  static constexpr SCA_TikaVariant kVariant = {
      kSource,         "GetFileTextV1", kSource,
      "GetFileTextV1", kNetworkSize,    true,
      false,           false,           &SCA_DecodeReply<SCA_TikaDecoderV1>};
  SCA_TikaExtraction extraction(this, kVariant, callback, context, cancel,
                                SCA_TikaPlainHead(serverVersion_));
  return extraction.Run(fileName, textLength, error);
}

bool SCA_TikaDecoderV1::ReadSizeLine(unsigned long long* chunkSize) {
  const unsigned long crlf = SCA_FindCrLf(reply_.network, reply_.received, reply_.position);
  if (crlf == reply_.received ||
      !SCA_ParseChunkSize(reply_.Next(), crlf - reply_.position, chunkSize)) {
    return false;
  }
  reply_.position = crlf + 2;
  return true;
}

SCA_TikaStep SCA_TikaDecoderV1::Decode() {
  const SCA_ReportFunction report = SCA_GetReportFunction(kSource, __LINE__);
  for (unsigned long chunkIndex = 0;; ++chunkIndex) {
    unsigned long long size = 0;
    if (!ReadSizeLine(&size)) {
      report(SCA_LevelError,
             "SCA_TikaClient::GetFileTextV1: the chunk length is not set (RP=%lu, RL=%lu)",
             reply_.position, reply_.received);
      return SCA_TikaStep::Broken(SCA_ErrorInvalidData);
    }
    if (size == 0 || size >= reply_.Room()) {
      const SCA_TikaStep flushed = reply_.Flush();
      if (size == 0 || !flushed.IsDone()) return flushed;
    }
    if (size > reply_.Room()) return reply_.ChunkDoesNotFit(size);

    const auto wanted = static_cast<unsigned long>(size);
    const unsigned long held = std::min(wanted, reply_.Unread());
    reply_.Take(held);
    const SCA_TikaStep rest = reply_.ReceiveText(wanted - held);
    if (!rest.IsDone()) return rest;
    if (reply_.Traces()) {
      report(SCA_LevelInfo,
             "SCA_TikaClient::GetFileTextV1: data chunk %lu - %lu bytes of data, %lu bytes total",
             chunkIndex, reply_.Collected(), reply_.Delivered() + reply_.Collected());
    }
    const SCA_TikaStep finished = FinishChunk();
    if (!finished.IsDone()) return finished;
  }
}

SCA_TikaStep SCA_TikaDecoderV1::FinishChunk() {
  const SCA_ReportFunction report = SCA_GetReportFunction(kSource, __LINE__);
  if (reply_.Unread() == 0) {
    const SCA_TikaStep refilled = reply_.Refill();
    if (!refilled.IsDone()) return refilled;
    if (reply_.received < 2 || !SCA_IsCrLf(reply_.network)) {
      report(SCA_LevelError, "SCA_TikaClient::GetFileTextV1: invalid chunk delimiter");
      return SCA_TikaStep::Failed(SCA_ErrorInvalidData);
    }
  } else if (reply_.Unread() < 2 || !SCA_IsCrLf(reply_.Next())) {
    const char* bytes = reply_.Next();
    // A byte that has not arrived shows as 0.
    report(SCA_LevelError,
           "SCA_TikaClient::GetFileTextV1: invalid chunk delimiter RL=%lu, RP=%lu, DRP=%d, "
           "DRP+1=%d",
           reply_.received, reply_.position, static_cast<signed char>(bytes[0]),
           reply_.Unread() < 2 ? 0 : static_cast<signed char>(bytes[1]));
    return SCA_TikaStep::Failed(SCA_ErrorInvalidData);
  }
  reply_.position += 2;
  return SCA_TikaStep::Done();
}
