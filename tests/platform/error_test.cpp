#include "platform/SCA_Error.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <map>
#include <string>

namespace {

TEST(ErrorText, IsOneLineWithoutTheNumberForEveryCode) {
  for (const unsigned long first : {0UL, 100000UL, 0xFFFFFF00UL, ~0UL - 1300}) {
    for (unsigned long code = first; code != first + 1300; ++code) {
      SCOPED_TRACE(code);
      ASSERT_NE(SCA_ErrorText(code), nullptr);
      const std::string text = SCA_ErrorText(code);
      const auto is = [&](int (*kind)(int)) {
        return std::count_if(text.begin(), text.end(), kind);
      };
      EXPECT_GT(is(std::isalpha), 0) << text;
      EXPECT_EQ(is(std::iscntrl), 0) << text;
      EXPECT_TRUE(code <= 999 || text.find(std::to_string(code)) == std::string::npos) << text;
    }
  }
}

TEST(ErrorText, TellsCodesApartAndDoesNotGuessAtOthers) {
  std::map<std::string, unsigned long> codes;
  int known = 0;
  for (unsigned long code = 100000; code < 100400; ++code) {
    const std::string text = SCA_ErrorText(code);
    if (text == "unknown error") continue;
    ++known;
    EXPECT_TRUE(codes.emplace(text, code).second) << code << " as " << codes[text] << ": " << text;
  }
  EXPECT_GT(known, 40);
  EXPECT_STREQ(SCA_ErrorText(ENETDOWN), std::strerror(ENETDOWN)) << "and no interim reply";
  for (const unsigned long code : {1000UL, (1UL << 32) + ETIMEDOUT, (1UL << 32) + 404}) {
    EXPECT_STREQ(SCA_ErrorText(code), "unknown error") << code;
  }
}

TEST(ErrorText, NamesHttpRepliesAndStaysValid) {
  const char* const kept = SCA_ErrorText(503);
  // Those of interim replies before are those of system errors too.
  for (unsigned long code = EHWPOISON + 1; code <= 999; ++code) {
    EXPECT_EQ(SCA_ErrorText(code), "the server answered HTTP " + std::to_string(code));
  }
  EXPECT_STREQ(kept, "the server answered HTTP 503");
}

}  // namespace
