// A watched server with real Tika of both lines: heard, measured, limited, killed and back again.

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include "client/SCA_TikaClient.h"
#include "faultlab/ServerConnection.h"
#include "host/SCA_TikaServer.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Process.h"
#include "product/SCA_TikaDispatcher.h"
#include "programs/common/Address.h"
#include "tests/e2e/jars.h"
#include "tests/support/FreePort.h"
#include "tests/support/Program.h"
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

// @return A socket that is connected to the server at that address, or -1.
int ConnectToServer(unsigned short port) {
  if (std::string(Address()) == "127.0.0.1") return ConnectToLoopback(port);
  const int fd = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_port = htons(port);
  address.sin6_addr = in6addr_loopback;
  if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return fd;
  ::close(fd);
  return -1;
}

// Stands between clients and a server, as a proxy does: takes connections whether the server is
// there or not, and ends the server when a document with the marker is on its way.
class Relay {
 public:
  Relay(unsigned short server, std::function<void()> kill)
      : server_(server), kill_(std::move(kill)), accepting_([this] { Accept(); }) {}
  ~Relay() {
    stop_.Set();
    accepting_.join();
    for (std::thread& thread : connections_) thread.join();
  }
  unsigned short Port() const { return listener_.Port(); }
  static constexpr char kMarker[] = "KILLS-ITS-SERVER";

 private:
  void Accept() {
    for (int fd = -1; (fd = listener_.Accept(stop_)) >= 0;) {
      connections_.emplace_back([this, fd] { Pass(fd); });
    }
  }
  void Pass(int fd) {
    ServerConnection client(fd, stop_);
    const int other = ConnectToServer(server_);
    if (other < 0) return;
    ServerConnection server(other, stop_);
    pollfd ends[] = {{fd, POLLIN, 0}, {other, POLLIN, 0}, {stop_.Fd(), POLLIN, 0}};
    while (::poll(ends, 3, -1) > 0 && ends[2].revents == 0) {
      const bool isRequest = ends[0].revents != 0;
      const std::string bytes = isRequest ? client.Receive() : server.Receive();
      if (bytes.empty()) return;
      if (isRequest && bytes.find(kMarker) != std::string::npos) kill_();
      if (!(isRequest ? server : client).Send(bytes)) return;
    }
  }

  const unsigned short server_;
  const std::function<void()> kill_;
  StopSignal stop_;
  Listener listener_{"127.0.0.1", 0, 16};
  std::vector<std::thread> connections_;  // the accepting thread's, until it has ended
  std::thread accepting_;
};

class Sheet : public SCA_TikaTextSink {
 public:
  int Write(const char* text, unsigned long length, unsigned long) override {
    text_.append(text, length);
    return 1;
  }
  int Restart() override {
    text_.clear();
    return 1;
  }
  const std::string& Text() const { return text_; }

 private:
  std::string text_;
};

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
    ASSERT_EQ(server_.SetBindAddress(Address()), 1);
    // Each JVM says what limit it has been given.
    ASSERT_EQ(server_.SetConfig(jar.c_str(), port_, 300, "-Xlog:gc+init:stderr", &error), 1);
    ASSERT_EQ(server_.StartProcess(&error), 1) << SCA_ErrorText(error);
  }

  bool Answers() {
    return Eventually([this] {
      SCA_TikaConfigOrv settings;
      SCA_TikaClient client(&settings, Address(), port_);
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
  Program program("tikaextract", {"--server", FormatHostPort({Address(), port_}),
                                  SCA_SAMPLES_DIR "/quarterly-report-en.docx"});
  EXPECT_EQ(program.Wait(), 0) << program.Error();
  EXPECT_TRUE(Has(program.Output(), "Quarterly"));
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
  EXPECT_TRUE(Eventually([&] { return server_.GetWorkerEnds() == 1; }));
  EXPECT_EQ(CountMessages("Worker process " + std::to_string(fork) + " ended after "), 1U);
  EXPECT_EQ(CountMessages("forked process exited with exit value 137"), 1U);
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
  ASSERT_TRUE(host.WaitForError("a worker of server 0 on port ")) << host.Error();
  const auto control = host.NumberBehind("listens on control port ");
  Program operatorsView("tikactl", {"--key", dir.File("Tika Service/control.key"), "-H",
                                    "127.0.0.1:" + std::to_string(control), "history"});
  EXPECT_EQ(operatorsView.Wait(), 0) << operatorsView.Error();
  for (const char* said : {"death 1: a worker of server 0, port ",
                           "killed: its worker process ended "
                           "with exit status 137, as it says: signal 9 (Killed) ended it",
                           "exit code 137; the server ran on"}) {
    EXPECT_TRUE(Has(operatorsView.Output(), said));
  }
  host.Signal(SIGTERM);
  EXPECT_EQ(host.Wait(), 0);
  EXPECT_EQ(operatorsView.Output().find("death 2"), std::string::npos) << operatorsView.Output();
}

TEST_P(WatchedTika, DocumentThatKillsTheJvmEndsAloneAndItsNeighboursAreExtracted) {
  ASSERT_TRUE(Answers());
  std::atomic<int> kills{0};
  Relay relay(port_, [&] {
    const pid_t fork = Fork();
    ::kill(fork != 0 ? fork : Leader(), SIGKILL);
    ++kills;
  });
  SCA_TikaConfigOrv settings;
  SCA_TikaService* service = nullptr;
  settings.SetMode(SCA_TikaModeEnabled);
  settings.SetNetworkTimeout(60000);
  settings.GetServiceList()->AddService("one", &service);
  SCA_TikaDispatcher dispatcher(&settings, {});
  for (int i = 0; i < 4; ++i) {
    unsigned long error = 0;
    ASSERT_EQ(dispatcher.AddServer("127.0.0.1", relay.Port(), 0, &error), 1) << error;
  }
  const TempDir dir;
  struct Document {
    std::string content;
    Sheet* sheet;
    SCA_Owned<SCA_TikaExtractRequest> request;
  };
  std::vector<Document> documents;
  for (int i = 0; i < 40; ++i) {
    const std::string content = i == 5 ? Relay::kMarker : "document " + std::to_string(i) + ".";
    const std::string path = dir.Write(std::to_string(i) + ".txt", content);
    auto* sheet = new Sheet;
    documents.push_back({content, sheet,
                         SCA_Owned<SCA_TikaExtractRequest>(
                             new SCA_TikaExtractRequest(path.c_str(), "pdf", "Default", sheet))});
    unsigned long error = 0;
    ASSERT_EQ(dispatcher.Submit(documents.back().request.get(), 1, &error), 1) << error;
  }
  for (Document& document : documents) {
    SCA_TikaExtractRequest& request = *document.request;
    ASSERT_EQ(request.GetReady()->Wait(3 * kDeadlineMs), 1);
    const bool isKiller = document.content == Relay::kMarker;
    EXPECT_EQ(request.GetOutcome(),
              isKiller ? SCA_TikaOutcome::ServersDied : SCA_TikaOutcome::Extracted)
        << request.GetPath() << ": " << request.GetCause();
    EXPECT_EQ(document.sheet->Text().find(document.content) != std::string::npos, !isKiller);
  }
  EXPECT_EQ(kills, 3) << "in company, and twice alone";
  dispatcher.Stop();
}

INSTANTIATE_TEST_SUITE_P(BothLines, WatchedTika,
                         ::testing::Values(Line{"tika-server-1.28.5.jar", 1},
                                           Line{"tika-server-standard-3.3.2.jar", 2}),
                         [](const auto& row) {
                           return std::string(row.index == 0 ? "Tika1" : "Tika3");
                         });

}  // namespace
