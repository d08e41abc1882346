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
    "The service host. Starts Tika servers, watches them, restarts those that die or stop "
    "answering, and serves a control port for tikactl and other programs. Runs in the foreground "
    "until SIGTERM, SIGINT or a command stops it. SIGHUP makes it reread its configuration.";
constexpr char kFooter[] =
    "The user configuration (tika_service.trv), the data directory and the key of the control port "
    "(control.key) are in '$XDG_CONFIG_HOME/Tika Service', by default '~/.config/Tika Service'.\n"
    "\n"
    "Under --recycle-after, which may be given once for documents, time and memory each, a "
    "successor starts on the first free port from --first-port on. When it answers, clients move "
    "over to it, and the server that it replaces finishes its documents, for 10 minutes at most, "
    "and is stopped. One server is replaced at a time. If the successor does not come up, or less "
    "than 512 MB of memory are free for it, the server stays, and the next attempt follows 30 s to "
    "1 h later. Documents are counted by Tika's log, which has a line for each request to parse; a "
    "server that logs less is not replaced for them. Memory counts after ten minutes. A server "
    "that "
    "a connected client has asked for by its port stays until that client has gone. Clients that "
    "use a port without the control port are not told: give them all ports, one more than there "
    "are servers.\n"
    "\n"
    "Exit status:\n"
    "  0  stopped on request\n"
    "  1  failed\n"
    "  2  the command line is wrong\n"
    "  3  a configuration, directory, key or jar cannot be used\n"
    "  4  a port cannot be opened\n"
    "  5  another service host is running\n"
    "\n"
    "Environment:\n"
    "  TIKA_SERVER_JAR  The jar, when --servers is given without --jar\n"
    "\n"
    "Examples:\n"
    "  $ tikasvc --jar /opt/tika/tika-server.jar --servers 2";
constexpr unsigned long kMaxSilenceSeconds = 86400;

void DefineServers(CLI::App* app, Options* options, std::vector<std::string>* recycleLimits) {
  app->add_option("--jar", options->jar, "Tika server jar of the servers started with the host")
      ->type_name("FILE");
  app->add_option("--servers", options->servers, "Servers to start with the host")
      ->default_str("1 with --jar, else 0")
      ->check(CLI::Range(1UL, SCA_MaxHostedServers))
      ->type_name("N");
  app->add_option("--first-port", options->firstPort,
                  "Port of the first of these servers; the others use the next ports")
      ->check(CLI::Range(1, 65535))
      ->capture_default_str()
      ->type_name("PORT");
  app->add_option("--heap", options->heapMb, "Java heap of each of these servers")
      ->check(CLI::Range(1UL, 1048576UL))
      ->capture_default_str()
      ->type_name("MB");
  app->add_option("--java-options", options->javaOptions,
                  "Additional Java options of these servers")
      ->type_name("TEXT");
  app->add_flag_callback(
      "--no-class-archive", [options] { options->classArchive = false; },
      "Start servers without the class-data archives, which the host makes in its data directory");
  app->add_option("--tika-bind", options->tikaBind,
                  "Address on which all servers listen, without access control; 0.0.0.0 is every "
                  "address of the machine")
      ->capture_default_str()
      ->type_name("ADDRESS");
  app->add_option_function<unsigned long>(
         "--silence-limit",
         [options](unsigned long seconds) { options->silenceLimitMs = seconds * 1000; },
         "Restart a server that has not answered for this long, or within 60 s of its start; 0 "
         "means never")
      ->check(CLI::Range(0UL, kMaxSilenceSeconds))
      ->default_str("120")
      ->type_name("SECONDS");
  app->add_option("--recycle-after", *recycleLimits,
                  "Replace a server of the host that has begun so many documents (10000), has run "
                  "for so long (90m, 12h, 7d) or uses so much memory (800M, 2G); see below")
      ->type_name("LIMIT")
      ->allow_extra_args(false);
}

// What a limit is of is told by its unit.
struct RecycleUnit {
  const char* suffix;
  unsigned long long SCA_TikaRecycleRules::*limit;
  unsigned long long size;
};

constexpr unsigned long long kSecondMs = 1000;
constexpr RecycleUnit kRecycleUnits[] = {
    {"", &SCA_TikaRecycleRules::documents, 1},
    {"s", &SCA_TikaRecycleRules::upTimeMs, kSecondMs},
    {"m", &SCA_TikaRecycleRules::upTimeMs, 60 * kSecondMs},
    {"h", &SCA_TikaRecycleRules::upTimeMs, 3600 * kSecondMs},
    {"d", &SCA_TikaRecycleRules::upTimeMs, 86400 * kSecondMs},
    {"M", &SCA_TikaRecycleRules::memoryBytes, 1ULL << 20},
    {"G", &SCA_TikaRecycleRules::memoryBytes, 1ULL << 30},
};

// "10000", "12h" or "2G".
std::string ReadRecycleLimit(const std::string& text, SCA_TikaRecycleRules* rules) {
  constexpr std::size_t kMaxDigits = 9;
  const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
  const unsigned long value = digits <= kMaxDigits ? std::strtoul(text.c_str(), nullptr, 10) : 0;
  for (const RecycleUnit& unit : kRecycleUnits) {
    if (value == 0 || text.substr(digits) != unit.suffix) continue;
    if (rules->*unit.limit != 0) {
      return "--recycle-after " + Quoted(text) + " is a second limit of its kind: leave one out";
    }
    rules->*unit.limit = value * unit.size;
    return {};
  }
  return "--recycle-after " + Quoted(text) +
         " is no limit: give documents (10000), a time (90m, 12h, 7d) or memory (800M, 2G)";
}

std::string ReadRecycleLimits(const std::vector<std::string>& texts, SCA_TikaRecycleRules* rules) {
  std::string complaint;
  for (const std::string& text : texts) {
    if (complaint.empty()) complaint = ReadRecycleLimit(text, rules);
  }
  return complaint;
}

// A removed option says what to do instead.
void DefineFormer(CLI::App* app, bool* noLogin) {
  app->add_flag("--no-login", *noLogin)->group("");
}

void DefineHost(CLI::App* app, Options* options, std::string* metrics) {
  app->add_option("--config", options->configFile, "Root configuration")
      ->default_str("tikasvc.trv beside the program")
      ->type_name("FILE");
  app->add_flag("--check-config", options->checkConfig,
                "Read the configurations, create what is missing, and exit");
  app->add_option("--control-port", options->controlPort, "Port for commands; 0 picks a free one")
      ->default_str("the configured port, else 9500")
      ->check(CLI::Range(0, 65535))
      ->type_name("PORT");
  app->add_option("--control-address", options->controlAddress,
                  "Address on which this port is opened")
      ->default_str("all addresses of the machine")
      ->type_name("ADDRESS");
  app->add_option("--control-socket", options->controlSocket,
                  "Unix socket for commands from this machine, without a key")
      ->default_str("control.socket in the data directory")
      ->type_name("FILE");
  app->add_option("--control-group", options->controlGroup,
                  "Group whose members may use the socket, as root and the host's own account may; "
                  "they need access to its directory")
      ->type_name("GROUP");
  app->add_option("--metrics", *metrics, "Serve Prometheus metrics; without HOST on loopback only")
      ->type_name("[HOST:]PORT");
  app->add_flag("-v,--verbose", options->verbose, "Log details as well");
}

std::string CheckControl(const Options& options, bool noLogin) {
  if (noLogin) {
    return "--no-login was removed: leave it out; programs on this machine need no key on the "
           "control socket, and TCP connections always need it";
  }
  if (options.controlSocket.empty() || options.controlSocket.front() == '/') return {};
  return "--control-socket must be an absolute path, such as /run/tikasvc/control.socket";
}

std::string CheckAddress(const char* option, const std::string& address) {
  const bool isAddress =
      !address.empty() && address.size() <= 259 &&
      std::all_of(address.begin(), address.end(), [](unsigned char c) { return std::isgraph(c); });
  if (isAddress) return {};
  return std::string(option) + " " + Quoted(address) + " is not an address such as 127.0.0.1";
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
  if (options->jar.empty()) return "--servers needs --jar or TIKA_SERVER_JAR in the environment";
  if (options->firstPort + options->servers - 1 > 65535) {
    return "--first-port and --servers exceed port 65535";
  }
  return {};
}

}  // namespace

std::optional<int> ParseOptions(int argc, char** argv, Options* options) {
  CLI::App app(kDescription, "tikasvc");
  app.footer(kFooter);
  app.set_version_flag("--version", "tikasvc " SCA_VERSION);
  std::string metrics;
  std::vector<std::string> recycleLimits;
  DefineServers(&app, options, &recycleLimits);
  DefineHost(&app, options, &metrics);
  bool noLogin = false;
  DefineFormer(&app, &noLogin);
  if (const auto status = ParseCommandLine(&app, argc, argv)) return status;
  std::string complaint = CheckControl(*options, noLogin);
  if (complaint.empty()) complaint = CompleteServers(options);
  if (complaint.empty()) complaint = CheckAddress("--tika-bind", options->tikaBind);
  // Given but empty, as from an unset variable, it must not open the port on all addresses.
  if (complaint.empty() && app.count("--control-address") > 0) {
    complaint = CheckAddress("--control-address", options->controlAddress);
  }
  if (complaint.empty()) complaint = ReadMetricsAddress(metrics, options);
  if (complaint.empty()) complaint = ReadRecycleLimits(recycleLimits, &options->recycle);
  if (complaint.empty()) return std::nullopt;
  PrintErrorLine("tikasvc: " + complaint);
  return kWrongUse;
}
