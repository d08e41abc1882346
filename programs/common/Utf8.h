/// Characters of UTF-8.
#ifndef SCA_PROGRAMS_COMMON_UTF8_H
#define SCA_PROGRAMS_COMMON_UTF8_H

#include <cstddef>
#include <string_view>

/// @param text       Not empty.
/// @param character  Receives the character that the text begins with; untouched when there is
/// none.
/// @return Its bytes, 1 to 4; 0 when the text begins with something else.
std::size_t DecodeUtf8(std::string_view text, char32_t* character);

#endif  // SCA_PROGRAMS_COMMON_UTF8_H
