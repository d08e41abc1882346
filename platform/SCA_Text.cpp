#include "platform/SCA_Text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

bool IsSeparator(char c) {
  return c == ' ' || c == '\t';
}

char ToLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

int SCA_CopyText(char* target, unsigned long size, const char* source, SCA_TextFit fit) {
  if (source == nullptr) source = "";
  const unsigned long length = std::strlen(source);
  const bool fits = length < size;
  if (!fits && fit == SCA_TextFit::Refuse) return 0;
  const unsigned long copied = std::min(length, size - 1);
  std::memmove(target, source, copied);
  target[copied] = '\0';
  return fits ? 1 : 0;
}

unsigned long SCA_CutLength(const char* text, unsigned long length) {
  constexpr unsigned long kLongestRest = 3;  // bytes of a character after its first
  const auto isInside = [text](unsigned long at) {
    return (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
  };
  unsigned long cut = length;
  while (cut > 0 && length - cut < kLongestRest && isInside(cut)) --cut;
  return isInside(cut) || cut == 0 ? length : cut;
}

void SCA_BlankControls(char* text, unsigned long length) {
  // Written so that the compiler takes many bytes at once: log messages pass through here.
  for (char* c = text; c != text + length; ++c) {
    const auto byte = static_cast<unsigned char>(*c);
    const bool isControl = (byte < 0x20 && byte != '\t') || byte == 0x7F;
    *c = isControl ? ' ' : *c;
  }
}

int SCA_GetToken1(const char* text, unsigned long* position, char* token, unsigned long size) {
  if (text == nullptr) return 0;
  const char* begin = text + *position;
  while (IsSeparator(*begin)) ++begin;
  const char* end = begin;
  while (*end != '\0' && !IsSeparator(*end)) ++end;
  *position = static_cast<unsigned long>(end - text);
  if (begin == end) return 0;
  const unsigned long copied = std::min(static_cast<unsigned long>(end - begin), size - 1);
  std::memcpy(token, begin, copied);
  token[copied] = '\0';
  return 1;
}

int SCA_StrCompareNoCase(const char* left, const char* right) {
  if (left == nullptr || right == nullptr) return left == right ? 1 : 0;
  while (*left != '\0' && ToLower(*left) == ToLower(*right)) {
    ++left;
    ++right;
  }
  return ToLower(*left) == ToLower(*right) ? 1 : 0;
}

int SCA_HasToken(const char* text, const char* word) {
  char token[260];
  unsigned long position = 0;
  while (SCA_GetToken1(text, &position, token, sizeof token) != 0) {
    if (SCA_StrCompareNoCase(token, word) != 0) return 1;
  }
  return 0;
}

int SCA_FormatSize(unsigned long long bytes, char* text, unsigned long size) {
  static constexpr const char* kUnits[] = {"KB", "MB", "GB", "TB", "PB", "EB"};
  constexpr double kStep = 1024;
  // What would round to 1024.0 is shown in the next unit.
  constexpr double kRoundsUp = 1023.95;
  double amount = static_cast<double>(bytes) / kStep;
  unsigned long unit = 0;
  while (amount >= kRoundsUp) {
    amount /= kStep;
    ++unit;
  }
  const int length = bytes < 1024 ? std::snprintf(text, size, "%llu bytes", bytes)
                                  : std::snprintf(text, size, "%.1f %s", amount, kUnits[unit]);
  if (length >= 0 && static_cast<unsigned long>(length) < size) return 1;
  text[0] = '\0';
  return 0;
}
