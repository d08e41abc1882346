#include "platform/SCA_Process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "platform/SCA_Error.h"
#include "platform/posix/SCA_Posix.h"
#include "tests/support/Environment.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"
#include "tests/support/Worker.h"

namespace {

using Texts = std::vector<std::string>;

constexpr unsigned long Code(int error) {
  return static_cast<unsigned long>(error);
}

constexpr char kWorker[] = "/proc/self/exe --worker ";
constexpr char kVariable[] = "SCA_TEST_VARIABLE";
constexpr unsigned long kLongGraceMs = kDeadlineMs;
constexpr std::size_t kFloodLines = 50000;

struct Child {
  SCA_Owned<SCA_Process> process{SCA_CreateProcess()};

  // 0 or the error code.
  unsigned long Start(const std::string& command) {
    unsigned long error = 0;
    return process->Start(command.c_str(), 0, SCA_ProcessReadOutput, &error) != 0 ? 0 : error;
  }
  // False when the output has ended.
  bool ReadLine(std::string* line, unsigned long size = 16384) {
    line->clear();
    if (process->WaitForOutput(kDeadlineMs, 0) == 0) return false;
    line->resize(size);
    unsigned long length = 0;
    unsigned long error = 0;
    EXPECT_EQ(process->ReadOutputLine(line->data(), size, &length, &error), 1);
    EXPECT_EQ((*line)[length], '\0');
    line->resize(length);
    EXPECT_GT(length, 0U) << "the wait promised a line";
    return length > 0;
  }
  Texts ReadAll(unsigned long size = 16384) {
    Texts lines;
    for (std::string line; ReadLine(&line, size);) lines.push_back(line);
    EXPECT_EQ(process->IsRunning(), 0) << "all is read when the child has ended";
    return lines;
  }
  // What a command prints, and the worker in a part.
  Texts Run(const std::string& command, unsigned long size = 16384) {
    EXPECT_EQ(Start(command), 0U);
    return ReadAll(size);
  }
  Texts Play(const std::string& part, unsigned long size = 16384) {
    return Run(kWorker + part, size);
  }
  // Starts a part that says this and lives on.
  void StartReady(const std::string& part) {
    std::string line;
    EXPECT_EQ(Start(kWorker + part), 0U);
    EXPECT_TRUE(ReadLine(&line) && line == "ready") << line;
  }
  pid_t Pid() const { return static_cast<pid_t>(process->GetProcessId()); }
  // The exit code, or the signal as a negative number.
  int End() {
    SCA_ProcessExit exit;
    EXPECT_EQ(process->GetExit(&exit), 1);
    EXPECT_EQ(exit.isKnown, 1);
    return exit.signal != 0 ? -exit.signal : exit.exitCode;
  }
};

void Write(const std::string& text) {
  WriteAll(STDOUT_FILENO, text);
}

std::string FloodLine(std::size_t number) {
  std::string line = std::to_string(number);
  return line.append(1000 - line.size(), static_cast<char>('a' + number % 26));
}

void PrintState() {
  char byte = 0;
  const char* value = std::getenv(kVariable);
  Write("input " + std::to_string(::read(STDIN_FILENO, &byte, 1)) + ", group " +
        std::to_string(::getpgrp() - ::getpid()) + ", descriptors");
  for (int fd = 0; fd < 1000; ++fd) {
    if (::fcntl(fd, F_GETFD) >= 0) Write(" " + std::to_string(fd));
  }
  Write(std::string("\nvariable ") + (value != nullptr ? value : "(none)") + "\n");
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("SigBlk", 0) == 0 || line.rfind("SigIgn", 0) == 0) Write(line + "\n");
  }
}

// Holds memory and writes 1 MiB.
[[noreturn]] void Eat(std::size_t bytes) {
  const std::string eaten(bytes, 'x');
  const SCA_Fd null(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  for (std::size_t i = 0; i < 16; ++i) {
    if (::write(null.Get(), eaten.data(), 1 << 16) != 1 << 16) ::_exit(1);
  }
  Write("ready\n");
  WaitForEver();
}

int PlayPart(const std::string& part, const Texts& arguments) {
  const auto number = [&] { return std::stoi(arguments.at(0)); };
  if (part == "exit") return number();
  if (part == "long") Write(std::string(static_cast<std::size_t>(number()), 'x') + "\r\nend\n");
  if (part == "eater" || part == "eaters") {
    const bool isHeir = part == "eaters" && ::fork() == 0;
    if (isHeir) ::alarm(60);  // should the test fail
    Eat(64 << 20);
  }
  if (part == "state") PrintState();
  for (std::size_t i = 0; part == "flood" && i < kFloodLines; ++i) Write(FloodLine(i) + "\n");
  if (part == "wait" || part == "stubborn" || part == "mute") {
    if (part == "stubborn") std::signal(SIGTERM, SIG_IGN);
    Write("ready\nnot read yet");
    for (int fd = STDOUT_FILENO; part == "mute" && fd <= STDERR_FILENO; ++fd) ::close(fd);
    WaitForEver();
  }
  if (part == "bequeath") {
    std::signal(SIGTERM, SIG_IGN);
    const pid_t heir = ::fork();
    if (heir == 0) {
      ::alarm(60);  // should the test fail
      WaitForEver();
    }
    Write("heir\n" + std::to_string(heir));
    return 5;
  }
  if (part == "parent") {
    Child child;
    child.StartReady("wait");
    Write(std::to_string(child.Pid()) + "\n");
    WaitForEver();
  }
  if (part == "ancestor") {
    Child child;
    Write(child.Play("bequeath").back() + "\n");
    WaitForEver();
  }
  return 0;
}

// The test program is its own child: started with this word it plays a part, before the test
// framework sees the arguments.
__attribute__((constructor)) void BecomeWorker(int count, char** words) {
  if (count < 3 || std::string(words[1]) != "--worker") return;
  ::_exit(PlayPart(words[2], Texts(words + 3, words + count)));
}

TEST(Process, TellsHowTheChildEnded) {
  for (const auto& [script, end] :
       {std::pair("exit 0", 0), {"exit 255", 255}, {"kill -9 $$", -SIGKILL}}) {
    Child child;
    SCA_ProcessExit exit;
    EXPECT_EQ(child.process->GetExit(&exit), 0) << "never ran";
    EXPECT_EQ(child.Run("sh -c \"" + std::string(script) + "\""), Texts());
    EXPECT_EQ(child.End(), end) << script;
  }
}

TEST(Process, OutputIsCutIntoLines) {
  const std::tuple<const char*, unsigned long, Texts> rows[] = {
      {"one\\ntwo\\n", 64, {"one", "two"}},
      {"\\n\\r\\n\\none\\r\\n\\n\\r\\nhalf", 64, {"one", "half"}},
      {"\\n\\r\\n\\n", 64, {}},
      {"abcdefg\\r\\nhij\\r\\nk\\n", 4, {"abc", "def", "g", "hij", "k"}},
      {"ab\\nc", 2, {"a", "b", "c"}},
      {"a\\0b\\nc\\rd\\n", 64, {std::string("a\0b", 3), "c\rd"}}};
  for (const auto& [output, size, lines] : rows) {
    EXPECT_EQ(Child().Run("printf \"" + std::string(output) + "\"", size), lines) << output;
  }
  EXPECT_EQ(Child().Run("sh -c \"echo out; echo error >&2\""), Texts({"out", "error"}));
}

TEST(Process, LongLinesComeInPiecesWithoutTheirLineEnd) {
  // Around the sizes at which a line end may be cut by a buffer.
  for (const std::size_t length : {4096U, 8189U, 8190U, 8191U, 8192U, 8193U, 16384U, 200000U}) {
    for (const unsigned long size : {100UL, 8192UL, 16384UL}) {
      std::string whole;
      for (const std::string& piece : Child().Play("long " + std::to_string(length), size)) {
        whole += piece;
      }
      EXPECT_TRUE(whole == std::string(length, 'x') + "end") << length << " in " << size;
    }
  }
}

TEST(Process, PiecesEndBetweenCharactersAndSayWhetherTheLineGoesOn) {
  Child child;
  const std::string text = "a\u00e9\u20ac\U0001F600" + std::string(9000, 'x') + "\u20ac";
  ASSERT_EQ(child.Start("printf \"" + text + "\\nnext\\n\""), 0U);
  std::string whole;
  for (const unsigned long size : {3UL, 5UL, 4UL, 6UL, 16384UL, 16384UL, 16384UL}) {
    std::string piece;
    ASSERT_TRUE(child.ReadLine(&piece, size));
    EXPECT_NE(static_cast<unsigned char>(piece.front()) & 0xC0, 0x80) << "begins inside";
    whole += piece;
    if (child.process->IsLineContinued() == 0) break;
  }
  EXPECT_TRUE(whole == text) << whole.size();
  EXPECT_EQ(child.ReadAll(), Texts({"next"}));
  EXPECT_EQ(child.process->IsLineContinued(), 0);
}

TEST(Process, FiguresAreThoseOfTheGroupAndKeepWhatTheGoneHaveWritten) {
  Child child;
  SCA_ProcessFigures figures;
  EXPECT_EQ(child.process->GetFigures(&figures), 0) << "never ran";
  child.StartReady("eaters");
  EXPECT_TRUE(Eventually([&] {
    return child.process->GetFigures(&figures) != 0 && figures.workingSetSize >= 128ULL << 20 &&
           figures.writeTransferCount >= 2ULL << 20 && figures.writeOperationCount >= 32;
  })) << figures.workingSetSize;
  const unsigned long long both = figures.workingSetSize;
  ::kill(child.Pid(), SIGKILL);
  EXPECT_TRUE(Eventually([&] {
    return child.process->GetFigures(&figures) != 0 &&
           figures.workingSetSize + (64ULL << 20) <= both;
  })) << figures.workingSetSize;
  EXPECT_GE(figures.writeTransferCount, 2ULL << 20);
  child.process->Stop(0);
  EXPECT_EQ(child.process->GetFigures(&figures), 0);
}

TEST(Process, AFloodIsReadWholeAndInOrder) {
  Child child;
  ASSERT_EQ(child.Start(std::string(kWorker) + "flood"), 0U);
  std::size_t count = 0;
  for (std::string line; child.ReadLine(&line); ++count) ASSERT_EQ(line, FloodLine(count));
  EXPECT_EQ(count, kFloodLines);
}

TEST(Process, StopEndsWillingAndStubbornChildren) {
  for (const bool stubborn : {false, true}) {
    Child child;
    child.StartReady(stubborn ? "stubborn" : "wait");
    EXPECT_EQ(child.Start("true"), static_cast<unsigned long>(EBUSY));
    const Stopwatch watch;
    child.process->Stop(stubborn ? 50 : kLongGraceMs);
    child.process->Stop(kLongGraceMs);
    EXPECT_LT(watch.Ms(), kDeadlineMs / 2);
    EXPECT_EQ(child.End(), stubborn ? -SIGKILL : -SIGTERM);
    EXPECT_EQ(child.ReadAll(), Texts({"not read yet"}));
  }
}

TEST(Process, ADescendantKeepsNothingBackAndEndsWithTheGroup) {
  Child child;
  // The heir holds the pipe open, and the child's last words have no line end.
  const Texts lines = child.Play("bequeath");
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_FALSE(Ends(std::stoi(lines[1]), 0)) << "the heir runs";
  child.process->Stop(kLongGraceMs);
  EXPECT_TRUE(Ends(std::stoi(lines[1])));
  EXPECT_EQ(child.End(), 5);
}

TEST(Process, AChildThatClosedItsOutputIsWaitedForWithoutSpinning) {
  Child child;
  std::string line;
  child.StartReady("mute");
  EXPECT_TRUE(child.ReadLine(&line)) << "half a line that nothing will complete";
  const auto cpuMs = [] {
    rusage usage{};
    ::getrusage(RUSAGE_THREAD, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000 +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1000;
  };
  const long before = cpuMs();
  const Stopwatch watch;
  EXPECT_EQ(child.process->WaitForOutput(400, 0), 0);
  EXPECT_GE(watch.Ms(), 400);
  EXPECT_LT(cpuMs() - before, 100);
  EXPECT_EQ(child.process->IsRunning(), 1);
  ::kill(child.Pid(), SIGTERM);
  EXPECT_EQ(child.process->WaitForOutput(kLongGraceMs, 0), 0) << "ends with the child";
  EXPECT_EQ(child.End(), -SIGTERM);
}

TEST(Process, AWaitEndsWhenItIsCalledOff) {
  Child child;
  child.StartReady("wait");
  child.process->Wake();
  EXPECT_EQ(child.process->WaitForOutput(SCA_Infinite, 0), 0) << "called off before it began";
  std::thread caller([&child] { child.process->Wake(); });
  EXPECT_EQ(child.process->WaitForOutput(SCA_Infinite, 0), 0);
  caller.join();
  EXPECT_EQ(child.process->IsRunning(), 1);
}

volatile std::sig_atomic_t handled = 0;

TEST(Process, TheChildStartsCleanAndTheParentStaysAsItWas) {
  const SCA_Fd inherited(::open("/dev/null", O_RDONLY));  // not close-on-exec
  sigset_t blocked;
  sigset_t former;
  sigset_t now;
  ::sigemptyset(&blocked);
  ::sigaddset(&blocked, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &former);
  const auto formerPipe = std::signal(SIGPIPE, SIG_IGN);
  const auto formerHandler = std::signal(SIGUSR2, [](int) { handled = 1; });
  ::setenv(kVariable, "the parent's", 1);
  Child child;
  EXPECT_EQ(child.process->SetEnvironment("", "x") + child.process->SetEnvironment("A=B", "x"), 0);
  for (const char* value : {"first", "a = b"}) {
    EXPECT_EQ(child.process->SetEnvironment(kVariable, value), 1);
  }
  EXPECT_EQ(child.Play("state"), Texts({"input 0, group 0, descriptors 0 1 2", "variable a = b",
                                        "SigBlk:\t0000000000000000", "SigIgn:\t0000000000000000"}));
  EXPECT_EQ(Child().Play("state").at(1), "variable the parent's");
  ::unsetenv(kVariable);
  ::raise(SIGUSR2);
  EXPECT_EQ(handled, 1);
  EXPECT_NE(std::signal(SIGUSR2, formerHandler), SIG_DFL);
  EXPECT_EQ(std::signal(SIGPIPE, formerPipe), SIG_IGN);
  ::pthread_sigmask(SIG_SETMASK, &former, &now);
  EXPECT_EQ(::sigismember(&now, SIGTERM) - ::sigismember(&now, SIGUSR2), 1);
}

TEST(Process, WordsAreSplitAtBlanksAndGroupedByQuotes) {
  EXPECT_EQ(Child().Run("printf [%s]  one \t\"two  words\" \"\" pre\"fix\ted\"x $HOME '*' \\ "),
            Texts({"[one][two  words][][prefix\tedx][$HOME]['*'][\\]"}));
}

TEST(Process, AFailedStartSaysWhyAndLeavesNothing) {
  const TempDir dir;
  const std::pair<std::string, unsigned long> rows[] = {
      {dir.File("missing"), ENOENT},  {"no-such-program-in-the-path", ENOENT},
      {dir.Path(), EACCES},           {dir.Write("not-executable", "#!/bin/sh\n"), EACCES},
      {" \t ", SCA_ErrorCommandLine}, {"true \"open", SCA_ErrorCommandLine}};
  const std::ptrdiff_t descriptors = EntriesIn("/proc/self/fd");
  Child child;
  for (const auto& [command, code] : rows) {
    EXPECT_EQ(child.Start(command), code) << command;
    EXPECT_EQ(child.process->IsRunning(), 0);
  }
  EXPECT_EQ(EntriesIn("/proc/self/fd"), descriptors);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
  EXPECT_EQ(child.Start("true"), 0U) << "the object can still start a child";
}

TEST(Process, ProgramsAreFoundOnTheSearchPathAlone) {
  const TempDir dir;
  ASSERT_EQ(::chmod(dir.Write("program", "#!/bin/sh\n").c_str(), 0700), 0);
  const auto former = std::filesystem::current_path();
  std::filesystem::current_path(dir.Path());
  const ScopedVariable restored("PATH", "");
  for (const auto& [path, code] : {std::pair("", ENOENT),
                                   {":/bin", ENOENT},
                                   {"/bin::/usr/bin", ENOENT},
                                   {"/bin:", ENOENT},
                                   {"/bin:.", 0},
                                   {dir.Path().c_str(), 0}}) {
    ::setenv("PATH", path, 1);
    EXPECT_EQ(Child().Start("program"), Code(code)) << "PATH is " << path;
  }
  ::unsetenv("PATH");
  EXPECT_EQ(Child().Start("program"), Code(ENOENT));
  EXPECT_EQ(Child().Start("true"), 0U) << "the system's own directories";
  std::filesystem::current_path(former);
}

TEST(Process, AHostThatIgnoresSigchldKnowsOfTheEndAndNotOfItsWay) {
  const auto former = std::signal(SIGCHLD, SIG_IGN);
  for (int i = 0; i < 20; ++i) {
    Child child;
    SCA_ProcessExit exit;
    EXPECT_EQ(child.Play("exit 3"), Texts());
    EXPECT_EQ(child.process->GetExit(&exit), 1);
    EXPECT_EQ(exit.isKnown, 0);
  }
  EXPECT_EQ(Child().Start("no-such-program-in-the-path"), Code(ENOENT));
  std::signal(SIGCHLD, former);
}

TEST(Process, LeavesNeitherDescriptorsNorAZombieBehind) {
  const std::ptrdiff_t descriptors = EntriesIn("/proc/self/fd");
  for (const char* part : {"exit 3", "wait", "mute"}) {
    EXPECT_EQ(Child().Start(std::string(kWorker) + part), 0U);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << part;
    EXPECT_EQ(EntriesIn("/proc/self/fd"), descriptors);
  }
}

TEST(Process, TheChildAndItsDescendantsDieWithTheParent) {
  // The descendant of the second has lost its own parent and ignores SIGTERM.
  for (const char* part : {"parent", "ancestor"}) {
    SCOPED_TRACE(part);
    Child middle;
    std::string pid;
    ASSERT_EQ(middle.Start(std::string(kWorker) + part), 0U);
    ASSERT_TRUE(middle.ReadLine(&pid));
    EXPECT_FALSE(Ends(std::stoi(pid), 0));
    ::kill(middle.Pid(), SIGKILL);
    EXPECT_TRUE(Ends(std::stoi(pid)));
  }
}

TEST(Process, TheChildDiesWithTheThreadThatStartedIt) {
  Child child;
  std::thread([&child] { child.StartReady("wait"); }).join();
  EXPECT_EQ(child.ReadAll(), Texts({"not read yet"}));
  EXPECT_EQ(child.End(), -SIGKILL);
}

}  // namespace
