#include "foundation/SCA_ConfigFile.h"

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "platform/SCA_Crc32.h"
#include "platform/SCA_Error.h"
#include "tests/foundation/config_tree.h"
#include "tests/support/TempDir.h"

namespace {

constexpr unsigned long kType = 9001;
constexpr unsigned long kVersion = 9;

void Fill(SCA_ConfigObj* root, int number) {
  root->AddField("Number", number, 0);
  SCA_ConfigObj* child = root->AddConfigObj("Child");
  child->AddField("Text", "some text", 0);
  child->AddField("Empty", "", 0);
}

int Save(const SCA_ConfigObj& object, const std::string& file, unsigned long* error) {
  return object.Save(file.c_str(), kType, kVersion, error);
}

// The bytes of a file that holds the object.
std::string Saved(const SCA_ConfigObj& object, const TempDir& dir) {
  unsigned long error = 0;
  EXPECT_EQ(Save(object, dir.File("file"), &error), 1) << error;
  return ReadFile(dir.File("file"));
}

unsigned long LoadError(const std::string& file, SCA_ConfigFileInfo* info = nullptr) {
  SCA_ConfigObj object("former", nullptr);
  object.AddField("former", 1, 0);
  unsigned long error = 0;
  const int result = SCA_LoadConfigFile(file.c_str(), &object, info, &error);
  EXPECT_EQ(result, error == 0 ? 1 : 0);
  EXPECT_EQ(object.GetFieldCount() == 0, error != 0) << "a failure leaves the object empty";
  return error;
}

TEST(ConfigFile, RandomTreesSurvive) {
  const TempDir dir;
  std::mt19937 random(99);
  for (int round = 0; round < 40; ++round) {
    SCA_ConfigObj root("root", nullptr);
    for (int i = 0; i < 30; ++i) Grow(&root, &random, 5);  // beyond the size of a block
    const std::string whole = Saved(root, dir);
    SCA_ConfigObj read("another name", nullptr);
    SCA_ConfigFileInfo info;
    unsigned long error = 0;
    ASSERT_EQ(SCA_LoadConfigFile(dir.File("file").c_str(), &read, &info, &error), 1) << error;
    ASSERT_EQ(Describe(read), Describe(root));
    ASSERT_EQ(info.fileType, kType);
    ASSERT_EQ(info.fileSize, whole.size());
  }
}

TEST(ConfigFile, NoCutAndNoChangedByteIsAccepted) {
  const TempDir dir;
  SCA_ConfigObj root("root", nullptr);
  Fill(&root, 42);
  const std::string whole = Saved(root, dir);
  EXPECT_EQ(whole.substr(0, 18), "SCA-CONFIG 1 9001 ");
  SCA_ConfigFileInfo info;
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const std::string file = dir.Write("cut", whole.substr(0, length));
    ASSERT_EQ(LoadError(file, &info), SCA_ErrorFileDamaged) << length;
    ASSERT_LE(info.fault.offset, length);
    ASSERT_STRNE(info.fault.text, "");
  }
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string changed = whole;
      changed[at] = static_cast<char>(changed[at] ^ (1 << bit));
      const unsigned long code = LoadError(dir.Write("changed", changed));
      ASSERT_TRUE(code == SCA_ErrorFileDamaged || (at < 11 && code == SCA_ErrorFileForeign) ||
                  ((at == 11 || at == 12) && code == SCA_ErrorFileNewer))
          << at << " " << bit << " " << code;
    }
  }
}

TEST(ConfigFile, EachFailureHasItsCode) {
  const TempDir dir;
  EXPECT_EQ(LoadError(dir.File("missing")), static_cast<unsigned long>(ENOENT));
  EXPECT_EQ(LoadError(dir.Path()), static_cast<unsigned long>(EISDIR));
  EXPECT_EQ(LoadError(dir.Write("foreign", "{\"port\": 9500}")), SCA_ErrorFileForeign);
  EXPECT_EQ(LoadError(dir.Write("later", "SCA-CONFIG 2 anything")), SCA_ErrorFileNewer);
  // A checksum made by another implementation.
  EXPECT_EQ(LoadError(dir.Write("newer",
                                "SCA-CONFIG 1 9001 10 6 e56627d1\n2\x01r\x01"
                                "0\x01")),
            SCA_ErrorFileNewer);
  SCA_ConfigObj root("root", nullptr);
  root.AddField("name", dir.File("missing").c_str(), 0);
  unsigned long error = 0;
  EXPECT_EQ(root.Load(root.GetFields().GetHead()->GetValue(), &error), 0);
  EXPECT_EQ(error, static_cast<unsigned long>(ENOENT)) << "the file's name may stand in the object";
  EXPECT_EQ(Save(root, dir.File("none/f"), &error), 0);
  EXPECT_EQ(error, static_cast<unsigned long>(ENOENT));
  for (const auto& [type, version] :
       {std::pair(kType, SCA_ConfigFormatVersion + 1), {1UL << 32, 9UL}}) {
    EXPECT_EQ(root.Save(dir.File("f").c_str(), type, version, &error), 0);
    EXPECT_EQ(error, static_cast<unsigned long>(EINVAL));
  }
}

TEST(ConfigFile, FilesOfManyBlocksAreCheckedToTheirEnd) {
  const TempDir dir;
  SCA_ConfigObj root("root", nullptr);
  const std::string value(1000, 'v');
  for (int i = 0; i < 500; ++i) root.AddField("n", value.c_str(), 0);
  const std::string whole = Saved(root, dir);
  const std::size_t record = whole.find("1\x01n", 300000);
  SCA_ConfigFileInfo info;
  for (const std::size_t at : {record, record + 100}) {
    std::string changed = whole;
    changed[at] = at == record ? '?' : '\0';
    EXPECT_EQ(LoadError(dir.Write("changed", changed), &info), SCA_ErrorFileDamaged);
    EXPECT_EQ(info.fault.offset, at) << info.fault.text;
    EXPECT_EQ(info.fileSize, whole.size());
  }
  // No more of an endless file is read than shows that it is one.
  const std::string sparse = dir.Write("sparse", whole);
  std::filesystem::resize_file(sparse, 1ULL << 40);
  EXPECT_EQ(LoadError(sparse, &info), SCA_ErrorFileDamaged);
  EXPECT_EQ(info.fault.offset, whole.size());
  EXPECT_LT(info.fileSize, 2 * whole.size());
}

// A file whose checksum is right, whatever its content.
std::string Sealed(const std::string& header, const std::string& body) {
  char checksum[16];
  std::uint32_t crc = SCA_Crc32(0, header.data(), header.size());
  crc = SCA_Crc32(crc, body.data(), body.size());
  std::snprintf(checksum, sizeof checksum, "%08x\n", crc);
  return header + checksum + body;
}

TEST(ConfigFile, SoundFilesAreRefusedForWhatTheySay) {
  const TempDir dir;
  const std::string body =
      "2\x01r\x01"
      "0\x01";
  std::string deep;
  for (unsigned long i = 0; i <= SCA_MaxConfigDepth; ++i) deep += "2\x01r\x01";
  for (unsigned long i = 0; i <= SCA_MaxConfigDepth; ++i) deep += "0\x01";
  const std::string deepHeader = "SCA-CONFIG 1 1 9 " + std::to_string(deep.size()) + " ";
  struct {
    std::string header, body;
    unsigned long code;
    unsigned long long offset;
  } const rows[] = {
      {"SCA-CONFIG 1 9001 10 6 ", body, SCA_ErrorFileNewer, 18},
      {"SCA-CONFIG 0 9001 9 6 ", body, SCA_ErrorFileDamaged, 11},
      {"SCA-CONFIG 1 1 4294967296 6 ", body, SCA_ErrorFileDamaged, 15},
      {"SCA-CONFIG 1 1 9 67108865 ", body, SCA_ErrorDataTooLarge, 15},
      {"SCA-CONFIG 1 1 9 5 ", body, SCA_ErrorFileDamaged, 33},
      {"SCA-CONFIG 1 1 9  6 ", body, SCA_ErrorFileDamaged, 17},
      {deepHeader, deep, SCA_ErrorDataTooLarge, deepHeader.size() + 9 + 4 * SCA_MaxConfigDepth},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.header);
    SCA_ConfigFileInfo info;
    const std::string sealed = Sealed(row.header, row.body);
    EXPECT_EQ(LoadError(dir.Write("sealed", sealed), &info), row.code) << info.fault.text;
    EXPECT_EQ(info.fault.offset, row.offset) << info.fault.text;
  }
  std::string damaged = Sealed(rows[0].header, body);
  damaged.back() = '?';
  EXPECT_EQ(LoadError(dir.Write("both", damaged)), SCA_ErrorFileDamaged)
      << "what is damaged may only look like a newer file";
}

// Lets a traced child go on to the entry or the exit of its next system call, `steps` times.
// @param calls  Receives the numbers of those that were entered.
// @return False when it has ended before.
bool StepChild(pid_t pid, int steps, std::vector<std::uint64_t>* calls) {
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid || !WIFSTOPPED(status)) return false;
  ::ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACESYSGOOD);  // or the calls are not told
  for (int step = 0; step < steps; ++step) {
    ::ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr);
    if (::waitpid(pid, &status, 0) != pid || !WIFSTOPPED(status)) return false;
    __ptrace_syscall_info info{};
    ::ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info);
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) calls->push_back(info.entry.nr);
  }
  return true;
}

TEST(ConfigFile, AKillAtAnyMomentLeavesTheOldOrTheNewFile) {
  const TempDir dir;
  SCA_ConfigObj oldRoot("root", nullptr);
  SCA_ConfigObj newRoot("root", nullptr);
  Fill(&oldRoot, 1);
  Fill(&newRoot, 2);
  unsigned long error = 0;
  int kills = 0;
  int olds = 0;
  std::vector<std::uint64_t> calls;
  for (bool isAlive = true; isAlive; ++kills) {
    ASSERT_EQ(Save(oldRoot, dir.File("file"), &error), 1);
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
      ::raise(SIGSTOP);
      ::_exit(Save(newRoot, dir.File("file"), &error));
    }
    calls.clear();
    isAlive = StepChild(pid, kills, &calls);
    if (isAlive) {
      ::kill(pid, SIGKILL);
      ::waitpid(pid, nullptr, 0);
    }
    SCA_ConfigObj read;
    ASSERT_EQ(read.Load(dir.File("file").c_str(), &error), 1) << kills << " " << error;
    const std::string text = Describe(read);
    ASSERT_TRUE(text == Describe(oldRoot) || text == Describe(newRoot)) << kills;
    ASSERT_TRUE(isAlive || text == Describe(newRoot));
    olds += text == Describe(oldRoot) ? 1 : 0;
  }
  EXPECT_GT(olds, 5) << "some kills come before the file is replaced ...";
  EXPECT_GT(kills, olds + 1) << "... and some after";
  EXPECT_EQ(std::count(calls.begin(), calls.end(), SYS_fsync), 2) << "the bytes, and the name";
}

TEST(ConfigFile, ReadersAndTwoWritersSeeWholeFiles) {
  const TempDir dir;
  SCA_ConfigObj root("root", nullptr);
  for (int i = 0; i < 2000; ++i) root.AddField("Number", i, 0);
  Saved(root, dir);
  unsigned long error = 0;
  pid_t writers[2];
  for (pid_t& writer : writers) {
    writer = ::fork();
    for (int i = 0; writer == 0; ++i) {
      if (i == 50 || Save(root, dir.File("file"), &error) == 0) ::_exit(50 - i);
    }
  }
  for (const pid_t writer : writers) {
    int status = 0;
    while (::waitpid(writer, &status, WNOHANG) == 0) {
      SCA_ConfigObj read;
      EXPECT_EQ(read.Load(dir.File("file").c_str(), &error), 1) << error;
    }
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.Path()), {}), 1);
}

TEST(ConfigFile, IsPrivateAndReplacesALink) {
  const TempDir dir;
  const std::string other = dir.Write("other", "not ours");
  std::filesystem::create_symlink(other, dir.File("file"));
  Saved(SCA_ConfigObj("root", nullptr), dir);
  EXPECT_EQ(ReadFile(other), "not ours");
  struct stat status {};
  ASSERT_EQ(::lstat(dir.File("file").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0600U);
}

}  // namespace
