/// Reading the size lines of a chunked reply (RFC 9112, section 7.1). Internal to the library.
/// Threads: no state.
#ifndef SCA_CLIENT_SCA_CHUNKSIZE_H
#define SCA_CLIENT_SCA_CHUNKSIZE_H

/// Characters of a size line that the second and third decoders accept: sizes to 0xFFFFFF.
constexpr unsigned long SCA_MaxSizeText = 6;

/// Reads the size of a chunk from the text of its line, as `strtoul` with base 16 does, but refuses
/// what would pass for another size: no hexadecimal digit, a minus sign, a "0x" without a digit
/// after it, and a line feed first: the chunk before was longer than its size, and bytes of it
/// were taken for its CR LF.
/// @param length  Bytes of the line without its CR LF; 255 at most, extensions included.
/// @param size    Receives the size, 0xFFFFFFFFFFFFFFFF for larger ones; untouched on failure.
bool SCA_ParseChunkSize(const char* line, unsigned long length, unsigned long long* size);

/// Finds the first CR LF that begins at or after a position.
/// @return Its position, or `length` when there is none.
unsigned long SCA_FindCrLf(const char* buffer, unsigned long length, unsigned long position);

/// @param text  At least two bytes.
inline bool SCA_IsCrLf(const char* text) {
  return text[0] == '\r' && text[1] == '\n';
}

#endif  // SCA_CLIENT_SCA_CHUNKSIZE_H
