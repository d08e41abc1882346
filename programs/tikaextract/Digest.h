/// Digests of contents and names: SHA-256, as 64 hexadecimal digits.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_DIGEST_H
#define SCA_PROGRAMS_TIKAEXTRACT_DIGEST_H

#include <string>

std::string DigestOfText(const std::string& text);
/// @return Nothing when the file cannot be read.
std::string DigestOfFile(const std::string& path);

#endif  // SCA_PROGRAMS_TIKAEXTRACT_DIGEST_H
