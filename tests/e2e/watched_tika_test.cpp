// A watched server with real Tika of both lines: heard, measured, limited, killed and back again.

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>

#include "client/SCA_TikaClient.h"
#include "host/SCA_TikaServer.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Process.h"
#include "tests/e2e/jars.h"
#include "tests/support/FreePort.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

// The living processes of a group with their kilobytes in memory, as ps has them.
std::map<pid_t, unsigned long long> Group(pid_t group) {
  const SCA_Owned<SCA_Process> ps(SCA_CreateProcess());
  unsigned long error = 0;
  unsigned long length = 0;
  char line[256];
  std::map<pid_t, unsigned long long> members;
  EXPECT_EQ(ps->Start("ps -eo pgid=,pid=,rss=,stat=", 0, SCA_ProcessReadOutput, &error), 1);
  while (ps->WaitForOutput(kDeadlineMs, 0) != 0 &&
         ps->ReadOutputLine(line, sizeof line, &length, &error) != 0) {
    std::istringstream words(line);
    pid_t pgid = 0;
    pid_t pid = 0;
    unsigned long long kilobytes = 0;
    std::string state;
    words >> pgid >> pid >> kilobytes >> state;
    if (pgid == group && state[0] != 'Z') members[pid] = kilobytes;
  }
  return members;
}

struct Line {
  const char* jar;
  std::size_t processes;
};

class WatchedTika : public ::testing::TestWithParam<Line> {
 protected:
  void SetUp() override {
    const std::string jar = CachedJar(GetParam().jar);
    ASSERT_TRUE(std::filesystem::is_regular_file(jar))
        << "there is no " << jar << ": run scripts/setup, which fetches it";
    port_ = FreePort();
    unsigned long error = 0;
    ASSERT_EQ(server_.SetBindAddress("127.0.0.1"), 1);
    // Each JVM says what limit it has been given.
    ASSERT_EQ(server_.SetConfig(jar.c_str(), port_, 300, "-Xlog:gc+init:stderr", &error), 1);
    ASSERT_EQ(server_.StartProcess(&error), 1) << SCA_ErrorText(error);
  }

  bool Answers() {
    return Eventually([this] {
      SCA_TikaConfigOrv settings;
      SCA_TikaClient client(&settings, "127.0.0.1", port_);
      char version[101];
      unsigned long error = 0;
      return client.Connect(1000, &error) != 0 &&
             client.GetVersion(version, sizeof version, &error) != 0;
    });
  }
  pid_t Leader() const { return static_cast<pid_t>(server_.GetProcessId()); }
  // The JVM that the started one has forked, or 0.
  pid_t Fork() const {
    for (const auto& member : Group(Leader())) {
      if (member.first != Leader()) return member.first;
    }
    return 0;
  }
  std::vector<std::pair<unsigned long, std::string>> Messages() {
    SCA_ConfigObj object("Log", nullptr);
    server_.GetLog()->Serialize(&object, SCA_NoItemId, SCA_NoItemId);
    std::vector<std::pair<unsigned long, std::string>> messages;
    for (const SCA_Field* field = object.GetFields().GetHead(); field; field = field->GetNext()) {
      const std::string value = field->GetValue();
      messages.emplace_back(std::stoul(value), value.substr(22));
    }
    return messages;
  }
  std::size_t CountMessages(const std::string& text) {
    std::size_t count = 0;
    for (const auto& message : Messages()) {
      if (message.second.find(text) != std::string::npos) ++count;
    }
    return count;
  }

  unsigned short port_ = 0;
  SCA_TikaConfigUser config_{nullptr, nullptr};
  SCA_TikaServer server_{&config_};
};

TEST_P(WatchedTika, IsHeardMeasuredAndLimited) {
  ASSERT_TRUE(Answers());
  const std::size_t processes = GetParam().processes;
  EXPECT_EQ(CountMessages("Picked up JAVA_TOOL_OPTIONS: -Xlog:gc+init:stderr -Xmx300m"), processes);
  EXPECT_EQ(CountMessages("Heap Max Capacity: 300M"), processes);
  std::size_t informing = 0;
  for (const auto& [level, text] : Messages()) {
    if (text.rfind("INFO ", 0) != 0) continue;
    EXPECT_EQ(level, 3U) << text;
    ++informing;
  }
  EXPECT_GT(informing, 2U);
  unsigned long long ours = 0;
  unsigned long long theirs = 0;
  EXPECT_TRUE(Eventually([&] {
    const auto members = Group(Leader());
    ours = server_.GetMemoryUsage();
    theirs = 0;
    for (const auto& member : members) theirs += member.second << 10;
    return members.size() == processes && ours > theirs / 100 * 95 && ours < theirs / 100 * 105;
  })) << ours
      << " bytes, and " << theirs << " by ps";
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
  EXPECT_EQ(CountMessages("by signal 9 (Killed)"), 1U);
  if (GetParam().processes == 1) return;
  const pid_t fork = Fork();
  ASSERT_NE(fork, 0);
  ::kill(fork, SIGKILL);
  ASSERT_TRUE(Eventually([&] { return Fork() != fork && Fork() != 0; }));
  EXPECT_TRUE(Answers());
  EXPECT_EQ(server_.GetTikaErrors(), 1U) << "its parent has replaced it";
}

INSTANTIATE_TEST_SUITE_P(BothLines, WatchedTika,
                         ::testing::Values(Line{"tika-server-1.28.5.jar", 1},
                                           Line{"tika-server-standard-3.3.2.jar", 2}),
                         [](const auto& row) {
                           return std::string(row.index == 0 ? "Tika1" : "Tika3");
                         });

}  // namespace
