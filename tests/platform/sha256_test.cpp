#include "platform/SCA_Sha256.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/SCA_Hex.h"

namespace {

std::string Hex(const SCA_Digest& digest) {
  char text[2 * SCA_DigestSize + 1];
  SCA_ToHex(digest.data(), digest.size(), text);
  return text;
}

std::string Sha256(const std::string& text, std::size_t piece) {
  SCA_Sha256 hash;
  for (std::size_t at = 0; at < text.size(); at += piece) {
    const std::string part = text.substr(at, piece);
    hash.Update(part.data(), part.size());
  }
  return Hex(hash.Finish());
}

// The examples that NIST publishes for FIPS 180-4.
TEST(Sha256, MatchesThePublishedExamplesHoweverTheBytesAreCut) {
  const std::pair<std::string, const char*> rows[] = {
      {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
      {std::string(1000000, 'a'),
       "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"}};
  for (const auto& [text, expected] : rows) {
    for (const std::size_t piece : {1U, 3U, 63U, 64U, 65U, 1000000U}) {
      EXPECT_EQ(Sha256(text, piece), expected) << text.size() << " " << piece;
    }
  }
}

// RFC 4231, test cases 1, 2 and 7.
TEST(Sha256, AuthenticatesAsTheRfcHasIt) {
  struct {
    std::string key, data;
    const char* expected;
  } const rows[] = {
      {std::string(20, '\x0b'), "Hi There",
       "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
      {"Jefe", "what do ya want for nothing?",
       "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
      {std::string(131, '\xaa'),
       "This is a test using a larger than block-size key and a larger than block-size data. The "
       "key needs to be hashed before being used by the HMAC algorithm.",
       "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2"}};
  for (const auto& row : rows) {
    SCA_HmacSha256 hmac(row.key.data(), row.key.size());
    hmac.Update(row.data.data(), row.data.size());
    const SCA_Digest digest = hmac.Finish();
    EXPECT_EQ(Hex(digest), row.expected);
    EXPECT_TRUE(SCA_EqualDigests(digest, digest));
    for (std::size_t i = 0; i < SCA_DigestSize; ++i) {
      SCA_Digest other = digest;
      other[i] ^= 0x80;
      EXPECT_FALSE(SCA_EqualDigests(other, digest));
    }
  }
}

TEST(Sha256, RandomBytesFillTheBuffer) {
  SCA_Digest first{};
  SCA_Digest second{};
  EXPECT_EQ(SCA_RandomBytes(first.data(), first.size()), 1);
  EXPECT_EQ(SCA_RandomBytes(second.data(), second.size()), 1);
  EXPECT_NE(first, second);
  EXPECT_NE(first[31] | first[30] | first[29] | first[28], 0);
}

}  // namespace
