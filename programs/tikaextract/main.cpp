// tikaextract: prints the plain text of documents.

#include <csignal>
#include <cstdio>

#include "platform/SCA_Report.h"
#include "programs/common/Signals.h"
#include "programs/tikaextract/Extraction.h"
#include "programs/tikaextract/Options.h"

namespace {

// Each failure is told once, by the program; the library's own reports are for --verbose.
void PrintReport(void* context, unsigned long level, const char* source, int line,
                 const char* text) {
  const auto* options = static_cast<const Options*>(context);
  if (options->verbose && level > SCA_LevelDebug) {
    std::fprintf(stderr, "%s:%d: %s\n", source, line, text);
  }
}

int RunUntilSignalled(const Options& options) {
  SCA_Event cancel(1, 0);
  const Signals signals(&cancel);
  const int status = Extraction(options, &cancel).Run();
  return signals.Received() != 0 ? 128 + signals.Received() : status;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (const auto status = ParseOptions(argc, argv, &options)) return *status;
  // A reader that goes away shows as a failed write.
  std::signal(SIGPIPE, SIG_IGN);
  SCA_SetReportSink(&PrintReport, &options);
  const int status = RunUntilSignalled(options);
  SCA_SetReportSink(nullptr, nullptr);
  return status;
}
