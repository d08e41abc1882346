#include "programs/common/Json.h"

#include "programs/common/Utf8.h"

namespace {

using Byte = unsigned char;

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    char32_t character = 0;
    const std::size_t length = DecodeUtf8(text, &character);
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
