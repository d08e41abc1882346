#include "programs/tikactl/Options.h"

#include <CLI/CLI.hpp>

#include "host/SCA_TikaConfig.h"
#include "platform/SCA_Path.h"
#include "programs/common/Escape.h"
#include "programs/common/LocalHost.h"
#include "programs/common/Start.h"
#include "programs/tikactl/Commands.h"

namespace {

constexpr char kDescription[] =
    "Shows and controls service hosts (tikasvc), which run Apache Tika servers. 'tikactl COMMAND "
    "--help' shows the options of a command; the options below work with every command.\n"
    "\n"
    "The host of this machine, 'local', needs no key. Its socket is looked for in the user's data "
    "directory, in /run/tikasvc, and in the data directory of the installed service. Other hosts "
    "need their key. Several hosts are asked at the same time and shown in the given order.";
constexpr char kFooter[] =
    "Exit status:\n"
    "  0    done\n"
    "  1    a host refused, or something failed\n"
    "  2    the command line is wrong\n"
    "  3    no connection\n"
    "  4    login refused, or no key\n"
    "  130  interrupted\n"
    "With several hosts, the highest status counts.\n"
    "\n"
    "Environment:\n"
    "  NO_COLOR  Turns colours off\n"
    "\n"
    "Examples:\n"
    "  $ tikactl status\n"
    "  $ tikactl add --jar /opt/tika-server.jar --port 9998 --start --wait 60\n"
    "  $ tikactl -H tika1 -H tika2:9501 --json servers | jq .servers";
constexpr char kCommandFooter[] = "'tikactl --help' shows the options of every command.";

// The longest reply that the control client waits for.
constexpr unsigned long kMaxTimeoutSeconds = SCA_MaxReplyTimeoutMs / 1000;

void DefineCommon(CLI::App* app, Options* options, std::vector<std::string>* hosts,
                  unsigned long* timeoutSeconds) {
  app->add_option("-H,--host", *hosts, "Service host, or the path of its socket")
      ->default_str("local, this machine's")
      ->type_name("HOST[:PORT]")
      ->allow_extra_args(false);
  app->add_option("--key", options->keyFile, "Key file of the control ports")
      ->default_str("the user's key")
      ->type_name("FILE");
  app->add_flag("--json", options->json, "Print one line of JSON per host");
  app->add_option("--timeout", *timeoutSeconds, "Time limit for connecting and for each answer")
      ->check(CLI::Range(1UL, kMaxTimeoutSeconds))
      ->default_str("15")
      ->type_name("SECONDS");
}

std::string AddHost(const std::string& text, Options* options) {
  HostPort address;
  std::string complaint = ParseServiceAddress(text, SCA_DefaultControlPort, &address);
  if (complaint.empty()) options->hosts.push_back(address);
  return complaint;
}

std::string CheckText(const char* name, const std::string& text) {
  const bool fits = text.size() < SCA_ServiceTextSize;
  return fits ? "" : std::string(name) + " is longer than 259 bytes, the limit of a host";
}

std::string Check(const Options& options) {
  if (!options.logDir.empty() && options.logSwitch != "on") return "save-log off takes no DIR";
  if (!options.logDir.empty() && SCA_IsAbsolutePath(options.logDir.c_str()) == 0) {
    return "DIR is a directory on the host: give an absolute path, such as /var/log/tika";
  }
  std::string complaint = CheckText("the jar's name", options.jar);
  if (complaint.empty()) complaint = CheckText("--java-options", options.javaOptions);
  if (complaint.empty()) complaint = CheckText("DIR", options.logDir);
  return complaint;
}

}  // namespace

std::optional<int> ParseOptions(int argc, char** argv, Options* options) {
  CLI::App app(kDescription, "tikactl");
  app.footer(kFooter);
  app.set_version_flag("--version", "tikactl " SCA_VERSION);
  app.require_subcommand(1);
  app.fallthrough();
  std::vector<std::string> hosts;
  unsigned long timeoutSeconds = 0;
  DefineCommon(&app, options, &hosts, &timeoutSeconds);
  for (const Command& command : Commands()) {
    CLI::App* const subcommand = app.add_subcommand(command.name, command.help);
    subcommand->footer(kCommandFooter);
    command.define(subcommand, options);
    subcommand->callback([options, &command] { options->command = &command; });
  }
  if (const auto status = ParseCommandLine(&app, argc, argv)) return status;
  if (timeoutSeconds != 0) options->timeoutMs = timeoutSeconds * 1000;
  if (hosts.empty()) hosts.emplace_back(kLocalHost);
  std::string complaint = Check(*options);
  for (const std::string& host : hosts) {
    if (complaint.empty()) complaint = AddHost(host, options);
  }
  if (complaint.empty()) return std::nullopt;
  PrintErrorLine("tikactl: " + complaint);
  return kWrongUse;
}
