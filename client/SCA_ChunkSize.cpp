#include "client/SCA_ChunkSize.h"

#include <cstdlib>
#include <cstring>

unsigned long SCA_FindCrLf(const char* buffer, unsigned long length, unsigned long position) {
  while (position < length && length - position >= 2) {
    const void* cr = std::memchr(buffer + position, '\r', length - position - 1);
    if (cr == nullptr) break;
    position = static_cast<unsigned long>(static_cast<const char*>(cr) - buffer);
    if (buffer[position + 1] == '\n') return position;
    ++position;
  }
  return length;
}

namespace {

// Reads a line of up to 16 hexadecimal digits and nothing else, as nearly every size line is: a
// third of what the general way takes, which is felt with small chunks.
bool ParsePlainSize(const char* line, unsigned long length, unsigned long long* size) {
  if (length == 0 || length > 16) return false;
  unsigned long long value = 0;
  for (unsigned long i = 0; i < length; ++i) {
    const unsigned digit = static_cast<unsigned char>(line[i]) - unsigned{'0'};
    const unsigned letter = (static_cast<unsigned char>(line[i]) | 0x20U) - unsigned{'a'};
    if (digit > 9 && letter > 5) return false;
    value = value << 4 | (digit <= 9 ? digit : letter + 10);
  }
  *size = value;
  return true;
}

}  // namespace

bool SCA_ParseChunkSize(const char* line, unsigned long length, unsigned long long* size) {
  if (ParsePlainSize(line, length, size)) return true;
  char text[256];
  if (length >= sizeof text || (length > 0 && *line == '\n')) return false;
  std::memcpy(text, line, length);
  text[length] = '\0';
  char* end = nullptr;
  const unsigned long long value = std::strtoull(text, &end, 16);
  const bool hasDigit = end != text;
  const bool isNegative = std::memchr(text, '-', static_cast<std::size_t>(end - text)) != nullptr;
  // Of "0x" without digits the zero alone is read: the sign that ends a reply.
  const bool isBarePrefix = *end == 'x' || *end == 'X';
  if (!hasDigit || isNegative || isBarePrefix) return false;
  *size = value;
  return true;
}
