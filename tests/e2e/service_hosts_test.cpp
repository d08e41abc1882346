// Two service hosts with real Tika servers, at addresses of their own, while everything that can go
// wrong does.

#include <gtest/gtest.h>

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>

#include "control/SCA_ControlKey.h"
#include "platform/SCA_Error.h"
#include "tests/e2e/jars.h"
#include "tests/support/FreePort.h"
#include "tests/support/Program.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/Timing.h"

namespace {

namespace fs = std::filesystem;

// Copies of all samples in one folder, each with what must become of it.
class Documents {
 public:
  explicit Documents(int copies) {
    for (const fs::directory_entry& entry : fs::directory_iterator(SCA_SAMPLES_DIR)) {
      const std::string sample = entry.path().string();
      const bool hasText = fs::exists(sample + ".sentences");
      if (!hasText && !fs::exists(sample + ".outcome")) continue;
      if (hasText) texts += static_cast<std::size_t>(copies);
      for (int i = 0; i < copies; ++i) {
        const std::string name = std::to_string(i) + "-" + entry.path().filename().string();
        fs::copy(entry.path(), dir.File(name));
        sentences[name] =
            hasText ? Lines(ReadFile(sample + ".sentences")) : std::vector<std::string>();
      }
    }
  }

  // @return Whether it is a document whose text is known; the text must then be whole.
  bool Check(const std::string& name, const std::string& text) const {
    for (const std::string& sentence : sentences.at(name)) EXPECT_TRUE(Has(text, sentence));
    return !sentences.at(name).empty();
  }

  // Reads the records of a run: one for each document, with its whole text or why there is none.
  // @return How many of the texts that are known there are.
  std::size_t Judge(const Program& run) const {
    std::set<std::string> seen;
    std::size_t found = 0;
    for (const std::string& line : Lines(run.Output())) {
      const nlohmann::json record = nlohmann::json::parse(line);
      const std::string name = fs::path(std::string(record["path"])).filename();
      EXPECT_TRUE(seen.insert(name).second) << name << " came twice";
      const bool isExtracted = record["outcome"] == "extracted";
      EXPECT_TRUE(isExtracted || !std::string(record["error"]).empty()) << line;
      if (isExtracted && Check(name, record["text"])) ++found;
    }
    EXPECT_EQ(seen.size(), sentences.size());
    return found;
  }

  const TempDir dir;
  std::size_t texts = 0;                                      // that are known
  std::map<std::string, std::vector<std::string>> sentences;  // by name of the copy
};

class ServiceHosts : public ::testing::Test {
 protected:
  ServiceHosts() {
    unsigned long error = 0;
    EXPECT_EQ(SCA_CreateControlKey(keyFile_.c_str(), &error), 1) << SCA_ErrorText(error);
  }
  void SetUp() override {
    ASSERT_TRUE(fs::is_regular_file(DefaultJar()))
        << "there is no " << DefaultJar() << ": run scripts/setup, which fetches it";
  }

  std::string Home(int host) const { return home_.File("host" + std::to_string(host)); }

  static std::string Address(int host) { return "127.0.0." + std::to_string(host + 1); }

  // Starts a service host, the second time on the port that it had.
  void Launch(int host, int servers = 2) {
    fs::create_directories(Home(host) + "/Tika Service");
    fs::copy_file(keyFile_, Home(host) + "/Tika Service/control.key",
                  fs::copy_options::skip_existing);
    std::vector<std::string> arguments = {
        "--no-class-archive", "--config",       Home(host) + "/root.trv",    "--tika-bind",
        Address(host),        "--control-port", std::to_string(ports_[host])};
    if (servers > 0) {
      arguments.insert(arguments.end(),
                       {"--jar", DefaultJar(), "--servers", std::to_string(servers), "--first-port",
                        std::to_string(firstPorts_[host]), "--heap", "300"});
    }
    programs_[host] = std::make_unique<Program>(
        "tikasvc", arguments,
        std::vector<std::string>{"XDG_CONFIG_HOME=" + Home(host), "TMPDIR=" + Home(host)});
    ports_[host] = programs_[host]->NumberBehind("listens on control port ");
    ASSERT_NE(ports_[host], 0) << programs_[host]->Error();
  }

  bool IsReady(int host) {
    const int port = firstPorts_[host];
    return programs_[host]->WaitForError("port " + std::to_string(port) + " answers") &&
           programs_[host]->WaitForError("port " + std::to_string(port + 1) + " answers");
  }

  // One that tikasvc has started itself; with its parent a forked one ends as well.
  void KillOneJava(int host) {
    for (const std::string& process : programs_[host]->Family()) {
      if (process.find(": java -Xmx") == std::string::npos) continue;
      EXPECT_EQ(::kill(std::stoi(process), SIGKILL), 0);
      return;
    }
    FAIL() << "there is none\n" << programs_[host]->Error();
  }

  // A host that is stopped says nothing more, and closes nothing.
  void SignalAll(int host, int number) {
    for (const std::string& process : programs_[host]->Family()) {
      EXPECT_TRUE(::kill(std::stoi(process), number) == 0 || errno == ESRCH) << process;
    }
  }

  std::string Service(int host) const { return Address(host) + ":" + std::to_string(ports_[host]); }

  void End(int host) {
    programs_[host]->Signal(SIGTERM);
    EXPECT_EQ(programs_[host]->Wait(), 0) << programs_[host]->Error();
    EXPECT_TRUE(programs_[host]->FamilyEndsWithin(10));
  }

  const TempDir home_;
  std::string keyFile_ = home_.File("client/Tika Service/control.key");
  unsigned short ports_[2] = {0, 0};
  // Each test has its own: others of this program may run at the same time.
  const unsigned short firstPorts_[2] = {FreePorts(2), FreePorts(2)};
  std::unique_ptr<Program> programs_[2];
};

TEST_F(ServiceHosts, EveryDocumentEndsWhateverDies) {
  const Documents documents(16);
  ASSERT_NO_FATAL_FAILURE(Launch(0));
  ASSERT_NO_FATAL_FAILURE(Launch(1));
  ASSERT_TRUE(IsReady(0) && IsReady(1)) << programs_[0]->Error() << programs_[1]->Error();
  const TempDir scratch;
  Program run("tikaextract",
              {"-r", documents.dir.Path(), "--service", Service(0), "--service", Service(1),
               "--jsonl", "--unordered", "--timeout", "10", "-j", "2", "--verbose"},
              {"XDG_CONFIG_HOME=" + home_.File("client"), "TMPDIR=" + scratch.Path()});
  const auto comesTo = [&run](std::size_t records) {
    const Stopwatch watch;
    while (Lines(run.Output()).size() < records && watch.Ms() < 4 * kDeadlineMs) {
      ::poll(nullptr, 0, 50);
    }
    return Lines(run.Output()).size() >= records;
  };
  ASSERT_TRUE(comesTo(20)) << run.Error();
  KillOneJava(0);
  ASSERT_TRUE(comesTo(60)) << run.Error();
  programs_[1]->Signal(SIGKILL);
  EXPECT_EQ(programs_[1]->Wait(), 128 + SIGKILL);
  EXPECT_TRUE(programs_[1]->FamilyEndsWithin(10));
  ASSERT_TRUE(comesTo(100)) << run.Error();
  ASSERT_NO_FATAL_FAILURE(Launch(1));
  ASSERT_TRUE(IsReady(1)) << programs_[1]->Error();
  SignalAll(0, SIGSTOP);
  const std::size_t atStop = Lines(run.Output()).size();
  ASSERT_TRUE(comesTo(std::min(atStop + 60, documents.sentences.size()))) << run.Error();
  SignalAll(0, SIGCONT);
  EXPECT_TRUE(Ends(run, 1));
  // Each fault costs at most what was under way at its servers, which take two tries.
  EXPECT_GE(documents.Judge(run) + 12, documents.texts) << run.Error();
  EXPECT_TRUE(fs::is_empty(scratch.Path()));
  End(0);
  End(1);
}

TEST_F(ServiceHosts, WantedServersAreAddedWatchedAndGivenBack) {
  const Documents documents(5);
  ASSERT_NO_FATAL_FAILURE(Launch(0, 0));
  // Holds its document until both servers have come up and one of them has died: a single server
  // may be through with all the others before.
  auto gate = std::make_unique<ScriptedServer>(
      [](ServerConnection& connection) { connection.WaitForEnd(); });
  Program run("tikaextract",
              {"-v", "-r", documents.dir.Path(), "--jsonl", "--timeout", "60", "--server",
               "localhost:" + std::to_string(gate->Port()), "--service", Service(0),
               "--service-jar", DefaultJar(), "--service-servers", "2", "--service-first-port",
               std::to_string(firstPorts_[0]), "--service-heap", "300"},
              {"XDG_CONFIG_HOME=" + home_.File("client")});
  ASSERT_TRUE(run.WaitForError("has 2 servers")) << run.Error() << programs_[0]->Error();
  KillOneJava(0);
  ASSERT_TRUE(run.WaitForError("died and restarts")) << run.Error();
  gate.reset();
  EXPECT_TRUE(Ends(run, 1, "gave back"));
  EXPECT_EQ(documents.Judge(run), documents.texts) << run.Error();
  EXPECT_TRUE(Eventually([this] { return programs_[0]->Family().size() == 1; }))
      << "the service host alone runs on";
  End(0);
}

TEST_F(ServiceHosts, FullDisksSpoilNothing) {
  const std::string small = home_.File("small");
  fs::create_directories(small);
  fs::create_directories(Home(0));
  const SmallDisk disk(small, 96);
  const SmallDisk hostsDisk(Home(0), 16 << 10);
  if (!disk.IsMounted()) GTEST_SKIP() << "only root can mount the small disks that this test fills";
  const Documents documents(3);
  ASSERT_NO_FATAL_FAILURE(Launch(0));
  ASSERT_TRUE(IsReady(0)) << programs_[0]->Error();
  Program run("tikaextract", {"-r", documents.dir.Path(), "--service", Service(0), "-o", small},
              {"XDG_CONFIG_HOME=" + home_.File("client")});
  EXPECT_TRUE(Ends(run, 1, "No space left on device"));
  std::size_t texts = 0;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(small)) {
    const std::string name = entry.path().filename();
    if (name.rfind(".tikaextract.", 0) == 0) continue;  // the journal and its lock
    ASSERT_EQ(entry.path().extension(), ".txt") << "left over: " << name;
    if (documents.Check(name.substr(0, name.size() - 4), ReadFile(entry.path()))) ++texts;
  }
  EXPECT_GT(texts, 0U);
  const std::string junk = Home(0) + "/junk";
  std::ofstream(junk) << std::string(32 << 20, 'x');
  KillOneJava(0);
  ASSERT_TRUE(programs_[0]->WaitForError("cannot save the history of deaths"));
  fs::remove(junk);
  End(0);
  EXPECT_TRUE(fs::exists(Home(0) + "/Tika Service/data/history.trv"));
}

}  // namespace
