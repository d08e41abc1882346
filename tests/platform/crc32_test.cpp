#include "platform/SCA_Crc32.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Bit by bit, from the definition.
std::uint32_t Slow(const std::string& text) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const char byte : text) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
  }
  return ~crc;
}

TEST(Crc32, MatchesItsDefinitionHoweverTheBytesAreCut) {
  EXPECT_EQ(SCA_Crc32(0, "123456789", 9), 0xCBF43926);
  EXPECT_EQ(SCA_Crc32(0, nullptr, 0), 0U);
  std::string text;
  for (int i = 0; i < 70; ++i) {
    const std::uint32_t expected = Slow(text);
    for (std::size_t cut = 0; cut <= text.size(); ++cut) {
      const std::uint32_t first = SCA_Crc32(0, text.data(), cut);
      ASSERT_EQ(SCA_Crc32(first, text.data() + cut, text.size() - cut), expected)
          << i << " " << cut;
    }
    text += static_cast<char>(i * 37 + 200);
  }
}

}  // namespace
