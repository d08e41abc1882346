#include "programs/tikaextract/Killers.h"

#include <vector>

#include "platform/SCA_File.h"
#include "platform/SCA_Sha256.h"

const Killers::Content* Killers::Find(const std::string& path, unsigned long long size) const {
  const auto [begin, end] = contents_.equal_range(size);
  if (begin == end) return nullptr;
  const std::string digest = Digest(path);
  for (auto content = begin; content != end; ++content) {
    if (content->second.digest == digest) return &content->second;
  }
  return nullptr;
}

std::string Killers::Digest(const std::string& path) {
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
  constexpr char kDigits[] = "0123456789abcdef";
  std::string digest;
  for (const unsigned char byte : sha.Finish()) {
    digest += {kDigits[byte >> 4U], kDigits[byte & 0xFU]};
  }
  return digest;
}
