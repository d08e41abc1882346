#include "platform/SCA_File.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <string>

#include "platform/SCA_Error.h"
#include "tests/support/TempDir.h"

namespace {

constexpr SCA_FileCommit kCommits[] = {SCA_FileCommit::Durable, SCA_FileCommit::Fast};

constexpr unsigned long Code(int error) {
  return static_cast<unsigned long>(error);
}

// 0, or the code with which the file cannot be opened.
unsigned long OpenError(SCA_File& file, const std::string& path,
                        unsigned long flags = SCA_FileOpenRead) {
  unsigned long error = 0;
  return file.Open(path.c_str(), flags, &error) != 0 ? 0 : error;
}

unsigned long long SizeOf(SCA_File& file) {
  unsigned long long size = 0;
  unsigned long error = 0;
  EXPECT_EQ(file.GetSize(&size, &error), 1) << SCA_ErrorText(error);
  return size;
}

std::string ReadSome(SCA_File& file, unsigned long count) {
  std::string text(count, '?');
  unsigned long read = 4711;
  unsigned long error = 0;
  EXPECT_EQ(file.Read(text.data(), count, &read, &error), 1) << SCA_ErrorText(error);
  return text.substr(0, read);
}

std::set<std::string> NamesIn(const TempDir& dir) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir.Path())) {
    names.insert(entry.path().filename().string());
  }
  return names;
}

TEST(File, ReadsOnFromPieceToPiece) {
  const TempDir dir;
  std::string content;
  for (int i = 0; i < 300000; ++i) content += static_cast<char>(i * 31 / 7);
  SCA_File file;
  for (const unsigned long size : {1000UL, 65536UL, 300000UL, 300001UL}) {
    ASSERT_EQ(OpenError(file, dir.Write("file", content)), 0U) << "again from the start";
    EXPECT_EQ(SizeOf(file), content.size());
    std::string all;
    for (std::string piece; !(piece = ReadSome(file, size)).empty();) {
      all += piece;
      EXPECT_TRUE(piece.size() == size || all.size() == content.size()) << piece.size();
    }
    EXPECT_TRUE(all == content);
    EXPECT_EQ(ReadSome(file, 1), "");
  }
}

TEST(File, TellsWhyItCannotBeOpened) {
  const TempDir dir;
  ASSERT_EQ(::mkfifo(dir.File("fifo").c_str(), 0600), 0);
  SCA_File file;
  EXPECT_EQ(OpenError(file, dir.File("missing")), Code(ENOENT));
  EXPECT_EQ(OpenError(file, dir.Path()), Code(EISDIR));
  EXPECT_EQ(OpenError(file, dir.File("fifo")), SCA_ErrorNotRegularFile) << "and does not wait";
  EXPECT_EQ(OpenError(file, "/dev/zero"), SCA_ErrorNotRegularFile);
  EXPECT_EQ(OpenError(file, dir.Write("file", "text"), 0), Code(EINVAL));
}

TEST(File, ThatGrowsPastFourGigabytesOrShrinksIsReadAsItIs) {
  const TempDir dir;
  const std::string path = dir.Write("file", "0123456789");
  constexpr long long kLarge = (5LL << 30) + 1;
  SCA_File file;
  ASSERT_EQ(OpenError(file, path), 0U);
  EXPECT_EQ(ReadSome(file, 2), "01");
  ASSERT_EQ(::truncate(path.c_str(), kLarge), 0);
  EXPECT_EQ(SizeOf(file), static_cast<unsigned long long>(kLarge));
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
    EXPECT_EQ(NamesIn(dir), std::set<std::string>{"target"});
    EXPECT_EQ(file.Commit(commit, &error), 0) << "there is nothing left to commit";
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
  EXPECT_EQ(NamesIn(dir), std::set<std::string>{"target"});
  EXPECT_EQ(ReadFile(path), "old");
}

TEST(ReplacementFile, HasThePermissionsAskedFor) {
  const TempDir dir;
  const mode_t former = ::umask(027);
  for (const auto& [access, mode] :
       {std::pair(SCA_FileAccess::Private, 0600U), {SCA_FileAccess::Default, 0640U}}) {
    EXPECT_EQ(Replace(dir.File("target"), "text", SCA_FileCommit::Fast, access), 0U);
    struct stat status {};
    ASSERT_EQ(::stat(dir.File("target").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, mode);
  }
  ::umask(former);
}

TEST(ReplacementFile, FailuresLeaveNoFileAside) {
  const TempDir dir;
  const std::string longest(255, 'n');
  std::filesystem::create_directory(dir.File("directory"));
  for (const SCA_FileCommit commit : kCommits) {
    EXPECT_EQ(Replace(dir.File("missing/target"), "text", commit), Code(ENOENT));
    EXPECT_EQ(Replace(dir.File("directory"), "text", commit), Code(EISDIR));
    EXPECT_EQ(Replace(dir.File(longest + "n"), "text", commit), Code(ENAMETOOLONG));
    EXPECT_EQ(Replace(dir.File(longest), "text", commit), 0U);
    EXPECT_EQ(NamesIn(dir), (std::set<std::string>{"directory", longest}));
  }
}

TEST(ReplacementFile, WhatAKilledProcessLeftIsNotInTheWay) {
  const TempDir dir;
  unsigned long error = 0;
  SCA_ReplacementFile first;
  ASSERT_EQ(first.Open(dir.File("target").c_str(), SCA_FileAccess::Private, &error), 1);
  // A process id comes round again: take the names that this process would use next.
  const std::string aside = *NamesIn(dir).begin();
  const std::size_t end = aside.find_last_of("0123456789") + 1;
  const std::size_t begin = aside.find_last_not_of("0123456789", end - 1) + 1;
  const unsigned long number = std::stoul(aside.substr(begin, end - begin));
  for (unsigned long i = 1; i <= 5; ++i) {
    dir.Write(aside.substr(0, begin) + std::to_string(number + i) + aside.substr(end), "left");
  }
  EXPECT_EQ(Replace(dir.File("target"), "text"), 0U);
  EXPECT_EQ(ReadFile(dir.File("target")), "text");
}

TEST(File, LinesAreAddedAtTheEndWhoeverWrites) {
  const TempDir dir;
  const std::string path = dir.File("log");
  SCA_File first;
  SCA_File second;
  ASSERT_EQ(OpenError(first, path, SCA_FileAppend), 0U);
  ASSERT_EQ(OpenError(second, path, SCA_FileAppend), 0U);
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  unsigned long error = 0;
  for (SCA_File* file : {&first, &second, &first}) {
    EXPECT_EQ(file->SetPosition(0, &error), 1);
    EXPECT_EQ(file->WriteString(file == &first ? "one" : "", &error), 1);
  }
  EXPECT_EQ(ReadFile(path), "one\n\none\n");
  EXPECT_EQ(SizeOf(second), 9U);
  ASSERT_EQ(OpenError(first, path), 0U);
  EXPECT_EQ(first.SetPosition(5, &error), 1);
  EXPECT_EQ(ReadSome(first, 100), "one\n");
  EXPECT_EQ(first.WriteString("x", &error), 0) << "opened for reading";
}

}  // namespace
