#include "platform/SCA_Text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(CopyText, CutsOrRefusesAtTheCapacityAndWritesNothingBehindIt) {
  struct Row {
    const char* source;
    unsigned long size;
    int whole;
    const char* cut;
  };
  const Row rows[] = {{"", 1, 1, ""},        {"a", 1, 0, ""},     {"abc", 4, 1, "abc"},
                      {"abcd", 4, 0, "abc"}, {nullptr, 4, 1, ""}, {"ab", 4, 1, "ab"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.source != nullptr ? row.source : "(null)");
    char cut[8] = {'?', '?', '?', '?', '?', '?', '?', '\0'};
    EXPECT_EQ(SCA_CopyText(cut, row.size, row.source, SCA_TextFit::Cut), row.whole);
    EXPECT_STREQ(cut, row.cut);
    EXPECT_EQ(cut[row.size], '?');
    char refused[8] = {'o', 'l', 'd', '\0', '?', '?', '?', '\0'};
    EXPECT_EQ(SCA_CopyText(refused, row.size, row.source, SCA_TextFit::Refuse), row.whole);
    EXPECT_STREQ(refused, row.whole != 0 ? row.cut : "old");
  }
  char field[4] = "";
  EXPECT_EQ(SCA_CopyText(field, "abcdef", SCA_TextFit::Cut), 0);
  EXPECT_STREQ(field, "abc");
}

std::vector<std::string> Tokens(const char* text, unsigned long size) {
  std::vector<std::string> tokens;
  std::vector<char> token(size);
  unsigned long position = 0;
  while (SCA_GetToken1(text, &position, token.data(), size) != 0) tokens.emplace_back(token.data());
  return tokens;
}

TEST(GetToken, SplitsAtRunsOfBlanksAndTabs) {
  using Texts = std::vector<std::string>;
  EXPECT_EQ(Tokens(nullptr, 16), Texts());
  EXPECT_EQ(Tokens("", 16), Texts());
  EXPECT_EQ(Tokens(" \t \t", 16), Texts());
  EXPECT_EQ(Tokens("one", 16), Texts({"one"}));
  EXPECT_EQ(Tokens("\t one \t\ttwo\nthree ", 16), Texts({"one", "two\nthree"}));
  EXPECT_EQ(Tokens("abcdef gh ijkl", 4), Texts({"abc", "gh", "ijk"})) << "cut, none doubled";
}

TEST(GetToken, LeavesTheTokenAloneWhenThereIsNone) {
  char token[8] = "old";
  unsigned long position = 1;
  EXPECT_EQ(SCA_GetToken1("a   ", &position, token, sizeof token), 0);
  EXPECT_STREQ(token, "old");
  position = 2;
  EXPECT_EQ(SCA_GetToken1("a bcd e", &position, token, sizeof token), 1);
  EXPECT_STREQ(token, "bcd");
  EXPECT_EQ(position, 5U);
}

TEST(StrCompareNoCase, IgnoresTheCaseOfAsciiLettersOnly) {
  struct Row {
    const char* left;
    const char* right;
    int equal;
  };
  const Row rows[] = {{"PDF", "pdf", 1},
                      {"aZ09", "Az09", 1},
                      {"", "", 1},
                      {"a", "", 0},
                      {"PDF", "PDFX", 0},
                      {"@", "`", 0},
                      {"[", "{", 0},
                      {"\xC3\x84", "\xC3\xA4", 0},
                      {"\xC3\x84", "\xC3\x84", 1},
                      {nullptr, nullptr, 1},
                      {nullptr, "", 0}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.left != nullptr ? row.left : "(null)");
    EXPECT_EQ(SCA_StrCompareNoCase(row.left, row.right), row.equal);
    EXPECT_EQ(SCA_StrCompareNoCase(row.right, row.left), row.equal);
  }
}

}  // namespace
