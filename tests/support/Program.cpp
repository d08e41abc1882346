#include "tests/support/Program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "tests/support/Worker.h"

namespace {

namespace fs = std::filesystem;

constexpr int kWaitMs = 60000;
constexpr int kLookMs = 20;  // between two looks at something that gives no event

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

Program::Program(const std::string& name, const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment)
    : mark_("SCA_TEST_MARK=" + dir_.Path()) {
  // It replaces variables, and then itself.
  std::vector<std::string> words{"/usr/bin/env"};
  words.insert(words.end(), environment.begin(), environment.end());
  words.push_back(name.front() == '/' ? name : SCA_BIN_DIR "/" + name);
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> variables{mark_};
  for (char** entry = environ; *entry != nullptr; ++entry) variables.emplace_back(*entry);
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
  if (status_ || pid_ == 0) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

int Program::Wait(int limitMs) {
  if (status_) return *status_;
  int status = 0;
  if (pid_ == 0 || !Ends(pid_, limitMs)) return -1;
  ::waitpid(pid_, &status, 0);
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return *status_;
}

bool Program::WaitForError(const std::string& text) {
  return Eventually([&] { return Error().find(text) != std::string::npos; }, kWaitMs, kLookMs);
}

unsigned short Program::NumberBehind(const std::string& text) {
  if (!WaitForError(text)) return 0;
  const std::string error = Error();
  return static_cast<unsigned short>(std::atoi(error.c_str() + error.find(text) + text.size()));
}

std::vector<std::string> Program::Family() const {
  std::vector<std::string> family;
  std::error_code ignored;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc", ignored)) {
    const std::string name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    // Living processes alone: one that has ended and not been reaped has an empty environment.
    const auto read = [&entry](const char* file) {
      std::ifstream stream(entry.path() / file, std::ios::binary);
      return std::string(std::istreambuf_iterator<char>(stream), {});
    };
    if (read("environ").find(mark_) == std::string::npos) continue;
    std::string command = read("cmdline");
    std::replace(command.begin(), command.end(), '\0', ' ');
    family.push_back(name + ": " + command);
  }
  return family;
}

bool Program::FamilyEndsWithin(int seconds) const {
  return Eventually([this] { return Family().empty(); }, seconds * 1000, kLookMs);
}

testing::AssertionResult Ends(Program& program, int status, const std::string& said) {
  const int ended = program.Wait();
  const bool isRight = ended == status && Has(program.Error(), said);
  return testing::AssertionResult(isRight)
         << "ended with " << ended << ", not " << status << " and '" << said << "', but said:\n"
         << program.Error();
}

testing::AssertionResult Has(const std::string& whole, const std::string& part) {
  const bool isIn = whole.find(part) != std::string::npos;
  return testing::AssertionResult(isIn) << "'" << part << "' is not in:\n" << whole;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}
