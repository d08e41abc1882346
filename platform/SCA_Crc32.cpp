#include "platform/SCA_Crc32.h"

#include <array>

namespace {

constexpr std::uint32_t kPolynomial = 0xEDB88320;
constexpr unsigned kSlices = 8;  // bytes taken by one step
using Tables = std::array<std::array<std::uint32_t, 256>, kSlices>;

// tables[s][b] is what byte b becomes when s more bytes follow it.
constexpr Tables MakeTables() {
  Tables tables{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? kPolynomial : 0);
    tables[0][byte] = crc;
  }
  for (unsigned slice = 1; slice < kSlices; ++slice) {
    for (unsigned byte = 0; byte < 256; ++byte) {
      const std::uint32_t before = tables[slice - 1][byte];
      tables[slice][byte] = (before >> 8) ^ tables[0][before & 0xFF];
    }
  }
  return tables;
}

constexpr Tables kTables = MakeTables();

}  // namespace

std::uint32_t SCA_Crc32(std::uint32_t crc, const char* data, unsigned long length) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(data);
  crc = ~crc;
  for (; length >= kSlices; length -= kSlices, bytes += kSlices) {
    std::uint32_t next = 0;
    for (unsigned i = 0; i < kSlices; ++i) {
      const unsigned byte = bytes[i] ^ (i < 4 ? (crc >> (8 * i)) & 0xFF : 0);
      next ^= kTables[kSlices - 1 - i][byte];
    }
    crc = next;
  }
  for (; length > 0; --length) crc = (crc >> 8) ^ kTables[0][(crc ^ *bytes++) & 0xFF];
  return ~crc;
}
