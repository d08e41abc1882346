#include "platform/SCA_Hex.h"

namespace {

int DigitValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

}  // namespace

void SCA_ToHex(const unsigned char* bytes, std::size_t length, char* text) {
  constexpr char kDigits[] = "0123456789abcdef";
  for (std::size_t i = 0; i < length; ++i) {
    *text++ = kDigits[bytes[i] >> 4];
    *text++ = kDigits[bytes[i] & 15];
  }
  *text = '\0';
}

int SCA_FromHex(const char* text, std::size_t length, unsigned char* bytes) {
  if (length % 2 != 0) return 0;
  for (std::size_t i = 0; i < length; i += 2) {
    const int high = DigitValue(text[i]);
    const int low = DigitValue(text[i + 1]);
    if (high < 0 || low < 0) return 0;
    bytes[i / 2] = static_cast<unsigned char>(high << 4 | low);
  }
  return 1;
}
