/// SHA-256 (FIPS 180-4), HMAC-SHA-256 (RFC 2104, RFC 4231) and random bytes for challenges.
/// Threads: free functions without shared state; an object is used by one thread at a time.
#ifndef SCA_PLATFORM_SCA_SHA256_H
#define SCA_PLATFORM_SCA_SHA256_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/SCA_Object.h"

/// Bytes of a digest.
constexpr std::size_t SCA_DigestSize = 32;
using SCA_Digest = std::array<unsigned char, SCA_DigestSize>;

/// A digest under way.
class SCA_API SCA_Sha256 {
 public:
  SCA_Sha256();
  /// @param data  `length` bytes; may be null when `length` is 0.
  void Update(const void* data, std::size_t length);
  /// @return The digest of all bytes so far; the object may not be updated any more.
  SCA_Digest Finish();

 private:
  void TakeBlocks(const unsigned char* data, std::size_t count);

  std::array<std::uint32_t, 8> state_;
  unsigned long long length_ = 0;  // bytes
  std::array<unsigned char, 64> block_{};
};

/// Authenticates messages under one key. A copy goes on from where its source stands.
class SCA_API SCA_HmacSha256 {
 public:
  /// @param key  `length` bytes, any number.
  SCA_HmacSha256(const void* key, std::size_t length);
  void Update(const void* data, std::size_t length) { inner_.Update(data, length); }
  /// @return The code of all bytes so far; the object may not be updated any more.
  SCA_Digest Finish();

 private:
  SCA_Sha256 inner_;
  SCA_Sha256 outer_;
};

/// @return Whether two digests are equal, in a time that does not depend on where they differ.
SCA_API bool SCA_EqualDigests(const SCA_Digest& left, const SCA_Digest& right);

/// Fills a buffer with random bytes of the operating system.
/// @return 1, or 0 when the system has none.
SCA_API int SCA_RandomBytes(void* buffer, std::size_t length);

#endif  // SCA_PLATFORM_SCA_SHA256_H
