#include "platform/SCA_Error.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

const std::vector<unsigned long> kNamedCodes = {SCA_ErrorNoJar,
                                                SCA_ErrorCancelled,
                                                SCA_ErrorAlreadyActive,
                                                SCA_ErrorCannotCreate,
                                                SCA_ErrorInvalidData,
                                                SCA_ErrorRootConfig,
                                                SCA_ErrorNotStarted,
                                                SCA_ErrorProcessEnded,
                                                SCA_ErrorTika422,
                                                SCA_ErrorTika500,
                                                SCA_ErrorHostName,
                                                SCA_ErrorHostNameInvalid,
                                                SCA_ErrorHeaderTooLong,
                                                SCA_ErrorNotRegularFile,
                                                SCA_ErrorFileShrank,
                                                SCA_ErrorCommandLine,
                                                ENOENT,
                                                EACCES,
                                                EISDIR,
                                                ENOSPC,
                                                EPIPE,
                                                EBADF,
                                                ENAMETOOLONG,
                                                ECONNREFUSED,
                                                ECONNRESET,
                                                ETIMEDOUT,
                                                0};

TEST(ErrorText, IsOneLineWithoutTheNumberForEveryCode) {
  const std::pair<unsigned long, unsigned long> ranges[] = {
      {0, 1300}, {100000, 100400}, {0xFFFFFF00, 0x100000500}, {~0UL - 1, ~0UL}};
  for (const auto& [first, last] : ranges) {
    for (unsigned long code = first; code != last; ++code) {
      SCOPED_TRACE(code);
      ASSERT_NE(SCA_ErrorText(code), nullptr);
      const std::string text = SCA_ErrorText(code);
      bool hasLetter = false;
      for (const char c : text) {
        hasLetter = hasLetter || std::isalpha(static_cast<unsigned char>(c)) != 0;
        EXPECT_NE(std::isprint(static_cast<unsigned char>(c)), 0) << text;
      }
      EXPECT_TRUE(hasLetter) << text;
      EXPECT_TRUE(code <= 999 || text.find(std::to_string(code)) == std::string::npos) << text;
    }
  }
}

TEST(ErrorText, TellsKnownCodesApart) {
  std::set<std::string> texts = {"unknown error"};
  for (const unsigned long code : kNamedCodes) {
    EXPECT_TRUE(texts.insert(SCA_ErrorText(code)).second) << code << ' ' << SCA_ErrorText(code);
  }
}

TEST(ErrorText, DoesNotGuessAtCodesItDoesNotKnow) {
  for (const unsigned long code : {199UL, 1000UL, 100000UL, 100119UL, 100199UL, 100299UL, 100300UL,
                                   0x100000000UL + ETIMEDOUT, 0x100000000UL + 404, ~0UL}) {
    EXPECT_STREQ(SCA_ErrorText(code), "unknown error") << code;
  }
}

TEST(ErrorText, NamesHttpRepliesFromEveryThreadAndStaysValid) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      const char* const kept = SCA_ErrorText(503);
      for (unsigned long code = 200; code <= 999; ++code) {
        EXPECT_EQ(SCA_ErrorText(code), "the server answered HTTP " + std::to_string(code));
      }
      EXPECT_STREQ(kept, "the server answered HTTP 503");
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
