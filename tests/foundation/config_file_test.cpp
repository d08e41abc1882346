#include "foundation/SCA_ConfigFile.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>

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

unsigned long LoadError(const std::string& file, SCA_ConfigFileInfo* info = nullptr) {
  SCA_ConfigObj object("former", nullptr);
  object.AddField("former", 1, 0);
  unsigned long error = 0;
  const int result = SCA_LoadConfigFile(file.c_str(), &object, info, &error);
  EXPECT_EQ(result, error == 0 ? 1 : 0);
  EXPECT_EQ(object.GetFieldCount() == 0, error != 0) << "a failure leaves the object empty";
  return error;
}

// Runs a piece of work in a child process, which gives the code that the work gives.
unsigned long InChild(const std::function<unsigned long()>& work) {
  const pid_t pid = ::fork();
  if (pid == 0) ::_exit(static_cast<int>(work()));
  int status = 0;
  EXPECT_EQ(::waitpid(pid, &status, 0), pid);
  return WIFEXITED(status) ? static_cast<unsigned long>(WEXITSTATUS(status)) : 999;
}

TEST(ConfigFile, RandomTreesSurvive) {
  const TempDir dir;
  std::mt19937 random(99);
  for (int round = 0; round < 40; ++round) {
    SCA_ConfigObj root("root", nullptr);
    for (int i = 0; i < 30; ++i) Grow(&root, &random, 5);  // beyond the size of a block
    unsigned long error = 0;
    ASSERT_EQ(Save(root, dir.File("file"), &error), 1) << error;
    SCA_ConfigObj read("another name", nullptr);
    SCA_ConfigFileInfo info;
    ASSERT_EQ(SCA_LoadConfigFile(dir.File("file").c_str(), &read, &info, &error), 1) << error;
    ASSERT_EQ(Describe(read), Describe(root));
    ASSERT_EQ(info.fileType, kType);
    ASSERT_EQ(info.formatVersion, kVersion);
    ASSERT_EQ(info.fileSize, std::filesystem::file_size(dir.File("file")));
  }
}

TEST(ConfigFile, NoCutAndNoChangedByteIsAccepted) {
  const TempDir dir;
  SCA_ConfigObj root("root", nullptr);
  Fill(&root, 42);
  unsigned long error = 0;
  ASSERT_EQ(Save(root, dir.File("file"), &error), 1);
  const std::string whole = ReadFile(dir.File("file"));
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
  EXPECT_EQ(LoadError(dir.Write("longer", whole + "x"), &info), SCA_ErrorFileDamaged);
  EXPECT_EQ(info.fault.offset, whole.size());
}

TEST(ConfigFile, EachFailureHasItsCode) {
  const TempDir dir;
  SCA_ConfigObj root("root", nullptr);
  unsigned long error = 0;
  EXPECT_EQ(LoadError(dir.File("missing")), static_cast<unsigned long>(ENOENT));
  EXPECT_EQ(LoadError(dir.Path()), static_cast<unsigned long>(EISDIR));
  EXPECT_EQ(LoadError(dir.Write("foreign", "{\"port\": 9500}")), SCA_ErrorFileForeign);
  EXPECT_EQ(LoadError(dir.Write("later", "SCA-CONFIG 2 anything")), SCA_ErrorFileNewer);
  // A checksum made by another implementation.
  EXPECT_EQ(LoadError(dir.Write("newer",
                                "SCA-CONFIG 1 9001 10 6 e56627d1\n2\x01r\x01"
                                "0\x01")),
            SCA_ErrorFileNewer);
  EXPECT_EQ(root.Load(nullptr, &error), 0);
  EXPECT_EQ(error, static_cast<unsigned long>(EINVAL));
  for (const auto& [type, version] :
       {std::pair(kType, SCA_ConfigFormatVersion + 1), {1UL << 32, 9UL}}) {
    error = 0;
    EXPECT_EQ(root.Save(dir.File("f").c_str(), type, version, &error), 0);
    EXPECT_EQ(error, static_cast<unsigned long>(EINVAL));
  }
  root.AddField("name", dir.File("missing").c_str(), 0);
  EXPECT_EQ(root.Load(root.GetFields().GetHead()->GetValue(), &error), 0);
  EXPECT_EQ(error, static_cast<unsigned long>(ENOENT)) << "the file's name may stand in the object";
  EXPECT_EQ(Save(root, dir.File("none/f"), &error), 0);
  EXPECT_EQ(error, static_cast<unsigned long>(ENOENT));
  SCA_ConfigObj* object = &root;
  for (unsigned long depth = 0; depth < SCA_MaxConfigDepth; ++depth) {
    object = object->AddConfigObj("o");
  }
  EXPECT_EQ(Save(root, dir.File("f"), &error), 0);
  EXPECT_EQ(error, SCA_ErrorDataTooLarge);
  EXPECT_FALSE(std::filesystem::exists(dir.File("f")));
}

TEST(ConfigFile, AClosedDirectoryIsNoPermission) {
  const TempDir dir;
  std::filesystem::create_directory(dir.File("closed"));
  const std::string file = dir.Write("closed/file", "content");
  std::filesystem::permissions(dir.File("closed"), std::filesystem::perms::none);
  EXPECT_EQ(InChild([&]() -> unsigned long {
              constexpr uid_t kNobody = 65534;
              if (::geteuid() == 0 && ::setresuid(kNobody, kNobody, kNobody) != 0) return 998;
              SCA_ConfigObj root("root", nullptr);
              unsigned long error = 0;
              if (Save(root, file, &error) != 0 || error != EACCES) return 1;
              return LoadError(file) == EACCES ? 0 : 2;
            }),
            0U);
  std::filesystem::permissions(dir.File("closed"), std::filesystem::perms::owner_all);
  EXPECT_EQ(ReadFile(file), "content");
}

// Makes files that this process writes end at a size, as on a full disk but with another code.
bool LimitFiles(rlim_t bytes) {
  ::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{bytes, bytes};
  return ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

// Makes every further system call of a kind fail in this process, but for short writes: sanitizers
// probe memory by writing a few bytes of it into a pipe.
bool FailCalls(unsigned number, unsigned code) {
  constexpr unsigned kProbe = 16;
  constexpr unsigned kCount = offsetof(seccomp_data, args) + 2 * sizeof(std::uint64_t);
  sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 4),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_write, 0, 2),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kCount),
      BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, kProbe, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | code),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  sock_fprog program{std::size(filter), filter};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST(ConfigFile, ADiskThatFailsLeavesTheOldFile) {
  const TempDir dir;
  const std::string file = dir.Write("file", "old");
  SCA_ConfigObj root("root", nullptr);
  const std::string value(20000, 'v');
  for (int i = 0; i < 20; ++i) root.AddField("n", value.c_str(), 0);
  const auto saveError = [&]() -> unsigned long {
    unsigned long error = 0;
    return Save(root, file, &error) == 0 ? error : 0;
  };
  EXPECT_EQ(InChild([&] { return FailCalls(SYS_write, ENOSPC) ? saveError() : 998; }),
            static_cast<unsigned long>(ENOSPC));
  // The disk says it late: only the synchronisation learns that the bytes are not there.
  EXPECT_EQ(InChild([&] { return FailCalls(SYS_fsync, EIO) ? saveError() : 998; }),
            static_cast<unsigned long>(EIO));
  EXPECT_EQ(ReadFile(file), "old");
  // Whichever block of the file it is that finds no room.
  for (const rlim_t room : {10, 1000, 100000, 390000}) {
    EXPECT_EQ(InChild([&] { return LimitFiles(room) ? saveError() : 998; }),
              static_cast<unsigned long>(EFBIG));
    EXPECT_EQ(ReadFile(file), "old");
  }
  const std::filesystem::directory_iterator begin(dir.Path());
  EXPECT_EQ(std::distance(begin, {}), 1) << "nothing is left beside it";
}

TEST(ConfigFile, FilesOfManyBlocksAreCheckedToTheirEnd) {
  const TempDir dir;
  SCA_ConfigObj root("root", nullptr);
  const std::string value(1000, 'v');
  for (int i = 0; i < 500; ++i) root.AddField("n", value.c_str(), 0);
  unsigned long error = 0;
  ASSERT_EQ(Save(root, dir.File("file"), &error), 1);
  const std::string whole = ReadFile(dir.File("file"));
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
      {"SCA-CONFIG 1 4294967296 9 6 ", body, SCA_ErrorFileDamaged, 13},
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
// @return False when it has ended before.
bool StepChild(pid_t pid, int steps) {
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid || !WIFSTOPPED(status)) return false;
  for (int step = 0; step < steps; ++step) {
    ::ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr);
    if (::waitpid(pid, &status, 0) != pid || !WIFSTOPPED(status)) return false;
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
  for (bool isAlive = true; isAlive; ++kills) {
    ASSERT_EQ(Save(oldRoot, dir.File("file"), &error), 1);
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
      ::raise(SIGSTOP);
      ::_exit(Save(newRoot, dir.File("file"), &error));
    }
    isAlive = StepChild(pid, kills);
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
}

TEST(ConfigFile, ReadersAndTwoWritersSeeWholeFiles) {
  const TempDir dir;
  const std::string file = dir.File("file");
  const auto write = [&](int number) {
    SCA_ConfigObj root("root", nullptr);
    for (int i = 0; i < 2000; ++i) root.AddField("Number", number, 0);
    unsigned long error = 0;
    for (int i = 0; i < 50; ++i) {
      if (Save(root, file, &error) == 0) ::_exit(1);
    }
    ::_exit(0);
  };
  SCA_ConfigObj first("root", nullptr);
  unsigned long error = 0;
  ASSERT_EQ(Save(first, file, &error), 1);
  pid_t writers[2];
  for (int i = 0; i < 2; ++i) {
    writers[i] = ::fork();
    if (writers[i] == 0) write(i);
  }
  for (const pid_t writer : writers) {
    int status = 0;
    while (::waitpid(writer, &status, WNOHANG) == 0) {
      SCA_ConfigObj read;
      EXPECT_EQ(read.Load(file.c_str(), &error), 1) << error;
    }
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.Path()), {}), 1);
}

TEST(ConfigFile, IsPrivateAndReplacesALink) {
  const TempDir dir;
  const std::string other = dir.Write("other", "not ours");
  std::filesystem::create_symlink(other, dir.File("file"));
  SCA_ConfigObj root("root", nullptr);
  unsigned long error = 0;
  ASSERT_EQ(Save(root, dir.File("file"), &error), 1);
  EXPECT_EQ(ReadFile(other), "not ours");
  struct stat status {};
  ASSERT_EQ(::lstat(dir.File("file").c_str(), &status), 0);
  EXPECT_TRUE(S_ISREG(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

}  // namespace
