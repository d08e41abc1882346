#include "programs/common/Json.h"

#include <cstdint>
#include <string_view>

namespace {

std::string Base64(std::string_view bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::string_view group = bytes.substr(at, 3);
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      bits = bits << 8 | (i < group.size() ? static_cast<unsigned char>(group[i]) : 0);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      text += i <= group.size() ? kDigits[bits >> (18 - 6 * i) & 63] : '=';
    }
  }
  return text;
}

}  // namespace

void SetText(Json* object, const std::string& key, const std::string& bytes) {
  std::string text = Json(bytes).dump(-1, ' ', false, Json::error_handler_t::replace);
  // Parsed again, the text is what a reader of the line gets.
  std::string shown = Json::parse(text).get<std::string>();
  if (shown != bytes) (*object)[key + "Base64"] = Base64(bytes);
  (*object)[key] = std::move(shown);
}

std::string ToLine(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}
