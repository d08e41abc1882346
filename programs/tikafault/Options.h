/// The command line of tikafault.
#ifndef SCA_PROGRAMS_TIKAFAULT_OPTIONS_H
#define SCA_PROGRAMS_TIKAFAULT_OPTIONS_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "faultlab/Fault.h"

/// Exit status of the program.
enum ExitStatus { kStopped = 0, kFailed = 1, kWrongUse = 2 };

struct Options {
  std::vector<std::string> files;  ///< for `plan` and `text`
  bool plan = false;
  bool text = false;
  std::string address = "127.0.0.1";
  unsigned short port = 9998;
  unsigned servers = 1;
  std::string version = "3.3.2";  ///< of Tika
  bool restart = false;
  std::chrono::milliseconds down{100};
  std::chrono::milliseconds comingUp{0};
  std::vector<FaultSpec> faults;
  double mix = 0;
  unsigned long long seed = 0;
  std::size_t chunkSize = 32768;
  unsigned long long maxDocumentMb = 256;
  unsigned long long muteAfter = ~0ULL;
  std::vector<std::string> lines;  ///< printed on standard error at the start
  std::optional<int> exitStatus;   ///< with which to end right after them
  bool verbose = false;
};

/// Reads the command line; prints help, version and complaints.
/// @return The exit status with which the program is to end at once, if it is.
std::optional<int> ParseOptions(int argc, char** argv, Options* options);

#endif  // SCA_PROGRAMS_TIKAFAULT_OPTIONS_H
