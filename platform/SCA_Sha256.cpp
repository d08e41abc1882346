#include "platform/SCA_Sha256.h"

#include <algorithm>
#include <cstring>

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace {

constexpr std::size_t kBlockSize = 64;
using State = std::array<std::uint32_t, 8>;

constexpr std::array<std::uint32_t, 64> kRounds = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

constexpr State kInitial = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                            0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

std::uint32_t Rotate(std::uint32_t word, int bits) {
  return word >> bits | word << (32 - bits);
}

std::uint32_t LoadBig(const unsigned char* bytes) {
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
         std::uint32_t{bytes[2]} << 8 | bytes[3];
}

void StoreBig(std::uint32_t word, unsigned char* bytes) {
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<unsigned char>(word >> (24 - 8 * i));
}

// FIPS 180-4, section 6.2.2, with its names.
void CompressPlain(State* state, const unsigned char* block) {
  std::array<std::uint32_t, 64> w;
  for (std::size_t t = 0; t < 16; ++t) w[t] = LoadBig(block + 4 * t);
  for (std::size_t t = 16; t < 64; ++t) {
    const std::uint32_t s0 = Rotate(w[t - 15], 7) ^ Rotate(w[t - 15], 18) ^ w[t - 15] >> 3;
    const std::uint32_t s1 = Rotate(w[t - 2], 17) ^ Rotate(w[t - 2], 19) ^ w[t - 2] >> 10;
    w[t] = w[t - 16] + s0 + w[t - 7] + s1;
  }
  auto [a, b, c, d, e, f, g, h] = *state;
  for (std::size_t t = 0; t < 64; ++t) {
    const std::uint32_t sum1 = Rotate(e, 6) ^ Rotate(e, 11) ^ Rotate(e, 25);
    const std::uint32_t t1 = h + sum1 + ((e & f) ^ (~e & g)) + kRounds[t] + w[t];
    const std::uint32_t sum0 = Rotate(a, 2) ^ Rotate(a, 13) ^ Rotate(a, 22);
    const std::uint32_t t2 = sum0 + ((a & b) ^ (a & c) ^ (b & c));
    h = g;
    g = f;
    f = e;
    e = d + t1;
    d = c;
    c = b;
    b = a;
    a = t1 + t2;
  }
  const State add = {a, b, c, d, e, f, g, h};
  for (std::size_t i = 0; i < add.size(); ++i) (*state)[i] += add[i];
}

#if defined(__x86_64__)
// The processor's own rounds, four at a time; the state is kept as ABEF and CDGH, as it wants it.
__attribute__((target("sha,sse4.1"))) void CompressNative(State* state,
                                                          const unsigned char* block) {
  const __m128i swap = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
  const __m128i abcd =
      _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(state->data())), 0xB1);
  const __m128i efgh =
      _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(state->data() + 4)), 0x1B);
  __m128i abef = _mm_alignr_epi8(abcd, efgh, 8);
  __m128i cdgh = _mm_blend_epi16(efgh, abcd, 0xF0);
  const __m128i abefBefore = abef;
  const __m128i cdghBefore = cdgh;
  __m128i words[4];
  for (int i = 0; i < 4; ++i) {
    const auto* source = reinterpret_cast<const __m128i*>(block + 16 * i);
    words[i] = _mm_shuffle_epi8(_mm_loadu_si128(source), swap);
  }
  for (std::size_t group = 0; group < 16; ++group) {
    const auto* constants = reinterpret_cast<const __m128i*>(kRounds.data() + 4 * group);
    __m128i& current = words[group % 4];
    const __m128i sum = _mm_add_epi32(current, _mm_loadu_si128(constants));
    cdgh = _mm_sha256rnds2_epu32(cdgh, abef, sum);
    abef = _mm_sha256rnds2_epu32(abef, cdgh, _mm_shuffle_epi32(sum, 0x0E));
    if (group >= 12) continue;
    // The words of four groups on take the place of this one's.
    const __m128i next = words[(group + 1) % 4];
    const __m128i last = words[(group + 3) % 4];
    const __m128i middle = _mm_alignr_epi8(last, words[(group + 2) % 4], 4);
    current =
        _mm_sha256msg2_epu32(_mm_add_epi32(_mm_sha256msg1_epu32(current, next), middle), last);
  }
  abef = _mm_add_epi32(abef, abefBefore);
  cdgh = _mm_add_epi32(cdgh, cdghBefore);
  const __m128i feba = _mm_shuffle_epi32(abef, 0x1B);
  const __m128i dchg = _mm_shuffle_epi32(cdgh, 0xB1);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(state->data()), _mm_blend_epi16(feba, dchg, 0xF0));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(state->data() + 4), _mm_alignr_epi8(dchg, feba, 8));
}

bool HasNative() {
  unsigned a = 0;
  unsigned b = 0;
  unsigned c = 0;
  unsigned d = 0;
  constexpr unsigned kSha = 1U << 29;
  constexpr unsigned kSse41 = 1U << 19;
  if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & kSse41) == 0) return false;
  return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & kSha) != 0;
}
#endif

using Compressor = void (*)(State*, const unsigned char*);

Compressor ChooseCompressor() {
#if defined(__x86_64__)
  if (HasNative()) return CompressNative;
#endif
  return CompressPlain;
}

}  // namespace

SCA_Sha256::SCA_Sha256() : state_(kInitial) {}

void SCA_Sha256::TakeBlocks(const unsigned char* data, std::size_t count) {
  static const Compressor compress = ChooseCompressor();
  for (; count > 0; --count, data += kBlockSize) compress(&state_, data);
}

void SCA_Sha256::Update(const void* data, std::size_t length) {
  if (length == 0) return;
  const auto* bytes = static_cast<const unsigned char*>(data);
  const std::size_t held = length_ % kBlockSize;
  length_ += length;
  if (held > 0) {
    const std::size_t taken = std::min(length, kBlockSize - held);
    std::memcpy(block_.data() + held, bytes, taken);
    if (held + taken < kBlockSize) return;
    TakeBlocks(block_.data(), 1);
    bytes += taken;
    length -= taken;
  }
  TakeBlocks(bytes, length / kBlockSize);
  const std::size_t left = length % kBlockSize;
  if (left > 0) std::memcpy(block_.data(), bytes + length - left, left);
}

SCA_Digest SCA_Sha256::Finish() {
  const unsigned long long bits = length_ * 8;
  std::size_t held = length_ % kBlockSize;
  block_[held++] = 0x80;
  if (held > kBlockSize - 8) {
    std::fill(block_.begin() + static_cast<std::ptrdiff_t>(held), block_.end(), 0);
    TakeBlocks(block_.data(), 1);
    held = 0;
  }
  std::fill(block_.begin() + static_cast<std::ptrdiff_t>(held), block_.end(), 0);
  StoreBig(static_cast<std::uint32_t>(bits >> 32), block_.data() + kBlockSize - 8);
  StoreBig(static_cast<std::uint32_t>(bits), block_.data() + kBlockSize - 4);
  TakeBlocks(block_.data(), 1);
  SCA_Digest digest;
  for (std::size_t i = 0; i < state_.size(); ++i) StoreBig(state_[i], digest.data() + 4 * i);
  return digest;
}

SCA_HmacSha256::SCA_HmacSha256(const void* key, std::size_t length) {
  std::array<unsigned char, kBlockSize> block{};
  if (length > kBlockSize) {
    SCA_Sha256 shortened;
    shortened.Update(key, length);
    const SCA_Digest digest = shortened.Finish();
    std::copy(digest.begin(), digest.end(), block.begin());
  } else if (length > 0) {
    std::memcpy(block.data(), key, length);
  }
  for (unsigned char& byte : block) byte ^= 0x36;
  inner_.Update(block.data(), block.size());
  for (unsigned char& byte : block) byte ^= 0x36 ^ 0x5C;
  outer_.Update(block.data(), block.size());
}

SCA_Digest SCA_HmacSha256::Finish() {
  const SCA_Digest digest = inner_.Finish();
  outer_.Update(digest.data(), digest.size());
  return outer_.Finish();
}

bool SCA_EqualDigests(const SCA_Digest& left, const SCA_Digest& right) {
  unsigned difference = 0;
  for (std::size_t i = 0; i < left.size(); ++i) {
    difference |= static_cast<unsigned>(left[i] ^ right[i]);
  }
  return difference == 0;
}
