// Arbitrary bytes for the reply header parser, in a buffer of their exact size, and for the parser
// of versions.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "client/SCA_TikaVersion.h"
#include "platform/SCA_HttpParser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<char> bytes(data, data + size);
  unsigned long headerLength = 0;
  if (SCA_HttpParser::IsHeaderReady(bytes.data(), size, &headerLength) == 0) headerLength = size;
  if (headerLength > size) std::abort();

  tagSCA_HTTP_REQUEST record;
  if (SCA_HttpParser::ParseHttpHeader(bytes.data(), headerLength, &record) != 0) {
    const bool isTerminated = ::strnlen(record.transferEncoding, sizeof record.transferEncoding) <
                              sizeof record.transferEncoding;
    if (record.replyCode < 100 || record.replyCode > 999 || !isTerminated ||
        record.contentLength > 0xFFFFFFFF ||
        (record.retryAfterS > 1000000000 && record.retryAfterS != SCA_HttpNoRetryAfter)) {
      std::abort();
    }
  }
  const std::string text(bytes.begin(), bytes.end());
  const SCA_TikaVersion version = SCA_TikaVersion::Parse(text.c_str());
  if (version.GetLine() > 4 || version.GetLine() > version.GetMajor()) std::abort();
  return 0;
}
