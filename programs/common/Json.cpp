#include "programs/common/Json.h"

namespace {

using Byte = unsigned char;

// Bytes of the well-formed UTF-8 character at the front of a text; 0 when there is none.
std::size_t CharacterLength(std::string_view text) {
  const auto at = [text](std::size_t i) { return static_cast<Byte>(text[i]); };
  const Byte first = at(0);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((at(i) & 0xC0) != 0x80) return 0;
  }
  // Neither longer forms than needed, nor surrogates, nor what lies beyond U+10FFFF.
  const bool isForbidden = (first == 0xE0 && at(1) < 0xA0) || (first == 0xED && at(1) > 0x9F) ||
                           (first == 0xF0 && at(1) < 0x90) || (first == 0xF4 && at(1) > 0x8F);
  return isForbidden ? 0 : length;
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = CharacterLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string Base64(std::string_view bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    unsigned long group = 0;
    for (std::size_t k = 0; k < 3; ++k) {
      group = group << 8 | (i + k < bytes.size() ? static_cast<Byte>(bytes[i + k]) : 0U);
    }
    for (std::size_t k = 0; k < 4; ++k) {
      text += i + k <= bytes.size() ? kDigits[group >> (18 - 6 * k) & 0x3F] : '=';
    }
  }
  return text;
}

}  // namespace

void SetJsonText(nlohmann::ordered_json* object, const std::string& key, std::string_view text) {
  (*object)[key] = std::string(text);
  if (!IsUtf8(text)) (*object)[key + "Base64"] = Base64(text);
}

std::string JsonText(const nlohmann::ordered_json& value, int indent) {
  return value.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}
