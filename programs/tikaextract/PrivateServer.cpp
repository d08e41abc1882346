#include "programs/tikaextract/PrivateServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>

#include "platform/SCA_Error.h"
#include "platform/SCA_Process.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kDefaultJar[] = "tika-server-standard-3.3.2.jar";
constexpr std::size_t kLinesKept = 20;
constexpr unsigned long kWatchMs = 100;    // how soon a stop is noticed
constexpr unsigned long kPollMs = 50;      // between two asks whether the server answers
constexpr unsigned long kAnswerMs = 2000;  // for one ask
constexpr std::chrono::seconds kReadyLimit{60};

// Below the range from which the system takes the ports of outgoing connections: one of those must
// not get in the way while the server comes up.
constexpr int kFirstPort = 20000;
constexpr int kLastPort = 32000;

bool IsFree(unsigned short port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int bound = ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  ::close(fd);
  return bound == 0;
}

unsigned short FindFreePort() {
  std::random_device random;
  std::uniform_int_distribution<int> distribution(kFirstPort, kLastPort);
  for (int tries = 0; tries < 1000; ++tries) {
    const auto port = static_cast<unsigned short>(distribution(random));
    if (IsFree(port)) return port;
  }
  return 0;
}

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

// The jar named by the user, else the one in the user's cache directory.
std::string JarPath(const Options& options) {
  if (!options.jar.empty()) return options.jar;
  const std::string named = Environment("TIKA_SERVER_JAR");
  if (!named.empty()) return named;
  const std::string cache = Environment("XDG_CACHE_HOME");
  return (cache.empty() ? Environment("HOME") + "/.cache" : cache) + "/sca_tika/" + kDefaultJar;
}

std::string ComplainAboutJar(const std::string& jar) {
  for (const char c : jar) {
    if (c == '"' || static_cast<unsigned char>(c) < 0x20) {
      return "the jar's path '" + jar + "' holds a double quote or a control character: rename it";
    }
  }
  if (!std::filesystem::is_regular_file(jar)) {
    return "there is no Tika server jar '" + jar +
           "': name one with --jar or TIKA_SERVER_JAR, or use a running server with --server";
  }
  return {};
}

std::string DescribeExit(const SCA_ProcessExit& exit) {
  if (exit.signal == 0) return "with exit status " + std::to_string(exit.exitCode);
  return std::string("by signal ") + ::strsignal(exit.signal);
}

}  // namespace

PrivateServer::PrivateServer(const Options& options, SCA_Event* cancel)
    : options_(options), cancel_(cancel) {}

PrivateServer::~PrivateServer() {
  StopThread();
}

void PrivateServer::StopThread() {
  stop_.Set();
  if (thread_.joinable()) thread_.join();
  stop_.Reset();
}

bool PrivateServer::EnsureReady(std::string* complaint) {
  if (GetState() == State::Ended && !Launch(complaint)) return false;
  const Clock::time_point limit = Clock::now() + kReadyLimit;
  while (!Answers()) {
    if (cancel_->Wait(kPollMs) != 0) return false;
    if (GetState() == State::Ended) {
      *complaint = Describe("");
      return false;
    }
    if (Clock::now() > limit) {
      *complaint = Describe("the Tika server did not answer within " +
                            std::to_string(kReadyLimit.count()) + " s");
      return false;
    }
  }
  return true;
}

bool PrivateServer::Launch(std::string* complaint) {
  StopThread();
  const std::string jar = JarPath(options_);
  *complaint = ComplainAboutJar(jar);
  if (!complaint->empty()) return false;
  port_ = FindFreePort();
  if (port_ == 0) {
    *complaint = "no free port was found on 127.0.0.1 for the Tika server";
    return false;
  }
  const std::string heap = "-Xmx" + std::to_string(options_.javaHeapMb) + "m";
  const std::string command =
      "java " + heap + " -jar \"" + jar + "\" -h 127.0.0.1 -port " + std::to_string(port_);
  // The server forks the JVM that parses and does not hand its options on: the environment does.
  const std::string inherited = Environment("JAVA_TOOL_OPTIONS");
  SetState(State::Starting, "");
  thread_ =
      std::thread([this, command, javaOptions = inherited.empty() ? heap : inherited + " " + heap] {
        Watch(command, javaOptions);
      });
  return true;
}

// Runs on the thread of its own: the process dies with the thread that started it.
void PrivateServer::Watch(const std::string& command, const std::string& javaOptions) {
  const SCA_Owned<SCA_Process> process(SCA_CreateProcess());
  unsigned long error = ENOMEM;
  if (process == nullptr ||
      process->SetEnvironment("JAVA_TOOL_OPTIONS", javaOptions.c_str()) == 0 ||
      process->Start(command.c_str(), 0, SCA_ProcessReadOutput, &error) == 0) {
    SetState(State::Ended, std::string("cannot start 'java': ") + SCA_ErrorText(error) +
                               "; install a Java runtime (Debian: default-jre-headless)");
    return;
  }
  if (options_.verbose) std::fprintf(stderr, "tikaextract: started %s\n", command.c_str());
  SetState(State::Running, "");
  char line[4096];
  unsigned long length = 0;
  while (stop_.Wait(0) == 0) {
    if (process->WaitForOutput(kWatchMs, 0) != 0) {
      while (process->ReadOutputLine(line, sizeof line, &length, &error) != 0 && length > 0) {
        AddLine(line);
      }
    } else if (SCA_ProcessExit exit; process->GetExit(&exit) != 0) {
      SetState(State::Ended, "the Tika server ended " + DescribeExit(exit));
      return;
    }
  }
}

void PrivateServer::AddLine(const char* line) {
  if (options_.verbose) std::fprintf(stderr, "tika: %s\n", line);
  const SCA_LockGuard guard(lock_);
  lines_.emplace_back(line);
  if (lines_.size() > kLinesKept) lines_.pop_front();
}

void PrivateServer::SetState(State state, const std::string& cause) {
  const SCA_LockGuard guard(lock_);
  state_ = state;
  cause_ = cause;
  if (state == State::Starting) lines_.clear();
}

PrivateServer::State PrivateServer::GetState() {
  const SCA_LockGuard guard(lock_);
  return state_;
}

std::string PrivateServer::Describe(const std::string& what) {
  const SCA_LockGuard guard(lock_);
  std::string text = what.empty() ? cause_ : what;
  if (!lines_.empty()) text += "; its last lines:";
  for (const std::string& line : lines_) text += "\n  " + line;
  return text;
}

bool PrivateServer::Answers() {
  SCA_TikaConfigOrv settings;
  settings.SetNetworkTimeout(kAnswerMs);
  SCA_TikaClient client(&settings, "127.0.0.1", port_);
  client.SetCancelEvent(cancel_);
  char version[101];
  unsigned long error = 0;
  if (client.Connect(kAnswerMs, &error) == 0) return false;
  if (client.GetVersion(version, sizeof version, &error) == 0) return false;
  if (options_.verbose) std::fprintf(stderr, "tikaextract: %s answers\n", version);
  return true;
}
