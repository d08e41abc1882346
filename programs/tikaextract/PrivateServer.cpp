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
#include "programs/common/Escape.h"
#include "programs/tikaextract/ServerProbe.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kDefaultJar[] = "tika-server-standard-3.3.2.jar";
constexpr unsigned long kLinesShown = 20;
constexpr unsigned long kPollMs = 50;    // between two asks whether the server answers
constexpr unsigned long kPrintMs = 100;  // between two looks at what the server has said
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
      return "the jar's path " + Quoted(jar) +
             " holds a double quote or a control character: rename it";
    }
  }
  std::error_code error;
  if (std::filesystem::is_regular_file(jar, error)) return {};
  if (error && error != std::errc::no_such_file_or_directory) {
    return "cannot use the Tika server jar " + Quoted(jar) + ": " + error.message();
  }
  return "there is no Tika server jar " + Quoted(jar) +
         ": name one with --jar or TIKA_SERVER_JAR, or use a running server with --server";
}

std::string DescribeEnd(const SCA_TikaObituary& obituary) {
  if (obituary.isExitKnown == 0) return "with an unknown exit status";
  if (obituary.signal == 0) return "with exit status " + std::to_string(obituary.exitCode);
  return std::string("by signal ") + ::strsignal(obituary.signal);
}

}  // namespace

PrivateServer::PrivateServer(const Options& options, SCA_Event* cancel)
    : options_(options), cancel_(cancel) {
  server_.SetBindAddress("127.0.0.1");
  server_.SetObserver(this);
}

PrivateServer::~PrivateServer() {
  server_.StopAll();
  stopPrinting_.Set();
  if (printer_.joinable()) printer_.join();
}

bool PrivateServer::EnsureReady(std::string* complaint) {
  if (server_.IsActive() == 0 && !Launch(complaint)) return false;
  const Clock::time_point limit = Clock::now() + kReadyLimit;
  while (!Answers()) {
    if (cancel_->Wait(kPollMs) != 0) return false;
    if (HasFailed(complaint)) {
      server_.StopAll();
      return false;
    }
    if (Clock::now() > limit) {
      server_.StopAll();
      *complaint = "the Tika server did not answer within " + std::to_string(kReadyLimit.count()) +
                   " s" + LastLines();
      return false;
    }
  }
  NoteAnswer();
  return true;
}

bool PrivateServer::Launch(std::string* complaint) {
  const std::string jar = JarPath(options_);
  *complaint = ComplainAboutJar(jar);
  if (!complaint->empty()) return false;
  port_ = FindFreePort();
  if (port_ == 0) {
    *complaint = "no free port was found on 127.0.0.1 for the Tika server";
    return false;
  }
  {
    const SCA_LockGuard guard(lock_);
    failure_.clear();
  }
  unsigned long error = 0;
  if (server_.SetConfig(jar.c_str(), port_, options_.javaHeapMb, "", &error) == 0 ||
      server_.StartProcess(&error) == 0) {
    *complaint = "cannot start a Tika server from " + Quoted(jar) + ": " + SCA_ErrorText(error);
    return false;
  }
  if (options_.verbose && !printer_.joinable()) {
    try {
      printer_ = std::thread([this] { PrintLines(); });
    } catch (const std::system_error& failure) {
      // The dispatcher's threads come here too, which nothing may leave.
      *complaint = "cannot start a thread: " + failure.code().message();
      return false;
    }
  }
  return true;
}

void PrivateServer::OnStart(unsigned long processId) {
  if (options_.verbose) {
    PrintErrorLine("tikaextract: started java, process " + std::to_string(processId));
  }
  beforeOutput_ = server_.GetLog()->GetLastMessageId();
  const SCA_LockGuard guard(lock_);
  hasAnswered_ = false;
}

// A server that has worked is started again by its own rule; one that never comes up would be, a
// thousand times.
void PrivateServer::OnEnd(const SCA_TikaObituary& obituary) {
  const std::string failure = "the Tika server ended " + DescribeEnd(obituary) + LastLines();
  const SCA_LockGuard guard(lock_);
  if (hasAnswered_ || obituary.isRequested != 0) return;
  failure_ = failure;
  server_.RequestStop();
}

bool PrivateServer::HasFailed(std::string* complaint) {
  const bool isActive = server_.IsActive() != 0;
  const SCA_LockGuard guard(lock_);
  if (!failure_.empty()) {
    *complaint = failure_;
  } else if (!isActive) {
    *complaint = std::string("cannot start 'java': ") + SCA_ErrorText(server_.GetStatusCode()) +
                 "; install a Java runtime (Debian: default-jre-headless)";
  }
  return !failure_.empty() || !isActive;
}

void PrivateServer::NoteAnswer() {
  const SCA_LockGuard guard(lock_);
  hasAnswered_ = true;
}

// What the process printed last, between the messages of its start and the one of its end. While
// the worker runs, for the worker alone.
std::string PrivateServer::LastLines() {
  std::string text;
  const auto* node = server_.GetLog()->GetMessageList()->GetTail();
  if (node != nullptr) node = node->GetPrev();
  for (unsigned long i = 0; i < kLinesShown && node != nullptr; ++i, node = node->GetPrev()) {
    if (beforeOutput_ != SCA_NoItemId && node->GetId() <= beforeOutput_) break;
    text.insert(0, "\n  " + Printable(node->GetItem()->text));
  }
  return text.empty() ? text : "; its last lines:" + text;
}

// Prints what comes into the log, and what is left there at the end.
void PrivateServer::PrintLines() {
  unsigned long printed = SCA_NoItemId;
  for (bool isLast = false; !isLast;) {
    isLast = stopPrinting_.Wait(kPrintMs) != 0;
    SCA_ConfigObj messages("Log", nullptr);
    server_.GetLog()->Serialize(&messages, SCA_NoItemId, printed);
    const SCA_Field* field = messages.GetFields().GetHead();
    for (; field != nullptr; field = field->GetNext()) {
      // Level, date and time stand before the text.
      std::string text = field->GetValue();
      for (int word = 0; word < 3; ++word) text.erase(0, text.find(' ') + 1);
      PrintErrorLine("tika: " + Printable(text));
      printed = std::strtoul(field->GetName(), nullptr, 10);
    }
  }
}

bool PrivateServer::Answers() {
  const std::string version = AskTikaVersion("127.0.0.1", port_, cancel_);
  if (options_.verbose && !version.empty()) {
    PrintErrorLine("tikaextract: " + Printable(version) + " answers");
  }
  return !version.empty();
}
