/// What the user asked for.
#ifndef SCA_PROGRAMS_TIKACTL_OPTIONS_H
#define SCA_PROGRAMS_TIKACTL_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "programs/common/Address.h"

struct Command;

/// Exit statuses; of several hosts the highest.
enum Status {
  kDone = 0,
  kFailed = 1,
  kWrongUse = 2,
  kNoConnection = 3,
  kLoginRefused = 4,
  kInterrupted = 130
};

struct Options {
  const Command* command = nullptr;

  // Of every subcommand.
  std::vector<HostPort> hosts;
  std::string keyFile;
  bool json = false;
  unsigned long timeoutMs = 15000;  ///< of a connect, and of a reply

  // Of some.
  std::vector<unsigned long> ids;
  std::optional<unsigned long> waitSeconds;
  std::optional<unsigned long> count;     ///< of lines, deaths, tables or requests
  std::optional<double> intervalSeconds;  ///< between tables or requests
  bool follow = false;
  bool allLines = false;
  std::string jar;
  unsigned short port = 0;
  unsigned long heapMb = 1024;
  std::string javaOptions;
  bool start = false;
  std::string logSwitch;  ///< "on" or "off"
  std::string logDir;
};

/// @return The exit status with which the program ends right away, or nothing.
std::optional<int> ParseOptions(int argc, char** argv, Options* options);

#endif  // SCA_PROGRAMS_TIKACTL_OPTIONS_H
