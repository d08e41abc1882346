// The second decoder: a strict size line, and a refill, which drops what is left, wherever no
// complete one is held.

#include <algorithm>

#include "client/SCA_ChunkSize.h"
#include "client/SCA_TikaDecoders.h"
#include "client/SCA_TikaExtraction.h"
#include "platform/SCA_Report.h"

namespace {

constexpr char kSource[] = "SCA_TikaClientV2";
constexpr unsigned long kNetworkSize = 512;

// A complete line at the position that has the length of a size, whatever its characters.
bool HoldsSizeLine(const char* buffer, unsigned long length, unsigned long position,
                   unsigned long* lineLength) {
  const unsigned long crlf = SCA_FindCrLf(buffer, length, position);
  if (crlf >= length || crlf == position || crlf - position > SCA_MaxSizeText) return false;
  *lineLength = crlf - position;
  return true;
}

// Parses a size line that begins at a position and has all its bytes.
// @return False when there is none, outputs untouched.
bool ReadWholeSizeLine(const char* buffer, unsigned long length, unsigned long position,
                       unsigned long* nextPosition, unsigned long* chunkSize) {
  unsigned long count = 0;
  if (!HoldsSizeLine(buffer, length, position, &count)) return false;
  unsigned long long size = 0;
  if (!SCA_ParseChunkSize(buffer + position, count, &size)) return false;
  *chunkSize = static_cast<unsigned long>(size);
  *nextPosition = position + count + 2;
  return true;
}

}  // namespace

int SCA_TikaClient::GetFileTextV2(const char* fileName, const char* /*secondName*/,
                                  SCA_TikaTextCallback callback, void* context, SCA_Event* cancel,
                                  unsigned long* textLength, unsigned long* error) {
  static constexpr SCA_TikaVariant kVariant = {
      kSource,         "GetFileTextV2", kSource,
      "GetFileTextV2", kNetworkSize,    false,
      false,           false,           &SCA_DecodeReply<SCA_TikaDecoderV2>};
  SCA_TikaExtraction extraction(this, kVariant, callback, context, cancel,
                                SCA_TikaPlainHead(serverVersion_));
  return extraction.Run(fileName, textLength, error);
}

int SCA_TikaClient::GetChunkLength(const char* buffer, unsigned long length, unsigned long position,
                                   unsigned long* nextPosition, unsigned long* chunkSize) {
  return ReadWholeSizeLine(buffer, length, position, nextPosition, chunkSize) ? 1 : 0;
}

SCA_TikaStep SCA_TikaDecoderV2::Decode() {
  for (;;) {
    unsigned long size = 0;
    SCA_TikaStep step = ReadSizeLine(&size);
    if (!step.IsDone()) return step;
    if (size == 0) return reply_.Flush();
    step = TakeChunk(size);
    if (!step.IsDone()) return step;
  }
}

SCA_TikaStep SCA_TikaDecoderV2::TakeChunk(unsigned long size) {
  const unsigned long held = std::min(size, reply_.Unread());
  SCA_TikaStep step = reply_.MakeRoom(held);
  if (!step.IsDone()) return step;
  reply_.Take(held);
  if (held == size) return FinishChunk();
  // The rest comes straight into the data buffer together with its CR LF, which is dropped.
  const unsigned long rest = size - held + 2;
  step = reply_.MakeRoom(rest);
  if (step.IsDone()) step = reply_.ReceiveText(rest);
  if (step.IsDone()) reply_.Drop(2);
  return step;
}

SCA_TikaStep SCA_TikaDecoderV2::ReadSizeLine(unsigned long* chunkSize) {
  for (bool refilled = false;; refilled = true) {
    if (ReadWholeSizeLine(reply_.network, reply_.received, reply_.position, &reply_.position,
                          chunkSize)) {
      return SCA_TikaStep::Done();
    }
    // A line that is there but holds no size must not be dropped for the sake of the next one: what
    // follows it might pass for the end of the text.
    unsigned long ignored = 0;
    if (refilled || HoldsSizeLine(reply_.network, reply_.received, reply_.position, &ignored)) {
      SCA_GetReportFunction(kSource, __LINE__)(
          SCA_LevelError,
          "SCA_TikaClient::GetFileTextV2: cannot get the chunk length (RP=%lu, RL=%lu)",
          reply_.position, reply_.received);
      return SCA_TikaStep::Broken(SCA_ErrorInvalidData);
    }
    const SCA_TikaStep outcome = reply_.Refill();
    if (!outcome.IsDone()) return outcome;
  }
}

SCA_TikaStep SCA_TikaDecoderV2::FinishChunk() {
  static constexpr SCA_TikaReceiveTexts kTexts = {"chunk CRLF wait timeout",
                                                  "cannot receive chunk CRLF"};
  const SCA_ReportFunction report = SCA_GetReportFunction(kSource, __LINE__);
  const unsigned long held = reply_.Unread();
  if (held >= 2) {
    if (!SCA_IsCrLf(reply_.Next())) {
      report(SCA_LevelError, "SCA_TikaClient::GetFileTextV2: no chunk finish CRLF (RP=%lu, RL=%lu)",
             reply_.position, reply_.received);
      return SCA_TikaStep::Broken(SCA_ErrorInvalidData);
    }
    reply_.position += 2;
    return SCA_TikaStep::Done();
  }
  char crlf[2];
  unsigned long count = 0;
  const SCA_TikaStep outcome = reply_.Receive(kTexts, crlf, sizeof crlf - held, &count);
  if (!outcome.IsDone()) return outcome;
  // A delimiter of which one byte was held already is not put together again.
  if (count < 2) {
    report(SCA_LevelError, "SCA_TikaClient::GetFileTextV2: incomplete chunk CRLF (%lu)", count);
    return SCA_TikaStep::Broken(SCA_ErrorInvalidData);
  }
  if (!SCA_IsCrLf(crlf)) {
    report(SCA_LevelError, "SCA_TikaClient::GetFileTextV2: invalid chunk CRLF received (%ld-%ld)",
           static_cast<long>(static_cast<signed char>(crlf[0])),
           static_cast<long>(static_cast<signed char>(crlf[1])));
    return SCA_TikaStep::Broken(SCA_ErrorInvalidData);
  }
  return SCA_TikaStep::Done();
}
