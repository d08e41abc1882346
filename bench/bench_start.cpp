// How soon there is text: one document and a folder of them from nothing, beside Tika's own
// command-line program, and a server that was killed.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/Contest.h"
#include "bench/Machine.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_FreePort.h"
#include "platform/SCA_Path.h"
#include "platform/SCA_Report.h"
#include "supervision/SCA_TikaWatch.h"

namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

constexpr char kDocument[] = "samples/train-timetable-de.xls";
constexpr char kTheirs[] = "Tika's own program";
constexpr char kOurs[] = "tikaextract";
constexpr char kBare[] = "tikaextract --no-class-archive";
constexpr char kHosted[] = "tikaextract, service host";
constexpr char kCold[] = "without an archive";
constexpr char kWarm[] = "with an archive";
constexpr int kMostLongRounds = 7;
constexpr unsigned long kReadyMs = 60000;

// A program of the build, which lies beside this one.
std::string Ours(const std::string& name) {
  char path[SCA_MaxPath];
  char directory[SCA_MaxPath];
  unsigned long error = 0;
  if (SCA_GetExeFileName(path, sizeof path, &error) == 0 ||
      SCA_GetDirName(path, directory, sizeof directory) == 0) {
    throw std::runtime_error("the programs' directory is not known");
  }
  return std::string(directory) + "/" + name;
}

// A jar that scripts/setup fetched.
std::string Jar(const std::string& name) {
  char cache[SCA_MaxPath] = "";
  SCA_GetUserCacheDir(cache, sizeof cache);
  const std::string jar = std::string(cache) + "/sca_tika/" + name;
  if (!fs::is_regular_file(jar)) throw std::runtime_error("there is no " + jar);
  return jar;
}

pid_t Spawn(const Words& words) {
  Words copy = words;
  std::vector<char*> pointers;
  for (std::string& word : copy) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
    posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", O_WRONLY, 0);
  }
  pid_t pid = 0;
  const int code =
      posix_spawnp(&pid, pointers.front(), &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (code != 0) throw std::runtime_error("cannot start " + words.front());
  return pid;
}

// Runs a program to its end. @return Its exit status, or -1 when a signal ended it.
int RunToEnd(const Words& words) {
  int status = 0;
  ::waitpid(Spawn(words), &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A service host with one server, which this account's tikaextract finds.
class ServiceHost {
 public:
  ServiceHost(const std::string& directory, const std::string& jar)
      : pid_(Spawn({Ours("tikasvc"), "--config", directory + "/root.trv", "--control-port", "0",
                    "--jar", jar, "--heap", "512", "--first-port",
                    std::to_string(SCA_FindFreePort())})) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(kReadyMs);
    while (RunToEnd({Ours("tikactl"), "status"}) != 0) {
      if (std::chrono::steady_clock::now() > limit) throw std::runtime_error("no service host");
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }
  ~ServiceHost() {
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
  ServiceHost(const ServiceHost&) = delete;
  ServiceHost& operator=(const ServiceHost&) = delete;

 private:
  const pid_t pid_;
};

// Adds the first peer's own time to the table's ratios, which say nothing of it.
void PrintBase(const char* work, const Contest& contest) {
  std::printf("%s: %s takes %.2f s\n", work, kTheirs, contest.BaseWall());
}

void MeasureOneDocument(const std::string& app, const std::string& jar, int rounds,
                        Results* results) {
  Contest contest;
  const auto add = [&](const char* name, const Words& words) {
    contest.Add(
        name, [] {}, [=] { return RunToEnd(words) == 0; });
  };
  add(kTheirs, {"java", "-jar", app, "-t", kDocument});
  add(kOurs, {Ours("tikaextract"), "--private", "--jar", jar, kDocument});
  add(kBare, {Ours("tikaextract"), "--private", "--no-class-archive", "--jar", jar, kDocument});
  add(kHosted, {Ours("tikaextract"), kDocument});
  contest.Run(rounds);
  PrintBase("one document", contest);
  results->Add({"one document, from nothing",
                "time",
                contest.Wall(kOurs),
                0.85,
                {{kTheirs, {1, 0}}, {kBare, contest.Wall(kBare)}}});
  results->Add(
      {"one document, service host", "time", contest.Wall(kHosted), 0.1, {{kTheirs, {1, 0}}}});
}

// The documents among the samples: a folder of which both programs take every file.
std::string CopyDocuments(const ScratchDir& scratch) {
  const std::string folder = scratch.MakeFile("documents", 0) + ".d";
  fs::create_directory(folder);
  for (const fs::directory_entry& entry : fs::directory_iterator("samples")) {
    const std::string kind = entry.path().extension();
    const bool isDocument =
        kind == ".doc" || kind == ".docx" || kind == ".xls" || kind == ".xlsx" || kind == ".pdf";
    if (isDocument) fs::copy(entry.path(), fs::path(folder) / entry.path().filename());
  }
  return folder;
}

void MeasureFolder(const std::string& app, const std::string& jar, const ScratchDir& scratch,
                   int rounds, Results* results) {
  const std::string folder = CopyDocuments(scratch);
  const std::string texts = scratch.MakeFile("texts", 0) + ".d";
  Contest contest;
  const auto add = [&](const char* name, const Words& words, int worst) {
    contest.Add(
        name,
        [=] {
          fs::remove_all(texts);
          fs::create_directory(texts);
        },
        [=] {
          const int status = RunToEnd(words);
          return status >= 0 && status <= worst;
        });
  };
  add(kTheirs, {"java", "-jar", app, "-t", "-i", folder, "-o", texts}, 0);
  // Some samples are refused.
  add(kOurs, {Ours("tikaextract"), "--private", "--jar", jar, "-r", folder, "-o", texts}, 1);
  add(kBare,
      {Ours("tikaextract"), "--private", "--no-class-archive", "--jar", jar, "-r", folder, "-o",
       texts},
      1);
  contest.Run(std::min(rounds, kMostLongRounds));
  PrintBase("the samples", contest);
  results->Add({"the samples, from nothing",
                "time",
                contest.Wall(kOurs),
                0.65,
                {{kTheirs, {1, 0}}, {kBare, contest.Wall(kBare)}}});
}

// A watched server that is killed again and again.
class Victim {
 public:
  Victim(const std::string& jar, SCA_ClassArchive* archive) : watch_(&server_, Rules(archive)) {
    unsigned long error = 0;
    if (server_.SetBindAddress("127.0.0.1") == 0 ||
        server_.SetConfig(jar.c_str(), SCA_FindFreePort(), 512, "", &error) == 0 ||
        watch_.Start(&error) == 0) {
      throw std::runtime_error(SCA_ErrorText(error));
    }
  }

  void WaitReady() {
    unsigned long error = 0;
    if (watch_.WaitReady(kReadyMs, nullptr, &error) == 0) {
      throw std::runtime_error(SCA_ErrorText(error));
    }
  }

  bool KillAndComeBack() {
    const unsigned long former = server_.GetProcessId();
    ::kill(static_cast<pid_t>(former), SIGKILL);
    while (server_.GetProcessId() == former || server_.GetProcessId() == 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    WaitReady();
    return true;
  }

 private:
  static SCA_TikaWatchRules Rules(SCA_ClassArchive* archive) {
    SCA_TikaWatchRules rules;
    rules.purpose = SCA_JvmPurpose::Service;
    rules.archive = archive;
    rules.firstAskMs = 20;
    rules.firstDelayMs = 0;
    return rules;
  }

  SCA_TikaConfigUser config_{nullptr, nullptr};
  SCA_TikaServer server_{&config_};
  SCA_TikaWatch watch_;
};

void MeasureKill(const std::string& jar, SCA_ClassArchive* archive, int rounds, Results* results) {
  Contest contest;
  // One at a time: two that run side by side share the processor.
  Victim cold(jar, nullptr);
  Victim warm(jar, archive);
  contest.Add(
      kCold, [&] { cold.WaitReady(); }, [&] { return cold.KillAndComeBack(); });
  contest.Add(
      kWarm, [&] { warm.WaitReady(); }, [&] { return warm.KillAndComeBack(); });
  contest.Run(std::min(rounds, kMostLongRounds));
  std::printf("a killed server without an archive is ready again after %.2f s\n",
              contest.BaseWall());
  results->Add(
      {"a killed server, ready again", "time", contest.Wall(kWarm), 0.55, {{kCold, {1, 0}}}});
}

}  // namespace

int main(int argc, char** argv) try {
  const BenchOptions options = BeginBench(argc, argv, "start");
  const std::string app = Jar("tika-app-2.9.2.jar");
  const std::string jar = Jar("tika-server-standard-3.3.2.jar");
  std::printf(
      "Text from nothing: times of whole programs, as multiples of Tika's own command-line "
      "program\n"
      "(tika-app 2.9.2; its batch mode for a folder), with the page cache warm\n");
  // Nothing is printed for what each kill reports.
  SCA_SetReportSink([](void*, unsigned long, const char*, int, const char*) {}, nullptr);
  const ScratchDir scratch;
  const std::string home = scratch.MakeFile("home", 0) + ".d";
  fs::create_directory(home);
  ::setenv("XDG_CONFIG_HOME", home.c_str(), 1);
  ::setenv("XDG_CACHE_HOME", home.c_str(), 1);
  // The archive of private servers, and the same for the servers that are killed.
  if (RunToEnd({Ours("tikaextract"), "--make-class-archive", "--jar", jar}) != 0) {
    throw std::runtime_error("no class archive was made");
  }
  char directory[SCA_MaxPath];
  SCA_GetClassArchiveDir(directory, sizeof directory);
  SCA_ClassArchive archive(directory);
  Results results;
  {
    const ServiceHost host(home, jar);
    MeasureOneDocument(app, jar, options.rounds, &results);
  }
  MeasureFolder(app, jar, scratch, options.rounds, &results);
  MeasureKill(jar, &archive, options.rounds, &results);
  return results.Finish(options);
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench_start: %s\n", error.what());
  return EXIT_FAILURE;
}
