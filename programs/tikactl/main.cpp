// tikactl: shows and controls service hosts over their control ports.

#include "platform/SCA_Report.h"
#include "programs/common/Escape.h"
#include "programs/common/Event.h"
#include "programs/common/Start.h"
#include "programs/tikactl/Commands.h"

namespace {

// Each failure is told once, by the program.
void DropReport(void* /*context*/, unsigned long /*level*/, const char* /*source*/, int /*line*/,
                const char* /*text*/) {}

int Ask(const Options& options) {
  ProgramEvent cancel(1, 0);
  const Signals signals(&cancel);
  Session session(options, &cancel, signals);
  const int status = options.command->run(session);
  if (signals.Received() != 0) return 128 + signals.Received();
  if (IsOutputGood()) return status;
  PrintErrorLine("tikactl: standard output could not be written");
  return status != kDone ? status : kFailed;
}

int Run(int argc, char** argv) {
  Options options;
  if (const auto status = ParseOptions(argc, argv, &options)) return *status;
  SCA_SetReportSink(&DropReport, nullptr);
  const std::string complaint = UseKeyFile(options.keyFile);
  if (!complaint.empty()) {
    PrintErrorLine("tikactl: " + complaint);
    return kLoginRefused;
  }
  return Ask(options);
}

}  // namespace

int main(int argc, char** argv) {
  return RunProgram("tikactl", kFailed, [=] { return Run(argc, argv); });
}
