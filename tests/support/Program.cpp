#include "tests/support/Program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kWaitMs = 60000;
constexpr int kLookMs = 20;  // between two looks at something that gives no event

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

std::string ReadProcess(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace

Program::Program(const std::string& name, const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment)
    : mark_("SCA_TEST_MARK=" + dir_.Path()) {
  std::vector<std::string> words{std::string(SCA_BIN_DIR) + "/" + name};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> variables = environment;
  variables.push_back(mark_);
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    bool isReplaced = false;
    for (const std::string& variable : environment) {
      isReplaced = isReplaced || text.compare(0, variable.find('=') + 1, variable, 0,
                                              variable.find('=') + 1) == 0;
    }
    if (!isReplaced) variables.push_back(text);
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const int flags = O_WRONLY | O_CREAT | O_TRUNC;
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, dir_.File("out").c_str(), flags, 0600);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, dir_.File("err").c_str(), flags, 0600);
  EXPECT_EQ(posix_spawn(&pid_, words.front().c_str(), &actions, nullptr, Pointers(words).data(),
                        Pointers(variables).data()),
            0)
      << words.front();
  posix_spawn_file_actions_destroy(&actions);
}

Program::~Program() {
  if (hasEnded_ || pid_ == 0) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

int Program::Wait() {
  if (hasEnded_ || pid_ == 0) return status_;
  const int fd = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
  pollfd entry{fd, POLLIN, 0};
  const bool isOver = ::poll(&entry, 1, kWaitMs) > 0;
  ::close(fd);
  if (!isOver) return -1;
  int status = 0;
  ::waitpid(pid_, &status, 0);
  hasEnded_ = true;
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return status_;
}

void Program::Signal(int number) {
  ::kill(pid_, number);
}

bool Program::WaitForError(const std::string& text) {
  const auto limit = Clock::now() + std::chrono::milliseconds(kWaitMs);
  while (Error().find(text) == std::string::npos) {
    if (Clock::now() > limit) return false;
    ::poll(nullptr, 0, kLookMs);
  }
  return true;
}

std::vector<std::string> Program::Family() const {
  std::vector<std::string> family;
  std::error_code ignored;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc", ignored)) {
    const std::string name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    // Living processes alone: one that has ended and not been reaped has an empty environment.
    if (ReadProcess(entry.path() / "environ").find(mark_) == std::string::npos) continue;
    std::string command = ReadProcess(entry.path() / "cmdline");
    std::replace(command.begin(), command.end(), '\0', ' ');
    family.push_back(name + ": " + command);
  }
  return family;
}

bool Program::FamilyEndsWithin(int seconds) const {
  const auto limit = Clock::now() + std::chrono::seconds(seconds);
  while (!Family().empty()) {
    if (Clock::now() > limit) return false;
    ::poll(nullptr, 0, kLookMs);
  }
  return true;
}
