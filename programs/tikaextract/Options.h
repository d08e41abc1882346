/// The command line of tikaextract.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_OPTIONS_H
#define SCA_PROGRAMS_TIKAEXTRACT_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

/// Exit status of the program; one ended by a signal exits with 128 and the signal's number.
enum ExitStatus { kAllExtracted = 0, kSomeFailed = 1, kWrongUse = 2, kNoServer = 3 };

struct Options {
  std::vector<std::string> files;
  std::string serverHost;  ///< empty: a private server for the run
  unsigned short serverPort = 0;
  std::string outputDir;  ///< empty: standard output
  unsigned long variant = 3;
  unsigned long timeoutMs = 60000;
  unsigned long javaHeapMb = 1024;
  std::string jar;  ///< empty: looked up, see PrivateServer
  bool verbose = false;
};

/// Reads the command line; prints help, version and complaints.
/// @return The exit status with which the program is to end at once, if it is.
std::optional<int> ParseOptions(int argc, char** argv, Options* options);

/// @return Where the text of a document goes under the output directory.
std::string OutputPath(const Options& options, const std::string& file);

#endif  // SCA_PROGRAMS_TIKAEXTRACT_OPTIONS_H
