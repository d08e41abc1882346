// The Unix socket beside a control port.
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <thread>

#include "platform/SCA_Error.h"
#include "tests/control/fake_host.h"
#include "tests/support/ReportCapture.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;

class LocalSocket : public ::testing::Test {
 protected:
  // A host with a login on TCP, whose key no client here has.
  LocalSocket() {
    SCA_SetControlKeyProvider(
        [](void*, const char* host, unsigned short, SCA_ControlKey* key, unsigned long* error) {
          key->length = SCA_ControlKeySize;
          *error = ENOENT;
          return *host == '\0' ? 1 : 0;
        },
        nullptr);
    host_ = std::make_unique<FakeHost<>>(1);
  }
  ~LocalSocket() override { SCA_SetControlKeyProvider(nullptr, nullptr); }

  unsigned long OpenError(const std::string& path, const char* group = nullptr) {
    unsigned long error = 0;
    return host_->server->OpenLocal(path.c_str(), group, &error) != 0 ? 0 : error;
  }
  static unsigned long ConnectError(const std::string& path) { return TestClient(0, path).Ask(); }
  // As another account, which Linux lets a single thread become.
  static unsigned long ConnectErrorAs(uid_t user, std::optional<gid_t> member,
                                      const std::string& path) {
    unsigned long error = 0;
    std::thread([&] {
      const gid_t groups[] = {member.value_or(0)};
      ::syscall(SYS_setgroups, member ? 1 : 0, groups);
      ::syscall(SYS_setresgid, user, user, user);
      ::syscall(SYS_setresuid, user, user, user);
      error = ConnectError(path);
    }).join();
    return error;
  }
  static struct stat StatusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status;
  }

  ReportCapture reports_;
  const TempDir dir_;
  const std::string path_ = dir_.File("control.socket");
  std::unique_ptr<FakeHost<>> host_;
};

TEST_F(LocalSocket, NeedsNoKeyAndGoesWithItsServer) {
  ASSERT_EQ(OpenError(path_), 0U);
  EXPECT_EQ(StatusOf(path_).st_mode, mode_t{S_IFSOCK | 0600});
  EXPECT_EQ(ConnectError(path_), 0U);
  EXPECT_EQ(host_->factory.authenticated, 1);
  EXPECT_EQ(TestClient(host_->Port()).connectError, SCA_ErrorNoKey);
  EXPECT_EQ(OpenError(dir_.File("second")), static_cast<unsigned long>(EALREADY));
  host_->server.reset();
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_EQ(ConnectError(path_), static_cast<unsigned long>(ENOENT));
}

TEST_F(LocalSocket, TakesAStaleSocketsPlaceAndNothingElses) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path_.copy(address.sun_path, sizeof address.sun_path - 1);
  const int former = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(::bind(former, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::listen(former, 1), 0);
  EXPECT_EQ(OpenError(path_), static_cast<unsigned long>(EADDRINUSE)) << "somebody listens";
  ::close(former);
  const std::string file = dir_.Write("file", "somebody's");
  const std::string link = dir_.File("link");
  fs::create_symlink(path_, link);
  for (const std::string& taken : {file, link, dir_.Path()}) {
    EXPECT_EQ(OpenError(taken), SCA_ErrorSocketTaken) << taken;
  }
  EXPECT_EQ(ReadFile(file), "somebody's");
  if (::geteuid() == 0) {
    ASSERT_EQ(::lchown(path_.c_str(), 65534, 65534), 0);
    EXPECT_EQ(OpenError(path_), SCA_ErrorSocketTaken);
    ASSERT_EQ(::lchown(path_.c_str(), 0, 0), 0);
  }
  EXPECT_EQ(OpenError(path_), 0U);
  EXPECT_EQ(ConnectError(path_), 0U);
  // What another has put there meanwhile stays when this one ends.
  ::unlink(path_.c_str());
  dir_.Write("control.socket", "");
  host_->server.reset();
  EXPECT_TRUE(fs::exists(path_));
}

TEST_F(LocalSocket, PathsAreAsLongAsPathsMayBe) {
  for (const std::string& path : {std::string("control.socket"), dir_.File(std::string(120, 'n')),
                                  "/" + std::string(5000, 'n')}) {
    EXPECT_EQ(OpenError(path), SCA_ErrorSocketPath);
  }
  EXPECT_EQ(OpenError(dir_.File("no/control.socket")), static_cast<unsigned long>(ENOENT));
  const std::string deep = dir_.File(std::string(200, 'd') + "/" + std::string(200, 'e'));
  fs::create_directories(deep);
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(OpenError(deep + "/control.socket"), 0U);
    EXPECT_EQ(ConnectError(deep + "/control.socket"), 0U);
    host_->Open();
  }
  EXPECT_TRUE(fs::is_empty(deep));
}

TEST_F(LocalSocket, ServesItsAccountRootAndTheGroup) {
  EXPECT_EQ(OpenError(path_, "no such group"), SCA_ErrorNoGroup);
  const gid_t group = ::geteuid() == 0 ? 54321 : ::getegid();
  ASSERT_EQ(OpenError(path_, std::to_string(group).c_str()), 0U);
  EXPECT_EQ(StatusOf(path_).st_mode, mode_t{S_IFSOCK | 0660});
  EXPECT_EQ(StatusOf(path_).st_gid, group);
  EXPECT_EQ(ConnectError(path_), 0U);
  if (::geteuid() != 0) GTEST_SKIP() << "root alone can become other accounts";
  fs::permissions(dir_.Path(), fs::perms::others_exec, fs::perm_options::add);
  EXPECT_EQ(ConnectErrorAs(54322, group, path_), 0U);
  EXPECT_EQ(ConnectErrorAs(54322, std::nullopt, path_), static_cast<unsigned long>(EACCES));
  // Were the file open to all, the account would still count.
  ASSERT_EQ(::chmod(path_.c_str(), 0666), 0);
  EXPECT_EQ(ConnectErrorAs(54322, std::nullopt, path_), SCA_ErrorPeerAccount);
  EXPECT_EQ(ConnectErrorAs(54322, 54323, path_), SCA_ErrorPeerAccount);
  EXPECT_EQ(host_->factory.connects, 2);
  ASSERT_FALSE(reports_.All().empty());
  EXPECT_NE(reports_.All()[0].text.find("from account 54322, process "), std::string::npos);
}

}  // namespace
