// Real Tika servers that a service host runs for one extraction alone.

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/support/Program.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

namespace fs = std::filesystem;

std::string DefaultJar() {
  const char* cache = std::getenv("XDG_CACHE_HOME");
  const std::string base = cache != nullptr ? cache : std::string(std::getenv("HOME")) + "/.cache";
  return base + "/sca_tika/tika-server-standard-3.3.2.jar";
}

std::vector<int> JavaProcesses(const Program& program) {
  std::vector<int> ids;
  for (const std::string& process : program.Family()) {
    if (process.find(": java ") != std::string::npos) ids.push_back(std::stoi(process));
  }
  return ids;
}

TEST(WantedServers, AreAddedWatchedAndGivenBack) {
  constexpr int kCopies = 6;
  const TempDir dir;
  std::size_t documents = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(SCA_SAMPLES_DIR)) {
    if (!fs::exists(entry.path().string() + ".sentences")) continue;
    for (int i = 0; i < kCopies; ++i, ++documents) {
      fs::copy(entry.path(), dir.File(std::to_string(i) + "-" + entry.path().filename().string()));
    }
  }
  const TempDir home;
  const std::string variable = "XDG_CONFIG_HOME=" + home.Path();
  const std::string control = std::to_string(ScriptedServer([](ServerConnection&) {}).Port());
  // Below the range from which the system takes the ports of outgoing connections.
  const std::string first = std::to_string(24000 + ::getpid() % 1000 * 2);
  Program host(
      "tikasvc",
      {"--config", home.File("root.trv"), "--control-port", control, "--tika-bind", "127.0.0.1"},
      {variable});
  ASSERT_TRUE(host.WaitForError("listens on control port")) << host.Error();
  Program run("tikaextract",
              {"-v", "-r", dir.Path(), "--jsonl", "--service", "127.0.0.1:" + control,
               "--service-jar", DefaultJar(), "--service-servers", "2", "--service-first-port",
               first, "--service-heap", "300"},
              {variable});
  ASSERT_TRUE(run.WaitForError("has 2 servers")) << run.Error() << host.Error();
  const std::vector<int> running = JavaProcesses(host);
  ASSERT_GE(running.size(), 2U);
  ::kill(running.front(), SIGKILL);
  EXPECT_EQ(run.Wait(), 0) << run.Error();
  std::istringstream records(run.Output());
  std::size_t extracted = 0;
  for (std::string line; std::getline(records, line);) {
    if (nlohmann::json::parse(line)["outcome"] == "extracted") ++extracted;
  }
  EXPECT_EQ(extracted, documents);
  EXPECT_NE(run.Error().find("gave back"), std::string::npos) << run.Error();
  EXPECT_TRUE(Eventually([&host] { return JavaProcesses(host).empty(); }));
  EXPECT_EQ(host.Family().size(), 1U) << "the service host runs on";
}

}  // namespace
