#include "client/SCA_TikaRequestOptions.h"

#include <string_view>

#include "platform/SCA_Error.h"

namespace {

constexpr std::size_t kMaxPassword = 1024;
constexpr std::size_t kMaxLanguage = 200;
constexpr std::size_t kMaxFileName = 1024;
constexpr std::size_t kMaxContentType = 255;
constexpr unsigned long kMaxTimeoutMs = 0x7FFFFFFF;

constexpr struct {
  SCA_TikaOption option;
  const char* name;
} kNames[] = {
    {SCA_TikaOptionMarkdown, "Markdown"},
    {SCA_TikaOptionPassword, "password"},
    {SCA_TikaOptionOcr, "OCR"},
    {SCA_TikaOptionOcrLanguage, "OCR language"},
    {SCA_TikaOptionNoEmbedded, "no embedded documents"},
    {SCA_TikaOptionServerTimeout, "time limit of the server"},
    {SCA_TikaOptionFileName, "file name"},
    {SCA_TikaOptionContentType, "content type"},
};

bool IsAlnum(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsOneOf(char c, std::string_view characters) {
  return characters.find(c) != std::string_view::npos;
}

template <class Predicate>
bool AreAll(std::string_view text, Predicate predicate) {
  for (const char c : text) {
    if (!predicate(c)) return false;
  }
  return true;
}

// @return The bytes of the UTF-8 character that a text begins with (RFC 3629); 0 for none.
std::size_t CharacterLength(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned lead = byte(0);
  if (lead < 0x80) return 1;
  const std::size_t length = lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (length == 0 || lead > 0xF4 || text.size() < length) return 0;
  // Over-long forms, surrogates, and what is beyond the last character.
  const unsigned least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < least || byte(1) > most) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  return length;
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = CharacterLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

bool IsLanguage(std::string_view text) {
  return AreAll(text, [](char c) { return IsAlnum(c) || IsOneOf(c, "_-/+"); }) &&
         text.front() != '+' && text.back() != '+' && text.find("++") == std::string_view::npos;
}

bool IsTokenChar(char c) {
  return IsAlnum(c) || IsOneOf(c, "!#$%&'*+-.^_`|~");
}

// "type/subtype" and, after a semicolon, parameters of printable characters (RFC 9110, 8.3.1).
bool IsContentType(std::string_view text) {
  const std::string_view type = text.substr(0, text.find('/'));
  if (type.size() == text.size()) return false;
  std::string_view subtype = text.substr(type.size() + 1);
  subtype = subtype.substr(0, subtype.find_first_of("; "));
  return !type.empty() && !subtype.empty() && AreAll(type, IsTokenChar) &&
         AreAll(subtype, IsTokenChar) && AreAll(text, [](char c) { return c >= ' ' && c <= '~'; });
}

// @return What is wrong, or null.
const char* FindFault(const SCA_TikaRequestOptions& options) {
  if (options.content < SCA_TikaContent::Text || options.content > SCA_TikaContent::Markdown) {
    return "the content asked for is none that there is";
  }
  if (options.ocr < SCA_TikaOcr::Default || options.ocr > SCA_TikaOcr::Only) {
    return "the way of reading pictures (OCR) is none that there is";
  }
  if (options.password.size() > kMaxPassword) return "the password is longer than 1024 bytes";
  if (!IsUtf8(options.password)) return "the password is not UTF-8";
  if (options.ocrLanguage.size() > kMaxLanguage) {
    return "the language for OCR is longer than 200 bytes";
  }
  if (!options.ocrLanguage.empty() && !IsLanguage(options.ocrLanguage)) {
    return "the language for OCR must be names joined by plus signs, such as deu+eng";
  }
  if (options.serverTimeoutMs > kMaxTimeoutMs) {
    return "the time limit of the server is above 2147483647 ms";
  }
  if (options.fileName.size() > kMaxFileName) return "the file name is longer than 1024 bytes";
  if (options.fileName.find('\0') != std::string::npos) return "the file name holds a zero byte";
  if (options.contentType.size() > kMaxContentType) {
    return "the content type is longer than 255 bytes";
  }
  if (!options.contentType.empty() && !IsContentType(options.contentType)) {
    return "the content type must be of the form type/subtype, in printable ASCII";
  }
  return nullptr;
}

}  // namespace

std::string SCA_TikaOptionNames(unsigned long options) {
  std::string names;
  for (const auto& row : kNames) {
    if ((options & row.option) == 0) continue;
    if (!names.empty()) names += ", ";
    names += row.name;
  }
  return names;
}

unsigned long SCA_TikaOptionsIn(const SCA_TikaRequestOptions& options) {
  const auto bit = [](bool isSet, SCA_TikaOption option) {
    return isSet ? static_cast<unsigned long>(option) : 0;
  };
  return bit(options.content == SCA_TikaContent::Markdown, SCA_TikaOptionMarkdown) |
         bit(!options.password.empty(), SCA_TikaOptionPassword) |
         bit(options.ocr != SCA_TikaOcr::Default, SCA_TikaOptionOcr) |
         bit(!options.ocrLanguage.empty(), SCA_TikaOptionOcrLanguage) |
         bit(!options.embedded, SCA_TikaOptionNoEmbedded) |
         bit(options.serverTimeoutMs != 0, SCA_TikaOptionServerTimeout) |
         bit(!options.fileName.empty(), SCA_TikaOptionFileName) |
         bit(!options.contentType.empty(), SCA_TikaOptionContentType);
}

unsigned long SCA_CheckTikaOptions(const SCA_TikaRequestOptions& options, const char** complaint) {
  const char* const fault = FindFault(options);
  if (fault == nullptr) return 0;
  if (complaint != nullptr) *complaint = fault;
  return SCA_ErrorOptionInvalid;
}
