// tikaextract: prints the plain text of documents.

#include "platform/SCA_Report.h"
#include "programs/common/Escape.h"
#include "programs/common/Event.h"
#include "programs/common/Signals.h"
#include "programs/common/Start.h"
#include "programs/tikaextract/Extraction.h"
#include "programs/tikaextract/Options.h"

namespace {

// Each failure is told once, by the program; the library's own reports are for --verbose.
void PrintReport(void* context, unsigned long level, const char* source, int line,
                 const char* text) {
  const auto* options = static_cast<const Options*>(context);
  if (options->verbose && level > SCA_LevelDebug) {
    PrintErrorLine(std::string(source) + ":" + std::to_string(line) + ": " + Printable(text));
  }
}

int RunUntilSignalled(const Options& options) {
  ProgramEvent cancel(1, 0);
  const Signals signals(&cancel);
  const int status = options.makeClassArchive ? PrivateServer::MakeArchive(options, &cancel)
                                              : Extraction(options, &cancel).Run();
  return signals.Received() != 0 ? 128 + signals.Received() : status;
}

int Run(int argc, char** argv) {
  Options options;
  if (const auto status = ParseOptions(argc, argv, &options)) return *status;
  SCA_SetReportSink(&PrintReport, &options);
  const int status = RunUntilSignalled(options);
  SCA_SetReportSink(nullptr, nullptr);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  return RunProgram("tikaextract", kSomeFailed, [=] { return Run(argc, argv); });
}
