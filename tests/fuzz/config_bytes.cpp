// Arbitrary bytes for the reader of configuration objects: whole, in blocks of a size that the
// first byte gives, and, when they are accepted, written and read again.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "foundation/SCA_ConfigStream.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

unsigned long ReadInBlocks(const std::vector<char>& bytes, std::size_t size,
                           SCA_ConfigObj* object) {
  SCA_ConfigReader reader(object);
  std::vector<char> block;
  for (std::size_t at = 0; at <= bytes.size(); at += size) {
    const std::size_t end = std::min(at + size, bytes.size());
    block.insert(block.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                 bytes.begin() + static_cast<std::ptrdiff_t>(end));
    const std::size_t taken = reader.Feed(block.data(), block.size(), at + size > bytes.size());
    block.erase(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(taken));
  }
  return reader.Result().Code();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::vector<char> bytes(data + 1, data + size);
  SCA_ConfigObj object;
  SCA_ConfigFault fault;
  unsigned long error = 0;
  const int isRead = SCA_ReadConfigBytes(bytes.data(), bytes.size(), &object, &fault, &error);
  Require((isRead != 0) == (error == 0) && fault.offset <= bytes.size());
  SCA_ConfigObj inBlocks;
  Require(ReadInBlocks(bytes, data[0] + std::size_t{1}, &inBlocks) == error);
  if (isRead == 0) {
    Require(object.GetFieldCount() == 0);
    return 0;
  }
  Require(object.Compare(&inBlocks) == 1);
  std::vector<char> written(object.GetDataSize());
  unsigned long length = 0;
  Require(SCA_WriteConfigBytes(object, written.data(), written.size(), &length, &error) == 1);
  Require(length <= bytes.size());
  SCA_ConfigObj again;
  Require(SCA_ReadConfigBytes(written.data(), length, &again, nullptr, &error) == 1);
  Require(object.Compare(&again) == 1);
  return 0;
}
