#include "programs/common/Utf8.h"

std::size_t DecodeUtf8(std::string_view text, char32_t* character) {
  const auto first = static_cast<unsigned char>(text.front());
  std::size_t length = first < 0x80 ? 1 : 0;
  if (first >= 0xC2 && first < 0xF5) length = first < 0xE0 ? 2 : (first < 0xF0 ? 3 : 4);
  if (length == 0 || length > text.size()) return 0;
  constexpr unsigned kFirstBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  char32_t decoded = first & kFirstBits[length];
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xC0) != 0x80) return 0;
    decoded = decoded << 6 | (next & 0x3F);
  }
  const bool isSurrogate = decoded >= 0xD800 && decoded < 0xE000;
  if (decoded < kSmallest[length] || isSurrogate || decoded > 0x10FFFF) return 0;
  *character = decoded;
  return length;
}
