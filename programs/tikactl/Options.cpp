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
    "Shows and controls the service hosts (tikasvc) that run Apache Tika servers. 'tikactl "
    "COMMAND\n"
    "--help' shows the options of a command; those below go with every command.";
constexpr char kFooter[] =
    "The host of this machine, 'local', needs no key: its socket is looked for in the account's "
    "own\n"
    "data directory, in /run/tikasvc, and in the installed service's. Others need their key.\n"
    "Several hosts are asked at the same time and shown in the order given.\n"
    "Exit status, the highest of several hosts: 0 done, 1 a host refused or something failed, 2\n"
    "wrong use, 3 no connection, 4 login refused or no key, 130 interrupted.\n"
    "Environment: NO_COLOR turns colours off.\n"
    "Examples: tikactl status\n"
    "          tikactl add --jar /opt/tika/tika-server.jar --port 9998 --start --wait 60\n"
    "          tikactl -H tika1 -H tika2:9501 --json servers | jq .servers";

// The longest reply that the control client waits for.
constexpr unsigned long kMaxTimeoutSeconds = SCA_MaxReplyTimeoutMs / 1000;

void DefineCommon(CLI::App* app, Options* options, std::vector<std::string>* hosts,
                  unsigned long* timeoutSeconds) {
  app->add_option(
         "-H,--host", *hosts,
         "Service host, or the path of its socket; may be given again (local, which is this "
         "machine's)")
      ->type_name("HOST[:PORT]")
      ->allow_extra_args(false);
  app->add_option("--key", options->keyFile, "File with the control key of the hosts")
      ->type_name("FILE");
  app->add_flag("--json", options->json, "One line of JSON for each host");
  app->add_option("--timeout", *timeoutSeconds, "Limit of a connect, and of each answer (15)")
      ->check(CLI::Range(1UL, kMaxTimeoutSeconds))
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
  return fits ? "" : std::string(name) + " is longer than 259 bytes, which no host takes";
}

std::string Check(const Options& options) {
  if (!options.logDir.empty() && options.logSwitch != "on") return "save-log off takes no DIR";
  if (!options.logDir.empty() && SCA_IsAbsolutePath(options.logDir.c_str()) == 0) {
    return "DIR is a directory on the host: give it from the root on, as /var/log/tika";
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
