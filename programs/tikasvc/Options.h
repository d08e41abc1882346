/// The command line of tikasvc.
#ifndef SCA_PROGRAMS_TIKASVC_OPTIONS_H
#define SCA_PROGRAMS_TIKASVC_OPTIONS_H

#include <optional>
#include <string>

#include "programs/common/Address.h"
#include "supervision/SCA_TikaRecycler.h"

/// Exit status of the program.
enum ExitStatus {
  kStopped = 0,        ///< on request: a signal, or a command of the control port
  kFailed = 1,         ///< something that should not happen
  kWrongUse = 2,       ///< of the command line
  kUnfit = 3,          ///< a configuration, a directory, a key or a jar that cannot be used
  kPortTaken = 4,      ///< the control port or the port of the metrics cannot be opened
  kAlreadyRunning = 5  ///< another service host uses the data directory
};

struct Options {
  std::string configFile;  ///< root configuration; empty: beside the program
  bool checkConfig = false;
  std::string jar;                  ///< of the servers that are started at once
  unsigned long servers = 0;        ///< that are started at once
  unsigned short firstPort = 9998;  ///< of the first of them; the others follow
  unsigned long heapMb = 1024;
  std::string javaOptions;
  bool classArchive = true;  ///< for the servers' JVMs
  std::string tikaBind = "127.0.0.1";
  std::optional<unsigned short> controlPort;  ///< unset: the configurations'
  std::string controlAddress;                 ///< of that port; empty: all
  std::string controlSocket;                  ///< empty: in the data directory
  std::string controlGroup;                   ///< may use it too; empty: nobody
  std::optional<HostPort> metrics;
  unsigned long silenceLimitMs = 120000;  ///< 0: a server that does not answer is let be
  SCA_TikaRecycleRules recycle;           ///< its limits are those of the command line
  bool verbose = false;

  bool Recycles() const {
    return (recycle.documents | recycle.upTimeMs | recycle.memoryBytes) != 0;
  }
};

/// Reads the command line; prints help, version and complaints.
/// @return The exit status with which the program is to end at once, if it is.
std::optional<int> ParseOptions(int argc, char** argv, Options* options);

#endif  // SCA_PROGRAMS_TIKASVC_OPTIONS_H
