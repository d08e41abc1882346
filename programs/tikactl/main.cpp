// tikactl: shows and controls service hosts over their control ports.

#include <csignal>
#include <cstdio>
#include <exception>

#include "platform/SCA_Report.h"
#include "programs/tikactl/Commands.h"

namespace {

// Each failure is told once, by the program.
void DropReport(void* /*context*/, unsigned long /*level*/, const char* /*source*/, int /*line*/,
                const char* /*text*/) {}

int Run(const Options& options) {
  SCA_Event cancel(1, 0);
  const Signals signals(&cancel);
  Session session(options, &cancel, signals);
  const int status = options.command->run(session);
  if (signals.Received() != 0) return 128 + signals.Received();
  if (IsOutputGood()) return status;
  std::fprintf(stderr, "tikactl: standard output could not be written\n");
  return status != kDone ? status : kFailed;
}

}  // namespace

int main(int argc, char** argv) try {
  Options options;
  if (const auto status = ParseOptions(argc, argv, &options)) return *status;
  // A reader that goes away shows as a failed write.
  std::signal(SIGPIPE, SIG_IGN);
  SCA_SetReportSink(&DropReport, nullptr);
  const std::string complaint = UseKeyFile(options.keyFile);
  if (!complaint.empty()) {
    std::fprintf(stderr, "tikactl: %s\n", complaint.c_str());
    return kLoginRefused;
  }
  return Run(options);
} catch (const std::exception& error) {
  std::fprintf(stderr, "tikactl: %s\n", error.what());
  return kFailed;
}
