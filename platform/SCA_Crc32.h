/// CRC-32 as in zlib, gzip and PNG (ISO 3309; reflected polynomial 0xEDB88320).
/// Threads: a free function without shared state.
#ifndef SCA_PLATFORM_SCA_CRC32_H
#define SCA_PLATFORM_SCA_CRC32_H

#include <cstdint>

#include "platform/SCA_Object.h"

/// @param crc     0 for the first block of a run of bytes; then the previous result.
/// @param data    `length` bytes; may be null when `length` is 0.
/// @return The checksum of all the bytes so far; 0xCBF43926 for "123456789".
SCA_API std::uint32_t SCA_Crc32(std::uint32_t crc, const char* data, unsigned long length);

#endif  // SCA_PLATFORM_SCA_CRC32_H
