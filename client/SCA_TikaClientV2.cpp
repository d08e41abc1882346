// The second decoder: a strict size line, and a refill, which drops what is left, wherever no
// complete one is held.

#include "client/SCA_TikaExtraction.h"
#include "platform/SCA_Report.h"

namespace {

constexpr char kSource[] = "SCA_TikaClientV2";
constexpr unsigned long kNetworkSize = 512;

}  // namespace

int SCA_TikaClient::GetFileTextV2(const char* fileName, const char* /*secondName*/,
                                  SCA_TikaTextCallback callback, void* context, SCA_Event* cancel,
                                  unsigned long* textLength, unsigned long* error) {
  static constexpr Variant kVariant = {
      kSource, "GetFileTextV2", kSource, "GetFileTextV2",
      false,   false,           false,   &SCA_TikaClient::DecodeV2};
  char network[kNetworkSize];
  Exchange exchange{kVariant, callback, context, cancel, network, sizeof network};
  return ExtractText(&exchange, fileName, textLength, error);
}

namespace {

// A complete line at the position that has the length of a size, whatever its characters.
bool HoldsSizeLine(const char* buffer, unsigned long length, unsigned long position,
                   unsigned long* lineLength) {
  const unsigned long crlf = SCA_FindCrLf(buffer, length, position);
  if (crlf >= length || crlf == position || crlf - position > SCA_MaxSizeText) return false;
  *lineLength = crlf - position;
  return true;
}

}  // namespace

int SCA_TikaClient::GetChunkLength(const char* buffer, unsigned long length, unsigned long position,
                                   unsigned long* nextPosition, unsigned long* chunkSize) {
  unsigned long count = 0;
  if (!HoldsSizeLine(buffer, length, position, &count)) return 0;
  unsigned long long size = 0;
  if (!SCA_ParseChunkSize(buffer + position, count, &size)) return 0;
  *chunkSize = static_cast<unsigned long>(size);
  *nextPosition = position + count + 2;
  return 1;
}

SCA_TikaClient::Outcome SCA_TikaClient::DecodeV2(Exchange* exchange) {
  return DecodeByLines(exchange, &SCA_TikaClient::ReadSizeLineV2, &SCA_TikaClient::FinishChunkV2);
}

SCA_TikaClient::Outcome SCA_TikaClient::ReadSizeLineV2(Exchange* exchange,
                                                       unsigned long* chunkSize) {
  for (bool refilled = false;; refilled = true) {
    if (GetChunkLength(exchange->network, exchange->received, exchange->position,
                       &exchange->position, chunkSize) != 0) {
      return Outcome::Done();
    }
    // A line that is there but holds no size must not be dropped for the sake of the next one: what
    // follows it might pass for the end of the text.
    unsigned long ignored = 0;
    if (refilled ||
        HoldsSizeLine(exchange->network, exchange->received, exchange->position, &ignored)) {
      SCA_GetReportFunction(kSource, __LINE__)(
          SCA_LevelError,
          "SCA_TikaClient::GetFileTextV2: cannot get the chunk length (RP=%lu, RL=%lu)",
          exchange->position, exchange->received);
      return Outcome::Broken(SCA_ErrorInvalidData);
    }
    const Outcome outcome = Refill(exchange);
    if (!outcome.IsDone()) return outcome;
  }
}

SCA_TikaClient::Outcome SCA_TikaClient::FinishChunkV2(Exchange* exchange) {
  static constexpr ReceiveTexts kTexts = {"chunk CRLF wait timeout", "cannot receive chunk CRLF"};
  const SCA_ReportFunction report = SCA_GetReportFunction(kSource, __LINE__);
  const unsigned long held = exchange->Unread();
  if (held >= 2) {
    if (!SCA_IsCrLf(exchange->network + exchange->position)) {
      report(SCA_LevelError, "SCA_TikaClient::GetFileTextV2: no chunk finish CRLF (RP=%lu, RL=%lu)",
             exchange->position, exchange->received);
      return Outcome::Broken(SCA_ErrorInvalidData);
    }
    exchange->position += 2;
    return Outcome::Done();
  }
  char crlf[2];
  unsigned long count = 0;
  const Outcome outcome = Receive(*exchange, kTexts, crlf, sizeof crlf - held, &count);
  if (!outcome.IsDone()) return outcome;
  // A delimiter of which one byte was held already is not put together again.
  if (count < 2) {
    report(SCA_LevelError, "SCA_TikaClient::GetFileTextV2: incomplete chunk CRLF (%lu)", count);
    return Outcome::Broken(SCA_ErrorInvalidData);
  }
  if (!SCA_IsCrLf(crlf)) {
    report(SCA_LevelError, "SCA_TikaClient::GetFileTextV2: invalid chunk CRLF received (%ld-%ld)",
           static_cast<long>(static_cast<signed char>(crlf[0])),
           static_cast<long>(static_cast<signed char>(crlf[1])));
    return Outcome::Broken(SCA_ErrorInvalidData);
  }
  return Outcome::Done();
}
