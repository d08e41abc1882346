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

void Count(CLI::App* app, Options* options, const char* names, unsigned long least,
           const char* help) {
  app->add_option(names, options->count, help)->check(CLI::Range(least, kMaxCount))->type_name("N");
}

void Interval(CLI::App* app, Options* options, const char* names, const char* help) {
  app->add_option(names, options->intervalSeconds, help)
      ->check(CLI::Range(0.1, 3600.0))
      ->type_name("SECONDS");
}

void LogOptions(CLI::App* app, Options* options) {
  app->add_flag("-f,--follow", options->follow, "Go on with what comes, until interrupted");
  Count(app, options, "-n,--count", 0, "Only the newest N lines at first (all that there are)");
}

void DefineAdd(CLI::App* app, Options* options) {
  app->add_option("--jar", options->jar, "Runnable Tika server jar, on the host")
      ->required()
      ->type_name("FILE");
  app->add_option("--port", options->port, "Port of the Tika server")
      ->required()
      ->check(CLI::Range(1, 65535))
      ->type_name("PORT");
  app->add_option("--heap", options->heapMb, "Java heap limit")
      ->check(CLI::Range(1UL, kMaxHeapMb))
      ->type_name("MB")
      ->capture_default_str();
  app->add_option("--java-options", options->javaOptions, "Further options of java, in one word")
      ->type_name("TEXT");
  auto* start = app->add_flag("--start", options->start, "Start it as well");
  Wait(app, options, "With --start: wait so long until it answers");
  app->get_option("--wait")->needs(start);
}

void DefineStart(CLI::App* app, Options* options) {
  Ids(app, options, "Servers to start")->required();
  Wait(app, options, "Wait so long until they answer");
}

void DefineDelete(CLI::App* app, Options* options) {
  Ids(app, options, "Servers to stop and delete")->required();
  Wait(app, options, "Wait so long for each until it is gone");
}

void DefineLogs(CLI::App* app, Options* options) {
  OneId(app, options, "Server whose log to show");
  LogOptions(app, options);
}

void DefineHistory(CLI::App* app, Options* options) {
  PerhapsId(app, options, "Only this server's");
  Count(app, options, "-n,--count", 1, "The newest N deaths (10; with --json all)");
  app->add_flag("--lines", options->allLines, "All last lines of each instead of three");
}

void DefineClearLog(CLI::App* app, Options* options) {
  PerhapsId(app, options,
            "Server whose log to clear; without it the host's own debug log is cleared");
}

void DefineSaveLog(CLI::App* app, Options* options) {
  app->add_option("SWITCH", options->logSwitch, "on or off")
      ->required()
      ->check(CLI::IsMember({"on", "off"}));
  app->add_option("DIR", options->logDir, "With on: directory on the host, absolute");
}

void DefineTop(CLI::App* app, Options* options) {
  Count(app, options, "-n,--count", 1, "End after N tables; with 1 a plain one");
  Interval(app, options, "-d,--delay", "Time between two tables (2)");
}

void DefinePing(CLI::App* app, Options* options) {
  Count(app, options, "-c,--count", 1, "Requests to send (4)");
  Interval(app, options, "-i,--interval", "Time between two requests (1)");
}

void DefineSuspend(CLI::App* app, Options* options) {
  Wait(app, options, "Wait so long until all servers are stopped");
}

void DefineShutdown(CLI::App* app, Options* options) {
  Wait(app, options, "Wait so long until the host is gone");
}

}  // namespace

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands = {
      {"status", &OnEach<ShowStatus>, "Say whether all is well, and how host and servers are",
       &NoOptions},
      {"servers", &OnEach<ShowServers>, "List the servers", &NoOptions},
      {"top", &Top, "Show servers with rates of input and output, again and again; q ends",
       &DefineTop},
      {"add", &OnEach<AddServer>, "Add a server", &DefineAdd},
      {"start", &OnEach<StartServers>, "Start servers; ends a suspension", &DefineStart},
      {"delete", &OnEach<DeleteServers>, "Stop and delete servers", &DefineDelete},
      {"logs", &OnEach<ShowServerLog>, "Show what a server printed", &DefineLogs},
      {"history", &OnEach<ShowHistory>, "Show how servers died: cause, memory, last lines",
       &DefineHistory},
      {"debug-log", &OnEach<ShowDebugLog>, "Show the host's own log", &LogOptions},
      {"clear-log", &OnEach<ClearLog>,
       "Clear the log of server ID; without ID the host's own debug log", &DefineClearLog},
      {"save-log", &OnEach<SaveLog>, "Switch the daily files of all servers' logs", &DefineSaveLog},
      {"suspend", &OnEach<Suspend>, "Stop all servers and keep them", &DefineSuspend},
      {"shutdown", &OnEach<Shutdown>, "End the service host with all its servers", &DefineShutdown},
      {"ping", &OnEachLive<Ping>, "Measure how long a request takes", &DefinePing},
      {"version", &OnEach<ShowVersion>, "Show the host's version", &NoOptions},
  };
  return commands;
}
