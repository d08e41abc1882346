// Arbitrary lines as patterns, each for the path in the first line.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "programs/tikaextract/PathPattern.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  const std::size_t first = text.find('\n');
  const std::string path = text.substr(0, first);
  for (std::size_t begin = first; begin != std::string::npos;) {
    const std::size_t end = text.find('\n', begin + 1);
    const std::string line =
        text.substr(begin + 1, end == std::string::npos ? end : end - begin - 1);
    begin = end;
    const auto pattern = PathPattern::FromLine(line);
    if (!pattern) continue;
    const bool isFile = pattern->Matches(path, false);
    // What is for folders is for nothing else; all other patterns make no difference.
    const bool isFolder = pattern->Matches(path, true);
    if (isFile && (pattern->IsForFolders() || !isFolder)) std::abort();
  }
  return 0;
}
