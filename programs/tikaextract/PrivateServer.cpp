#include "programs/tikaextract/PrivateServer.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "platform/SCA_Error.h"
#include "platform/SCA_FreePort.h"
#include "programs/common/Escape.h"

namespace {

constexpr char kDefaultJar[] = "tika-server-standard-3.3.2.jar";
constexpr std::size_t kLinesShown = 20;
constexpr unsigned long kPrintMs = 100;  // between two looks at what the server has said
constexpr unsigned long kReadyMs = 60000;

SCA_TikaWatchRules Rules(SCA_ClassArchive* archive) {
  SCA_TikaWatchRules rules;
  rules.purpose = SCA_JvmPurpose::Run;
  rules.archive = archive;
  rules.askMs = SCA_Infinite;  // once it answers, it is asked when it is needed
  rules.firstAskMs = 50;
  rules.answerLimitMs = 2000;
  rules.reviveAfterMs = 0;
  rules.vainEnd = SCA_TikaVainEnd::GiveUp;  // and the run tells why
  return rules;
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

SCA_TikaLaunch LaunchOf(const Options& options) {
  return {JarPath(options), "", options.javaHeapMb};
}

// What the process printed last.
std::string LastLines(const SCA_TikaDeath& death) {
  const std::size_t skipped = death.lines.size() - std::min(death.lines.size(), kLinesShown);
  std::string text = death.lines.empty() ? "" : "; its last lines:";
  for (std::size_t i = skipped; i < death.lines.size(); ++i) {
    text += "\n  " + Printable(death.lines[i]);
  }
  return text;
}

}  // namespace

PrivateServer::PrivateServer(const Options& options, SCA_Event* cancel)
    : options_(options),
      cancel_(cancel),
      archive_(ClassArchiveDirectory().c_str()),
      watch_(&server_, Rules(options.classArchive ? &archive_ : nullptr), nullptr, this) {
  server_.SetBindAddress("127.0.0.1");
}

PrivateServer::~PrivateServer() {
  watch_.Stop();
  stopPrinting_.Set();
  if (printer_.joinable()) printer_.join();
}

bool PrivateServer::EnsureReady(std::string* complaint) {
  if (server_.IsActive() == 0 && !Launch(complaint)) return false;
  unsigned long error = 0;
  if (watch_.WaitReady(kReadyMs, cancel_, &error) != 0) return true;
  if (error == SCA_ErrorCancelled) return false;
  watch_.Stop();
  *complaint = Explain(error);
  return false;
}

ExitStatus PrivateServer::MakeArchive(const Options& options, SCA_Event* cancel) {
  const SCA_TikaLaunch launch = LaunchOf(options);
  const std::string complaint = ComplainAboutJar(launch.fileName);
  if (complaint.empty()) return MakeClassArchive(options, launch, cancel);
  PrintErrorLine("tikaextract: " + complaint);
  return kNoServer;
}

void PrivateServer::MakeArchiveLater() {
  SCA_TikaWatchState state;
  const bool isMissing = watch_.GetState(&state) != 0 && state.hasAnswered != 0 &&
                         state.archive == SCA_ClassArchiveState::Missing;
  if (isMissing && StartMakingClassArchive(archive_, LaunchOf(options_)) && options_.verbose) {
    PrintErrorLine("tikaextract: making a class archive for later runs in the background");
  }
}

std::string PrivateServer::Explain(unsigned long error) const {
  if (error != SCA_ErrorProcessEnded && error != ETIMEDOUT) {
    return std::string("cannot start 'java': ") + SCA_ErrorText(error) +
           "; install a Java runtime (Debian: default-jre-headless)";
  }
  SCA_TikaDeath death;
  watch_.GetLastDeath(&death);
  if (error == ETIMEDOUT) {
    return "the Tika server did not answer within " + std::to_string(kReadyMs / 1000) + " s" +
           LastLines(death);
  }
  char end[60];
  death.DescribeExit(end, sizeof end);
  const std::string cause = death.kind == SCA_DeathKind::PortTaken ? ": " + death.cause : "";
  return std::string("the Tika server ended ") + end + cause + LastLines(death);
}

bool PrivateServer::Launch(std::string* complaint) {
  const std::string jar = JarPath(options_);
  *complaint = ComplainAboutJar(jar);
  if (!complaint->empty()) return false;
  port_ = SCA_FindFreePort();
  if (port_ == 0) {
    *complaint = "no free port was found on 127.0.0.1 for the Tika server";
    return false;
  }
  unsigned long error = 0;
  if (server_.SetConfig(jar.c_str(), port_, options_.javaHeapMb, "", &error) == 0 ||
      watch_.Start(&error) == 0) {
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

void PrivateServer::OnStart(const SCA_TikaServer& /*server*/, unsigned long processId) {
  if (!options_.verbose) return;
  PrintErrorLine("tikaextract: started java, process " + std::to_string(processId));
}

void PrivateServer::OnReady(const SCA_TikaServer& /*server*/, const char* version) {
  if (!options_.verbose) return;
  SCA_TikaWatchState state;
  watch_.GetState(&state);
  PrintErrorLine("tikaextract: " + Printable(version) + " answers");
  PrintErrorLine(std::string("tikaextract: class archive: ") + SCA_ClassArchiveText(state.archive));
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
