/// The command line of tikaextract.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_OPTIONS_H
#define SCA_PROGRAMS_TIKAEXTRACT_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "programs/common/Address.h"
#include "programs/tikaextract/RequestChoice.h"

/// Exit status of the program; one ended by a signal exits with 128 and the signal's number.
enum ExitStatus {
  kAllExtracted = 0,
  kSomeFailed = 1,
  kWrongUse = 2,
  kNoServer = 3,
  kSomeTruncated = 4  ///< none failed, but texts may not be whole
};

/// When a private server is started.
enum class PrivateServerUse {
  WithoutHost,     ///< no servers are named, and this machine's service host has none ready
  WithoutServers,  ///< no servers are named
  Always           ///< whatever the settings name
};

struct Options {
  std::vector<std::string> files;
  std::string inputName;  ///< of the document from standard input; empty: it has none
  bool recursive = false;
  std::vector<std::string>
      includes;  ///< patterns of the files to take from directories; empty: all
  std::vector<std::string> excludes;  ///< patterns of what to leave out
  std::string watchFolder;  ///< whose documents are extracted whenever they come; empty: none
  std::string filesFrom;    ///< a file that lists further documents, "-" for standard input
  bool zeroSeparated = false;
  /// Separated by blanks; "*" is every one. Empty: those of the settings.
  std::string extensions;
  std::string addedExtensions;       ///< to these
  std::string removedExtensions;     ///< from these
  std::vector<HostPort> servers;     ///< empty: the settings', or as `privateUse` says
  std::vector<HostPort> services;    ///< service hosts, by their control ports
  unsigned long serviceServers = 0;  ///< wanted of each service; 0: those that it has
  std::string serviceJar;            ///< a path there; empty: the records' default
  unsigned short serviceFirstPort = 9980;
  unsigned long serviceHeapMb = 1024;
  std::string serviceJavaOptions;
  std::string keyFile;     ///< the control key; empty: the user's
  unsigned long jobs = 0;  ///< extractions at once; 0: one for each server
  std::string settingsFile;
  std::string saveSettingsFile;
  std::string outputDir;  ///< empty: standard output
  bool jsonl = false;
  bool unordered = false;
  bool resume = false;
  bool retryRefused = false;
  RequestChoice choice;
  unsigned long variant = 3;
  std::optional<unsigned long> timeoutMs;    ///< unset: the settings', or `kDefaultTimeoutMs`
  std::optional<unsigned long> timeLimitMs;  ///< for one file; 0: none; unset: the dispatcher's
  unsigned long textLimitMb = 2048;          ///< for one text; 0: none
  unsigned long javaHeapMb = 1024;
  std::string jar;                ///< empty: looked up, see PrivateServer
  bool classArchive = true;       ///< for the private server's JVMs
  bool makeClassArchive = false;  ///< instead of a run
  PrivateServerUse privateUse = PrivateServerUse::WithoutHost;
  bool verbose = false;

  /// Documents beyond those named one by one: the end of the run is worth a line.
  bool IsBulk() const { return recursive || jsonl || !filesFrom.empty() || !watchFolder.empty(); }
  /// The run has something to extract.
  bool HasInput() const { return !files.empty() || !filesFrom.empty() || !watchFolder.empty(); }
};

constexpr char kStandardInput[] = "-";  ///< among the files
constexpr unsigned long kDefaultTimeoutMs = 60000;
constexpr unsigned short kDefaultControlPort = 9500;
constexpr unsigned short kDefaultServerPort = 9998;  ///< of a Tika server that is started by itself

/// Reads the command line; prints help, version and complaints.
/// @return The exit status with which the program is to end at once, if it is.
std::optional<int> ParseOptions(int argc, char** argv, Options* options);

#endif  // SCA_PROGRAMS_TIKAEXTRACT_OPTIONS_H
