/// Bytes as hexadecimal digits. Internal to the library.
/// Threads: free functions without shared state.
#ifndef SCA_PLATFORM_SCA_HEX_H
#define SCA_PLATFORM_SCA_HEX_H

#include <cstddef>

/// @param text  Receives two lower-case digits a byte, and a zero.
void SCA_ToHex(const unsigned char* bytes, std::size_t length, char* text);

/// @param text   `length` digits in any case, an even number.
/// @param bytes  Receives half as many bytes; anything after a failure.
/// @return 1, or 0 when there is anything but digits.
int SCA_FromHex(const char* text, std::size_t length, unsigned char* bytes);

#endif  // SCA_PLATFORM_SCA_HEX_H
