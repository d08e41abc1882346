#include "programs/common/Json.h"

#include <algorithm>
#include <cstdio>

#include "programs/common/Escape.h"
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

// The bytes at the end of a text that begin a character which may go on. What is before them reads
// the same, whatever follows.
std::size_t UnfinishedLength(std::string_view text) {
  for (std::size_t length = 1; length <= std::min<std::size_t>(3, text.size()); ++length) {
    const auto byte = static_cast<Byte>(text[text.size() - length]);
    if (byte < 0x80) return 0;
    if (byte >= 0xC0) return length < (byte < 0xE0 ? 2U : (byte < 0xF0 ? 3U : 4U)) ? length : 0;
  }
  return 0;
}

// Joins blocks and hands them out, except for the rest at the end, which goes with
// the next block.
bool ForEachPiece(const TextBlocks& blocks,
                  const std::function<std::size_t(std::string_view)>& rest, const TextTake& take) {
  std::string held;
  const bool isWhole = blocks([&](std::string_view block) {
    held += block;
    const std::size_t length = held.size() - rest(held);
    if (!take(std::string_view(held).substr(0, length))) return false;
    held.erase(0, length);
    return true;
  });
  return isWhole && take(held);
}

// What is left of control characters, DEL and those beyond ASCII, stands within strings, where an
// escape means the same.
std::string EscapeControls(const std::string& json) {
  std::string escaped;
  std::size_t copied = 0;
  for (std::size_t at = 0; at < json.size();) {
    char32_t character = 0;
    const bool isPlain = static_cast<Byte>(json[at]) < 0x7F;
    const std::size_t length =
        isPlain ? 1 : DecodeUtf8(std::string_view(json).substr(at), &character);
    if (!isPlain && IsControl(character)) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(character) & 0xFFFFU);
      escaped.append(json, copied, at - copied).append(escape);
      copied = at + length;
    }
    at += length;
  }
  return escaped.append(json, copied);
}

}  // namespace

void SetJsonText(nlohmann::ordered_json* object, const std::string& key, std::string_view text) {
  (*object)[key] = std::string(text);
  if (!IsUtf8(text)) (*object)[key + "Base64"] = Base64(text);
}

bool WriteJsonText(const std::string& key, const TextBlocks& blocks, const TextTake& write) {
  bool isUtf8 = true;
  const auto writeText = [&](std::string_view piece) {
    isUtf8 = isUtf8 && IsUtf8(piece);
    const std::string quoted = JsonText(std::string(piece));
    return write(std::string_view(quoted).substr(1, quoted.size() - 2));
  };
  if (!write("\"" + key + "\":\"") || !ForEachPiece(blocks, UnfinishedLength, writeText))
    return false;
  if (isUtf8) return write("\"");
  const auto writeBase64 = [&](std::string_view piece) { return write(Base64(piece)); };
  const auto restOfGroup = [](std::string_view text) { return text.size() % 3; };
  return write("\",\"" + key + "Base64\":\"") && ForEachPiece(blocks, restOfGroup, writeBase64) &&
         write("\"");
}

std::string JsonText(const nlohmann::ordered_json& value, int indent) {
  return EscapeControls(
      value.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}
