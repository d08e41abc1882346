#include "platform/SCA_Process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/SCA_Error.h"
#include "platform/posix/SCA_Posix.h"
#include "tests/support/TempDir.h"

namespace {

using Texts = std::vector<std::string>;

constexpr int kDeadlineMs = 30000;
constexpr char kVariable[] = "SCA_TEST_VARIABLE";
constexpr char kWorkerWord[] = "--worker";
constexpr std::size_t kFloodLines = 50000;
constexpr std::size_t kFloodLineLength = 1000;

struct Child {
  SCA_Owned<SCA_Process> process{SCA_CreateProcess()};

  // 0 or the error code.
  unsigned long Start(const std::string& command) {
    unsigned long error = 0;
    return process->Start(command.c_str(), 0, SCA_ProcessReadOutput, &error) != 0 ? 0 : error;
  }

  // False when the output has ended.
  bool ReadLine(std::string* line, unsigned long size = 16384) {
    std::vector<char> buffer(size);
    unsigned long length = 0;
    unsigned long error = 0;
    while (length == 0 && process->WaitForOutput(kDeadlineMs, 0) != 0) {
      EXPECT_EQ(process->ReadOutputLine(buffer.data(), size, &length, &error), 1);
      EXPECT_LT(length, size);
    }
    line->assign(buffer.data(), length);
    return length > 0;
  }

  Texts ReadAll(unsigned long size = 16384) {
    Texts lines;
    for (std::string line; ReadLine(&line, size);) lines.push_back(line);
    EXPECT_EQ(process->IsRunning(), 0) << "all is read when the child has ended";
    return lines;
  }

  // What the worker prints in this part.
  Texts Play(const std::string& part) {
    EXPECT_EQ(Start("/proc/self/exe --worker " + part), 0U);
    return ReadAll();
  }

  // Starts a part that prints this and lives on.
  void StartReady(const std::string& part) {
    std::string line;
    EXPECT_EQ(Start("/proc/self/exe --worker " + part), 0U);
    EXPECT_TRUE(ReadLine(&line));
    EXPECT_EQ(line, "ready");
  }

  int Signal() {
    SCA_ProcessExit exit;
    EXPECT_EQ(process->GetExit(&exit), 1);
    return exit.signal;
  }
};

[[noreturn]] void WaitForEver() {
  for (;;) ::pause();
}

void Write(const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = ::write(STDOUT_FILENO, text.data() + done, text.size() - done);
    if (count > 0) done += static_cast<std::size_t>(count);
  }
}

std::string FloodLine(std::size_t number) {
  std::string line = std::to_string(number);
  return line.append(kFloodLineLength - line.size(), static_cast<char>('a' + number % 26));
}

// Replaces n, r and 0 behind a backslash by what they stand for.
std::string Unescaped(std::string text) {
  for (std::size_t at = 0; (at = text.find('\\', at)) != std::string::npos; ++at) {
    const char c = text[at + 1];
    text.replace(at, 2, 1, c == 'n' ? '\n' : c == 'r' ? '\r' : '\0');
  }
  return text;
}

void PrintState() {
  char byte = 0;
  const char* value = std::getenv(kVariable);
  std::string state = "input " + std::to_string(::read(STDIN_FILENO, &byte, 1)) + "\nvariable " +
                      (value != nullptr ? value : "(none)") + "\ndescriptors";
  for (int fd = 0; fd < 1000; ++fd) {
    if (::fcntl(fd, F_GETFD) >= 0) state += " " + std::to_string(fd);
  }
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("SigBlk", 0) == 0 || line.rfind("SigIgn", 0) == 0) state += "\n" + line;
  }
  Write(state + "\nleads its group " + std::to_string(::getpgrp() == ::getpid()) + "\n");
}

int PlayPart(const std::string& part, const Texts& arguments) {
  const auto number = [&] { return std::stoi(arguments.at(0)); };
  if (part == "exit") return number();
  if (part == "raise") ::raise(number());
  if (part == "emit") Write(Unescaped(arguments.at(0)));
  if (part == "long") Write(std::string(static_cast<std::size_t>(number()), 'x') + "\r\nend\n");
  if (part == "state") PrintState();
  if (part == "words") {
    for (const std::string& word : arguments) Write("[" + word + "]\n");
  }
  if (part == "streams") {
    Write("out\n");
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    Write("error\n");
  }
  if (part == "flood") {
    for (std::size_t i = 0; i < kFloodLines; ++i) Write(FloodLine(i) + "\n");
  }
  if (part == "wait" || part == "stubborn" || part == "mute") {
    if (part == "stubborn") std::signal(SIGTERM, SIG_IGN);
    Write("ready\nnot read yet");
    if (part == "mute") {
      ::close(STDOUT_FILENO);
      ::close(STDERR_FILENO);
    }
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
    Write(std::to_string(child.process->GetProcessId()) + "\n");
    WaitForEver();
  }
  return 0;
}

// The test program is its own child: started with this word it plays a part, before the test
// framework sees the arguments.
__attribute__((constructor)) void BecomeWorker(int count, char** words) {
  if (count < 3 || std::string(words[1]) != kWorkerWord) return;
  ::_exit(PlayPart(words[2], Texts(words + 3, words + count)));
}

SCA_Fd PidFd(const std::string& pid) {
  return SCA_Fd(static_cast<int>(::syscall(SYS_pidfd_open, std::stoi(pid), 0)));
}

bool Ends(const SCA_Fd& pidFd) {
  pollfd entry{pidFd.Get(), POLLIN, 0};
  return ::poll(&entry, 1, kDeadlineMs) == 1;
}

std::ptrdiff_t OpenDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return std::distance(begin(entries), end(entries));
}

long long MsSince(std::chrono::steady_clock::time_point begin) {
  const auto passed = std::chrono::steady_clock::now() - begin;
  return std::chrono::duration_cast<std::chrono::milliseconds>(passed).count();
}

TEST(Process, TellsHowTheChildEnded) {
  struct Row {
    const char* command;
    int exitCode;
    int signal;
  };
  for (const Row& row : {Row{"/proc/self/exe --worker exit 0", 0, 0},
                         Row{"/proc/self/exe --worker exit 255", 255, 0},
                         Row{"/proc/self/exe --worker raise 9", 0, SIGKILL},
                         Row{"/proc/self/exe --worker raise 15", 0, SIGTERM}, Row{"false", 1, 0}}) {
    SCOPED_TRACE(row.command);
    Child child;
    SCA_ProcessExit exit;
    EXPECT_EQ(child.process->IsValid(), 1);
    EXPECT_EQ(child.process->GetExit(&exit), 0) << "never ran";
    EXPECT_EQ(child.process->GetProcessId(), 0U);
    ASSERT_EQ(child.Start(row.command), 0U);
    const unsigned long pid = child.process->GetProcessId();
    EXPECT_EQ(child.ReadAll(), Texts());
    EXPECT_EQ(child.process->GetExit(&exit), 1);
    EXPECT_EQ(exit.exitCode, row.exitCode);
    EXPECT_EQ(exit.signal, row.signal);
    EXPECT_EQ(child.process->GetProcessId(), pid);
  }
}

TEST(Process, OutputIsCutIntoLines) {
  struct Row {
    const char* output;
    unsigned long size;
    Texts lines;
  };
  const Row rows[] = {{"one\\ntwo\\n", 64, {"one", "two"}},
                      {"one\\r\\ntwo\\r\\n", 64, {"one", "two"}},
                      {"one\\nhalf", 64, {"one", "half"}},
                      {"\\n\\r\\n\\none\\n\\n\\r\\ntwo\\n\\n", 64, {"one", "two"}},
                      {"abcdefg\\r\\nh\\n", 4, {"abc", "def", "g", "h"}},
                      {"abc\\r\\nd\\n", 4, {"abc", "d"}},
                      {"ab\\nc", 2, {"a", "b", "c"}},
                      {"a\\0b\\nc\\rd\\n", 64, {std::string("a\0b", 3), "c\rd"}}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.output);
    Child child;
    ASSERT_EQ(child.Start(std::string("/proc/self/exe --worker emit ") + row.output), 0U);
    EXPECT_EQ(child.ReadAll(row.size), row.lines);
  }
  EXPECT_EQ(Child().Play("streams"), Texts({"out", "error"}));
}

TEST(Process, LongLinesComeInPiecesWithoutTheirLineEnd) {
  // Around the sizes at which a line end may be cut by a buffer.
  for (const int length : {4095, 4096, 8189, 8190, 8191, 8192, 8193, 16383, 16384, 70000}) {
    for (const unsigned long size : {100UL, 8192UL, 16384UL}) {
      SCOPED_TRACE(std::to_string(length) + " in " + std::to_string(size));
      Child child;
      ASSERT_EQ(child.Start("/proc/self/exe --worker long " + std::to_string(length)), 0U);
      const Texts pieces = child.ReadAll(size);
      ASSERT_FALSE(pieces.empty());
      EXPECT_EQ(pieces.back(), "end");
      std::string line;
      for (const std::string& piece : pieces) line += &piece == &pieces.back() ? "" : piece;
      EXPECT_EQ(line.size(), static_cast<std::size_t>(length));
      EXPECT_EQ(line.find_first_not_of('x'), std::string::npos);
    }
  }
}

TEST(Process, EmptyLinesDoNotEndAWait) {
  Child child;
  ASSERT_EQ(child.Start("/proc/self/exe --worker emit \\n\\r\\n\\n"), 0U);
  EXPECT_EQ(child.process->WaitForOutput(kDeadlineMs, 0), 0) << "there is no line to read";
}

TEST(Process, AFloodIsReadWholeAndInOrder) {
  Child child;
  ASSERT_EQ(child.Start("/proc/self/exe --worker flood"), 0U);
  std::size_t count = 0;
  for (std::string line; child.ReadLine(&line); ++count) ASSERT_EQ(line, FloodLine(count));
  EXPECT_EQ(count, kFloodLines);
}

TEST(Process, StopEndsWillingAndStubbornChildren) {
  for (const bool stubborn : {false, true}) {
    Child child;
    child.StartReady(stubborn ? "stubborn" : "wait");
    EXPECT_EQ(child.Start("true"), static_cast<unsigned long>(EBUSY));
    const auto begin = std::chrono::steady_clock::now();
    child.process->Stop(stubborn ? 50 : 10 * kDeadlineMs);
    EXPECT_LT(MsSince(begin), kDeadlineMs);
    EXPECT_EQ(child.Signal(), stubborn ? SIGKILL : SIGTERM);
    child.process->Stop(10 * kDeadlineMs);
    EXPECT_EQ(child.ReadAll(), Texts({"not read yet"}));
  }
}

TEST(Process, ADescendantKeepsNothingBackAndEndsWithTheGroup) {
  Child child;
  // The heir holds the pipe open, and the child's last words have no line end.
  const Texts lines = child.Play("bequeath");
  ASSERT_EQ(lines.size(), 2U);
  const SCA_Fd heir = PidFd(lines[1]);
  ASSERT_TRUE(heir.IsOpen());
  pollfd entry{heir.Get(), POLLIN, 0};
  EXPECT_EQ(::poll(&entry, 1, 0), 0) << "the heir runs";
  child.process->Stop(10 * kDeadlineMs);
  EXPECT_TRUE(Ends(heir));
  SCA_ProcessExit exit;
  EXPECT_EQ(child.process->GetExit(&exit), 1);
  EXPECT_EQ(exit.exitCode, 5);
}

TEST(Process, AChildThatClosedItsOutputIsWaitedForWithoutSpinning) {
  Child child;
  child.StartReady("mute");
  std::string line;
  EXPECT_TRUE(child.ReadLine(&line)) << "half a line that nothing will complete";
  rusage before{};
  rusage after{};
  ::getrusage(RUSAGE_THREAD, &before);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(child.process->WaitForOutput(400, 0), 0);
  EXPECT_GE(MsSince(begin), 400);
  ::getrusage(RUSAGE_THREAD, &after);
  const auto microseconds = [](const rusage& usage) {
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000000 + usage.ru_utime.tv_usec +
           usage.ru_stime.tv_usec;
  };
  EXPECT_LT(microseconds(after) - microseconds(before), 100000);
  EXPECT_EQ(child.process->IsRunning(), 1);
  ::kill(static_cast<pid_t>(child.process->GetProcessId()), SIGTERM);
  EXPECT_EQ(child.process->WaitForOutput(10 * kDeadlineMs, 0), 0) << "ends with the child";
  EXPECT_EQ(child.Signal(), SIGTERM);
}

volatile std::sig_atomic_t handled = 0;

TEST(Process, TheChildStartsCleanAndTheParentStaysAsItWas) {
  const SCA_Fd inherited(::open("/dev/null", O_RDONLY));  // not close-on-exec
  sigset_t blocked;
  sigset_t former;
  sigset_t now;
  ::sigemptyset(&blocked);
  ::sigaddset(&blocked, SIGTERM);
  ::sigaddset(&blocked, SIGUSR1);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &former);
  const auto formerPipe = std::signal(SIGPIPE, SIG_IGN);
  const auto formerHandler = std::signal(SIGUSR2, [](int) { handled = 1; });
  ::setenv(kVariable, "the parent's", 1);
  Texts state;
  {
    Child child;
    EXPECT_EQ(child.process->SetEnvironment("", "x"), 0);
    EXPECT_EQ(child.process->SetEnvironment("A=B", "x"), 0);
    EXPECT_EQ(child.process->SetEnvironment(kVariable, "first"), 1);
    EXPECT_EQ(child.process->SetEnvironment(kVariable, "a = b"), 1);
    EXPECT_EQ(child.process->SetEnvironment("SCA_TEST_VARIABLE2", "another"), 1);
    state = child.Play("state");
  }
  EXPECT_STREQ(std::getenv(kVariable), "the parent's");
  EXPECT_EQ(Child().Play("state").at(1), "variable the parent's");
  ::unsetenv(kVariable);
  ::raise(SIGUSR2);
  EXPECT_EQ(handled, 1);
  EXPECT_NE(std::signal(SIGUSR2, formerHandler), SIG_DFL);
  EXPECT_EQ(std::signal(SIGPIPE, formerPipe), SIG_IGN);
  ::pthread_sigmask(SIG_SETMASK, &former, &now);
  EXPECT_EQ(::sigismember(&now, SIGUSR1), 1);
  EXPECT_EQ(::sigismember(&now, SIGUSR2), 0);
  EXPECT_EQ(state,
            Texts({"input 0", "variable a = b", "descriptors 0 1 2", "SigBlk:\t0000000000000000",
                   "SigIgn:\t0000000000000000", "leads its group 1"}));
}

TEST(Process, WordsAreSplitAtBlanksAndGroupedByQuotes) {
  EXPECT_EQ(Child().Play("words  one \t\"two  words\" \"\" pre\"fix\ted\"x $HOME '*' \\ "),
            Texts({"[one]", "[two  words]", "[]", "[prefix\tedx]", "[$HOME]", "['*']", "[\\]"}));
}

TEST(Process, AFailedStartSaysWhy) {
  const TempDir dir;
  const std::pair<std::string, unsigned long> rows[] = {
      {dir.File("missing"), ENOENT},  {"no-such-program-in-the-path", ENOENT},
      {dir.Path(), EACCES},           {dir.Write("not-executable", "#!/bin/sh\n"), EACCES},
      {"", SCA_ErrorCommandLine},     {" \t ", SCA_ErrorCommandLine},
      {"\"\"", SCA_ErrorCommandLine}, {"true \"open", SCA_ErrorCommandLine},
  };
  Child child;
  const std::ptrdiff_t descriptors = OpenDescriptors();
  for (const auto& [command, code] : rows) {
    EXPECT_EQ(child.Start(command), code) << command;
    EXPECT_EQ(child.process->IsRunning(), 0);
    EXPECT_EQ(child.process->GetProcessId(), 0U);
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
  EXPECT_EQ(child.Start("true"), 0U) << "the object can still start a child";
}

TEST(Process, LeavesNeitherDescriptorsNorAZombieBehind) {
  const std::ptrdiff_t descriptors = OpenDescriptors();
  for (const char* part : {"exit 3", "wait", "mute"}) {
    pid_t pid = 0;
    {
      Child child;
      ASSERT_EQ(child.Start(std::string("/proc/self/exe --worker ") + part), 0U);
      pid = static_cast<pid_t>(child.process->GetProcessId());
    }
    EXPECT_EQ(::waitpid(pid, nullptr, WNOHANG), -1) << part;
    EXPECT_EQ(errno, ECHILD);
    EXPECT_EQ(OpenDescriptors(), descriptors);
  }
}

TEST(Process, TheChildDiesWithItsParent) {
  Child middle;
  std::string pid;
  ASSERT_EQ(middle.Start("/proc/self/exe --worker parent"), 0U);
  ASSERT_TRUE(middle.ReadLine(&pid));
  const SCA_Fd child = PidFd(pid);
  ASSERT_TRUE(child.IsOpen());
  ::kill(static_cast<pid_t>(middle.process->GetProcessId()), SIGKILL);
  EXPECT_TRUE(Ends(child));
  EXPECT_EQ(middle.process->WaitForOutput(kDeadlineMs, 0), 0);
  EXPECT_EQ(middle.Signal(), SIGKILL);
}

TEST(Process, TheChildDiesWithTheThreadThatStartedIt) {
  for (int i = 0; i < 2; ++i) {
    Child child;
    std::thread([&child] { child.StartReady("wait"); }).join();
    EXPECT_EQ(child.ReadAll(), Texts({"not read yet"}));
    EXPECT_EQ(child.Signal(), SIGKILL);
  }
}

}  // namespace
