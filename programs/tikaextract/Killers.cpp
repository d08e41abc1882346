#include "programs/tikaextract/Killers.h"

#include "programs/tikaextract/Digest.h"

const Killers::Content* Killers::Find(const std::string& path, unsigned long long size) const {
  const auto [begin, end] = contents_.equal_range(size);
  if (begin == end) return nullptr;
  const std::string digest = DigestOfFile(path);
  for (auto content = begin; content != end; ++content) {
    if (content->second.digest == digest) return &content->second;
  }
  return nullptr;
}
