#include <gtest/gtest.h>

#include <atomic>

#include "control/SCA_ServiceStatusNames.h"
#include "control/SCA_TikaServiceServer.h"
#include "tests/control/fake_service.h"
#include "tests/support/Program.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Timing.h"

namespace {

void Answer(ServerConnection& connection) {
  for (;;) {
    const std::string request = connection.ReceiveRequest();
    if (request.empty()) return;
    connection.Send(ChunkedReply("The text of " + request.substr(request.size() - 5), 7));
  }
}

TEST(Examples, OneFileIsPrintedAndAFailureTold) {
  const TempDir dir;
  const std::string file = dir.Write("one.pdf", "ONE..");
  std::string port;
  {
    ScriptedServer server(Answer);
    port = std::to_string(server.Port());
    Program example("example_extract_file", {"127.0.0.1", port, file});
    EXPECT_EQ(example.Wait(), 0) << example.Error();
    EXPECT_EQ(example.Output(), "The text of ONE..");
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
                                                   : ": extracted, 17 bytes of text \n");
  }
  ScriptedServer dying([](ServerConnection& connection) {
    connection.ReceiveRequest();
    connection.Send(ChunkedReply("The text of another", 7).substr(0, 60));
  });
  ScriptedServer server(Answer);
  arguments[1] = std::to_string(dying.Port()) + "," + std::to_string(server.Port());
  Program example("example_extract_many", arguments);
  EXPECT_EQ(example.Wait(), 0) << example.Error();
  // What is refused is told at once.
  const std::size_t lastLine = expected.rfind(arguments.back());
  EXPECT_EQ(example.Output(), expected.substr(lastLine) + expected.substr(0, lastLine));
}

TEST(Examples, HostIsWatchedUntilItIsLost) {
  std::atomic<const char*> state{"starting"};
  FakeService service;
  service.fill = [&](SCA_ConfigObj* servers) {
    SCA_ConfigObj* server = servers->AddConfigObj("0");
    server->AddField(SCA_ServerFields::Port, 9998, 0);
    server->AddField(SCA_ServerFields::StatusText, state.load(), 0);
  };
  FakeFactory factory(&service);
  unsigned long error = 0;
  SCA_Owned<SCA_TikaServiceServer> host(new SCA_TikaServiceServer(&factory, 0, &error));
  ASSERT_EQ(host->IsValid(), 1) << error;
  const std::string port = std::to_string(host->GetPort());
  Program example("example_watch_hosts", {port, "127.0.0.1"});
  const std::string name = "127.0.0.1:" + port;
  std::string expected = name + " [9998 starting]\n";
  EXPECT_TRUE(Eventually([&] { return example.Output() == expected; })) << example.Output();
  state = "ready";
  expected += name + " [9998 ready]\n";
  EXPECT_TRUE(Eventually([&] { return example.Output() == expected; })) << example.Output();
  host.reset();
  EXPECT_EQ(example.Wait(), 0) << example.Error();
  EXPECT_EQ(example.Output(), expected + "a host is lost\n");
}

// Who copies the program out of the README copies the one that is built and tested here.
TEST(Examples, ReadmeShowsTheFirstOne) {
  const std::string root = SCA_SAMPLES_DIR "/..";
  const std::string code = ReadFile(root + "/examples/extract_file.cpp");
  EXPECT_NE(ReadFile(root + "/README.md").find("```cpp\n" + code + "```\n"), std::string::npos);
}

}  // namespace
