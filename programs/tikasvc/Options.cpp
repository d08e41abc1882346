#include "programs/tikasvc/Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "control/SCA_ServiceStatusNames.h"
#include "programs/common/Escape.h"
#include "programs/common/Start.h"

namespace {

constexpr char kDescription[] =
    "The service host: starts Tika servers, watches them, starts them again when they die or fall\n"
    "silent, and answers the commands of its control port (tikactl, products). Runs in the\n"
    "foreground until SIGTERM, SIGINT or a command ends it; SIGHUP makes it read its "
    "configuration\n"
    "again.";
constexpr char kFooter[] =
    "The user configuration (tika_service.trv), the data directory and the key of the control "
    "port\n"
    "(control.key) lie in '$XDG_CONFIG_HOME/Tika Service', by default '~/.config/Tika Service'.\n"
    "Exit status: 0 stopped on request, 1 failed, 2 wrong use, 3 a configuration, directory, key "
    "or\n"
    "jar that cannot be used, 4 a port that cannot be opened, 5 another service host is running.\n"
    "Environment: TIKA_SERVER_JAR names the jar when --servers is given without --jar.\n"
    "Example: tikasvc --jar /opt/tika/tika-server.jar --servers 2";
constexpr unsigned long kMaxSilenceSeconds = 86400;

void DefineServers(CLI::App* app, Options* options) {
  app->add_option("--jar", options->jar, "Runnable jar of the servers that are started at once")
      ->type_name("FILE");
  app->add_option("--servers", options->servers,
                  "How many are started at once (default: one with --jar, else none)")
      ->check(CLI::Range(1UL, SCA_MaxHostedServers))
      ->type_name("N");
  app->add_option("--first-port", options->firstPort, "Port of the first; the others follow")
      ->check(CLI::Range(1, 65535))
      ->capture_default_str()
      ->type_name("PORT");
  app->add_option("--heap", options->heapMb, "Their Java heap limit")
      ->check(CLI::Range(1UL, 1048576UL))
      ->capture_default_str()
      ->type_name("MB");
  app->add_option("--java-options", options->javaOptions, "Their further Java options")
      ->type_name("TEXT");
  app->add_option(
         "--tika-bind", options->tikaBind,
         "Address on which all servers listen; they answer whoever reaches it. 0.0.0.0: all "
         "addresses of the machine")
      ->capture_default_str()
      ->type_name("ADDRESS");
  app->add_option_function<unsigned long>(
         "--silence-limit",
         [options](unsigned long seconds) { options->silenceLimitMs = seconds * 1000; },
         "Restart a server that has not answered for so long, or not within 60 s of its start; "
         "0: never")
      ->check(CLI::Range(0UL, kMaxSilenceSeconds))
      ->default_str("120")
      ->type_name("SECONDS");
}

// Options that were there once say what to do instead.
void DefineFormer(CLI::App* app, bool* noLogin) {
  app->add_flag("--no-login", *noLogin)->group("");
}

void DefineHost(CLI::App* app, Options* options, std::string* metrics) {
  app->add_option("--config", options->configFile,
                  "Root configuration (default: tikasvc.trv beside the program)")
      ->type_name("FILE");
  app->add_flag("--check-config", options->checkConfig,
                "Read the configurations, making what is missing, and end");
  app->add_option("--control-port", options->controlPort,
                  "Port for commands, 0 for a free one (default: the configurations', else 9500)")
      ->check(CLI::Range(0, 65535))
      ->type_name("PORT");
  app->add_option("--control-socket", options->controlSocket,
                  "Unix socket for commands from this machine, without a key (default: "
                  "control.socket in the data directory)")
      ->type_name("FILE");
  app->add_option(
         "--control-group", options->controlGroup,
         "Group whose members may use the socket, beside root and the own account; give it "
         "a socket in a directory that they can enter")
      ->type_name("GROUP");
  app->add_option("--metrics", *metrics,
                  "Serve Prometheus metrics there; a port alone: on loopback")
      ->type_name("[HOST:]PORT");
  app->add_flag("-v,--verbose", options->verbose, "Log details too");
}

std::string CheckControl(const Options& options, bool noLogin) {
  if (noLogin) {
    return "there is no --no-login any more: leave it out; programs on this machine need no key on "
           "the control socket, and TCP always asks for it";
  }
  if (options.controlSocket.empty() || options.controlSocket.front() == '/') return {};
  return "--control-socket must be given from the root on, as /run/tikasvc/control.socket";
}

std::string CheckBindAddress(const std::string& address) {
  const bool isAddress =
      !address.empty() && address.size() <= 259 &&
      std::all_of(address.begin(), address.end(), [](unsigned char c) { return std::isgraph(c); });
  return isAddress ? "" : "--tika-bind " + Quoted(address) + " is no address, such as 127.0.0.1";
}

std::string ReadMetricsAddress(std::string text, Options* options) {
  if (text.empty()) return {};
  if (text.find_first_not_of("0123456789") == std::string::npos) text.insert(0, "127.0.0.1:");
  HostPort address;
  std::string complaint = ParseHostPort(text, 0, &address);
  if (complaint.empty()) options->metrics = address;
  return complaint;
}

std::string CompleteServers(Options* options) {
  if (!options->jar.empty() && options->servers == 0) options->servers = 1;
  if (options->servers == 0) return {};
  const char* jar = std::getenv("TIKA_SERVER_JAR");
  if (options->jar.empty() && jar != nullptr) options->jar = jar;
  if (options->jar.empty()) return "--servers needs --jar, or TIKA_SERVER_JAR in the environment";
  if (options->firstPort + options->servers - 1 > 65535) {
    return "--first-port and --servers lead beyond port 65535";
  }
  return {};
}

}  // namespace

std::optional<int> ParseOptions(int argc, char** argv, Options* options) {
  CLI::App app(kDescription, "tikasvc");
  app.footer(kFooter);
  app.set_version_flag("--version", "tikasvc " SCA_VERSION);
  std::string metrics;
  DefineServers(&app, options);
  DefineHost(&app, options, &metrics);
  bool noLogin = false;
  DefineFormer(&app, &noLogin);
  if (const auto status = ParseCommandLine(&app, argc, argv)) return status;
  std::string complaint = CheckControl(*options, noLogin);
  if (complaint.empty()) complaint = CompleteServers(options);
  if (complaint.empty()) complaint = CheckBindAddress(options->tikaBind);
  if (complaint.empty()) complaint = ReadMetricsAddress(metrics, options);
  if (complaint.empty()) return std::nullopt;
  PrintErrorLine("tikasvc: " + complaint);
  return kWrongUse;
}
