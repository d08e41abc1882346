#include "programs/common/Start.h"

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <system_error>

#include "programs/common/Escape.h"
#include "programs/common/HelpFormatter.h"

namespace {

// Set before any thread is started.
const char* programName = "";
int failedStatus = EXIT_FAILURE;

void Complain(const std::string& text) {
  PrintErrorLine(std::string(programName) + ": " + text);
}

// The lowest free number is the one that is given: in this order each gets its own.
void OpenStandardDescriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(fd, F_GETFD) >= 0 || errno != EBADF) continue;
    if (::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) != fd)
      std::_Exit(failedStatus);
  }
}

void ComplainOf(const std::exception_ptr& thrown) {
  try {
    std::rethrow_exception(thrown);
  } catch (const std::bad_alloc&) {
    // Without what `Complain` would allocate.
    std::fprintf(stderr, "%s: not enough memory\n", programName);
  } catch (const std::system_error& error) {
    const bool isThread = error.code() == std::errc::resource_unavailable_try_again;
    Complain(isThread ? "cannot start a thread: " + error.code().message() +
                            "; raise the limit of processes (ulimit -u)"
                      : std::string(error.what()));
  } catch (const std::exception& error) {
    Complain(error.what());
  } catch (...) {
    Complain("ended by an error without a message");
  }
}

// Reached from a thread that has let an exception out. What runs besides cannot be ended in order.
[[noreturn]] void EndProcess() {
  // There is none to be had where an exception met a function of the standard library that is
  // declared to throw nothing.
  if (const std::exception_ptr thrown = std::current_exception(); thrown != nullptr) {
    ComplainOf(thrown);
  } else {
    std::fprintf(stderr, "%s: ended by an error without a message\n", programName);
  }
  std::_Exit(failedStatus);
}

// @return 0, or why standard output could not be written.
int FlushOutput() {
  errno = 0;
  std::cout.flush();
  const bool isWritten = std::fflush(stdout) == 0 && std::ferror(stdout) == 0 && std::cout.good();
  if (isWritten) return 0;
  return errno != 0 ? errno : EIO;
}

void FormatHelp(CLI::App* app) {
  const auto formatter = std::make_shared<HelpFormatter>();
  formatter->label("Positionals", "Arguments");
  formatter->label("SUBCOMMAND", "COMMAND");
  app->formatter(formatter);
  app->get_help_ptr()->description("Print this help and exit");
  app->get_version_ptr()->description("Print the version and exit");
  for (CLI::App* const command : app->get_subcommands({})) {
    command->formatter(formatter);
    command->group("Commands");
    command->get_help_ptr()->description("Print this help and exit");
  }
}

}  // namespace

int RunProgram(const char* name, int failed, const std::function<int()>& body) {
  programName = name;
  failedStatus = failed;
  OpenStandardDescriptors();
  std::signal(SIGCHLD, SIG_DFL);
  std::signal(SIGPIPE, SIG_IGN);
  std::set_terminate(&EndProcess);
  try {
    const int status = body();
    const int error = status == 0 ? FlushOutput() : 0;
    if (error == 0) return status;
    if (error != EPIPE) {
      Complain(std::string("cannot write to standard output: ") +
               std::generic_category().message(error));
    }
  } catch (...) {
    ComplainOf(std::current_exception());
  }
  return failed;
}

std::optional<int> ParseCommandLine(CLI::App* app, int argc, char** argv) {
  FormatHelp(app);
  app->failure_message([](const CLI::App* parsed, const CLI::Error& error) {
    return parsed->get_name() + ": " + Printable(error.what()) +
           "\nRun with --help for more information.\n";
  });
  try {
    app->parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app->exit(error) == 0 ? 0 : kWrongUseStatus;
  }
  return std::nullopt;
}
