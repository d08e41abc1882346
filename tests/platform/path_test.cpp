#include "platform/SCA_Path.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <tuple>

#include "tests/support/Environment.h"
#include "tests/support/TempDir.h"

namespace {

TEST(Path, FormattedPathsAreNativeAndNeverCut) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"/opt/tika", "tikasvc.trv", "/opt/tika/tikasvc.trv"},
      {"", "config", "/config"},
      {"/opt//tika\\", "a\\b", "/opt/tika/a/b"},
      {"C:\\tika", "x", "C:/tika/x"}};
  for (const auto& [directory, name, path] : rows) {
    char buffer[64];
    EXPECT_EQ(SCA_FormatPath(buffer, sizeof buffer, "%s\\%s", directory, name), 1);
    EXPECT_STREQ(buffer, path);
  }
  char small[8] = "old";
  EXPECT_EQ(SCA_FormatPath(small, sizeof small, "%s\\%s", "/abc", "def"), 0);
  EXPECT_STREQ(small, "");
  EXPECT_EQ(SCA_FormatPath(small, sizeof small, "%s\\%s", "/abc", "de"), 1);
  EXPECT_STREQ(small, "/abc/de");
}

TEST(Path, DirectoryNamesAndAbsoluteness) {
  const std::tuple<const char*, const char*, int> rows[] = {
      {"/usr/bin/java", "/usr/bin", 1}, {"/java", "/", 1},           {"java", ".", 0},
      {"/usr//x", "/usr", 1},           {"\\bin\\java", "\\bin", 1}, {"", ".", 0}};
  for (const auto& [path, directory, isAbsolute] : rows) {
    char buffer[64];
    EXPECT_EQ(SCA_GetDirName(path, buffer, sizeof buffer), 1) << path;
    EXPECT_STREQ(buffer, directory) << path;
    EXPECT_EQ(SCA_IsAbsolutePath(path), isAbsolute) << path;
  }
}

TEST(Path, TheProgramKnowsWhereItLies) {
  char path[SCA_MaxPath];
  unsigned long error = 0;
  ASSERT_EQ(SCA_GetExeFileName(path, sizeof path, &error), 1);
  EXPECT_TRUE(std::filesystem::equivalent(path, "/proc/self/exe"));
  EXPECT_EQ(SCA_GetExeFileName(path, 4, &error), 0);
  EXPECT_EQ(error, static_cast<unsigned long>(ENAMETOOLONG));
}

TEST(Path, DirectoriesAreMadeWithTheirParentsForTheirOwnerAlone) {
  const TempDir dir;
  const std::string path = dir.File("a/b/c");
  unsigned long error = 0;
  for (int i = 0; i < 2; ++i) EXPECT_EQ(SCA_CreateDirectory(path.c_str(), &error), 1);
  EXPECT_EQ(SCA_DirectoryExists(path.c_str()), 1);
  struct stat status {};
  ASSERT_EQ(::stat(dir.File("a").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700U);
  const std::string below = dir.Write("file", "x") + "/d";
  EXPECT_EQ(SCA_CreateDirectory(below.c_str(), &error), 0);
  EXPECT_EQ(error, static_cast<unsigned long>(ENOTDIR));
}

TEST(Path, AnAccountKeepsItsSettingsInItsHome) {
  const ScopedVariable home("HOME", "/home/me");
  for (const auto& [configHome, expected] : {std::pair("/x/conf", "/x/conf"),
                                             {"relative", "/home/me/.config"},
                                             {"", "/home/me/.config"}}) {
    const ScopedVariable config("XDG_CONFIG_HOME", configHome);
    char directory[260];
    ASSERT_EQ(SCA_GetUserAppConfDir(directory, sizeof directory), 1);
    EXPECT_STREQ(directory, expected);
    EXPECT_EQ(SCA_GetUserAppConfDir(directory, 5), 0);
  }
}

}  // namespace
