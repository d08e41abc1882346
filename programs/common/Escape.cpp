#include "programs/common/Escape.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cwchar>

#include "programs/common/Utf8.h"

namespace {

std::string EscapeBytes(std::string_view bytes) {
  std::string shown;
  for (const char byte : bytes) {
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned char>(byte));
    shown += escape;
  }
  return shown;
}

// The first character of a text that is not empty, or its first byte when that begins none.
struct Character {
  explicit Character(std::string_view text) {
    const std::size_t decoded = DecodeUtf8(text, &code);
    isUtf8 = decoded > 0;
    bytes = text.substr(0, std::max<std::size_t>(decoded, 1));
  }
  char32_t code = 0;
  bool isUtf8 = false;
  std::string_view bytes;
};

template <class Visit>
void ForEachCharacter(std::string_view text, Visit visit) {
  while (!text.empty()) {
    const Character character(text);
    visit(character);
    text.remove_prefix(character.bytes.size());
  }
}

std::string Shown(const Character& character) {
  if (character.bytes == "\n") return "\\n";
  const bool isPlain = character.isUtf8 && !IsControl(character.code);
  return isPlain ? std::string(character.bytes) : EscapeBytes(character.bytes);
}

// The widths of the C library's own UTF-8 locale, whatever the user's may be.
std::size_t WidthOf(const Character& character) {
  static const locale_t utf8 = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  if (utf8 == nullptr) return 1;
  const locale_t former = ::uselocale(utf8);
  const int width = ::wcwidth(static_cast<wchar_t>(character.code));
  ::uselocale(former);
  return width < 0 ? 1 : static_cast<std::size_t>(width);
}

}  // namespace

bool IsControl(char32_t character) {
  const bool isDirection = (character >= 0x200E && character <= 0x200F) ||
                           (character >= 0x2028 && character <= 0x202E) ||
                           (character >= 0x2066 && character <= 0x2069);
  return character < 0x20 || (character >= 0x7F && character < 0xA0) || isDirection;
}

std::string Escape(std::string_view text) {
  std::string shown;
  ForEachCharacter(text, [&shown](const Character& character) {
    if (character.bytes == "\\") {
      shown += "\\\\";
    } else {
      shown += character.bytes == "\t" ? "\\t" : Shown(character);
    }
  });
  return shown;
}

std::string Printable(std::string_view text) {
  std::string shown;
  ForEachCharacter(text, [&shown](const Character& character) {
    shown += character.bytes == "\t" ? "    " : Shown(character);
  });
  return shown;
}

std::string Quoted(std::string_view name) {
  return "'" + Printable(name) + "'";
}

void PrintErrorLine(std::string_view text) {
  std::string shown;
  for (;;) {
    const std::size_t end = text.find('\n');
    shown += Printable(text.substr(0, end)) + "\n";
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  // At once, so that the lines of several threads do not mix.
  std::fwrite(shown.data(), 1, shown.size(), stderr);
}

std::size_t DisplayWidth(std::string_view text) {
  std::size_t width = 0;
  ForEachCharacter(text, [&width](const Character& character) { width += WidthOf(character); });
  return width;
}

std::string ClipToWidth(std::string_view text, std::size_t width) {
  if (DisplayWidth(text) <= width) return std::string(text);
  std::string kept;
  std::size_t taken = 1;  // by the mark
  while (width > 0) {
    const Character character(text);
    taken += WidthOf(character);
    if (taken > width) return kept + "…";
    kept += character.bytes;
    text.remove_prefix(character.bytes.size());
  }
  return kept;
}
