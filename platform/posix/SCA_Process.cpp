#include "platform/SCA_Process.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "platform/SCA_Error.h"
#include "platform/SCA_Path.h"
#include "platform/SCA_Text.h"
#include "platform/posix/SCA_Posix.h"
#include "platform/posix/SCA_ProcessGroup.h"

extern char** environ;

namespace {

constexpr std::size_t kOutputBufferSize = 8192;
constexpr std::size_t kChildStackSize = 65536;
constexpr int kPollSliceMs = 60000;

// Splits at blanks; double quotes group. False for an open quote or a line without words.
bool SplitCommand(const char* command, std::vector<std::string>* words) {
  bool inQuotes = false;
  bool inWord = false;
  for (const char* c = command; *c != '\0'; ++c) {
    if (*c == '"') {
      inQuotes = !inQuotes;
    } else if ((*c == ' ' || *c == '\t') && !inQuotes) {
      inWord = false;
      continue;
    }
    if (!inWord) words->emplace_back();
    inWord = true;
    if (*c != '"') words->back().push_back(*c);
  }
  return !inQuotes && !words->empty() && !words->front().empty();
}

// The path of a program, looked up here because the child may not allocate; empty when it is found
// nowhere, for the exec to fail as for a missing file.
std::string FindProgram(const std::string& name) {
  char path[SCA_MaxPath] = "";
  SCA_FindProgram(name.c_str(), path, sizeof path);
  return path;
}

std::vector<char*> PointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// A descriptor that does not stand where the child's standard ones will be put.
SCA_Fd AboveStandard(SCA_Fd fd) {
  if (!fd.IsOpen() || fd.Get() > STDERR_FILENO) return fd;
  return SCA_Fd(::fcntl(fd.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

struct Pipe {
  SCA_Fd read;
  SCA_Fd write;

  bool Open() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return false;
    read = AboveStandard(SCA_Fd(ends[0]));
    write = AboveStandard(SCA_Fd(ends[1]));
    return read.IsOpen() && write.IsOpen();
  }
};

// What the child needs between clone and exec, where it may call async-signal-safe functions only:
// it runs in the memory of its parent.
struct ChildPlan {
  const char* program;
  char* const* arguments;
  char* const* environment;
  const char* directory;  // to change to; null for none
  int input;
  int output;
  bool diesWithParent;
  bool isIdle = false;
  int failure = -1;  // takes the errno of a failed start
  pid_t parent = 0;
};

// Best effort: at the usual priority it does its work as well.
void LowerPriority() {
  constexpr int kWhoProcess = 1;
  constexpr int kIdleClass = 3 << 13;
  constexpr int kLowest = 19;
  ::setpriority(PRIO_PROCESS, 0, kLowest);
  ::syscall(SYS_ioprio_set, kWhoProcess, 0, kIdleClass);  // the C library has no name for it
}

__attribute__((no_sanitize("address", "thread", "undefined"))) int RunChild(void* argument) {
  const auto* plan = static_cast<const ChildPlan*>(argument);
  ::setpgid(0, 0);
  // The kernel kills the child when the thread that started it ends, whatever ended it. The thread
  // may have ended before the call; then nobody would send the signal any more.
  if (plan->diesWithParent) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != plan->parent) ::_exit(127);
  }
  if (plan->isIdle) LowerPriority();
  struct sigaction standard;
  std::memset(&standard, 0, sizeof standard);
  standard.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) ::sigaction(number, &standard, nullptr);
  if ((plan->directory == nullptr || ::chdir(plan->directory) == 0) &&
      ::dup2(plan->input, STDIN_FILENO) >= 0 && ::dup2(plan->output, STDOUT_FILENO) >= 0 &&
      ::dup2(plan->output, STDERR_FILENO) >= 0 &&
      ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) == 0) {
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::execve(plan->program, plan->arguments, plan->environment);
  }
  const int code = errno;
  // Should even this fail, the parent takes the child for started and sees it end with 127.
  const ssize_t written = ::write(plan->failure, &code, sizeof code);
  ::_exit(written == sizeof code ? 127 : 126);
}

// ThreadSanitizer keeps its picture of threads and signal handlers in the memory that the child
// would share; there the child gets a copy.
#if defined(__SANITIZE_THREAD__)
constexpr int kSharedMemory = 0;
#else
constexpr int kSharedMemory = CLONE_VM;
#endif

// Clones without copying the page tables, as vfork does, but on a stack of its own: forking a host
// of 2 GiB would cost 18 ms. Signals stay blocked meanwhile, so that no handler of the host runs in
// the child. The descriptor of the process is made together with it: the pid of a child that the
// system reaps at once, as it does for a host that ignores SIGCHLD, may be nobody's a moment later.
// Gives the pid, or -1 with errno set.
pid_t Spawn(ChildPlan* plan, SCA_Fd* pidFd) {
  const std::unique_ptr<char[]> stack(new (std::nothrow) char[kChildStackSize]);
  if (stack == nullptr) {
    errno = ENOMEM;
    return -1;
  }
  sigset_t all;
  sigset_t former;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &former);
  int fd = -1;
  const pid_t pid = ::clone(RunChild, stack.get() + kChildStackSize,
                            kSharedMemory | CLONE_VFORK | CLONE_PIDFD | SIGCHLD, plan, &fd);
  const int code = errno;
  pidFd->Reset(fd);
  ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
  errno = code;
  return pid;
}

struct Child {
  pid_t pid = 0;
  SCA_Fd pidFd;  // the descriptor of the process
};

// Starts a program; the caller fills in all of the plan but what is known here alone.
SCA_Result Launch(ChildPlan plan, Child* child) {
  Pipe failure;
  if (!failure.Open()) return SCA_SystemError();
  plan.failure = failure.write.Get();
  plan.parent = ::getpid();
  const pid_t pid = Spawn(&plan, &child->pidFd);
  if (pid < 0) return SCA_SystemError();
  failure.write.Reset();
  int failed = 0;
  // Ends at once: the exec closed the other end, or the child wrote and exited.
  const ssize_t got = SCA_Retry([&] { return ::read(failure.read.Get(), &failed, sizeof failed); });
  if (got != sizeof failed) {
    child->pid = pid;
    return SCA_Done;
  }
  SCA_Retry([&] { return ::waitpid(pid, nullptr, 0); });
  return SCA_Result(static_cast<unsigned long>(failed));
}

// A process that waits for the end of this one and then kills a group. The signal that the kernel
// sends reaches the child alone; what the child has started may need many seconds to notice, or
// never do. The guardian holds the only other end of a pipe: it wakes when the pipe closes,
// whatever ended its owner.
class Guardian {
 public:
  Guardian() = default;
  ~Guardian() { Dismiss(); }
  Guardian(const Guardian&) = delete;
  Guardian& operator=(const Guardian&) = delete;

  /// Best effort: without it the child is still killed, only its descendants are left to
  /// themselves.
  void Watch(pid_t group, int output) {
    static_cast<void>(SCA_Guarded([&] { return Start(group, output); }));
  }

  /// To be called before the group's name can be given away.
  void Dismiss() {
    if (pid_ != 0) {
      ::kill(pid_, SIGKILL);
      SCA_Retry([&] { return ::waitpid(pid_, nullptr, 0); });
    }
    pid_ = 0;
    pipe_.Reset();
  }

 private:
  SCA_Result Start(pid_t group, int output) {
    Pipe pipe;
    if (!pipe.Open()) return SCA_SystemError();
    std::vector<std::string> words = {"sh", "-c", "read _; kill -s KILL -- \"-$0\"",
                                      std::to_string(group)};
    const std::vector<char*> arguments = PointersTo(words);
    char* const environment[] = {nullptr};
    Child child;
    const SCA_Result launched =
        Launch({"/bin/sh", arguments.data(), environment, nullptr, pipe.read.Get(), output, false},
               &child);
    pid_ = child.pid;
    pipe_ = std::move(pipe.write);
    return launched;
  }

  pid_t pid_ = 0;
  SCA_Fd pipe_;
};

class Process final : public SCA_Process {
 public:
  Process() { SetValid(1); }
  ~Process() override { Stop(SCA_ProcessStopGraceMs); }

  int SetEnvironment(const char* name, const char* value) override;
  int Start(const char* command, unsigned long flags, unsigned long options,
            unsigned long* error) override;
  int WaitForOutput(unsigned long timeoutMs, int reserved) override;
  int ReadOutputLine(char* buffer, unsigned long size, unsigned long* length,
                     unsigned long* error) override;
  void Wake() override;
  int IsLineContinued() const override { return isLineContinued_ ? 1 : 0; }
  int GetFigures(SCA_ProcessFigures* figures) override;
  int TakeEndedWorker(SCA_ProcessWorker* worker) override;
  int IsRunning() override;
  unsigned long GetProcessId() const override { return static_cast<unsigned long>(pid_); }
  int GetExit(SCA_ProcessExit* exit) override;
  void Terminate() override;
  void Stop(unsigned long graceMs) override;
  int SetDirectory(const char* path) override;
  void SetPriority(SCA_ProcessPriority priority) override {
    isIdle_ = priority == SCA_ProcessPriority::Idle;
  }

 private:
  std::vector<std::string> MakeEnvironment() const;
  SCA_Result StartWords(std::vector<std::string>* words);
  bool HasLine() const;
  bool FillBuffer();
  void Drop(std::size_t count);
  struct Ready {
    bool hasOutput = false;  // or its end
    bool isCalled = false;
  };
  Ready Poll(int timeoutMs);

  std::vector<std::string> variables_;  // NAME=VALUE
  std::string directory_;               // empty for the caller's
  bool isIdle_ = false;
  pid_t pid_ = 0;
  bool reaped_ = false;
  bool ended_ = false;
  SCA_ProcessExit exit_;
  SCA_Fd pidFd_;
  SCA_Fd attention_;  // readable once somebody has called; open from the start on
  Guardian guardian_;
  std::optional<SCA_ProcessGroup> group_;  // of a child that has not been reaped

  SCA_Fd output_;  // closed once the output has ended
  std::size_t held_ = 0;
  bool isLineContinued_ = false;
  char buffer_[kOutputBufferSize];
};

int Process::SetEnvironment(const char* name, const char* value) {
  if (*name == '\0' || std::strchr(name, '=') != nullptr) return 0;
  const auto add = [&] {
    variables_.push_back(std::string(name) + "=" + value);
    return SCA_Done;
  };
  return SCA_Guarded(add).HasFailed() ? 0 : 1;
}

int Process::SetDirectory(const char* path) {
  const auto set = [&] {
    directory_ = path;
    return SCA_Done;
  };
  return *path != '/' || SCA_Guarded(set).HasFailed() ? 0 : 1;
}

std::vector<std::string> Process::MakeEnvironment() const {
  std::vector<std::string> environment;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    environment.emplace_back(*entry);
  }
  for (const std::string& variable : variables_) {
    const std::size_t nameLength = variable.find('=') + 1;
    const auto isSame = [&](const std::string& entry) {
      return entry.compare(0, nameLength, variable, 0, nameLength) == 0;
    };
    environment.erase(std::remove_if(environment.begin(), environment.end(), isSame),
                      environment.end());
    environment.push_back(variable);
  }
  return environment;
}

int Process::Start(const char* command, unsigned long flags, unsigned long options,
                   unsigned long* error) {
  if (flags != 0 || options != SCA_ProcessReadOutput) return SCA_Fail(EINVAL, error);
  if (pid_ != 0) return SCA_Fail(EBUSY, error);
  const auto start = [&] {
    std::vector<std::string> words;
    return SplitCommand(command, &words) ? StartWords(&words) : SCA_Result(SCA_ErrorCommandLine);
  };
  return SCA_Guarded(start).Store(error);
}

SCA_Result Process::StartWords(std::vector<std::string>* words) {
  Pipe output;
  const SCA_Fd null = AboveStandard(SCA_Fd(::open("/dev/null", O_RDWR | O_CLOEXEC)));
  SCA_Fd attention(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!null.IsOpen() || !attention.IsOpen() || !output.Open() ||
      ::fcntl(output.read.Get(), F_SETFL, O_NONBLOCK) != 0) {
    return SCA_SystemError();
  }
  const std::string program = FindProgram(words->front());
  std::vector<std::string> environment = MakeEnvironment();
  const std::vector<char*> arguments = PointersTo(*words);
  const std::vector<char*> variables = PointersTo(environment);
  Child child;
  const SCA_Result launched = Launch({program.c_str(), arguments.data(), variables.data(),
                                      directory_.empty() ? nullptr : directory_.c_str(), null.Get(),
                                      output.write.Get(), true, isIdle_},
                                     &child);
  if (launched.HasFailed()) return launched;
  pid_ = child.pid;
  pidFd_ = std::move(child.pidFd);
  output_ = std::move(output.read);
  attention_ = std::move(attention);
  guardian_.Watch(pid_, null.Get());
  group_.emplace(pid_);
  return SCA_Done;
}

bool Process::HasLine() const {
  return std::memchr(buffer_, '\n', held_) != nullptr || held_ == sizeof buffer_ ||
         (held_ > 0 && !output_.IsOpen());
}

// Drops bytes from the front, and with them the empty lines that then stand there.
void Process::Drop(std::size_t count) {
  for (;;) {
    if (count < held_ && buffer_[count] == '\n') {
      ++count;
    } else if (count + 1 < held_ && buffer_[count] == '\r' && buffer_[count + 1] == '\n') {
      count += 2;
    } else {
      break;
    }
  }
  held_ -= count;
  std::memmove(buffer_, buffer_ + count, held_);
}

// Gives false when nothing could be read now.
bool Process::FillBuffer() {
  if (!output_.IsOpen() || held_ == sizeof buffer_) return false;
  const ssize_t count =
      SCA_Retry([&] { return ::read(output_.Get(), buffer_ + held_, sizeof buffer_ - held_); });
  if (count > 0) {
    held_ += static_cast<std::size_t>(count);
    Drop(0);
    return true;
  }
  if (count == 0 || errno != EAGAIN) output_.Reset();
  return false;
}

// Waits, and takes note of the end of the child and of a call for attention.
Process::Ready Process::Poll(int timeoutMs) {
  // A descriptor of -1 is passed over: where the output has ended, the end of the child is left.
  pollfd entries[3] = {
      {output_.Get(), POLLIN, 0}, {pidFd_.Get(), POLLIN, 0}, {attention_.Get(), POLLIN, 0}};
  if (::poll(entries, 3, timeoutMs) <= 0) return {};
  if (entries[1].revents != 0) IsRunning();
  std::uint64_t calls = 0;
  const bool isCalled =
      entries[2].revents != 0 && ::read(attention_.Get(), &calls, sizeof calls) == sizeof calls;
  return {entries[0].revents != 0, isCalled};
}

int Process::WaitForOutput(unsigned long timeoutMs, int /*reserved*/) {
  const SCA_Deadline deadline(timeoutMs);
  // One call to the system is all that watching a silent child costs.
  while (!HasLine()) {
    const bool isOver = pid_ == 0 || ended_;
    bool isLast = isOver || deadline.HasPassed();
    const Ready ready = Poll(isLast ? 0 : deadline.PollTimeout(kPollSliceMs));
    isLast = isLast || ready.isCalled;
    // Once the child has ended, the pipe is asked whatever the poll said: the last words may have
    // come between its looks at the two descriptors.
    const bool hasRead = (ready.hasOutput || ended_) && FillBuffer();
    // A descendant may hold the pipe open; the child's own last words are not kept back for it.
    if (!hasRead && (isOver || ended_)) return held_ > 0 ? 1 : 0;
    if (!hasRead && isLast) return HasLine() ? 1 : 0;
  }
  return 1;
}

void Process::Wake() {
  const std::uint64_t call = 1;
  SCA_Retry([&] { return ::write(attention_.Get(), &call, sizeof call); });
}

int Process::ReadOutputLine(char* buffer, unsigned long size, unsigned long* length,
                            unsigned long* error) {
  if (size < 2) return SCA_Fail(EINVAL, error);
  *length = 0;
  buffer[0] = '\0';
  if (!HasLine()) {
    // Asked before the pipe is read: what a child printed is there when its end is seen.
    const bool ended = IsRunning() == 0;
    FillBuffer();
    if (!HasLine() && !(ended && held_ > 0)) return 1;
  }
  const auto* newline = static_cast<const char*>(std::memchr(buffer_, '\n', held_));
  const bool hasEnd = newline != nullptr;
  std::size_t whole = hasEnd ? static_cast<std::size_t>(newline - buffer_) : held_;
  const std::size_t lineEnd = hasEnd ? 1 : 0;
  // A CR at the end of a piece waits for what follows: it may belong to the line's end.
  const bool endsInReturn = whole > 1 && buffer_[whole - 1] == '\r';
  if (endsInReturn) --whole;
  const bool isPiece = !hasEnd && held_ == sizeof buffer_;
  // Of a full buffer the last byte stays: whether a character ends there is not known yet.
  const std::size_t room = std::min<std::size_t>(size - 1, sizeof buffer_ - 1);
  const std::size_t taken =
      whole <= room ? whole : static_cast<std::size_t>(SCA_CutLength(buffer_, room));
  std::memcpy(buffer, buffer_, taken);
  buffer[taken] = '\0';
  *length = taken;
  const bool isLineDone = taken == whole && !isPiece;
  isLineContinued_ = !isLineDone;
  Drop(isLineDone ? taken + (endsInReturn ? 1 : 0) + lineEnd : taken);
  return 1;
}

int Process::GetFigures(SCA_ProcessFigures* figures) {
  if (!group_.has_value()) return 0;
  int isRead = 0;
  const auto read = [&] {
    isRead = group_->GetFigures(figures);
    return SCA_Done;
  };
  return SCA_Guarded(read).HasFailed() ? 0 : isRead;
}

int Process::TakeEndedWorker(SCA_ProcessWorker* worker) {
  return group_.has_value() ? group_->TakeEndedWorker(worker) : 0;
}

int Process::IsRunning() {
  if (pid_ == 0 || ended_) return 0;
  siginfo_t info{};
  // Not reaped yet: its process id, which names the group, must not be given away before the group
  // has been killed.
  const int result = SCA_Retry(
      [&] { return ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT); });
  if (result == 0 && info.si_pid == 0) return 1;
  ended_ = true;
  // ECHILD: the system has reaped the child, for a host that ignores SIGCHLD, or the host has.
  exit_.isKnown = result == 0 ? 1 : 0;
  if (info.si_code == CLD_EXITED) {
    exit_.exitCode = info.si_status;
  } else {
    exit_.signal = info.si_status;
  }
  return 0;
}

int Process::GetExit(SCA_ProcessExit* exit) {
  if (pid_ == 0 || IsRunning() != 0) return 0;
  *exit = exit_;
  return 1;
}

void Process::Terminate() {
  if (pid_ != 0 && !reaped_) ::kill(-pid_, SIGTERM);
}

void Process::Stop(unsigned long graceMs) {
  if (pid_ == 0 || reaped_) return;
  Terminate();
  const SCA_Deadline deadline(graceMs);
  while (IsRunning() != 0 && !deadline.HasPassed()) {
    Poll(deadline.PollTimeout(kPollSliceMs));
    // A child that waits for room in the pipe would never see the signal; of output that nobody
    // reads, the newest is kept.
    if (held_ == sizeof buffer_) held_ = 0;
    FillBuffer();
  }
  ::kill(-pid_, SIGKILL);
  SCA_Retry([&] { return ::waitid(P_PID, static_cast<id_t>(pid_), nullptr, WEXITED | WNOWAIT); });
  IsRunning();
  guardian_.Dismiss();
  SCA_Retry([&] { return ::waitpid(pid_, nullptr, 0); });
  reaped_ = true;
  group_.reset();
}

}  // namespace

SCA_Process* SCA_CreateProcess() {
  return new (std::nothrow) Process;
}

int SCA_StartDetached(const char* const* words, SCA_ProcessPriority priority,
                      unsigned long* error) {
  const auto start = [&] {
    std::vector<std::string> texts;
    for (; *words != nullptr; ++words) texts.emplace_back(*words);
    if (texts.empty()) return SCA_Result(SCA_ErrorCommandLine);
    const SCA_Fd null = AboveStandard(SCA_Fd(::open("/dev/null", O_RDWR | O_CLOEXEC)));
    if (!null.IsOpen()) return SCA_SystemError();
    const std::string program = FindProgram(texts.front());
    const std::vector<char*> arguments = PointersTo(texts);
    const bool isIdle = priority == SCA_ProcessPriority::Idle;
    Child child;
    return Launch({program.c_str(), arguments.data(), environ, nullptr, null.Get(), null.Get(),
                   false, isIdle},
                  &child);
  };
  return SCA_Guarded(start).Store(error);
}
