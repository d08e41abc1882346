// Arbitrary bytes for the reader of metadata: in one piece and in small ones it finds the same in a
// reply that is whole.

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "client/SCA_TikaMetadataReader.h"

namespace {

constexpr unsigned long kLimit = 4096;

class Collector : public SCA_TikaMetadataReceiver {
 public:
  int TakeText(const char* text, unsigned long length) override {
    if (length == 0) std::abort();
    found.append(text, length);
    judge.AddText(text, length);
    return 1;
  }
  int TakeDocument(const SCA_TikaMetadata& metadata) override {
    std::size_t size = 0;
    for (const auto& [name, value] : metadata.fields) {
      size += name.size() + value.size();
      found += '\n' + name + '=' + value;
    }
    if (size > kLimit) std::abort();
    judge.AddDocument(metadata);
    found += metadata.GetTitle() + metadata.GetParser() + std::to_string(metadata.GetPages());
    return 1;
  }

  std::string found;
  SCA_TikaCompleteness judge;
};

std::string Read(const char* data, std::size_t size, std::size_t piece, int* isWhole) {
  Collector collector;
  SCA_TikaMetadataReader reader(&collector, kLimit);
  for (std::size_t at = 0; at < size; at += piece) {
    if (reader.Take(data + at, std::min(piece, size - at)) == 0) break;
  }
  *isWhole = reader.Finish();
  if ((*isWhole != 0) != (reader.GetError() == 0)) std::abort();
  return collector.found + SCA_TikaFindingText(collector.judge.GetFinding());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto* bytes = reinterpret_cast<const char*>(data);
  int isWhole = 0;
  int isWholeInPieces = 0;
  const std::string found = Read(bytes, size, size + 1, &isWhole);
  for (const std::size_t piece : {std::size_t{1}, std::size_t{3}}) {
    const std::string again = Read(bytes, size, piece, &isWholeInPieces);
    if (isWhole != isWholeInPieces || (isWhole != 0 && again != found)) std::abort();
  }
  return 0;
}
