// A watched server with real Tika of both lines: heard, measured, limited, killed and back again.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

#include "host/SCA_TikaServer.h"
#include "platform/SCA_Error.h"
#include "supervision/SCA_TikaProbe.h"
#include "supervision/SCA_TikaWatch.h"
#include "tests/e2e/jars.h"
#include "tests/support/FreePort.h"
#include "tests/support/Program.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

// The living processes of a group.
std::vector<pid_t> Group(pid_t group) {
  std::vector<pid_t> members;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const pid_t pid = std::atoi(entry.path().filename().c_str());
    const bool isMember = pid != 0 && ::getpgid(pid) == group;
    std::ifstream file(entry.path() / "stat");
    std::string stat;
    if (isMember && std::getline(file, stat) && stat.find(") Z ") == std::string::npos) {
      members.push_back(pid);
    }
  }
  return members;
}

// The JVM that the leader of a group has forked, or 0.
pid_t ForkOf(pid_t leader) {
  for (const pid_t member : Group(leader)) {
    if (member != leader) return member;
  }
  return 0;
}

// Names go either way; a literal has its own form in URLs and headers. Not every machine has IPv6.
const char* Address() {
  const int fd = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_addr = in6addr_loopback;
  const int bound = ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  ::close(fd);
  return bound == 0 ? "::1" : "127.0.0.1";
}

constexpr unsigned long kReadyMs = 60000;

struct Line {
  const char* jar;
  long processes;
};

class WatchedTika : public ::testing::TestWithParam<Line> {
 protected:
  void SetUp() override {
    const std::string jar = CachedJar(GetParam().jar);
    ASSERT_TRUE(std::filesystem::is_regular_file(jar))
        << "there is no " << jar << ": run scripts/setup, which fetches it";
    port_ = FreePort();
    unsigned long error = 0;
    ASSERT_EQ(server_.SetBindAddress(Address()), 1);
    // Each JVM says what limit it has been given.
    ASSERT_EQ(server_.SetConfig(jar.c_str(), port_, 300, "-Xlog:gc+init:stderr", &error), 1);
    ASSERT_EQ(server_.StartProcess(&error), 1) << SCA_ErrorText(error);
  }

  bool Answers() {
    const SCA_TikaProbe probe(Address(), port_, 1000);
    SCA_TikaAnswer answer;
    unsigned long error = 0;
    return Eventually([&] { return probe.Ask(nullptr, &answer, &error) != 0; });
  }
  pid_t Leader() const { return static_cast<pid_t>(server_.GetProcessId()); }
  pid_t Fork() const { return ForkOf(Leader()); }
  // Each with its level before it.
  std::vector<std::string> Messages() {
    SCA_ConfigObj object("Log", nullptr);
    server_.GetLog()->Serialize(&object, SCA_NoItemId, SCA_NoItemId);
    std::vector<std::string> messages;
    for (const SCA_Field* field = object.GetFields().GetHead(); field; field = field->GetNext()) {
      const std::string value = field->GetValue();
      messages.push_back(value.substr(0, 2) + value.substr(22));
    }
    return messages;
  }
  long CountMessages(const std::string& text) {
    const auto messages = Messages();
    return std::count_if(messages.begin(), messages.end(), [&](const std::string& message) {
      return message.find(text) != std::string::npos;
    });
  }

  unsigned short port_ = 0;
  SCA_TikaConfigUser config_{nullptr, nullptr};
  SCA_TikaServer server_{&config_};
};

TEST_P(WatchedTika, IsHeardMeasuredAndLimited) {
  ASSERT_TRUE(Answers());
  const long processes = GetParam().processes;
  EXPECT_EQ(CountMessages("Picked up JAVA_TOOL_OPTIONS: -Xlog:gc+init:stderr -Xmx300m"), processes);
  EXPECT_EQ(CountMessages("Heap Max Capacity: 300M"), processes);
  EXPECT_GT(CountMessages("3 INFO "), 2);
  for (const char* level : {"2 INFO ", "4 INFO ", "5 INFO "}) EXPECT_EQ(CountMessages(level), 0);
  EXPECT_EQ(static_cast<long>(Group(Leader()).size()), processes);
  EXPECT_TRUE(Eventually([&] { return server_.GetMemoryUsage() > 50000000ULL; }));
  EXPECT_GT(server_.GetReadData(), 1000000U) << "a jar has been read";
  const pid_t leader = Leader();
  server_.StopAll();
  EXPECT_TRUE(Group(leader).empty());
  EXPECT_EQ(server_.GetTikaErrors(), 0U);
}

TEST_P(WatchedTika, ComesBackWhicheverProcessIsKilled) {
  ASSERT_TRUE(Answers());
  const pid_t leader = Leader();
  ::kill(leader, SIGKILL);
  ASSERT_TRUE(Eventually([&] { return Leader() != leader && Leader() != 0; }));
  EXPECT_TRUE(Answers());
  EXPECT_TRUE(Group(leader).empty()) << "nothing of the old group is left";
  EXPECT_EQ(server_.GetTikaErrors(), 1U);
  EXPECT_EQ(CountMessages("by signal 9 (Killed)"), 1);
  if (GetParam().processes == 1) return;
  const pid_t fork = Fork();
  ASSERT_NE(fork, 0);
  ::kill(fork, SIGKILL);
  ASSERT_TRUE(Eventually([&] { return Fork() != fork && Fork() != 0; }));
  EXPECT_TRUE(Answers());
  EXPECT_EQ(server_.GetTikaErrors(), 1U) << "its parent has replaced it";
}

TEST(WatchedHost, TellsHowTheForkedProcessDied) {
  const TempDir dir;
  const unsigned short port = FreePort();
  Program host("tikasvc",
               {"--config", dir.File("root.trv"), "--control-port", "0", "--heap", "300", "--jar",
                CachedJar("tika-server-standard-3.3.2.jar"), "--first-port", std::to_string(port)},
               {"XDG_CONFIG_HOME=" + dir.Path()});
  ASSERT_TRUE(host.WaitForError(" answers: Apache Tika 3.3.2")) << host.Error();
  for (const std::string& process : host.Family()) {
    // The one that parses, of three: the server, its guardian, and it.
    if (process.find("TikaServerProcess") != std::string::npos) {
      ::kill(std::stoi(process), SIGKILL);
    }
  }
  EXPECT_TRUE(host.WaitForError("a worker of server 0 on port " + std::to_string(port) +
                                " died: its worker process ended with exit status 137, as it says: "
                                "signal 9 (Killed) ended it"))
      << host.Error();
  host.Signal(SIGTERM);
  EXPECT_EQ(host.Wait(), 0);
  EXPECT_EQ(host.Error().find(": server 0 on port " + std::to_string(port) + " died"),
            std::string::npos)
      << "the server ran on";
}

// A server of the fourth line answers itself; its workers parse, and come with documents.
TEST(WatchedTika4, IsReadyOnceItExtractsAndReplacesADeadWorker) {
  const std::string jar = Tika4Jar();
  if (jar.empty()) {
    GTEST_SKIP() << "ran WITHOUT a server of Tika 4: name one with TIKA4_SERVER_JAR, or unpack a "
                    "distribution as "
                 << CachedJar("tika-server-standard-4.0.0");
  }
  SCA_TikaConfigUser config(nullptr, nullptr);
  SCA_TikaServer server(&config);
  unsigned long error = 0;
  const unsigned short port = FreePort();
  ASSERT_EQ(server.SetBindAddress("127.0.0.1"), 1);
  // From where the host runs it would find no plugins.
  ASSERT_EQ(server.SetConfig(jar.c_str(), port, 300, "", &error), 1);
  SCA_TikaWatch watch(&server, SCA_TikaWatchRules());
  ASSERT_EQ(watch.Start(&error), 1) << SCA_ErrorText(error);
  ASSERT_EQ(watch.WaitReady(kReadyMs, nullptr, &error), 1) << SCA_ErrorText(error);
  const pid_t worker = ForkOf(static_cast<pid_t>(server.GetProcessId()));
  ASSERT_NE(worker, 0) << "it has parsed a document";
  SCA_TikaWatchState state;
  ::kill(worker, SIGKILL);
  ASSERT_TRUE(Eventually([&] { return watch.GetState(&state) != 0 && state.workerDeaths == 1; }));
  ASSERT_EQ(watch.WaitReady(kReadyMs, nullptr, &error), 1) << SCA_ErrorText(error);
  const SCA_TikaProbe probe("127.0.0.1", port, kReadyMs);
  EXPECT_EQ(probe.TryDocument(nullptr, &error), 1) << SCA_ErrorText(error);
  EXPECT_EQ(watch.GetState(&state), 1);
  EXPECT_EQ(state.restarts, 0U) << "the server ran on";
  EXPECT_EQ(std::string(state.version).find("Apache Tika 4."), 0U);
}

INSTANTIATE_TEST_SUITE_P(BothLines, WatchedTika,
                         ::testing::Values(Line{"tika-server-1.28.5.jar", 1},
                                           Line{"tika-server-standard-3.3.2.jar", 2}),
                         [](const auto& row) {
                           return std::string(row.index == 0 ? "Tika1" : "Tika3");
                         });

}  // namespace
