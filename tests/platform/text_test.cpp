#include "platform/SCA_Text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

namespace {

TEST(CopyText, CutsOrRefusesAtTheCapacityAndWritesNothingBehindIt) {
  const std::tuple<const char*, unsigned long, const char*> rows[] = {
      {"", 1, ""},       {nullptr, 4, ""},   {"ab", 4, "ab"},
      {"abc", 4, "abc"}, {"abcd", 4, "abc"}, {"a", 1, ""}};
  for (const auto& [source, size, kept] : rows) {
    const int whole = std::string(source != nullptr ? source : "") == kept ? 1 : 0;
    char cut[] = "???????";
    EXPECT_EQ(SCA_CopyText(cut, size, source, SCA_TextFit::Cut), whole) << size;
    EXPECT_STREQ(cut, kept);
    EXPECT_EQ(cut[size], '?');
    char refused[] = "old\0???";
    EXPECT_EQ(SCA_CopyText(refused, size, source, SCA_TextFit::Refuse), whole) << size;
    EXPECT_STREQ(refused, whole != 0 ? kept : "old");
  }
  std::string field(100000, 'x');  // long enough for a copy in blocks to show
  for (std::size_t i = 0; i < field.size(); ++i) field[i] = static_cast<char>('a' + i * 7 / 3 % 26);
  const std::string rest = field.substr(3);
  EXPECT_EQ(SCA_CopyText(field.data(), field.size() + 1, field.c_str() + 3, SCA_TextFit::Cut), 1);
  EXPECT_EQ(field.c_str(), rest) << "a part of the field itself";
}

std::string Tokens(const char* text, unsigned long size) {
  std::string tokens;
  std::vector<char> token(size);
  unsigned long position = 0;
  while (SCA_GetToken1(text, &position, token.data(), size) != 0) {
    tokens += "[" + std::string(token.data()) + "]";
  }
  return tokens;
}

TEST(GetToken, SplitsAtRunsOfBlanksAndTabs) {
  const std::tuple<const char*, unsigned long, const char*> rows[] = {
      {nullptr, 16, ""},
      {" \t \t", 16, ""},
      {"\t one \t\ttwo\nthree ", 16, "[one][two\nthree]"},
      {"abcdef gh ijkl", 4, "[abc][gh][ijk]"}};  // cut, and the rest passed over
  for (const auto& [text, size, tokens] : rows) EXPECT_EQ(Tokens(text, size), tokens);
}

TEST(StrCompareNoCase, IgnoresTheCaseOfAsciiLettersOnly) {
  const std::tuple<const char*, const char*, int> rows[] = {
      {"azPDF09", "AZpdf09", 1},   {"a", "", 0},          {"@", "`", 0},
      {"\xC3\x84", "\xC3\xA4", 0}, {nullptr, nullptr, 1}, {nullptr, "", 0}};
  for (const auto& [left, right, equal] : rows) {
    EXPECT_EQ(SCA_StrCompareNoCase(left, right), equal) << (left != nullptr ? left : "(null)");
    EXPECT_EQ(SCA_StrCompareNoCase(right, left), equal);
  }
}

TEST(Text, IsCutBetweenCharacters) {
  const std::tuple<const char*, unsigned long, unsigned long> rows[] = {
      {"abc", 2, 2},      {"abc", 3, 3},        {"a\u00e9", 2, 1},     {"a\u20acb", 3, 1},
      {"a\u20acb", 4, 4}, {"\U0001F600", 3, 3}, {"a\U0001F600", 4, 1}, {"\x80\x80\x80\x80", 3, 3},
      {"", 0, 0}};
  for (const auto& [text, length, cut] : rows) EXPECT_EQ(SCA_CutLength(text, length), cut) << text;
}

TEST(Text, ControlsBecomeBlanks) {
  std::string text("a\0b\x01\tc\n\x1f\x7f\u20ac\r", 13);
  SCA_BlankControls(text.data(), text.size());
  EXPECT_EQ(text, "a b \tc   \u20ac ");
}

TEST(Text, SizesAreWrittenAsPeopleReadThem) {
  const std::pair<unsigned long long, const char*> rows[] = {
      {0, "0 bytes"},         {1023, "1023 bytes"}, {1024, "1.0 KB"},       {1536, "1.5 KB"},
      {1048524, "1023.9 KB"}, {1048525, "1.0 MB"},  {1ULL << 40, "1.0 TB"}, {~0ULL, "16.0 EB"}};
  for (const auto& [bytes, text] : rows) {
    char buffer[32];
    EXPECT_EQ(SCA_FormatSize(bytes, buffer, sizeof buffer), 1);
    EXPECT_STREQ(buffer, text);
    EXPECT_EQ(SCA_FormatSize(bytes, buffer, std::strlen(text)), 0);
    EXPECT_STREQ(buffer, "");
  }
}

}  // namespace
