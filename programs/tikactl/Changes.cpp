// The subcommands that change something on a host.

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>

#include "host/SCA_ProcessStatus.h"
#include "platform/SCA_Error.h"
#include "programs/common/Escape.h"
#include "programs/tikactl/Commands.h"
#include "programs/tikactl/Fields.h"
#include "programs/tikactl/Health.h"

namespace {

namespace ServerField = SCA_ServerFields;
namespace ServiceField = SCA_ServiceFields;
using Clock = std::chrono::steady_clock;

constexpr unsigned long kAskAgainMs = 200;

std::string Named(unsigned long id) {
  return "server " + std::to_string(id);
}

// The time that --wait gives, from now on.
class Waiting {
 public:
  explicit Waiting(Call& call)
      : call_(call), seconds_(call.options.waitSeconds.value_or(0)), begin_(Clock::now()) {}

  /// Asks again until the answer is true.
  /// @return False when the time has passed.
  template <class Answer>
  bool Until(Answer answer) {
    while (!answer()) {
      if (Clock::now() >= begin_ + std::chrono::seconds(seconds_)) return false;
      call_.Sleep(kAskAgainMs);
    }
    return true;
  }
  std::string Limit() const { return std::to_string(seconds_) + " s"; }
  std::string Taken() const {
    return Duration(static_cast<unsigned long long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin_).count()));
  }

 private:
  Call& call_;
  const unsigned long seconds_;
  const Clock::time_point begin_;
};

// Does something with each of several servers; one that fails does not keep the others.
template <class Work>
void ForEachId(Call& call, const std::vector<unsigned long>& ids, Work work) {
  for (const unsigned long id : ids) {
    try {
      work(id);
    } catch (const Failure& failure) {
      if (failure.status != kFailed) throw;
      call.Fail(failure, id);
    }
  }
}

Failure GaveUp(const Call& call, unsigned long id, const Fields& server) {
  const std::string reason = TroubleOf(server);
  return {kFailed, static_cast<unsigned long>(server.NumberOr(ServerField::StatusCode, 0)),
          Named(id) + " was given up" + (reason.empty() ? "" : ": " + reason) + "; see " +
              call.host.Hint("history " + std::to_string(id))};
}

// True once the server answers; throws when it never will.
bool IsReady(Call& call, unsigned long id, std::string* state) {
  const ConfigObject servers = call.host.GetServiceStatus();
  const SCA_ConfigObj* object = FindServer(*servers, id);
  if (object == nullptr) throw Failure{kFailed, 0, Named(id) + " was deleted meanwhile"};
  const Fields server(object);
  *state = StateCell(server).text + RestartsOf(server);
  switch (StateOf(server)) {
    case ServerState::Ready:
      return true;
    case ServerState::GivenUp:
      throw GaveUp(call, id, server);
    case ServerState::Stopped:
    case ServerState::NotStarted:
      throw Failure{kFailed, 0, Named(id) + " was stopped meanwhile"};
    default:
      return false;
  }
}

void Start(Call& call, unsigned long id) {
  unsigned long status = 0;
  unsigned long code = 0;
  call.host.AskServer("start " + Named(id), &Service::StartServer, id, &status, &code);
  if (code != 0) {
    throw Failure{kFailed, code,
                  Named(id) + " was not started: " + SCA_ErrorText(code) + "; see " +
                      call.host.Hint("servers")};
  }
  if (!call.options.waitSeconds) call.Succeed(Named(id) + " started", id);
}

void AwaitAnswer(Call& call, unsigned long id, Waiting* waiting) {
  std::string state;
  if (!waiting->Until([&] { return IsReady(call, id, &state); })) {
    throw Failure{kFailed, ETIMEDOUT,
                  Named(id) + " does not answer after " + waiting->Limit() + " (" + state +
                      "); see " + call.host.Hint("logs " + std::to_string(id))};
  }
  call.Succeed(Named(id) + " answers, " + waiting->Taken() + " after its start", id);
}

// All are started before any is waited for: a start takes seconds.
void StartAll(Call& call, const std::vector<unsigned long>& ids) {
  Waiting waiting(call);
  std::vector<unsigned long> started;
  ForEachId(call, ids, [&](unsigned long id) {
    Start(call, id);
    started.push_back(id);
  });
  if (!call.options.waitSeconds) return;
  ForEachId(call, started, [&](unsigned long id) { AwaitAnswer(call, id, &waiting); });
}

// A name relative to this directory means nothing to a host elsewhere.
std::string JarFor(const Call& call) {
  std::error_code error;
  const std::filesystem::path jar = call.options.jar;
  const bool isHere = call.host.IsThisMachine() && std::filesystem::exists(jar, error);
  return isHere ? std::filesystem::absolute(jar, error).string() : call.options.jar;
}

// The host answers with a server that has the port already, whatever it runs.
void RefuseOther(const Call& call, const SCA_ConfigObj& before, unsigned long id) {
  const SCA_ConfigObj* object = FindServer(before, id);
  if (object == nullptr) return;
  const Fields server(object);
  throw Failure{kFailed, EADDRINUSE,
                "nothing was added: port " + std::to_string(call.options.port) + " belongs to " +
                    Named(id) + " (" + server.Text(ServerField::FileName) + ", " +
                    std::to_string(server.NumberOr(ServerField::HeapSize, 0)) +
                    " MB); delete that one or use another port"};
}

bool IsGone(Call& call, unsigned long id) {
  return FindServer(*call.host.GetServiceStatus(), id) == nullptr;
}

bool IsSuspended(Call& call) {
  ConfigObject service;
  ConfigObject servers;
  call.host.GetStatus(&service, &servers);
  bool runs = false;
  ForEachServer(*servers, [&runs](const std::string& /*id*/, const Fields& server) {
    runs = runs || server.NumberOr(ServerField::ProcessId, 0) != 0;
  });
  return !runs && Fields(service.get()).Number(ServiceField::Status) == SCA_ServerInactive;
}

// Whether the host that opened its port at that time is gone; another one may be there already.
bool HasEnded(Call& call, unsigned long long startTime, std::string* how) {
  try {
    call.host.Connect();
    *how = "another service host already answers there";
    return call.host.StartTime() != startTime;
  } catch (const Failure& failure) {
    *how = "nothing answers there any more";
    // A socket goes with its host.
    return failure.status == kNoConnection &&
           (failure.code == ECONNREFUSED || failure.code == ENOENT);
  }
}

// The host's process, where this program sees it: it lives on for a while after its port is closed.
class HostProcess {
 public:
  explicit HostProcess(Call& call) {
    if (!call.host.IsThisMachine()) return;
    ConfigObject service;
    ConfigObject servers;
    call.host.GetStatus(&service, &servers);
    const std::string id =
        std::to_string(Fields(service.get()).NumberOr(ServiceField::ProcessId, 0));
    // In a container the host may have an id that is another process's here.
    std::string name;
    std::getline(std::ifstream("/proc/" + id + "/comm"), name);
    if (name == "tikasvc") fd_ = static_cast<int>(::syscall(SYS_pidfd_open, std::stoi(id), 0));
  }
  ~HostProcess() {
    if (fd_ >= 0) ::close(fd_);
  }
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  /// @return False while it is seen to live.
  bool HasEnded() const {
    pollfd entry{fd_, POLLIN, 0};
    return fd_ < 0 || ::poll(&entry, 1, 0) > 0;
  }

 private:
  int fd_ = -1;
};

// A request whose answer did not come in time may be done all the same, which --wait finds out.
template <class Work>
void Patiently(const Call& call, Work work) {
  try {
    work();
  } catch (const Failure& failure) {
    if (failure.code != ETIMEDOUT || !call.options.waitSeconds) throw;
  }
}

}  // namespace

void AddServer(Call& call) {
  const Options& options = call.options;
  const std::string jar = JarFor(call);
  const ConfigObject before = call.host.GetServiceStatus();
  unsigned long id = SCA_NoServerId;
  unsigned long status = 0;
  unsigned long code = 0;
  call.host.Ask("add the server", &Service::AddServer, jar.c_str(), options.port, options.heapMb,
                options.javaOptions.c_str(), &id, &status, &code);
  if (code != 0 || id == SCA_NoServerId) {
    throw Failure{kFailed, code,
                  "no server was added: " + Printable(jar) + ", port " +
                      std::to_string(options.port) + ": " +
                      (code != 0 ? SCA_ErrorText(code) : "the host gives no reason") + "; see " +
                      call.host.Hint("debug-log")};
  }
  RefuseOther(call, *before, id);
  call.Succeed(Named(id) + " added on port " + std::to_string(options.port), id);
  if (options.start) StartAll(call, {id});
}

void StartServers(Call& call) {
  StartAll(call, call.options.ids);
}

void DeleteServers(Call& call) {
  ForEachId(call, call.options.ids, [&call](unsigned long id) {
    Patiently(call,
              [&] { call.host.AskServer("delete " + Named(id), &Service::DeleteServer, id); });
    Waiting waiting(call);
    if (call.options.waitSeconds && !waiting.Until([&] { return IsGone(call, id); })) {
      throw Failure{kFailed, ETIMEDOUT, Named(id) + " is still there after " + waiting.Limit()};
    }
    call.Succeed(Named(id) + " stopped and deleted", id);
  });
}

void ClearLog(Call& call) {
  if (call.options.ids.empty()) {
    call.host.Ask("clear its debug log", &Service::ClearDebugLog);
    return call.Succeed("the host's debug log is cleared; the logs of servers are unchanged");
  }
  const unsigned long id = call.options.ids.front();
  call.host.AskServer("clear the log of " + Named(id), &Service::ClearServerLog, id);
  call.Succeed("the log of " + Named(id) + " is cleared; the host's debug log is unchanged", id);
}

void SaveLog(Call& call) {
  const bool isOn = call.options.logSwitch == "on";
  unsigned long code = 0;
  call.host.Ask("switch the daily files", &Service::SaveTikaLog,
                isOn ? SCA_TikaLogOn : SCA_TikaLogOff, call.options.logDir.c_str(), &code);
  const std::string directory = Printable(call.options.logDir);
  if (code != 0) {
    throw Failure{kFailed, code,
                  "the daily files were not switched " + call.options.logSwitch + ": " +
                      (directory.empty() ? "" : directory + ": ") + SCA_ErrorText(code)};
  }
  call.Succeed("daily files of the servers' logs are " + call.options.logSwitch +
               (isOn && !directory.empty() ? ", in " + directory : ""));
}

void Suspend(Call& call) {
  Patiently(call, [&call] { call.host.Ask("suspend", &Service::Suspend); });
  Waiting waiting(call);
  if (call.options.waitSeconds && !waiting.Until([&call] { return IsSuspended(call); })) {
    throw Failure{kFailed, ETIMEDOUT,
                  "not all servers are stopped after " + waiting.Limit() + "; see " +
                      call.host.Hint("status")};
  }
  call.Succeed(std::string("the service is suspended") +
               (call.options.waitSeconds ? ", all its servers are stopped" : ""));
}

void Shutdown(Call& call) {
  const unsigned long long startTime = call.host.StartTime();
  const HostProcess process(call);
  Patiently(call, [&call] { call.host.Ask("shut down", &Service::StopServer); });
  if (!call.options.waitSeconds) return call.Succeed("the service host is shutting down");
  Waiting waiting(call);
  std::string how;
  const auto hasEnded = [&] { return HasEnded(call, startTime, &how) && process.HasEnded(); };
  if (!waiting.Until(hasEnded)) {
    throw Failure{kFailed, ETIMEDOUT, "the service host is still there after " + waiting.Limit()};
  }
  call.Succeed("the service host is gone: " + how);
}
