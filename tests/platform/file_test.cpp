#include "platform/SCA_File.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/SCA_Error.h"
#include "tests/support/TempDir.h"

namespace {

constexpr SCA_FileCommit kCommits[] = {SCA_FileCommit::Durable, SCA_FileCommit::Fast};

// 0, or the code with which the file cannot be opened.
unsigned long OpenError(SCA_File& file, const std::string& path) {
  unsigned long error = 0;
  return file.Open(path.c_str(), SCA_FileOpenRead, &error) != 0 ? 0 : error;
}

std::string ReadSome(SCA_File& file, unsigned long count) {
  std::string text(count, '?');
  unsigned long read = 4711;
  unsigned long error = 0;
  EXPECT_EQ(file.Read(text.data(), count, &read, &error), 1) << SCA_ErrorText(error);
  return text.substr(0, read);
}

std::vector<std::string> NamesIn(const TempDir& dir) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir.Path())) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

TEST(File, ReadsOnFromPieceToPiece) {
  const TempDir dir;
  std::string content;
  for (int i = 0; i < 300000; ++i) content += static_cast<char>(i * 31 / 7);
  const std::string path = dir.Write("file", content);
  SCA_File file;
  EXPECT_EQ(file.IsValid(), 1);
  for (const unsigned long size : {1000UL, 65536UL, 300000UL, 300001UL}) {
    ASSERT_EQ(OpenError(file, path), 0U) << "opens again from the start";
    unsigned long long length = 0;
    unsigned long error = 0;
    EXPECT_EQ(file.GetSize(&length, &error), 1);
    EXPECT_EQ(length, content.size());
    std::string all;
    for (std::string piece; !(piece = ReadSome(file, size)).empty();) {
      all += piece;
      EXPECT_TRUE(piece.size() == size || all.size() == content.size()) << piece.size();
    }
    EXPECT_EQ(all, content);
    EXPECT_EQ(ReadSome(file, 1), "");
  }
}

TEST(File, TellsWhyItCannotBeOpened) {
  const TempDir dir;
  const std::string regular = dir.Write("file", "text");
  ASSERT_EQ(::mkfifo(dir.File("fifo").c_str(), 0600), 0);
  std::filesystem::create_symlink("nothing", dir.File("dangling"));
  const std::pair<std::string, unsigned long> rows[] = {
      {dir.File("missing"), ENOENT},
      {dir.File("dangling"), ENOENT},
      {"", ENOENT},
      {regular + "/below", ENOTDIR},
      {dir.Path(), EISDIR},
      {dir.File("fifo"), SCA_ErrorNotRegularFile},
      {"/dev/zero", SCA_ErrorNotRegularFile},
      {dir.File(std::string(256, 'n')), ENAMETOOLONG}};
  SCA_File file;
  for (const auto& [path, code] : rows) EXPECT_EQ(OpenError(file, path), code) << path;
  unsigned long error = 0;
  EXPECT_EQ(file.Open(regular.c_str(), 0, &error), 0);
  EXPECT_EQ(error, static_cast<unsigned long>(EINVAL));
  EXPECT_EQ(file.Open(nullptr, SCA_FileOpenRead, &error), 0);
}

TEST(File, AFailedOpenOrACloseLeavesNothingToRead) {
  const TempDir dir;
  const std::string path = dir.Write("file", "text");
  SCA_File file;
  for (const bool byClose : {false, true}) {
    ASSERT_EQ(OpenError(file, path), 0U);
    if (byClose) {
      file.Close();
    } else {
      EXPECT_NE(OpenError(file, dir.File("missing")), 0U);
    }
    char buffer[8];
    unsigned long long size = 0;
    unsigned long read = 0;
    unsigned long error = 0;
    EXPECT_EQ(file.Read(buffer, sizeof buffer, &read, &error), 0);
    EXPECT_EQ(error, static_cast<unsigned long>(EBADF));
    EXPECT_EQ(file.GetSize(&size, &error), 0);
  }
}

TEST(File, SizesAboveFourGigabytesAreExact) {
  const TempDir dir;
  const std::string path = dir.Write("sparse", "begin");
  constexpr long long kSize = (5LL << 30) + 1;
  ASSERT_EQ(::truncate(path.c_str(), kSize), 0);
  SCA_File file;
  ASSERT_EQ(OpenError(file, path), 0U);
  unsigned long long size = 0;
  unsigned long error = 0;
  EXPECT_EQ(file.GetSize(&size, &error), 1);
  EXPECT_EQ(size, static_cast<unsigned long long>(kSize));
  EXPECT_EQ(ReadSome(file, 5), "begin");
}

TEST(File, OneThatShrinksEndsEarly) {
  const TempDir dir;
  const std::string path = dir.Write("file", "0123456789");
  SCA_File file;
  ASSERT_EQ(OpenError(file, path), 0U);
  EXPECT_EQ(ReadSome(file, 2), "01");
  ASSERT_EQ(::truncate(path.c_str(), 5), 0);
  EXPECT_EQ(ReadSome(file, 8), "234");
  EXPECT_EQ(ReadSome(file, 8), "");
}

// Replaces a file's content; gives 0 or the first error.
unsigned long Replace(const std::string& path, const std::string& content,
                      SCA_FileCommit commit = SCA_FileCommit::Fast,
                      SCA_FileAccess access = SCA_FileAccess::Private) {
  SCA_ReplacementFile file;
  unsigned long error = 0;
  const bool done = file.Open(path.c_str(), access, &error) != 0 &&
                    file.Write(content.data(), content.size(), &error) != 0 &&
                    file.Commit(commit, &error) != 0;
  return done ? 0 : error;
}

TEST(ReplacementFile, CommitReplacesAndReadersOfTheOldFileKeepIt) {
  for (const SCA_FileCommit commit : kCommits) {
    const TempDir dir;
    const std::string path = dir.File("target");
    EXPECT_EQ(Replace(path, "old content", commit), 0U) << "creates the target";
    SCA_File reader;
    ASSERT_EQ(OpenError(reader, path), 0U);
    unsigned long error = 0;
    SCA_ReplacementFile file;
    ASSERT_EQ(file.Open(path.c_str(), SCA_FileAccess::Private, &error), 1);
    for (const std::string& piece : {std::string("new"), std::string(), std::string(100000, 'x')}) {
      EXPECT_EQ(file.Write(piece.data(), piece.size(), &error), 1);
      EXPECT_EQ(ReadFile(path), "old content");
    }
    EXPECT_EQ(file.Commit(commit, &error), 1);
    EXPECT_EQ(ReadFile(path), "new" + std::string(100000, 'x'));
    EXPECT_EQ(ReadSome(reader, 100), "old content");
    EXPECT_EQ(NamesIn(dir), std::vector<std::string>{"target"});
    EXPECT_EQ(file.Commit(commit, &error), 0) << "there is nothing left to commit";
    EXPECT_EQ(file.Write("x", 1, &error), 0);
  }
}

TEST(ReplacementFile, WithoutACommitNothingChanges) {
  const TempDir dir;
  const std::string path = dir.Write("target", "old");
  {
    SCA_ReplacementFile file;
    unsigned long error = 0;
    for (int i = 0; i < 2; ++i) {  // opening again drops the first
      ASSERT_EQ(file.Open(path.c_str(), SCA_FileAccess::Private, &error), 1);
      EXPECT_EQ(file.Write("new", 3, &error), 1);
      EXPECT_EQ(NamesIn(dir).size(), 2U);
    }
  }
  EXPECT_EQ(NamesIn(dir), std::vector<std::string>{"target"});
  EXPECT_EQ(ReadFile(path), "old");
}

TEST(ReplacementFile, HasThePermissionsAskedFor) {
  struct Row {
    SCA_FileAccess access;
    mode_t mask;
    mode_t mode;
  };
  const TempDir dir;
  for (const Row& row :
       {Row{SCA_FileAccess::Private, 0, 0600}, Row{SCA_FileAccess::Default, 0, 0666},
        Row{SCA_FileAccess::Private, 027, 0600}, Row{SCA_FileAccess::Default, 027, 0640}}) {
    const mode_t former = ::umask(row.mask);
    EXPECT_EQ(Replace(dir.File("target"), "text", SCA_FileCommit::Fast, row.access), 0U);
    ::umask(former);
    struct stat status {};
    ASSERT_EQ(::stat(dir.File("target").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, row.mode);
  }
}

TEST(ReplacementFile, FailuresLeaveNoFileAside) {
  const TempDir dir;
  std::filesystem::create_directory(dir.File("directory"));
  const std::pair<std::string, unsigned long> rows[] = {
      {dir.File("missing/target"), ENOENT},
      {dir.File("directory"), EISDIR},
      {dir.File(std::string(256, 'n')), ENAMETOOLONG}};
  for (const SCA_FileCommit commit : kCommits) {
    for (const auto& [path, code] : rows) EXPECT_EQ(Replace(path, "text", commit), code) << path;
  }
  EXPECT_EQ(NamesIn(dir), std::vector<std::string>{"directory"});
  EXPECT_EQ(Replace(dir.File(std::string(255, 'n')), "text"), 0U) << "the longest name there is";
  EXPECT_EQ(ReadFile(dir.File(std::string(255, 'n'))), "text");
}

TEST(ReplacementFile, IsRelativeToTheWorkingDirectory) {
  const TempDir dir;
  const auto former = std::filesystem::current_path();
  std::filesystem::current_path(dir.Path());
  EXPECT_EQ(Replace("target", "text", SCA_FileCommit::Durable), 0U);
  std::filesystem::current_path(former);
  EXPECT_EQ(ReadFile(dir.File("target")), "text");
}

TEST(ReplacementFile, WhatAKilledProcessLeftIsNotInTheWay) {
  const TempDir dir;
  unsigned long error = 0;
  SCA_ReplacementFile first;
  ASSERT_EQ(first.Open(dir.File("target").c_str(), SCA_FileAccess::Private, &error), 1);
  // A process id comes round again: take the names that this process would use next.
  const std::string aside = NamesIn(dir).at(0);
  const std::size_t end = aside.find_last_of("0123456789") + 1;
  const std::size_t begin = aside.find_last_not_of("0123456789", end - 1) + 1;
  const unsigned long number = std::stoul(aside.substr(begin, end - begin));
  for (unsigned long i = 1; i <= 5; ++i) {
    dir.Write(aside.substr(0, begin) + std::to_string(number + i) + aside.substr(end), "left");
  }
  EXPECT_EQ(Replace(dir.File("target"), "text"), 0U);
  EXPECT_EQ(ReadFile(dir.File("target")), "text");
  for (const std::string& name : NamesIn(dir)) {
    EXPECT_TRUE(name == "target" || name == aside || ReadFile(dir.File(name)) == "left") << name;
  }
}

TEST(ReplacementFile, AWriteThatFailsIsReported) {
  const TempDir dir;
  const std::string path = dir.Write("target", "old");
  rlimit former{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &former), 0);
  const auto formerAction = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{10000, former.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  const unsigned long code = Replace(path, std::string(10001, 'x'));
  const unsigned long fits = Replace(dir.File("fits"), std::string(10000, 'x'));
  ::setrlimit(RLIMIT_FSIZE, &former);
  std::signal(SIGXFSZ, formerAction);
  EXPECT_EQ(code, static_cast<unsigned long>(EFBIG));
  EXPECT_EQ(fits, 0U);
  EXPECT_EQ(ReadFile(path), "old");
  EXPECT_EQ(NamesIn(dir).size(), 2U);
}

}  // namespace
