#include "programs/tikaextract/PathPattern.h"

#include <gtest/gtest.h>

#include "tests/support/Timing.h"

namespace {

TEST(PathPattern, LinesMatchAsInGitignore) {
  struct Row {
    const char* line;
    std::vector<const char*> matching;  // a folder's name ends in a slash
    std::vector<const char*> other;
  };
  const Row rows[] = {
      {"*.pdf", {"a.pdf", ".pdf", "x/y/a.pdf", "a.pdf/"}, {"a.PDF", "a.pdf.txt", "pdf"}},
      {"drafts/", {"drafts/", "x/drafts/"}, {"drafts", "drafts2/", "x/drafts"}},
      {"/top", {"top", "top/"}, {"x/top", "top/x"}},
      {"a/*.doc", {"a/b.doc"}, {"x/a/b.doc", "a/x/b.doc", "b.doc", "a/b.docx"}},
      {"a/**/z", {"a/z", "a/b/z", "a/b/c/z"}, {"a", "b/a/z", "a/zz", "a/b/zz"}},
      {"**/x/y", {"x/y", "a/x/y", "a/b/x/y"}, {"y", "x", "x/a/y"}},
      {"a/**", {"a/b", "a/b/c"}, {"a", "b/a/c"}},
      {"**", {"a", "a/b"}, {}},
      {"?bersicht",
       {"\u00DCbersicht",
        "\xDC"
        "bersicht",
        "ubersicht"},
       {"bersicht", "u/bersicht"}},
      {"[a-c!]x", {"ax", "!x"}, {"dx", "x"}},
      {"[!a-c]x", {"dx", "\u00E4x"}, {"ax", "x"}},
      {"[]-]", {"]", "-"}, {"[]-]"}},
      {"[\u00E4-\u00F6]", {"\u00EB"}, {"\u00FC"}},
      {"[a", {"[a"}, {"a"}},
      {"a*b*c", {"abc", "aXbXbc", "abbc"}, {"ab", "abcd", "acb"}},
      {"a**c", {"abc", "ac"}, {"a/c"}},
      {"\\*\\[\\\\", {"*[\\"}, {"a[\\"}},
      {"\\#a ", {"#a"}, {"#a "}},
      {"\\!a\\ \r", {"!a "}, {"!a"}},
      {"a\\", {"a\\"}, {"a"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line);
    const auto pattern = PathPattern::FromLine(row.line);
    ASSERT_TRUE(pattern && !pattern->IsNegated());
    const auto matches = [&](std::string path) {
      const bool isFolder = path.back() == '/';
      if (isFolder) path.pop_back();
      return pattern->Matches(path, isFolder);
    };
    for (const char* path : row.matching) EXPECT_TRUE(matches(path)) << path;
    for (const char* path : row.other) EXPECT_FALSE(matches(path)) << path;
  }
  for (const char* line : {"", "   ", "# a", "/", "!", "//", "\r"}) {
    EXPECT_FALSE(PathPattern::FromLine(line)) << line;
  }
  EXPECT_TRUE(PathPattern::FromLine("!/a/")->IsNegated());
  EXPECT_TRUE(PathPattern::FromArgument("#a")->Matches("#a", false));
}

TEST(PathPattern, ManyStarsTakeNoLongTime) {
  std::string stars;
  std::string folders;
  std::string path;
  for (int i = 0; i < 100; ++i) {
    stars += "a*";
    folders += "**/a/";
    path += "a/";
  }
  const Stopwatch watch;
  EXPECT_FALSE(PathPattern::FromArgument(stars + "b")->Matches(std::string(4000, 'a'), false));
  EXPECT_FALSE(PathPattern::FromArgument(folders + "b")->Matches(path + path + "a", false));
  EXPECT_LT(watch.Ms(), 5000);
}

}  // namespace
