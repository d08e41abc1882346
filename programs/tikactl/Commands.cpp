#include "programs/tikactl/Commands.h"

#include <CLI/CLI.hpp>

namespace {

template <void (*work)(Call&)>
Status OnEach(Session& session) {
  return session.OnEachHost(work, session.GetOptions().follow);
}
template <void (*work)(Call&)>
Status OnEachLive(Session& session) {
  return session.OnEachHost(work, true);
}

constexpr unsigned long kMaxId = 0xFFFFFFFE;
constexpr unsigned long kMaxHeapMb = 0xFFFFFFFF;
constexpr unsigned long kMaxWaitSeconds = 86400;
constexpr unsigned long kMaxCount = 1000000000;

void NoOptions(CLI::App* /*app*/, Options* /*options*/) {}

CLI::Option* Ids(CLI::App* app, Options* options, const char* help) {
  return app->add_option("ID", options->ids, help)->check(CLI::Range(0UL, kMaxId));
}
void OneId(CLI::App* app, Options* options, const char* help) {
  Ids(app, options, help)->required()->expected(1);
}
void PerhapsId(CLI::App* app, Options* options, const char* help) {
  Ids(app, options, help)->expected(1);
}

void Wait(CLI::App* app, Options* options, const char* help) {
  app->add_option("--wait", options->waitSeconds, help)
      ->check(CLI::Range(1UL, kMaxWaitSeconds))
      ->type_name("SECONDS");
}

CLI::Option* Count(CLI::App* app, Options* options, const char* names, unsigned long least,
                   const char* help) {
  return app->add_option(names, options->count, help)
      ->check(CLI::Range(least, kMaxCount))
      ->type_name("N");
}

void Interval(CLI::App* app, Options* options, const char* names, const char* help,
              const char* usual) {
  app->add_option(names, options->intervalSeconds, help)
      ->check(CLI::Range(0.1, 3600.0))
      ->default_str(usual)
      ->type_name("SECONDS");
}

void LogOptions(CLI::App* app, Options* options) {
  app->add_flag("-f,--follow", options->follow, "Keep printing new lines until interrupted");
  Count(app, options, "-n,--count", 0, "Start with the newest N lines, not with all");
}

void DefineAdd(CLI::App* app, Options* options) {
  app->add_option("--jar", options->jar, "Tika server jar, a path on the host")
      ->required()
      ->type_name("FILE");
  app->add_option("--port", options->port, "Port of the Tika server")
      ->required()
      ->check(CLI::Range(1, 65535))
      ->type_name("PORT");
  app->add_option("--heap", options->heapMb, "Java heap")
      ->check(CLI::Range(1UL, kMaxHeapMb))
      ->type_name("MB")
      ->capture_default_str();
  app->add_option("--java-options", options->javaOptions,
                  "Additional Java options, as one argument")
      ->type_name("TEXT");
  auto* start = app->add_flag("--start", options->start, "Start the server too");
  Wait(app, options, "Wait up to this long for the server to answer");
  app->get_option("--wait")->needs(start);
}

void DefineStart(CLI::App* app, Options* options) {
  Ids(app, options, "Servers to start")->required();
  Wait(app, options, "Wait up to this long for the servers to answer");
}

void DefineDelete(CLI::App* app, Options* options) {
  Ids(app, options, "Servers to stop and delete")->required();
  Wait(app, options, "Wait up to this long for each server to be gone");
}

void DefineLogs(CLI::App* app, Options* options) {
  OneId(app, options, "Server whose log to show");
  LogOptions(app, options);
}

void DefineHistory(CLI::App* app, Options* options) {
  PerhapsId(app, options, "Show this server's deaths only");
  Count(app, options, "-n,--count", 1, "Show the newest N deaths, not 10 (with --json all)");
  app->add_flag("--lines", options->allLines, "Show all last lines of each death, not three");
}

void DefineClearLog(CLI::App* app, Options* options) {
  PerhapsId(app, options, "Server whose log to clear; without it, the host's debug log");
}

void DefineSaveLog(CLI::App* app, Options* options) {
  app->add_option("SWITCH", options->logSwitch, "on or off")
      ->required()
      ->check(CLI::IsMember({"on", "off"}));
  app->add_option("DIR", options->logDir, "With on: an absolute path on the host");
}

void DefineTop(CLI::App* app, Options* options) {
  Count(app, options, "-n,--count", 1, "Exit after N tables; a single one is printed plainly");
  Interval(app, options, "-d,--delay", "Time between two tables", "2");
}

void DefinePing(CLI::App* app, Options* options) {
  Count(app, options, "-c,--count", 1, "Requests to send")->default_str("4");
  Interval(app, options, "-i,--interval", "Time between two requests", "1");
}

void DefineSuspend(CLI::App* app, Options* options) {
  Wait(app, options, "Wait up to this long for all servers to stop");
}

void DefineShutdown(CLI::App* app, Options* options) {
  Wait(app, options, "Wait up to this long for the host to exit");
}

}  // namespace

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands = {
      {"status", &OnEach<ShowStatus>, "Say whether all is well; show host and servers", &NoOptions},
      {"servers", &OnEach<ShowServers>, "List the servers", &NoOptions},
      {"top", &Top, "Show servers and their rates, refreshed; q quits", &DefineTop},
      {"add", &OnEach<AddServer>, "Add a server", &DefineAdd},
      {"start", &OnEach<StartServers>, "Start servers, after suspend too", &DefineStart},
      {"delete", &OnEach<DeleteServers>, "Stop and delete servers", &DefineDelete},
      {"logs", &OnEach<ShowServerLog>, "Show what a server printed", &DefineLogs},
      {"history", &OnEach<ShowHistory>, "Show how servers died: cause, memory, last lines",
       &DefineHistory},
      {"debug-log", &OnEach<ShowDebugLog>, "Show the host's debug log", &LogOptions},
      {"clear-log", &OnEach<ClearLog>, "Clear a server's log or the host's debug log",
       &DefineClearLog},
      {"save-log", &OnEach<SaveLog>, "Switch daily log files of all servers on or off",
       &DefineSaveLog},
      {"suspend", &OnEach<Suspend>, "Stop all servers but keep them in the list", &DefineSuspend},
      {"shutdown", &OnEach<Shutdown>, "Stop the service host and all its servers", &DefineShutdown},
      {"ping", &OnEachLive<Ping>, "Measure the round-trip time of a request", &DefinePing},
      {"version", &OnEach<ShowVersion>, "Show the host's version", &NoOptions},
  };
  return commands;
}
