// The third decoder: lines and data in any number of pieces; unread bytes are kept and more are
// appended.

#include <cstring>

#include "client/SCA_TikaExtraction.h"
#include "platform/SCA_Report.h"

namespace {

constexpr char kSource[] = "SCA_TikaClientV3";
constexpr unsigned long kNetworkSize = 512;

}  // namespace

int SCA_TikaClient::GetFileTextV3(const char* fileName, const char* /*secondName*/,
                                  SCA_TikaTextCallback callback, void* context, SCA_Event* cancel,
                                  unsigned long* textLength, unsigned long* error) {
  static constexpr Variant kVariant = {
      kSource, "GetFileTextV3",          "SCA_TikaClient", "SendFile", false, true,
      true,    &SCA_TikaClient::DecodeV3};
  char network[kNetworkSize];
  Exchange exchange{kVariant, callback, context, cancel, network, sizeof network};
  return ExtractText(&exchange, fileName, textLength, error);
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
  const SCA_ReportFunction report = SCA_GetReportFunction(kSource, __LINE__);
  const unsigned long unread = length - position;
  unsigned long code = 0;
  unsigned long count = 0;
  if (unread >= bufferSize) {
    code = SCA_ErrorInvalidData;
    report(SCA_LevelError, "SCA_TikaClient::GetMoreData: no CRLF in %lu bytes of data", unread);
  } else if (socket_->WaitForData(settings_->GetNetworkTimeout(), &code) == 0) {
    if (code != SCA_ErrorCancelled) {
      report(SCA_LevelError, "SCA_TikaClient::GetMoreData: data network timeout (ERR:%lu)", code);
    }
  } else {
    if (position > 0) std::memmove(buffer, buffer + position, unread);
    if (socket_->Receive(buffer + unread, bufferSize - unread, &count, &code) != 0) {
      *newLength = unread + count;
      *newPosition = 0;
      return 1;
    }
    if (code != SCA_ErrorCancelled && unread == 0) {
      report(SCA_LevelError, "SCA_TikaClient::GetMoreData: cannot receive data (RDL=0, ERR=%lu)",
             code);
    } else if (code != SCA_ErrorCancelled) {
      report(SCA_LevelError, "SCA_TikaClient::GetMoreData: cannot receive data (RDL=%lu, ERR:%lu)",
             unread, code);
    }
  }
  if (code != SCA_ErrorCancelled) SetValid(0);
  *error = code;
  return 0;
}

SCA_TikaClient::Outcome SCA_TikaClient::DecodeV3(Exchange* exchange) {
  return DecodeByLines(exchange, &SCA_TikaClient::ReadSizeLineV3, &SCA_TikaClient::FinishChunkV3);
}

SCA_TikaClient::Outcome SCA_TikaClient::ReadSizeLineV3(Exchange* exchange,
                                                       unsigned long* chunkSize) {
  for (;;) {
    unsigned long crlf = 0;
    while (FindCRLF(exchange->network, exchange->received, exchange->position, &crlf) == 0) {
      unsigned long code = 0;
      if (GetMoreData(exchange->network, exchange->networkSize, exchange->received,
                      exchange->position, &exchange->received, &exchange->position, &code) == 0) {
        return Outcome::FromSocket(code);
      }
    }
    const char* line = exchange->network + exchange->position;
    const unsigned long length = crlf - exchange->position;
    exchange->position = crlf + 2;
    // An empty line is the CR LF behind a chunk, or one that nobody minds.
    if (length == 0) continue;
    unsigned long long size = 0;
    if (length > SCA_MaxSizeText || !SCA_ParseChunkSize(line, length, &size)) {
      SCA_GetReportFunction(kSource, __LINE__)(
          SCA_LevelError, "SCA_TikaClient::GetFileTextV3: invalid chunk size (CSL=%lu)", length);
      return Outcome::Broken(SCA_ErrorInvalidData);
    }
    *chunkSize = static_cast<unsigned long>(size);
    return Outcome::Done();
  }
}

SCA_TikaClient::Outcome SCA_TikaClient::FinishChunkV3(Exchange* exchange) {
  // Whatever else follows the data is left to the search for the next line.
  if (exchange->Unread() >= 2 && SCA_IsCrLf(exchange->network + exchange->position)) {
    exchange->position += 2;
  }
  return Outcome::Done();
}
