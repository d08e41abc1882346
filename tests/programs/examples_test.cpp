#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <filesystem>

#include "control/SCA_ServiceStatusNames.h"
#include "faultlab/FaultServer.h"
#include "tests/control/fake_host.h"
#include "tests/support/FreePort.h"
#include "tests/support/Program.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/Timing.h"

namespace {

TEST(Examples, OneFileIsPrintedAndAFailureTold) {
  const TempDir dir;
  const std::string file = dir.Write("one.pdf", "ONE..");
  std::string port;
  {
    const FaultServer server;
    port = std::to_string(server.Port());
    Program example("example_extract_file", {"127.0.0.1", port, file});
    EXPECT_EQ(example.Wait(), 0) << example.Error();
    EXPECT_EQ(example.Output(), "text of ONE..");
  }
  Program lost("example_extract_file", {"127.0.0.1", port, file});
  EXPECT_EQ(lost.Wait(), 1);
  EXPECT_EQ(lost.Error(), file + ": Connection refused\n");
}

// One of the servers dies on each file: the other one has them all, and each text comes once.
TEST(Examples, ManyFilesGoOverTwoServers) {
  const TempDir dir;
  std::vector<std::string> arguments = {"127.0.0.1", ""};
  std::string expected;
  for (const char* name : {"1.pdf", "2.doc", "3.xls", "4.exe"}) {
    arguments.push_back(dir.Write(name, name));
    expected += arguments.back() + (name[0] == '4' ? ": no enabled Tika service takes files of "
                                                     "this kind\n"
                                                   : ": extracted, 13 bytes of text \n");
  }
  FaultServerOptions deadly;
  deadly.choose = [](const DocumentHead&) {
    FaultSpec fault;
    ParseFault("cut=8", &fault);
    return fault;
  };
  const FaultServer dying(deadly);
  const FaultServer server;
  arguments[1] = std::to_string(dying.Port()) + "," + std::to_string(server.Port());
  Program example("example_extract_many", arguments);
  EXPECT_EQ(example.Wait(), 0) << example.Error();
  // What is refused is told at once.
  const std::size_t lastLine = expected.rfind(arguments.back());
  EXPECT_EQ(example.Output(), expected.substr(lastLine) + expected.substr(0, lastLine));
}

TEST(Examples, FilesGoOverTheServersOfServiceHosts) {
  const TempDir dir;
  ScriptedHost one("127.0.0.1");
  ScriptedHost other("127.0.0.1");
  one.OpenLocal(dir.File("one"));
  other.OpenLocal(dir.File("other"));
  one.Keep(SCA_ServerInactive);
  other.Keep(SCA_ServerActive);
  const std::string file = dir.Write("1.pdf", "1");
  Program example("example_extract_fleet", {dir.File("one") + "," + dir.File("other"), file});
  EXPECT_EQ(example.Wait(), 0) << example.Error();
  EXPECT_EQ(example.Output(), file + ": extracted\ntext of 1\n");
}

TEST(Examples, HostIsWatchedUntilItIsLost) {
  std::atomic<const char*> state{"starting"};
  FakeHost<> host(0, [&](SCA_ConfigObj* servers) {
    SCA_ConfigObj* server = servers->AddConfigObj("0");
    server->AddField(SCA_ServerFields::Port, 9998, 0);
    server->AddField(SCA_ServerFields::StatusText, state.load(), 0);
  });
  const std::string port = std::to_string(host.Port());
  Program example("example_watch_hosts", {port, "127.0.0.1"});
  const std::string name = "127.0.0.1:" + port;
  std::string expected = name + " [9998 starting]\n";
  EXPECT_TRUE(Eventually([&] { return example.Output() == expected; })) << example.Output();
  state = "ready";
  expected += name + " [9998 ready]\n";
  EXPECT_TRUE(Eventually([&] { return example.Output() == expected; })) << example.Output();
  host.server.reset();
  EXPECT_EQ(example.Wait(), 0) << example.Error();
  EXPECT_EQ(example.Output(), expected + "a host is lost\n");
}

TEST(Examples, ServerIsWatchedAndStartedAgain) {
  const TempDir dir;
  std::filesystem::create_symlink(std::filesystem::read_symlink("/proc/self/exe"),
                                  dir.File("java"));
  const std::string path = "PATH=" + dir.Path() + ":" + ::getenv("PATH");
  Program hopeless("example_private_server", {dir.Write("brief.jar", ""), "x"}, {path});
  EXPECT_TRUE(Ends(hopeless, 1, "it ended by itself with exit status 7"));
  Program example("example_watched_server", {dir.Write("good.jar", ""), std::to_string(FreePort())},
                  {path});
  std::string expected = "ready: Apache Tika 3.9\n";
  ASSERT_TRUE(Eventually([&] { return example.Output() == expected; })) << example.Error();
  for (const std::string& process : example.Family()) {
    if (process.find(" -jar ") != std::string::npos) ::kill(std::stoi(process), SIGKILL);
  }
  expected +=
      "killed: signal 9 (Killed) ended it; if nobody sent it, the machine ran out of "
      "memory: see the kernel's log\nready: Apache Tika 3.9\n";
  EXPECT_TRUE(Eventually([&] { return example.Output() == expected; })) << example.Output();
  example.Signal(SIGTERM);
  EXPECT_EQ(example.Wait(), 128 + SIGTERM);
  EXPECT_TRUE(example.FamilyEndsWithin(10));
}

// Who copies the program out of the README copies the one that is built and tested here.
TEST(Examples, ReadmeShowsTheFirstOne) {
  const std::string root = SCA_SAMPLES_DIR "/..";
  const std::string code = ReadFile(root + "/examples/extract_file.cpp");
  EXPECT_NE(ReadFile(root + "/README.md").find("```cpp\n" + code + "```\n"), std::string::npos);
}

}  // namespace
