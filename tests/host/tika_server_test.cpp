#include "host/SCA_TikaServer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>

#include "host/SCA_TikaServerList.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Process.h"
#include "tests/support/Environment.h"
#include "tests/support/ReportCapture.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"
#include "tests/support/Worker.h"

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

constexpr std::size_t kHeaderLines = 3;  // of a session in the log

void Write(const std::string& text) {
  WriteAll(STDERR_FILENO, text);
}

// Ends in something, so that blanks at the end of a piece are missed.
std::string LongLine() {
  return "ERROR " + std::string(2000, 'x') + std::string(1000, ' ') + std::string(6993, 'y') + "z";
}

int PlayJava(const std::string& part, char** words) {
  if (part == "words") {
    for (char** word = words; *word != nullptr; ++word) Write("[" + std::string(*word) + "]");
    Write("\n" + std::string(::getenv("JAVA_TOOL_OPTIONS")) + "\nthreads " +
          ::getenv("OMP_THREAD_LIMIT") + "\nin " + fs::current_path().string() + "\n");
  }
  if (part == "lines") {
    Write("INFO  [main] %s %d\nWARN a\nWARNING: b\nWarning: c\nERROR: d\nERROR\n\tat e\n   \n\n" +
          std::string("f\x01g\0h\r\n", 7) + LongLine() + "\nINFO i\n");
  }
  if (part == "dies") {
    Write("last\nwords");
    return 3;
  }
  if (part == "idle") {
    Write("INFO  [main] PipesServer socket timeout while waiting for task, shutting down\n");
  }
  if (part == "parent" || part == "idle") {
    const pid_t worker = ::fork();
    if (worker == 0) WaitForEver();
    const pid_t tool = ::fork();
    if (tool == 0) {
      ::execl("/bin/sleep", "sleep", "60", nullptr);
      ::_exit(1);
    }
    Write("worker " + std::to_string(worker) + "\ntool " + std::to_string(tool) + "\n");
  }
  if (part == "stubborn") std::signal(SIGTERM, SIG_IGN);
  while (part == "flood") Write("INFO flood of the longest possible duration\n");
  Write("ready\n");
  if (part == "mute") {
    ::close(STDOUT_FILENO);
    ::close(STDERR_FILENO);
  }
  WaitForEver();
}

// The test program is its own java, before the test framework sees the arguments.
__attribute__((constructor)) void BecomeAnother(int count, char** words) {
  constexpr char kPart[] = "-part=";
  const std::string name = fs::path(words[0]).filename().string();
  if (name == "java" && count > 1 && std::strncmp(words[1], kPart, std::strlen(kPart)) == 0) {
    ::_exit(PlayJava(words[1] + std::strlen(kPart), words + 1));
  }
}

struct Ending {
  SCA_TikaObituary obituary;
  std::string text;
};

// Keeps what it is told, and asks for the delay that it is given.
class Recorder : public SCA_TikaServerObserver {
 public:
  void OnStart(unsigned long /*processId*/) override { ++starts_; }
  void OnEnd(const SCA_TikaObituary& obituary) override { Add(&ends_, obituary); }
  void OnWorkerEnd(const SCA_TikaObituary& obituary) override { Add(&workers_, obituary); }
  unsigned long GetRestartDelay() override { return delayMs_.load(); }

  std::size_t Starts() const { return starts_.load(); }
  std::vector<Ending> Ends() const { return Copy(ends_); }
  std::vector<Ending> Workers() const { return Copy(workers_); }
  Ending End(std::size_t i) const { return Ends().at(i); }
  void SetDelay(unsigned long delayMs) { delayMs_ = delayMs; }

 private:
  void Add(std::vector<Ending>* list, const SCA_TikaObituary& obituary) {
    const std::lock_guard<std::mutex> guard(mutex_);
    list->push_back({obituary, obituary.text});
  }
  std::vector<Ending> Copy(const std::vector<Ending>& list) const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return list;
  }

  mutable std::mutex mutex_;
  std::vector<Ending> ends_;
  std::vector<Ending> workers_;
  std::atomic<std::size_t> starts_{0};
  std::atomic<unsigned long> delayMs_{0};
};

// The log's texts, each behind its level, as a reader on another thread gets them.
Texts Lines(SCA_TikaServer& server) {
  SCA_ConfigObj object("Log", nullptr);
  EXPECT_EQ(server.GetLog()->Serialize(&object, SCA_NoItemId, SCA_NoItemId), 1);
  Texts lines;
  for (const SCA_Field* field = object.GetFields().GetHead(); field; field = field->GetNext()) {
    const std::string value = field->GetValue();
    lines.push_back(value.substr(0, 2) + value.substr(22));
  }
  return lines;
}

Texts Slice(const Texts& lines, std::size_t from, std::size_t count) {
  const auto begin = lines.begin() + static_cast<std::ptrdiff_t>(from);
  return Texts(begin, begin + static_cast<std::ptrdiff_t>(count));
}

bool Says(SCA_TikaServer& server, const std::string& text) {
  return Eventually([&] {
    const Texts lines = Lines(server);
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
      return line.find(text) != std::string::npos;
    });
  });
}

class Server : public ::testing::Test {
 protected:
  Server() {
    fs::create_symlink(fs::read_symlink("/proc/self/exe"), bin_.File("java"));
    ::unsetenv("JAVA_TOOL_OPTIONS");
  }

  void Start(SCA_TikaServer& server, const std::string& part, Recorder* recorder = nullptr) {
    unsigned long error = 0;
    server.SetObserver(recorder != nullptr ? recorder : &recorder_);
    ASSERT_EQ(server.SetConfig(jar_.c_str(), 4711, 77, ("-part=" + part).c_str(), &error), 1);
    ASSERT_EQ(server.StartProcess(&error), 1) << SCA_ErrorText(error);
  }

  const TempDir bin_;
  const ScopedVariable path_{"PATH", bin_.Path() + ":" + ::getenv("PATH")};
  const std::string jar_ = bin_.Write("a b.jar", "");
  const ReportCapture reports_;
  Recorder recorder_;
  SCA_TikaConfigUser config_{nullptr, nullptr};
  SCA_TikaServer server_{&config_};
};

TEST_F(Server, TheCommandReachesTheProcessAndWhatItForks) {
  const ScopedVariable options("JAVA_TOOL_OPTIONS", "-Dhost=1");
  ASSERT_EQ(server_.SetBindAddress("::1"), 1);
  EXPECT_EQ(server_.SetBindAddress("a b") + server_.SetBindAddress("\"a\n"), 0);
  Start(server_, "words -Dx=1");
  ASSERT_TRUE(Says(server_, "ready"));
  const Texts lines = Lines(server_);
  const std::string command =
      "java -part=words -Dx=1 -Xmx77m -jar \"" + jar_ + "\" -h [::1] -port 4711";
  const std::string rule = "3 " + std::string(command.size(), '-');
  const Texts expected = {
      rule,
      "3 Tika Command: " + command,
      rule,
      "3 [-part=words][-Dx=1][-Xmx77m][-jar][" + jar_ + "][-h][[::1]][-port][4711]",
      "3 -Dhost=1 -part=words -Dx=1 -Xmx77m",
      "3 threads 1",
      "3 in " + fs::current_path().string(),
      "3 ready"};
  EXPECT_EQ(lines, expected);
  EXPECT_EQ(server_.GetProcessStatus(), SCA_ServerActive);
  unsigned long error = 0;
  EXPECT_EQ(server_.StartProcess(&error), 0);
  EXPECT_EQ(error, SCA_ErrorAlreadyActive);
  const std::string started =
      "Tika server 0 started on port - 4711 (PID:" + std::to_string(server_.GetProcessId()) + ")";
  EXPECT_EQ(server_.StopAll() + server_.StopAll(), 2);
  EXPECT_EQ(server_.GetProcessStatus(), SCA_ServerInactive);
  EXPECT_EQ(server_.GetProcessId() + server_.GetTikaErrors(), 0U);
  const std::vector<CapturedReport> reports = reports_.All();
  EXPECT_EQ(reports.back().text, "Tika server 0 deactivated.");
  EXPECT_TRUE(std::any_of(reports.begin(), reports.end(),
                          [&](const CapturedReport& report) { return report.text == started; }));
}

TEST_F(Server, LinesBecomeMessagesOfTheirLevel) {
  Start(server_, "lines");
  ASSERT_TRUE(Says(server_, "ready"));
  Texts lines = Lines(server_);
  const Texts first = {"3 INFO  [main] %s %d", "4 WARN a", "4 WARNING: b", "3 Warning: c",
                       "3 ERROR: d",           "5 ERROR",  "3 \tat e",     "3 f g h"};
  ASSERT_GT(lines.size(), kHeaderLines + first.size());
  lines.erase(lines.begin(), lines.begin() + kHeaderLines);
  EXPECT_EQ(Slice(lines, 0, first.size()), first);
  std::string whole;
  std::size_t i = first.size();
  for (; lines[i] != "3 INFO i"; ++i) {
    EXPECT_EQ(lines[i].substr(0, 2), "5 ") << "a piece has the level of its line";
    whole += lines[i].substr(2);
  }
  EXPECT_EQ(whole, LongLine());
  EXPECT_EQ(lines[i + 1], "3 ready");
}

TEST_F(Server, EachDeathLeavesAnObituaryBehindTheLastWords) {
  Start(server_, "dies");
  ASSERT_TRUE(Eventually([this] { return recorder_.Starts() >= 3; }));
  server_.StopAll();
  const auto [end, text] = recorder_.End(0);
  EXPECT_EQ(end.exitCode, 3);
  EXPECT_EQ(end.isExitKnown, 1);
  EXPECT_EQ(end.signal + end.isRequested, 0);
  EXPECT_EQ(text.find("Tika process " + std::to_string(end.processId) +
                      " ended with exit code 3 after 0."),
            0U)
      << text;
  const Texts lines = Lines(server_);
  ASSERT_GE(lines.size(), 2 * (kHeaderLines + 3));
  EXPECT_EQ(Slice(lines, kHeaderLines, 3), Texts({"3 last", "3 words", "5 " + text}));
  EXPECT_EQ(recorder_.Ends().size(), recorder_.Starts());
  EXPECT_GE(server_.GetTikaErrors(), 2U);
  EXPECT_GE(server_.GetSessionId(), 2U);
}

TEST_F(Server, AKilledProcessIsStartedAgainAndSoIsOneOnRequest) {
  EXPECT_EQ(server_.RequestRestart("too early"), 0);
  Start(server_, "stubborn");
  for (unsigned long round = 1; round <= 2; ++round) {
    SCOPED_TRACE(round);
    ASSERT_TRUE(Eventually([&] { return server_.GetUpTime() > 0 && server_.GetProcessId() != 0; }));
    const auto pid = static_cast<pid_t>(server_.GetProcessId());
    ASSERT_TRUE(Eventually([&] { return server_.GetMemoryUsage() > 0; }));
    ASSERT_TRUE(Eventually([&] {
      const Texts lines = Lines(server_);
      return std::count(lines.begin(), lines.end(), "3 ready") == static_cast<long>(round);
    }));
    if (round == 1) ::kill(pid, SIGKILL);
    if (round == 2) {
      EXPECT_EQ(server_.RequestRestart("it grew too large"), 1);
      // While it ends, which takes it long.
      EXPECT_EQ(server_.RequestRestart("it grew too large", static_cast<unsigned long>(pid)), 1);
    }
    ASSERT_TRUE(Eventually([&] { return recorder_.Starts() == round + 1; }));
    EXPECT_TRUE(Ends(pid));
    EXPECT_TRUE(Eventually([&] { return server_.GetSessionId() == round; }));
    const auto [end, text] = recorder_.End(round - 1);
    EXPECT_EQ(end.signal, SIGKILL);
    EXPECT_GT(end.memoryUsage, 0U);
    EXPECT_NE(text.find(round == 1 ? "by signal 9 (Killed)" : "restarted: it grew too large"),
              std::string::npos)
        << text;
    EXPECT_EQ(server_.RequestRestart("it has gone", static_cast<unsigned long>(pid)), 0);
    server_.SetUpTime(0);
  }
  ASSERT_TRUE(Eventually([&] { return server_.GetUpTime() > 300; }));
  EXPECT_EQ(recorder_.Starts(), 3U) << "what was asked of a former process is not done to the next";
  server_.StopAll();
  EXPECT_EQ(recorder_.End(2).obituary.isRequested, 1);
  EXPECT_EQ(server_.GetTikaErrors(), 2U);
}

TEST_F(Server, AfterAThousandRestartsItGivesUp) {
  fs::remove(bin_.File("java"));
  fs::create_symlink("/bin/false", bin_.File("java"));
  Start(server_, "is false");
  // In steps, each with its own deadline: sanitizers make starts slow.
  for (unsigned long starts = 100; starts <= 1000; starts += 100) {
    ASSERT_TRUE(Eventually([&] { return recorder_.Starts() >= starts; })) << starts;
  }
  ASSERT_TRUE(Eventually([this] { return server_.IsActive() == 0; }));
  EXPECT_EQ(server_.GetProcessStatus(), SCA_ServerError);
  EXPECT_EQ(server_.GetTikaErrors(), 1001U);
  EXPECT_EQ(server_.GetSessionId(), 1000U);
  EXPECT_EQ(server_.StopAll(), 1);
  EXPECT_EQ(server_.GetProcessStatus(), SCA_ServerError) << "a stop does not heal it";
  // Its worker ended by itself; a start begins afresh, and a stop in the middle holds at once.
  unsigned long error = 0;
  ASSERT_EQ(server_.StartProcess(&error), 1);
  ASSERT_TRUE(Eventually([this] { return server_.GetTikaErrors() > 10; }));
  server_.StopAll();
  EXPECT_LT(server_.GetTikaErrors(), 1000U);
  EXPECT_EQ(server_.GetProcessStatus(), SCA_ServerInactive);
}

TEST_F(Server, WaitsBeforeARestartAsLongAsItIsAskedToAndNotBeyondAStop) {
  recorder_.SetDelay(300);
  const Stopwatch watch;
  Start(server_, "dies");
  ASSERT_TRUE(Eventually([this] { return recorder_.Starts() == 3; }));
  EXPECT_GE(watch.Ms(), 600);
  server_.StopAll();
  recorder_.SetDelay(10 * kDeadlineMs);
  const std::size_t ends = recorder_.Ends().size();
  Start(server_, "dies");
  ASSERT_TRUE(Eventually([&] { return recorder_.Ends().size() > ends; }));
  const Stopwatch stop;
  server_.StopAll();
  EXPECT_LT(stop.Ms(), kDeadlineMs);
  EXPECT_EQ(server_.GetProcessStatus(), SCA_ServerInactive);
  recorder_.SetDelay(SCA_Infinite);
  Start(server_, "dies");
  EXPECT_TRUE(Eventually([this] { return server_.GetProcessStatus() == SCA_ServerError; }));
  EXPECT_EQ(server_.GetTikaErrors(), 1U);
}

TEST_F(Server, WhatCannotBeStartedSaysWhy) {
  unsigned long error = 0;
  const fs::path beside = fs::read_symlink("/proc/self/exe").parent_path();
  const std::string relative = "sca-test-" + std::to_string(::getpid()) + ".jar";
  const std::string missing = bin_.File("missing.jar");
  const std::pair<std::string, std::string> rows[] = {{missing, missing},
                                                      {"C:\\missing", "C:\\missing"},
                                                      {relative, beside / relative},
                                                      {bin_.Path(), bin_.Path()}};
  for (const auto& [jar, shown] : rows) {
    ASSERT_EQ(server_.SetConfig(jar.c_str(), 1, 1, "", &error), 1);
    EXPECT_EQ(server_.StartProcess(&error), 0);
    EXPECT_EQ(error, SCA_ErrorNoJar);
    EXPECT_EQ(reports_.All().back().text,
              "SCA_TikaServer::StartProcess: Tika server JAR file does not exist - " + shown);
    EXPECT_EQ(server_.GetProcessStatus(), SCA_ServerError);
  }
  // Beside the program it is found, and nothing else is missing but java.
  const TempDir none;
  const ScopedVariable path("PATH", none.Path());
  fs::copy_file(jar_, beside / relative);
  ASSERT_EQ(server_.SetFileName(relative.c_str()), 1);
  EXPECT_EQ(server_.StartProcess(&error), 1);
  EXPECT_TRUE(Eventually([this] { return server_.IsActive() == 0; }));
  fs::remove(beside / relative);
  EXPECT_EQ(server_.GetFileName(), beside / relative);
  EXPECT_EQ(server_.GetStatusCode(), static_cast<unsigned long>(ENOENT));
  EXPECT_EQ(Lines(server_).back(), "5 Cannot start the Tika process: No such file or directory");
  SCA_TikaServer offline(nullptr);
  ASSERT_EQ(offline.SetConfig(jar_.c_str(), 1, 1, "", &error), 1);
  EXPECT_EQ(offline.StartProcess(&error), 0);
  EXPECT_EQ(error, SCA_ErrorInvalidData);
  EXPECT_EQ(offline.Lock("test", &error), 1) << "past the refusal; the destructor ends it";
}

TEST_F(Server, TheProcessTellsWhetherItLivesNotItsOutput) {
  Start(server_, "mute");
  ASSERT_TRUE(Eventually([&] { return server_.GetUpTime() > 300; }));
  EXPECT_EQ(server_.GetTikaErrors(), 0U);
  EXPECT_EQ(server_.GetProcessStatus(), SCA_ServerActive);
}

// The process that a server has named in a line of its log.
pid_t ProcessNamed(SCA_TikaServer& server, const std::string& name) {
  pid_t process = 0;
  for (const std::string& line : Lines(server)) {
    if (line.rfind(name, 0) == 0) process = std::stoi(line.substr(name.size()));
  }
  return process;
}

TEST_F(Server, TheEndOfAWorkerIsToldAndThatOfAToolIsNot) {
  Recorder idleRecorder;
  SCA_TikaServer idle(&config_);
  Start(idle, "idle", &idleRecorder);
  Start(server_, "parent");
  for (SCA_TikaServer* server : {&server_, &idle}) {
    ASSERT_TRUE(Says(*server, "ready"));
    // Once its memory is known, it has been seen.
    ASSERT_TRUE(Eventually([server] { return server->GetUpTime() > 2500; }));
    ASSERT_EQ(::kill(ProcessNamed(*server, "3 tool "), SIGKILL), 0);
    ASSERT_EQ(::kill(ProcessNamed(*server, "3 worker "), SIGKILL), 0);
  }
  const pid_t worker = ProcessNamed(server_, "3 worker ");
  ASSERT_TRUE(Eventually([this] { return server_.GetWorkerEnds() > 0; }));
  EXPECT_TRUE(Says(server_, "5 Worker process " + std::to_string(worker) + " ended after "));
  ASSERT_EQ(recorder_.Workers().size(), 1U);
  const SCA_TikaObituary obituary = recorder_.Workers()[0].obituary;
  EXPECT_EQ(obituary.processId, static_cast<unsigned long>(worker));
  EXPECT_EQ(obituary.isRequested, 0);
  EXPECT_GT(obituary.memoryUsage, 0U);
  EXPECT_EQ(server_.GetTikaErrors() + recorder_.Ends().size(), 0U);
  server_.StopAll();
  EXPECT_EQ(server_.GetWorkerEnds(), 1U);

  EXPECT_TRUE(Says(idle, "3 Worker process "));
  ASSERT_TRUE(Eventually([&] { return !idleRecorder.Workers().empty(); }));
  EXPECT_EQ(idleRecorder.Workers()[0].obituary.isRequested, 1);
  EXPECT_EQ(idle.GetWorkerEnds(), 0U) << "it had said that it ends for want of work";
}

TEST_F(Server, ADistributionRunsWholeAndInItsFolder) {
  unsigned long error = 0;
  const fs::path folder = bin_.Path() + "/tika 4";
  fs::create_directories(folder / "lib");
  for (const char* name :
       {"tika-server-standard-4.0.0.jar", "renamed.jar", "t-4.5-3.3.2-20260101.123456-1.jar"}) {
    fs::copy_file(jar_, folder / name);
  }
  // Without the other folder only the name tells what the jar is.
  const std::string jar = fs::relative(folder / "tika-server-standard-4.0.0.jar");
  ASSERT_EQ(server_.SetConfig(jar.c_str(), 1, 1, "-part=words", &error), 1);
  EXPECT_EQ(server_.StartProcess(&error), 0);
  EXPECT_EQ(error, SCA_ErrorNoTikaFolders);
  EXPECT_NE(reports_.All().back().text.find("beside the Tika server JAR file - " + jar),
            std::string::npos);
  fs::create_directories(folder / "plugins");
  fs::create_symlink(folder / "tika-server-standard-4.0.0.jar", bin_.File("link.jar"));
  const std::string here = fs::current_path();
  const std::string resolved = fs::canonical(folder / "tika-server-standard-4.0.0.jar");
  const std::string renamed = folder / "renamed.jar";
  const std::string third = folder / "t-4.5-3.3.2-20260101.123456-1.jar";
  const std::array<std::string, 3> rows[] = {{jar, resolved, folder},
                                             {bin_.File("link.jar"), resolved, folder},
                                             {renamed, renamed, folder},
                                             {third, third, here}};
  for (const auto& [name, argument, directory] : rows) {
    SCOPED_TRACE(name);
    SCA_TikaServer server(&config_);
    ASSERT_EQ(server.SetConfig(name.c_str(), 1, 1, "-part=words", &error), 1);
    ASSERT_EQ(server.StartProcess(&error), 1) << SCA_ErrorText(error);
    ASSERT_TRUE(Says(server, "ready"));
    EXPECT_TRUE(Says(server, "3 in " + directory));
    EXPECT_TRUE(Says(server, "[-jar][" + argument + "]"));
  }
}

TEST_F(Server, StubbornProcessesEndSideBySide) {
  SCA_TikaServerList list;
  for (unsigned short port = 1; port <= 5; ++port) {
    SCA_TikaServer* server = nullptr;
    unsigned long error = 0;
    ASSERT_EQ(list.AddServer(&config_, jar_.c_str(), port, 1, "-part=stubborn", &server, &error),
              1);
    ASSERT_EQ(server->StartProcess(&error), 1);
    ASSERT_TRUE(Says(*server, "ready"));
  }
  const Stopwatch watch;
  list.ClearAll();
  EXPECT_LT(watch.Ms(), 2LL * static_cast<long long>(SCA_ProcessStopGraceMs));
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
}

TEST_F(Server, StartersStoppersAndReadersMeetAndLeaveNothing) {
  // The first run makes what stays: the table of groups, the sanitizers' own.
  Start(server_, "flood");
  server_.StopAll();
  const std::ptrdiff_t descriptors = EntriesIn("/proc/self/fd");
  const std::ptrdiff_t tasks = EntriesIn("/proc/self/task");
  std::vector<std::thread> threads;
  const auto play = [&threads](int rounds, auto action) {
    threads.emplace_back([rounds, action] {
      for (int i = 0; i < rounds; ++i) action();
    });
  };
  for (int i = 0; i < 2; ++i) {
    // One stops before the process is there, the other after it.
    play(i == 0 ? 100 : 10, [this, i] {
      unsigned long error = 0;
      server_.StartProcess(&error);
      server_.SetJavaOptions("-part=flood");
      EXPECT_TRUE(i == 0 || Eventually([this] {
                    return server_.GetProcessId() != 0 || server_.IsActive() == 0;
                  }));
      server_.RequestRestart("by the test");
      server_.StopAll();
    });
  }
  play(200, [this] {
    SCA_ConfigObj object("Server", nullptr);
    SCA_TikaServer copy(nullptr);
    EXPECT_EQ(server_.Serialize(&object) + copy.Deserialize(&object), 2);
    EXPECT_EQ(copy.GetFileName(), jar_);
    server_.CheckConfig("x", 1, 1, "y");
    Lines(server_);
  });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(server_.GetProcessStatus(), SCA_ServerInactive);
  EXPECT_EQ(EntriesIn("/proc/self/fd"), descriptors);
  EXPECT_TRUE(Eventually([&] { return EntriesIn("/proc/self/task") == tasks; }));
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "no child is left, not even a zombie";
}

TEST(TikaServer, CarriesItsFields) {
  SCA_TikaConfigUser config(nullptr, nullptr);
  SCA_TikaServer server(&config);
  SCA_TikaServer copy(nullptr);
  unsigned long error = 0;
  const std::string jar = "/" + std::string(299, 'j');
  ASSERT_EQ(server.SetConfig(jar.c_str(), 65535, 0xFFFFFFFF, "-Da=B", &error), 1);
  EXPECT_EQ(server.SetConfig("x", 1, 1, "\n", &error), 0);
  EXPECT_EQ(server.CheckConfig(jar.c_str(), 65535, 0xFFFFFFFF, "-Da=B"), 1) << "all or nothing";
  EXPECT_EQ(server.CheckConfig(jar.c_str(), 65535, 0x1FFFFFFFF, "-Da=B"), 0);
  // Each field with a value of its own, so that none is taken for another.
  unsigned long long value = 1ULL << 32;
  using Setter = void (SCA_TikaServer::*)(unsigned long long);
  for (const Setter set :
       {&SCA_TikaServer::SetStartTime, &SCA_TikaServer::SetUpTime, &SCA_TikaServer::SetReadIOPS,
        &SCA_TikaServer::SetWriteIOPS, &SCA_TikaServer::SetReadData, &SCA_TikaServer::SetWriteData,
        &SCA_TikaServer::SetMemoryUsage}) {
    (server.*set)(++value);
  }
  using SmallSetter = void (SCA_TikaServer::*)(unsigned long);
  for (const SmallSetter set : {&SCA_TikaServer::SetServerId, &SCA_TikaServer::SetSessionId,
                                &SCA_TikaServer::SetProcessStatus, &SCA_TikaServer::SetStatusCode,
                                &SCA_TikaServer::SetTikaErrors}) {
    (server.*set)(static_cast<std::uint32_t>(++value));
  }
  ASSERT_EQ(copy.SetContent(&server), 1);
  EXPECT_EQ(copy.GetFileName(), jar.substr(0, 259)) << "cut, as documented";
  SCA_ConfigObj sent("Server", nullptr);
  SCA_ConfigObj received("Server", nullptr);
  ASSERT_EQ(server.Serialize(&sent) + copy.Serialize(&received), 2);
  for (SCA_ConfigObj* object : {&sent, &received}) object->GetFields().DeleteItem("FileName");
  EXPECT_EQ(sent.GetFieldCount(), 15U);
  EXPECT_EQ(received.Compare(&sent), 1);
  const SCA_ConfigObj nothing("Server", nullptr);
  EXPECT_EQ(copy.Deserialize(&nothing), 1);
  EXPECT_EQ(copy.GetMemoryUsage(), server.GetMemoryUsage()) << "what is missing stays";
  copy.SetProcessStatus(SCA_ServerActive);
  EXPECT_EQ(copy.StopAll(), 1);
  EXPECT_EQ(copy.IsActive(), 1) << "a copy has nothing to stop";
}

}  // namespace
