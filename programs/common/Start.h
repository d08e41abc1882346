/// How every program begins, reads its command line, fails and ends.
#ifndef SCA_PROGRAMS_COMMON_START_H
#define SCA_PROGRAMS_COMMON_START_H

#include <functional>
#include <optional>

namespace CLI {
class App;
}

/// Exit status of every program whose command line cannot be used.
constexpr int kWrongUseStatus = 2;

/// Prepares the process and runs the program.
///
/// A standard descriptor that is closed is opened first, before a file or a connection gets its
/// number, in a way that reading and writing it fail with EBADF. SIGCHLD is handled by default: a
/// parent may have passed it on ignored, and the ends of children would be lost. SIGPIPE is
/// ignored: a reader that has closed the pipe shows as a failed write.
///
/// What is thrown, on any thread, becomes one line and the status `failed`; so does standard output
/// that could not be written although the body succeeded, without a line when its reader has closed
/// the pipe.
/// @param name    Begins the program's lines on standard error. Static storage.
/// @param failed  Exit status.
/// @return The exit status of the process.
int RunProgram(const char* name, int failed, const std::function<int()>& body);

/// Parses; prints help, version and complaints.
/// @return The exit status with which the program is to end at once, if it is.
std::optional<int> ParseCommandLine(CLI::App* app, int argc, char** argv);

#endif  // SCA_PROGRAMS_COMMON_START_H
