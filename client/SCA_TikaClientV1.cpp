// The first decoder: a size line must lie whole in the bytes held; the network buffer is refilled
// only where a chunk ends at its end.

#include <algorithm>

#include "client/SCA_TikaExtraction.h"
#include "platform/SCA_Report.h"

namespace {

constexpr char kSource[] = "SCA_TikaClientV1";
constexpr unsigned long kNetworkSize = 2048;

}  // namespace

int SCA_TikaClient::GetFileTextV1(const char* fileName, const char* /*secondName*/,
                                  SCA_TikaTextCallback callback, void* context, SCA_Event* cancel,
                                  unsigned long* textLength, unsigned long* error) {
  static constexpr Variant kVariant = {
      kSource, "GetFileTextV1", kSource, "GetFileTextV1",
      true,    false,           false,   &SCA_TikaClient::DecodeV1};
  char network[kNetworkSize];
  Exchange exchange{kVariant, callback, context, cancel, network, sizeof network};
  return ExtractText(&exchange, fileName, textLength, error);
}

bool SCA_TikaClient::ReadSizeLineV1(Exchange* exchange, unsigned long long* chunkSize) {
  const unsigned long crlf =
      SCA_FindCrLf(exchange->network, exchange->received, exchange->position);
  if (crlf == exchange->received || !SCA_ParseChunkSize(exchange->network + exchange->position,
                                                        crlf - exchange->position, chunkSize)) {
    return false;
  }
  exchange->position = crlf + 2;
  return true;
}

SCA_TikaClient::Outcome SCA_TikaClient::DecodeV1(Exchange* exchange) {
  const SCA_ReportFunction report = SCA_GetReportFunction(kSource, __LINE__);
  for (unsigned long chunkIndex = 0;; ++chunkIndex) {
    unsigned long long size = 0;
    if (!ReadSizeLineV1(exchange, &size)) {
      report(SCA_LevelError,
             "SCA_TikaClient::GetFileTextV1: the chunk length is not set (RP=%lu, RL=%lu)",
             exchange->position, exchange->received);
      return Outcome::Broken(SCA_ErrorInvalidData);
    }
    if (size == 0 || size >= Room(*exchange)) {
      const Outcome flushed = Flush(exchange);
      if (size == 0 || !flushed.IsDone()) return flushed;
    }
    if (size > Room(*exchange)) return ChunkDoesNotFit(*exchange, size);

    const auto wanted = static_cast<unsigned long>(size);
    const unsigned long held = std::min(wanted, exchange->Unread());
    TakeReceived(exchange, held);
    const Outcome rest = ReceiveRest(exchange, wanted - held);
    if (!rest.IsDone()) return rest;
    if (Traces(exchange->variant)) {
      report(SCA_LevelInfo,
             "SCA_TikaClient::GetFileTextV1: data chunk %lu - %lu bytes of data, %lu bytes total",
             chunkIndex, exchange->collected, exchange->delivered + exchange->collected);
    }
    const Outcome finished = FinishChunkV1(exchange);
    if (!finished.IsDone()) return finished;
  }
}

SCA_TikaClient::Outcome SCA_TikaClient::FinishChunkV1(Exchange* exchange) {
  const SCA_ReportFunction report = SCA_GetReportFunction(kSource, __LINE__);
  if (exchange->Unread() == 0) {
    const Outcome refilled = Refill(exchange);
    if (!refilled.IsDone()) return refilled;
    if (exchange->received < 2 || !SCA_IsCrLf(exchange->network)) {
      report(SCA_LevelError, "SCA_TikaClient::GetFileTextV1: invalid chunk delimiter");
      return Outcome::Failed(SCA_ErrorInvalidData);
    }
  } else if (exchange->Unread() < 2 || !SCA_IsCrLf(exchange->network + exchange->position)) {
    const char* bytes = exchange->network + exchange->position;
    // A byte that has not arrived shows as 0.
    report(SCA_LevelError,
           "SCA_TikaClient::GetFileTextV1: invalid chunk delimiter RL=%lu, RP=%lu, DRP=%d, "
           "DRP+1=%d",
           exchange->received, exchange->position, static_cast<signed char>(bytes[0]),
           exchange->Unread() < 2 ? 0 : static_cast<signed char>(bytes[1]));
    return Outcome::Failed(SCA_ErrorInvalidData);
  }
  exchange->position += 2;
  return Outcome::Done();
}
