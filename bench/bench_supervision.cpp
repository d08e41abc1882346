// How long a server is gone when its process dies, and what watching idle processes costs.

#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <stdexcept>
#include <thread>

#include "bench/Contest.h"
#include "bench/Machine.h"
#include "host/SCA_TikaServerList.h"
#include "platform/SCA_Report.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr double kPassMs = 142;  // the documented pass of the worker: 42 and 100 ms
constexpr double kRestartLimitMs = 2 + kPassMs;
constexpr double kIdleLimit = 0.5;
// Longer than the second for which other supervisors keep back a child that died young.
constexpr int kLifeMs = 1100;

struct Start {
  pid_t pid = 0;
  double seconds = 0;
};

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Where the children say when they began.
class StartLog {
 public:
  explicit StartLog(std::string name) : name_(std::move(name)) {
    std::ofstream(name_).flush();
    ::setenv("SCA_SUPERVISED_LOG", name_.c_str(), 1);
  }

  // Waits for that many starts; gives the last of them.
  Start WaitFor(std::size_t count) const {
    const double limit = Now() + 30;
    while (Now() < limit) {
      std::ifstream file(name_);
      std::size_t complete = 0;
      Start start;
      for (std::string line; std::getline(file, line) && !file.eof(); ++complete) {
        long long nanoseconds = 0;
        if (std::sscanf(line.c_str(), "%d %lld", &start.pid, &nanoseconds) != 2) break;
        start.seconds = static_cast<double>(nanoseconds) * 1e-9;
      }
      if (complete >= count) return start;
      std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
    throw std::runtime_error("a child was not started");
  }

 private:
  std::string name_;
};

std::string ProgramPath(const char* name) {
  return (fs::read_symlink("/proc/self/exe").parent_path() / name).string();
}

// The directory of a service in the form of runit and s6.
std::string MakeService(const fs::path& directory) {
  fs::create_directory(directory);
  const fs::path run = directory / "run";
  std::ofstream(run) << "#!/bin/sh\nexec " << ProgramPath("supervised") << "\n";
  fs::permissions(run, fs::perms::owner_all);
  return directory.string();
}

pid_t SpawnProgram(std::vector<std::string> words) {
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  pid_t pid = 0;
  if (::posix_spawnp(&pid, pointers[0], nullptr, nullptr, pointers.data(), environ) != 0) {
    throw std::runtime_error("cannot start " + words[0]);
  }
  return pid;
}

// The least that a supervisor can do, in a process of its own.
pid_t SpawnBareLoop() {
  const std::string child = ProgramPath("supervised");
  const pid_t pid = ::fork();
  if (pid != 0) return pid;
  for (;;) {
    pid_t started = 0;
    char* const words[] = {const_cast<char*>(child.c_str()), nullptr};
    if (::posix_spawn(&started, words[0], nullptr, nullptr, words, environ) != 0) ::_exit(1);
    ::waitpid(started, nullptr, 0);
  }
}

// Milliseconds from each kill of a child to its successor's start.
Figure MeasureRestarts(int rounds, const std::string& logName, const std::function<void()>& begin,
                       const std::function<void(pid_t)>& end) {
  const StartLog log(logName);
  begin();
  std::mt19937 random(4711);
  std::uniform_real_distribution<double> phase(0, kPassMs);
  std::vector<double> times;
  Start start = log.WaitFor(1);
  for (int round = 0; round < rounds; ++round) {
    // At any moment of a pass alike.
    std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(kLifeMs + phase(random)));
    const double killed = Now();
    ::kill(start.pid, SIGKILL);
    start = log.WaitFor(static_cast<std::size_t>(round) + 2);
    times.push_back((start.seconds - killed) * 1000);
  }
  end(start.pid);
  return Figure::Of(times);
}

void MeasureRestarts(const BenchOptions& options, const fs::path& dir, Results* results) {
  const std::string logName = (dir / "starts").string();
  SCA_TikaConfigUser config(nullptr, nullptr);
  SCA_TikaServer server(&config);
  unsigned long error = 0;
  server.SetConfig((dir / "jar").c_str(), 1, 1, "", &error);
  ResultRow row{"a killed process is back", "ms", {}, kRestartLimitMs, {}};
  row.ours = MeasureRestarts(
      options.rounds, logName,
      [&] {
        if (server.StartProcess(&error) == 0) throw std::runtime_error("cannot start a server");
      },
      [&](pid_t) { server.StopAll(); });
  const auto add = [&](const std::string& name, const std::function<pid_t()>& spawn) {
    pid_t supervisor = 0;
    row.peers.emplace_back(name, MeasureRestarts(
                                     options.rounds, logName, [&] { supervisor = spawn(); },
                                     [&](pid_t child) {
                                       ::kill(supervisor, SIGKILL);
                                       ::waitpid(supervisor, nullptr, 0);
                                       ::kill(child, SIGKILL);
                                     }));
  };
  add("bare loop", SpawnBareLoop);
  add("runit", [&] { return SpawnProgram({"runsv", MakeService(dir / "runit")}); });
  add("s6", [&] { return SpawnProgram({"s6-supervise", MakeService(dir / "s6")}); });
  results->Add(row);
}

double ProcessCpu() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void MeasureIdle(const BenchOptions& options, const fs::path& dir, unsigned short count,
                 std::optional<double> limit, Results* results) {
  const StartLog log((dir / "starts").string());
  const int seconds = options.quick ? 5 : 60;
  SCA_TikaConfigUser config(nullptr, nullptr);
  SCA_TikaServerList list;
  for (unsigned short port = 1; port <= count; ++port) {
    SCA_TikaServer* server = nullptr;
    unsigned long error = 0;
    if (list.AddServer(&config, (dir / "jar").c_str(), port, 1, "", &server, &error) == 0 ||
        server->StartProcess(&error) == 0) {
      throw std::runtime_error("cannot start a server");
    }
  }
  log.WaitFor(count);
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const double cpu = ProcessCpu();
  const double begin = Now();
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const double share = (ProcessCpu() - cpu) / (Now() - begin) * 100;
  results->Add({"watching " + std::to_string(count) + " idle processes",
                "% of a core",
                {share, 0},
                limit,
                {}});
}

}  // namespace

int main(int argc, char** argv) try {
  BenchOptions options = BeginBench(argc, argv, "supervision");
  SCA_SetReportSink([](void*, unsigned long, const char*, int, const char*) {}, nullptr);
  const ScratchDir scratch;
  const fs::path dir = fs::path(scratch.MakeFile("jar", 1)).parent_path();
  fs::create_symlink(ProgramPath("supervised"), dir / "java");
  ::setenv("PATH", (dir.string() + ":" + std::getenv("PATH")).c_str(), 1);
  Results results;
  MeasureRestarts(options, dir, &results);
  MeasureIdle(options, dir, 8, std::nullopt, &results);
  MeasureIdle(options, dir, 50, kIdleLimit, &results);
  return results.Finish(options);
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench_supervision: %s\n", error.what());
  return EXIT_FAILURE;
}
