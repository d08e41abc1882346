/// Runs one of the built programs as a user would.
#ifndef SCA_TESTS_SUPPORT_PROGRAM_H
#define SCA_TESTS_SUPPORT_PROGRAM_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/TempDir.h"

/// A program under way, with its output in files. Killed when it outlives the object. All that it
/// starts carries its mark in the environment.
class Program {
 public:
  /// @param name         Of a program in the build's bin directory, or a full path.
  /// @param environment  Further variables, as NAME=VALUE.
  Program(const std::string& name, const std::vector<std::string>& arguments,
          const std::vector<std::string>& environment = {});
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// Waits for the end, a minute at most.
  /// @return The exit status, or 128 and the signal's number; -1 after that time.
  int Wait(int limitMs = 60000);
  void Signal(int number) const { ::kill(pid_, number); }
  /// Waits until standard error holds a text, a minute at most.
  bool WaitForError(const std::string& text);

  /// @return The number that standard error has behind a text, which is waited for; 0 without.
  unsigned short NumberBehind(const std::string& text);

  std::string Output() const { return ReadFile(dir_.File("out")); }
  std::string Error() const { return ReadFile(dir_.File("err")); }
  /// @return The living processes that this one started, itself included: id and command line.
  std::vector<std::string> Family() const;
  /// @return True when no process of the family is left within the time.
  bool FamilyEndsWithin(int seconds) const;

 private:
  TempDir dir_;
  std::string mark_;
  pid_t pid_ = 0;
  std::optional<int> status_;
};

/// Waits for the end of a program.
/// @return Whether it ended so and said that on standard error; otherwise what it did.
testing::AssertionResult Ends(Program& program, int status, const std::string& said = "");
testing::AssertionResult Has(const std::string& whole, const std::string& part);
std::vector<std::string> Lines(const std::string& text);

#endif  // SCA_TESTS_SUPPORT_PROGRAM_H
