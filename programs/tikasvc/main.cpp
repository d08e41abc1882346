// tikasvc: the service host, which keeps Tika servers running and answers on a control port.

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <new>

#include "platform/SCA_Error.h"
#include "platform/SCA_Time.h"
#include "programs/common/Escape.h"
#include "programs/common/Event.h"
#include "programs/common/OwnFile.h"
#include "programs/common/Signals.h"
#include "programs/common/Start.h"
#include "programs/tikasvc/ControlService.h"
#include "programs/tikasvc/FormerLife.h"
#include "programs/tikasvc/Metrics.h"
#include "programs/tikasvc/Options.h"
#include "programs/tikasvc/Recycling.h"

namespace {

constexpr unsigned long kTickMs = 1000;

int Refuse(int status, const std::string& complaint) {
  Say(SCA_LevelError, "%s", complaint.c_str());
  return status;
}

// Half of what the watchdog allows, or the usual tick.
unsigned long TickMs() {
  std::uint64_t watchdogUs = 0;
  if (sd_watchdog_enabled(0, &watchdogUs) <= 0) return kTickMs;
  return static_cast<unsigned long>(
      std::clamp<std::uint64_t>(watchdogUs / 2000, 1, std::uint64_t{kTickMs}));
}

std::string Describe(const ServersSummary& summary) {
  if (summary.servers == 0) return "no servers";
  return std::to_string(summary.ready) + " of " + std::to_string(summary.servers) +
         " servers ready" + (summary.isSuspended ? ", suspended" : "") +
         (summary.leaving > 0 ? ", " + std::to_string(summary.leaving) + " finishing" : "");
}

// The service host at work, from the open ports to the last stopped server.
class Host {
 public:
  Host(const Options& options, Installation* installation, HostLog* log, SCA_Event* stop,
       SCA_Event* reload)
      : options_(options), stop_(*stop), reload_(*reload), installation_(*installation) {
    parts_.installation = installation;
    parts_.log = log;
    parts_.history = &history_;
    parts_.servers = &servers_;
    parts_.stop = stop;
    parts_.startTime = SCA_GetAbsTime();
  }

  int Run() {
    if (history_.IsValid() == 0) throw std::bad_alloc();
    ControlService control(parts_, options_.controlAddress);
    unsigned long error = 0;
    SCA_TikaServiceServer server(&control, installation_.ControlPort(), &error);
    if (server.IsValid() == 0) {
      return RefusePort(error);
    }
    control.SetServer(&server);
    const int status = OpenSocket(&server);
    if (status != kStopped) return status;
    Metrics metrics;
    if (options_.metrics) {
      const std::string complaint = metrics.Open(*options_.metrics, parts_, control);
      if (!complaint.empty()) return Refuse(kPortTaken, complaint);
    }
    Say(SCA_LevelInfo, "tikasvc " SCA_VERSION " listens on control port %u with login, and on %s",
        server.GetPort(), installation_.ControlSocket().c_str());
    if (!StartServers()) return kUnfit;
    ServeAndRecycle();
    sd_notify(0, "STOPPING=1\nSTATUS=Stopping the servers");
    Say(SCA_LevelInfo, "stopping");
    // Before the ports close, which takes a moment: the servers end meanwhile, and whoever ends
    // them as well finds none that would be started again.
    servers_.BeginEnd();
    return kStopped;
  }

 private:
  int RefusePort(unsigned long error) {
    const std::string& address = options_.controlAddress;
    const std::string place = std::to_string(installation_.ControlPort()) +
                              (address.empty() ? "" : " on " + Quoted(address));
    const bool isAddress = error == EINVAL || error == EADDRNOTAVAIL;
    return Refuse(kPortTaken, "cannot open the control port " + place + ": " +
                                  SCA_ErrorText(error) + "; choose another with --control-" +
                                  (isAddress ? "address, such as 192.0.2.7" : "port"));
  }

  int OpenSocket(SCA_TikaServiceServer* server) {
    const std::string path = installation_.ControlSocket();
    unsigned long error = 0;
    if (server->OpenLocal(path.c_str(), options_.controlGroup.c_str(), &error) != 0) {
      WarnOfClosedDirectories(path);
      return kStopped;
    }
    const std::string group =
        options_.controlGroup.empty() ? "" : " for the group " + options_.controlGroup;
    return Refuse(error == EADDRINUSE ? kPortTaken : kUnfit,
                  "cannot open the control socket " + path + group + ": " + SCA_ErrorText(error) +
                      "; choose another place with --control-socket");
  }

  // A group that may use the socket but not enter its directory would look for the fault in vain.
  void WarnOfClosedDirectories(const std::string& path) {
    if (options_.controlGroup.empty()) return;
    namespace fs = std::filesystem;
    for (fs::path place = fs::path(path).parent_path(); place != place.root_path();
         place = place.parent_path()) {
      std::error_code error;
      const fs::perms open = fs::perms::group_exec | fs::perms::others_exec;
      if ((fs::status(place, error).permissions() & open) != fs::perms::none) continue;
      Say(SCA_LevelWarning,
          "only the owner may enter %s: the group %s cannot reach the control socket; choose "
          "another "
          "place with --control-socket",
          place.c_str(), options_.controlGroup.c_str());
      return;
    }
  }

  bool StartServers() {
    for (unsigned long i = 0; i < options_.servers && stop_.Wait(0) == 0; ++i) {
      const auto port = static_cast<unsigned short>(options_.firstPort + i);
      unsigned long id = 0;
      unsigned long status = 0;
      unsigned long code = 0;
      servers_.Add(HostedServers::kHost, options_.jar.c_str(), port, options_.heapMb,
                   options_.javaOptions.c_str(), &id, &status, &code);
      if (code == 0) servers_.Start(id, &status, &code);
      // A product that has come back may have been quicker.
      if (code == 0 || code == SCA_ErrorAlreadyActive) continue;
      Refuse(kUnfit, "cannot start a server from " + options_.jar + " on port " +
                         std::to_string(port) + ": " + SCA_ErrorText(code));
      return false;
    }
    return true;
  }

  void ServeAndRecycle() {
    if (!options_.Recycles()) return Serve();
    const Recycling recycling(options_.recycle, &servers_);
    if (!recycling.IsValid()) throw std::bad_alloc();
    Serve();
  }

  void Serve() {
    const unsigned long tickMs = TickMs();
    sd_notify(0, "READY=1");
    while (stop_.Wait(tickMs) == 0) {
      // A thread that holds the servers' lock for ever prevents this report.
      const std::string status = Describe(servers_.Summarize());
      sd_notifyf(0, "WATCHDOG=1\nSTATUS=%s", status.c_str());
      if (reload_.Wait(0) != 0) installation_.Reload();
    }
  }

  const Options& options_;
  SCA_Event& stop_;
  SCA_Event& reload_;
  Installation& installation_;
  HostParts parts_;
  SCA_TikaDeathHistory history_{(installation_.DataDirectory() + "/history.trv").c_str()};
  // Before the servers, which use it to the end.
  SCA_ClassArchive archive_{(installation_.DataDirectory() + "/class-archives").c_str(),
                            SCA_ClassArchiveMaking::InBackground};
  HostedServers servers_{installation_.User(), options_.tikaBind, options_.silenceLimitMs,
                         &history_, options_.classArchive ? &archive_ : nullptr};
};

int RunHost(const Options& options, Installation* installation, HostLog* log) {
  LockFile lock;
  std::string owner;
  const std::string& directory = installation->DataDirectory();
  if (unsigned long error = lock.Take(directory + "/tikasvc.lock", &owner); error != 0) {
    if (error == EWOULDBLOCK) {
      return Refuse(kAlreadyRunning, "another service host (" + owner + ") uses " + directory +
                                         "; stop it, or run this one with another "
                                         "XDG_CONFIG_HOME");
    }
    return Refuse(kUnfit, "cannot lock " + directory + "/tikasvc.lock: " + SCA_ErrorText(error));
  }
  MarkChildren(directory);
  ProgramEvent stop(1, 0);
  ProgramEvent reload(0, 0);
  const Signals signals(&stop, &reload);
  const unsigned long leftovers = KillLeftovers(directory);
  if (leftovers > 0) {
    Say(SCA_LevelWarning, "killed %lu process%s left by an earlier service host", leftovers,
        leftovers == 1 ? "" : "es");
  }
  if (options.tikaBind == "0.0.0.0" || options.tikaBind == "::") {
    Say(SCA_LevelWarning,
        "Tika servers listen on all addresses and answer every client: protect their ports with a "
        "firewall, or use --tika-bind");
  }
  const int status = Host(options, installation, log, &stop, &reload).Run();
  Say(SCA_LevelInfo, "stopped");
  return status;
}

int Run(int argc, char** argv) {
  Options options;
  if (const auto status = ParseOptions(argc, argv, &options)) return *status;
  HostLog log(options.verbose);
  Installation installation(options);
  std::string complaint = installation.Load();
  if (complaint.empty()) complaint = installation.PrepareKey();
  if (!complaint.empty()) return Refuse(kUnfit, complaint);
  if (options.checkConfig) {
    std::printf("the configurations are valid; data directory %s, control port %u\n",
                Printable(installation.DataDirectory()).c_str(), installation.ControlPort());
    return kStopped;
  }
  return RunHost(options, &installation, &log);
}

}  // namespace

int main(int argc, char** argv) {
  return RunProgram("tikasvc", kFailed, [=] { return Run(argc, argv); });
}
