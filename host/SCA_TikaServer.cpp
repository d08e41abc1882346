#include "host/SCA_TikaServer.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "host/SCA_TikaJar.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Path.h"
#include "platform/SCA_Process.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"
#include "platform/SCA_Text.h"
#include "platform/SCA_Time.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kSource[] = "SCA_TikaServer";
constexpr unsigned long kLogCapacity = 500;
constexpr unsigned long kMaxErrors = 1000;  // unexpected ends that are made good
constexpr unsigned long kOutputPassMs = 42;
constexpr int kOutputPassLines = 1000;
constexpr unsigned long kStopWaitMs = 100;
// A silent process is watched by one wait, which output, death, a stop and a requested restart end
// at once. Waking up is what watching costs, so it is as long as the figures may be old.
constexpr unsigned long kSilentPassMs = 1000;
// For what a process left in the pipe: one that escaped from the group may go on writing.
constexpr std::chrono::milliseconds kDrainLimit{1000};
constexpr std::size_t kLineSize = 260;
// From version 4 on a worker that has had no document for a minute says this, and ends.
constexpr char kWorkerIsIdle[] = "socket timeout while waiting for task, shutting down";

struct LevelWord {
  const char* word;
  unsigned long level;
};

constexpr LevelWord kLevelWords[] = {{"INFO", SCA_LevelInfo},
                                     {"WARN", SCA_LevelWarning},
                                     {"WARNING:", SCA_LevelWarning},
                                     {"ERROR", SCA_LevelError}};

// The level that the first word tells; 0 when there is no word.
unsigned long LevelOf(const char* line) {
  char word[kLineSize];
  unsigned long position = 0;
  if (SCA_GetToken1(line, &position, word, sizeof word) == 0) return 0;
  for (const LevelWord& entry : kLevelWords) {
    if (std::strcmp(word, entry.word) == 0) return entry.level;
  }
  return SCA_LevelInfo;
}

// "INFO [..] 12:00:00,000 org.apache.tika.server.core.resource.TikaResource /tika (TYPE)", and so
// for /meta and /rmeta. Versions differ in the package, and in the path's slash.
bool TellsOfDocument(std::string_view line) {
  constexpr std::string_view kResource = "Resource ";
  const std::size_t package = line.find(" org.apache.tika.server.");
  if (line.rfind("INFO", 0) != 0 || package == std::string_view::npos) return false;
  const std::size_t resource = line.find(kResource, package);
  if (resource == std::string_view::npos || line.back() != ')') return false;
  const std::string_view request = line.substr(resource + kResource.size());
  const std::size_t blank = request.find(' ');
  return blank != std::string_view::npos && request.substr(blank, 2) == " (";
}

const char* NotNull(const char* text) {
  return text != nullptr ? text : "";
}

std::string HeapOption(unsigned long megabytes) {
  return "-Xmx" + std::to_string(megabytes) + "m";
}

bool HasControls(const char* text) {
  return std::any_of(text, text + std::strlen(text), [](char c) {
    return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7F;
  });
}

// The code with which a text is refused, or 0.
unsigned long RefuseFileName(const char* fileName) {
  if (std::strlen(fileName) >= SCA_MaxPath) return ENAMETOOLONG;
  const bool isFit = std::strpbrk(fileName, "\"\t") == nullptr && !HasControls(fileName);
  return isFit ? 0 : SCA_ErrorInvalidData;
}

unsigned long RefuseJavaOptions(const char* options, std::size_t size) {
  return std::strlen(options) < size && !HasControls(options) ? 0 : SCA_ErrorInvalidData;
}

int ReportRefusal(const char* operation, unsigned long code) {
  SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelError, "%s: %s", operation,
                                           SCA_ErrorText(code));
  return 0;
}

unsigned long long MsSince(Clock::time_point begin) {
  return static_cast<unsigned long long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count());
}

void DescribeExit(const SCA_ProcessExit& exit, char* text, std::size_t size) {
  if (exit.isKnown == 0) {
    std::snprintf(text, size, "with an unknown status");
    return;
  }
  if (exit.signal == 0) {
    std::snprintf(text, size, "with exit code %d", exit.exitCode);
    return;
  }
  const char* name = ::sigdescr_np(exit.signal);
  std::snprintf(text, size, "by signal %d (%s)", exit.signal, name != nullptr ? name : "unknown");
}

}  // namespace

SCA_TikaServerObserver::~SCA_TikaServerObserver() = default;
void SCA_TikaServerObserver::OnWorkerEnd(const SCA_TikaObituary& /*obituary*/) {}
unsigned long SCA_TikaServerObserver::GetRestartDelay() {
  return 0;
}
std::string SCA_TikaServerObserver::GetJvmOptions(const SCA_TikaLaunch& /*launch*/) {
  return {};
}

// One life of the Java process.
struct SCA_TikaServer::Run {
  SCA_Owned<SCA_Process> process{SCA_CreateProcess()};
  std::string command;
  std::string directory;  // to run in; empty for the host's own
  std::string toolOptions;
  Clock::time_point begin;
  unsigned long processId = 0;
  unsigned long long memoryUsage = 0;
  char cause[sizeof SCA_TikaServer::restartCause_] = "";
  unsigned long idleWorkers = 0;            // have said that they end, and have not been seen to
  unsigned long lineLevel = SCA_LevelInfo;  // of the line whose pieces come
  bool isInLine = false;
};

// What an operation that holds a lock has to report once it has left it. Takes no memory: the lack
// of it is one of the things to report.
struct SCA_TikaServer::Complaint {
  unsigned long code = 0;
  char text[SCA_MaxPath + 100] = "";

  int Set(unsigned long newCode, const char* format, ...) __attribute__((format(printf, 3, 4))) {
    code = newCode;
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    return 0;
  }
};

SCA_TikaServer::SCA_TikaServer(SCA_TikaConfigUser* config)
    : SCA_ThreadObj(0), offline_(config == nullptr ? 1 : 0), log_(config, kLogCapacity, 0) {
  SetValid(1);
}

SCA_TikaServer::~SCA_TikaServer() {
  StopAll();
  // A worker that ended by itself, or that was started past `StartProcess`.
  SCA_TikaServer::Unlock(kSource);
}

// Configuration

int SCA_TikaServer::CheckConfig(const char* fileName, unsigned short port, unsigned long heapSize,
                                const char* javaOptions) const {
  const SCA_LockGuard guard(texts_);
  return port == GetPortNumber() && heapSize == GetHeapSize() &&
                 std::strcmp(NotNull(fileName), fileName_) == 0 &&
                 std::strcmp(NotNull(javaOptions), javaOptions_) == 0
             ? 1
             : 0;
}

int SCA_TikaServer::SetConfig(const char* fileName, unsigned short port, unsigned long heapSize,
                              const char* javaOptions, unsigned long* error) {
  fileName = NotNull(fileName);
  javaOptions = NotNull(javaOptions);
  unsigned long code = RefuseFileName(fileName);
  if (code == 0) code = RefuseJavaOptions(javaOptions, sizeof javaOptions_);
  if (code == 0 && heapSize > UINT32_MAX) code = SCA_ErrorInvalidData;
  if (code != 0) return SCA_Fail(code, error);
  const SCA_LockGuard order(control_);
  const SCA_LockGuard guard(texts_);
  SCA_CopyText(fileName_, fileName, SCA_TextFit::Refuse);
  SCA_CopyText(javaOptions_, javaOptions, SCA_TextFit::Refuse);
  SetPortNumber(port);
  SetHeapSize(heapSize);
  return 1;
}

int SCA_TikaServer::SetFileName(const char* fileName) {
  if (const unsigned long code = RefuseFileName(NotNull(fileName)); code != 0) {
    return ReportRefusal("SCA_TikaServer::SetFileName", code);
  }
  const SCA_LockGuard order(control_);
  StoreFileName(fileName);
  return 1;
}

void SCA_TikaServer::StoreFileName(const char* fileName) {
  const SCA_LockGuard guard(texts_);
  SCA_CopyText(fileName_, fileName, SCA_TextFit::Refuse);
}

int SCA_TikaServer::SetJavaOptions(const char* options) {
  options = NotNull(options);
  if (const unsigned long code = RefuseJavaOptions(options, sizeof javaOptions_); code != 0) {
    return ReportRefusal("SCA_TikaServer::SetJavaOptions", code);
  }
  const SCA_LockGuard order(control_);
  const SCA_LockGuard guard(texts_);
  return SCA_CopyText(javaOptions_, options, SCA_TextFit::Refuse);
}

int SCA_TikaServer::SetBindAddress(const char* address) {
  address = NotNull(address);
  if (*address == '\0' || std::strpbrk(address, " \t\"") != nullptr || HasControls(address) ||
      std::strlen(address) >= sizeof bindAddress_) {
    return ReportRefusal("SCA_TikaServer::SetBindAddress", SCA_ErrorInvalidData);
  }
  const SCA_LockGuard order(control_);
  const SCA_LockGuard guard(texts_);
  return SCA_CopyText(bindAddress_, address, SCA_TextFit::Refuse);
}

// Starting and stopping

void SCA_TikaServer::ClearFigures() {
  for (auto* figure :
       {&startTime_, &upTime_, &readIops_, &writeIops_, &readData_, &writeData_, &memoryUsage_}) {
    figure->Set(0);
  }
  sessionId_.Set(0);
  tikaErrors_.Set(0);
  workerEnds_.Set(0);
}

int SCA_TikaServer::CheckJar(Complaint* complaint) {
  if (FindJar(complaint) == 0) return 0;
  char fileName[SCA_MaxPath];
  CopyFileName(fileName);
  if (SCA_LookAtTikaJar(fileName).isComplete) return 1;
  return complaint->Set(SCA_ErrorNoTikaFolders,
                        "SCA_TikaServer::StartProcess: the folders 'lib' and 'plugins' do not "
                        "stand beside the Tika server JAR file - %s",
                        fileName);
}

void SCA_TikaServer::CopyFileName(char (&fileName)[SCA_MaxPath]) const {
  const SCA_LockGuard guard(texts_);
  SCA_CopyText(fileName, fileName_, SCA_TextFit::Cut);
}

// Makes a relative name that is not there the full path beside the host's program.
int SCA_TikaServer::FindJar(Complaint* complaint) {
  char fileName[SCA_MaxPath];
  CopyFileName(fileName);
  if (SCA_FileExists(fileName) != 0) return 1;
  const auto isMissing = [complaint](const char* path) {
    return complaint->Set(SCA_ErrorNoJar,
                          "SCA_TikaServer::StartProcess: Tika server JAR file does not exist - %s",
                          path);
  };
  if (SCA_IsAbsolutePath(fileName) != 0) return isMissing(fileName);
  char program[SCA_MaxPath];
  char directory[SCA_MaxPath];
  char path[SCA_MaxPath];
  unsigned long code = ENAMETOOLONG;
  if (SCA_GetExeFileName(program, sizeof program, &code) == 0 ||
      SCA_GetDirName(program, directory, sizeof directory) == 0) {
    SetStatusCode(code);
    return complaint->Set(code, "SCA_TikaServer::StartProcess: Cannot get EXE file name (ERR:%lu)",
                          code);
  }
  if (SCA_FormatPath(path, sizeof path, "%s\\%s", directory, fileName) == 0) {
    return complaint->Set(
        ENAMETOOLONG, "SCA_TikaServer::StartProcess: Tika server JAR file path is too long - %s",
        fileName);
  }
  if (SCA_FileExists(path) == 0) return isMissing(path);
  StoreFileName(path);
  return 1;
}

int SCA_TikaServer::StartWorker(Complaint* complaint) {
  if (IsActive() != 0) {
    return complaint->Set(SCA_ErrorAlreadyActive,
                          "SCA_TikaServer::StartProcess: the server is already active");
  }
  if (offline_ != 0) {
    return complaint->Set(SCA_ErrorInvalidData,
                          "SCA_TikaServer::StartProcess: an offline copy cannot be started");
  }
  // A worker that has given up may still be on its way out.
  Unlock(kSource);
  ClearFigures();
  int hasJar = 0;
  try {
    hasJar = CheckJar(complaint);
  } catch (const std::exception&) {
    SetStatusCode(ENOMEM);
    complaint->Set(ENOMEM, "SCA_TikaServer::StartProcess: %s", SCA_ErrorText(ENOMEM));
  }
  if (hasJar == 0) {
    SetProcessStatus(SCA_ServerError);
    return 0;
  }
  SetProcessStatus(SCA_ServerActive);
  unsigned long code = 0;
  if (Lock("SCA_TikaServer::StartProcess", &code) != 0) {
    isEndUntold_ = true;
    return 1;
  }
  SetStatusCode(code);
  SetProcessStatus(SCA_ServerError);
  complaint->code = code;
  return 0;
}

int SCA_TikaServer::StartProcess(unsigned long* error) {
  Complaint complaint;
  int isStarted = 0;
  {
    const SCA_LockGuard order(control_);
    isStarted = StartWorker(&complaint);
  }
  if (isStarted != 0) return 1;
  if (*complaint.text != '\0') {
    SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelError, "%s", complaint.text);
  }
  return SCA_Fail(complaint.code, error);
}

int SCA_TikaServer::StopAll() {
  if (offline_ != 0) return 1;
  {
    const SCA_LockGuard order(control_);
    // One that was asked to stop before is not active any more, but its end has not been told.
    if (IsActive() == 0 && !isEndUntold_) return 1;
    isEndUntold_ = false;
    SCA_TikaServer::Unlock(kSource);
    // The worker has had the last word: one that gave up meanwhile has left an error.
    if (GetProcessStatus() == SCA_ServerError) return 1;
    SetProcessStatus(SCA_ServerInactive);
  }
  SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelInfo, "Tika server %lu deactivated.",
                                           GetServerId());
  return 1;
}

int SCA_TikaServer::Unlock(const char* caller) {
  RequestStop();
  return SCA_ThreadObj::Unlock(caller);
}

void SCA_TikaServer::RequestStop() {
  if (SCA_Event* stop = GetStopEvent(); stop != nullptr) stop->Set();
  WakeWorker();
}

// The worker looks at its events when it has been woken, else at the end of its pass.
void SCA_TikaServer::WakeWorker() {
  const SCA_LockGuard guard(texts_);
  if (running_ != nullptr) running_->Wake();
}

int SCA_TikaServer::RequestRestart(const char* cause, unsigned long processId) {
  const unsigned long running = GetProcessId();
  if (processId == 0) processId = running;
  if (IsActive() == 0 || processId == 0 || processId != running) return 0;
  {
    const SCA_LockGuard guard(texts_);
    SCA_CopyText(restartCause_, cause, SCA_TextFit::Cut);
    condemned_ = processId;
  }
  WakeWorker();
  return 1;
}

// The worker

unsigned long SCA_TikaServer::ThreadFunc() {
  for (;;) {
    unsigned long code = SCA_ErrorCancelled;
    // Looked at before each start: neither a start that fails at once nor a process that dies at
    // once ever gets to the wait below.
    if (GetStopEvent()->Wait(0) == 0) DoProcess(&code);
    if (code == SCA_ErrorCancelled) {
      SetProcessStatus(SCA_ServerInactive);
      return 1;
    }
    if (code == SCA_ErrorProcessEnded) tikaErrors_.Add(1);
    if (!WaitForRestart(code)) {
      SetProcessStatus(SCA_ServerError);
      return 0;
    }
    sessionId_.Add(1);
  }
}

// False when the server is given up.
bool SCA_TikaServer::WaitForRestart(unsigned long code) {
  if (code == SCA_ErrorNotStarted || GetTikaErrors() > kMaxErrors) return false;
  if (code != SCA_ErrorProcessEnded || observer_ == nullptr) return true;
  const unsigned long delayMs = observer_->GetRestartDelay();
  // One that was asked to stop meanwhile is stopped, not given up.
  if (delayMs == SCA_Infinite) return GetStopEvent()->Wait(0) != 0;
  GetStopEvent()->Wait(delayMs);
  return true;
}

int SCA_TikaServer::DoProcess(unsigned long* error) {
  Run run;
  unsigned long code = ENOMEM;
  try {
    MakeCommand(&run);
    if (OpenTikaLogSession(run.command.c_str(), error) == 0) return 0;
    code = StartJava(&run);
    if (code == 0) return SCA_Fail(WatchJava(&run), error);
  } catch (const std::exception&) {
    // Nothing leaves the worker: it would end the whole program. A server that has no memory to be
    // watched with is as good as one that cannot be started.
    code = ENOMEM;
    try {
      if (GetProcessId() != 0) EndJava(&run, false);
    } catch (const std::exception&) {  // the process ends with `run`, and leaves no obituary
      SetRunning(nullptr);
      processId_.Set(0);
    }
  }
  SetStatusCode(code);
  SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelError,
                                           "Cannot start Tika server %lu (ERR:%lu) - '%s'",
                                           GetServerId(), code, run.command.c_str());
  log_.AddMessage(this, SCA_LevelError, "Cannot start the Tika process: %s", SCA_ErrorText(code));
  return SCA_Fail(SCA_ErrorNotStarted, error);
}

SCA_TikaLaunch SCA_TikaServer::GetLaunch() const {
  const SCA_LockGuard guard(texts_);
  return {fileName_, javaOptions_, GetHeapSize()};
}

// The environment reaches a JVM that the process forks, and that gets no options from it.
std::string SCA_TikaServer::MakeToolOptions(const SCA_TikaLaunch& launch) const {
  std::string words = observer_ != nullptr ? observer_->GetJvmOptions(launch) : std::string();
  const std::string inherited = NotNull(std::getenv("JAVA_TOOL_OPTIONS"));
  for (const std::string& option : {inherited, launch.javaOptions, HeapOption(launch.heapSize)}) {
    if (!words.empty() && !option.empty()) words += ' ';
    words += option;
  }
  return words;
}

void SCA_TikaServer::MakeCommand(Run* run) const {
  const SCA_TikaLaunch launch = GetLaunch();
  std::string address;
  {
    const SCA_LockGuard guard(texts_);
    address = bindAddress_;
  }
  run->toolOptions = MakeToolOptions(launch);
  // Tika makes a URL of the address, in which one of IPv6 stands in brackets.
  const bool isBareIpv6 = address.find(':') != std::string::npos && address[0] != '[';
  if (isBareIpv6) address = "[" + address + "]";
  const SCA_TikaJar jar = SCA_LookAtTikaJar(launch.fileName.c_str());
  run->directory = jar.directory;
  run->command = "java " + launch.javaOptions + " " + HeapOption(launch.heapSize) + " -jar \"" +
                 jar.path + "\" -h " + address + " -port " + std::to_string(GetPortNumber());
}

int SCA_TikaServer::OpenTikaLogSession(const char* command, unsigned long* error) {
  char rule[sizeof tagSCA_ERROR_DESCR::text] = "";
  std::memset(rule, '-', std::min(std::strlen(command), sizeof rule - 1));
  return log_.AddMessage(this, SCA_LevelInfo, "%s", rule) != 0 &&
                 log_.AddMessage(this, SCA_LevelInfo, "Tika Command: %s", command) != 0 &&
                 log_.AddMessage(this, SCA_LevelInfo, "%s", rule) != 0
             ? 1
             : SCA_Fail(SCA_ErrorCannotCreate, error);
}

// What the process gets beside its command line. False without memory.
bool SCA_TikaServer::Equip(const Run& run) {
  SCA_Process* process = run.process.get();
  if (process == nullptr) return false;
  // The program that reads images takes every core for one page otherwise.
  const bool isLimited = std::getenv("OMP_THREAD_LIMIT") != nullptr ||
                         process->SetEnvironment("OMP_THREAD_LIMIT", "1") != 0;
  return isLimited && process->SetEnvironment("JAVA_TOOL_OPTIONS", run.toolOptions.c_str()) != 0 &&
         (run.directory.empty() || process->SetDirectory(run.directory.c_str()) != 0);
}

// Gives 0 or the error code.
unsigned long SCA_TikaServer::StartJava(Run* run) {
  unsigned long code = ENOMEM;
  if (!Equip(*run)) return code;
  if (run->process->Start(run->command.c_str(), 0, SCA_ProcessReadOutput, &code) == 0) return code;
  SetRunning(run->process.get());
  run->begin = Clock::now();
  run->processId = run->process->GetProcessId();
  SetStartTime(SCA_GetAbsTime());
  documents_.Set(0);
  processId_.Set(static_cast<std::uint32_t>(run->processId));
  SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelInfo,
                                           "Tika server %lu started on port - %d (PID:%lu)",
                                           GetServerId(), GetPortNumber(), run->processId);
  char options[sizeof javaOptions_];
  {
    const SCA_LockGuard guard(texts_);
    SCA_CopyText(options, javaOptions_, SCA_TextFit::Cut);
  }
  if (*options != '\0') {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelInfo, "Tika server %lu custom Java options: %s", GetServerId(), options);
  }
  if (observer_ != nullptr) observer_->OnStart(run->processId);
  return 0;
}

void SCA_TikaServer::SetRunning(SCA_Process* process) {
  const SCA_LockGuard guard(texts_);
  running_ = process;
}

// Gives the reason for the end.
unsigned long SCA_TikaServer::WatchJava(Run* run) {
  for (bool isSilent = false;;) {
    isSilent = ReadOutput(run, isSilent ? kSilentPassMs : kOutputPassMs) == 0;
    // The process decides whether it is alive, not its output, which it may close or leave to
    // others.
    if (run->process->IsRunning() == 0 || IsRestartRequested(run)) {
      EndJava(run, false);
      SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelError, "Tika server %lu stopped - '%s'",
                                               GetServerId(), run->command.c_str());
      return SCA_ErrorProcessEnded;
    }
    const unsigned long long now = SCA_GetAbsTime();
    const unsigned long long start = std::min(GetStartTime(), now);  // the clock may be set back
    SetUpTime(now / SCA_AbsTimePerMs - start / SCA_AbsTimePerMs);
    Sample(run);
    if (GetStopEvent()->Wait(isSilent ? 0 : kStopWaitMs) != 0) {
      EndJava(run, true);
      return SCA_ErrorCancelled;
    }
  }
}

// One pass: bounded, so that a flood keeps the worker neither from a stop nor from the figures.
// Gives the number of lines.
int SCA_TikaServer::ReadOutput(Run* run, unsigned long waitMs) {
  const Clock::time_point begin = Clock::now();
  unsigned long long passed = 0;
  int lines = 0;
  for (; lines < kOutputPassLines && (lines == 0 || passed < kOutputPassMs); ++lines) {
    const auto leftMs = passed < waitMs ? waitMs - static_cast<unsigned long>(passed) : 0;
    if (run->process->WaitForOutput(lines == 0 ? waitMs : std::min(leftMs, kOutputPassMs), 0) ==
        0) {
      break;
    }
    char line[kLineSize];
    unsigned long length = 0;
    unsigned long error = 0;
    if (run->process->ReadOutputLine(line, sizeof line, &length, &error) == 0 || length == 0) {
      break;
    }
    AddOutput(run, line, length);
    passed = MsSince(begin);
  }
  return lines;
}

void SCA_TikaServer::AddOutput(Run* run, char* line, unsigned long length) {
  std::replace(line, line + length, '\0', ' ');
  if (std::strstr(line, kWorkerIsIdle) != nullptr) ++run->idleWorkers;
  const bool isFirst = !run->isInLine;
  run->isInLine = run->process->IsLineContinued() != 0;
  if (isFirst && TellsOfDocument({line, length})) documents_.Add(1);
  if (isFirst && !run->isInLine) {
    unsigned long ignored = 0;
    AddLogMessage(line, length, &ignored);
    return;
  }
  // A piece of a long line: words inside it say nothing of its level, and its blanks belong to it.
  if (isFirst) run->lineLevel = std::max(LevelOf(line), SCA_LevelInfo);
  log_.AddMessage(this, run->lineLevel, "%s", line);
}

int SCA_TikaServer::AddLogMessage(const char* line, unsigned long /*length*/,
                                  unsigned long* error) {
  if (line == nullptr || *line == '\0') return 1;
  const unsigned long level = LevelOf(line);
  if (level == 0) return SCA_Fail(SCA_ErrorInvalidData, error);
  return log_.AddMessage(this, level, "%s", line) != 0 ? 1 : SCA_Fail(SCA_ErrorCannotCreate, error);
}

void SCA_TikaServer::Sample(Run* run) {
  SCA_ProcessFigures figures;
  if (run->process->GetFigures(&figures) == 0) return;
  run->memoryUsage = figures.workingSetSize;
  SetMemoryUsage(figures.workingSetSize);
  SetReadIOPS(static_cast<std::uint32_t>(figures.readOperationCount));
  SetWriteIOPS(static_cast<std::uint32_t>(figures.writeOperationCount));
  SetReadData(figures.readTransferCount);
  SetWriteData(figures.writeTransferCount);
  SCA_ProcessWorker worker;
  while (run->process->TakeEndedWorker(&worker) != 0) WriteWorkerObituary(run, worker);
}

void SCA_TikaServer::WriteWorkerObituary(Run* run, const SCA_ProcessWorker& worker) {
  const bool isIdle = run->idleWorkers != 0;
  if (isIdle) {
    --run->idleWorkers;
  } else {
    workerEnds_.Add(1);
  }
  SCA_TikaObituary obituary;
  obituary.serverId = GetServerId();
  obituary.processId = worker.processId;
  obituary.runTimeMs = worker.runTimeMs;
  obituary.memoryUsage = worker.workingSetSize;
  obituary.isRequested = isIdle ? 1 : 0;
  char text[sizeof tagSCA_ERROR_DESCR::text];
  std::snprintf(text, sizeof text,
                "Worker process %lu ended after %llu.%03llu s, memory %llu KiB%s; the Tika process "
                "runs on",
                worker.processId, worker.runTimeMs / 1000, worker.runTimeMs % 1000,
                worker.workingSetSize >> 10, isIdle ? ", having had no document" : "");
  obituary.text = text;
  log_.AddMessage(this, isIdle ? SCA_LevelInfo : SCA_LevelError, "%s", text);
  if (observer_ != nullptr) observer_->OnWorkerEnd(obituary);
}

bool SCA_TikaServer::IsRestartRequested(Run* run) {
  const SCA_LockGuard guard(texts_);
  // One that was meant for an earlier process is done.
  if (condemned_ != run->processId) return false;
  SCA_CopyText(run->cause, restartCause_, SCA_TextFit::Cut);
  return true;
}

// Ends the process if it runs, and whatever is left of its group; what it said last is read.
void SCA_TikaServer::EndJava(Run* run, bool isRequested) {
  SetRunning(nullptr);
  Clock::time_point begin = Clock::now();
  if (run->process->IsRunning() != 0) run->process->Terminate();
  while (run->process->IsRunning() != 0 && MsSince(begin) < SCA_ProcessStopGraceMs) {
    ReadOutput(run, kOutputPassMs);
  }
  run->process->Stop(0);
  begin = Clock::now();
  while (run->process->WaitForOutput(0, 0) != 0 && Clock::now() - begin < kDrainLimit) {
    ReadOutput(run, kOutputPassMs);
  }
  processId_.Set(0);
  WriteObituary(*run, isRequested);
}

void SCA_TikaServer::WriteObituary(const Run& run, bool isRequested) {
  SCA_ProcessExit exit;
  run.process->GetExit(&exit);
  SCA_TikaObituary obituary;
  obituary.serverId = GetServerId();
  obituary.processId = run.processId;
  obituary.isExitKnown = exit.isKnown;
  obituary.exitCode = exit.exitCode;
  obituary.signal = exit.signal;
  obituary.runTimeMs = MsSince(run.begin);
  obituary.memoryUsage = run.memoryUsage;
  obituary.isRequested = isRequested ? 1 : 0;
  obituary.cause = run.cause;
  char text[320];  // the log cuts what is longer than a message
  char memory[32] = "memory unknown";
  if (run.memoryUsage != 0) {
    std::snprintf(memory, sizeof memory, "memory %llu KiB", run.memoryUsage >> 10);
  }
  char end[40];
  DescribeExit(exit, end, sizeof end);
  char whole[2 * sizeof text];
  std::snprintf(whole, sizeof whole, "Tika process %lu ended %s after %llu.%03llu s, %s%s%s",
                run.processId, end, obituary.runTimeMs / 1000, obituary.runTimeMs % 1000, memory,
                isRequested ? ", stopped on request" : (*run.cause != '\0' ? ", restarted: " : ""),
                isRequested ? "" : run.cause);
  SCA_CopyText(text, whole, SCA_TextFit::Cut);
  obituary.text = text;
  log_.AddMessage(this, isRequested ? SCA_LevelInfo : SCA_LevelError, "%s", text);
  if (observer_ != nullptr) observer_->OnEnd(obituary);
}

// Fields

int SCA_TikaServer::Serialize(SCA_ConfigObj* object) const {
  if (object == nullptr) return 0;
  char fileName[SCA_MaxPath];
  char javaOptions[sizeof javaOptions_];
  {
    const SCA_LockGuard guard(texts_);
    SCA_CopyText(fileName, fileName_, SCA_TextFit::Cut);
    SCA_CopyText(javaOptions, javaOptions_, SCA_TextFit::Cut);
  }
  return object->AddField("ServerId", GetServerId(), 0) != 0 &&
                 object->AddField("SessionId", GetSessionId(), 0) != 0 &&
                 object->AddField("FileName", fileName, 0) != 0 &&
                 object->AddField("PortNumber", GetPortNumber(), 0) != 0 &&
                 object->AddField("HeapSize", GetHeapSize(), 0) != 0 &&
                 object->AddField("JavaOptions", javaOptions, 0) != 0 &&
                 object->AddField("ProcessStatus", GetProcessStatus(), 0) != 0 &&
                 object->AddField("StatusCode", GetStatusCode(), 0) != 0 &&
                 object->AddField("StartTime", GetStartTime(), 0) != 0 &&
                 object->AddField("UpTime", GetUpTime(), 0) != 0 &&
                 object->AddField("ReadIOPS", GetReadIOPS(), 0) != 0 &&
                 object->AddField("WriteIOPS", GetWriteIOPS(), 0) != 0 &&
                 object->AddField("ReadData", GetReadData(), 0) != 0 &&
                 object->AddField("WriteData", GetWriteData(), 0) != 0 &&
                 object->AddField("MemoryUsage", GetMemoryUsage(), 0) != 0 &&
                 object->AddField("TikaErrors", GetTikaErrors(), 0) != 0
             ? 1
             : 0;
}

int SCA_TikaServer::Deserialize(const SCA_ConfigObj* object) {
  if (object == nullptr) return 0;
  const auto read = [object](const char* name, auto* field) {
    auto value = field->Get();
    if (object->GetField(name, &value) != 0) field->Set(value);
  };
  read("ServerId", &serverId_);
  read("SessionId", &sessionId_);
  read("PortNumber", &portNumber_);
  read("HeapSize", &heapSize_);
  read("ProcessStatus", &processStatus_);
  read("StatusCode", &statusCode_);
  read("StartTime", &startTime_);
  read("UpTime", &upTime_);
  read("ReadIOPS", &readIops_);
  read("WriteIOPS", &writeIops_);
  read("ReadData", &readData_);
  read("WriteData", &writeData_);
  read("MemoryUsage", &memoryUsage_);
  read("TikaErrors", &tikaErrors_);
  constexpr unsigned long kCarriedText = 260;
  const SCA_LockGuard order(control_);
  const SCA_LockGuard guard(texts_);
  object->GetField("FileName", fileName_, kCarriedText);
  object->GetField("JavaOptions", javaOptions_, kCarriedText);
  return 1;
}

int SCA_TikaServer::SetContent(const SCA_TikaServer* source) {
  SCA_ConfigObj object("Server", nullptr);
  return source != nullptr && source->Serialize(&object) != 0 ? Deserialize(&object) : 0;
}

const char* SCA_TikaServer::GetStatusString() const {
  return SCA_FindProcessStatus(GetProcessStatus()).text;
}

const char* SCA_TikaServer::GetStatusIcon() const {
  return SCA_FindProcessStatus(GetProcessStatus()).icon;
}
