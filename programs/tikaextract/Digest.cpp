#include "programs/tikaextract/Digest.h"

#include <vector>

#include "platform/SCA_File.h"
#include "platform/SCA_Sha256.h"

namespace {

std::string Finish(SCA_Sha256* sha) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string digest;
  for (const unsigned char byte : sha->Finish()) {
    digest += {kDigits[byte >> 4U], kDigits[byte & 0xFU]};
  }
  return digest;
}

}  // namespace

std::string DigestOfText(const std::string& text) {
  SCA_Sha256 sha;
  sha.Update(text.data(), text.size());
  return Finish(&sha);
}

std::string DigestOfFile(const std::string& path) {
  constexpr unsigned long kBlock = 1UL << 20;
  SCA_File file;
  SCA_Sha256 sha;
  std::vector<char> block(kBlock);
  unsigned long error = 0;
  unsigned long length = 0;
  if (file.Open(path.c_str(), SCA_FileOpenRead, &error) == 0) return {};
  do {
    if (file.Read(block.data(), kBlock, &length, &error) == 0) return {};
    sha.Update(block.data(), length);
  } while (length == kBlock);
  return Finish(&sha);
}
