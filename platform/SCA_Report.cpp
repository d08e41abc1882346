#include "platform/SCA_Report.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <type_traits>

#include "platform/SCA_Lock.h"
#include "platform/SCA_Result.h"
#include "platform/SCA_Text.h"

namespace {

void PrintToStandardError(void* /*context*/, unsigned long level, const char* source, int line,
                          const char* text) {
  // A library does not chat on its host's terminal: warnings and errors only.
  if (level >= SCA_LevelWarning) std::fprintf(stderr, "%s:%d: %s\n", source, line, text);
}

struct Sink {
  SCA_ReportSink function = PrintToStandardError;
  void* context = nullptr;
};

class CurrentSink {
 public:
  Sink Get() SCA_EXCLUDES(lock_) {
    const SCA_LockGuard guard(lock_);
    return sink_;
  }
  void Set(Sink sink) SCA_EXCLUDES(lock_) {
    const SCA_LockGuard guard(lock_);
    sink_ = sink;
  }

 private:
  SCA_Lock lock_;
  Sink sink_ SCA_GUARDED_BY(lock_);
};

CurrentSink currentSink;
// Threads may still report while the process exits.
static_assert(std::is_trivially_destructible_v<CurrentSink>);

void Report(const char* source, int line, unsigned long level, const char* format,
            va_list arguments) {
  char text[SCA_MaxReportText];
  if (std::vsnprintf(text, sizeof text, format, arguments) < 0) text[0] = '\0';
  // What a peer or a file has said may be in it: it must not forge lines or reach a terminal.
  SCA_BlankControls(text, std::strlen(text));
  const Sink sink = currentSink.Get();
  sink.function(sink.context, level, source, line, text);
}

}  // namespace

const char* SCA_LevelText(unsigned long level) {
  static constexpr const char* kWords[] = {"debug", "info", "warning", "error"};
  const bool isKnown = level >= SCA_LevelDebug && level <= SCA_LevelError;
  return isKnown ? kWords[level - SCA_LevelDebug] : "unknown";
}

void SCA_ReportFunction::operator()(unsigned long level, const char* format, ...) const {
  va_list arguments;
  va_start(arguments, format);
  Report(source_, line_, level, format, arguments);
  va_end(arguments);
}

int SCA_Complain(const char* source, int line, unsigned long level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Report(source, line, level, format, arguments);
  va_end(arguments);
  return 0;
}

SCA_ReportFunction SCA_GetReportFunction(const char* source, int line) {
  return SCA_ReportFunction(source, line);
}

void SCA_SetReportSink(SCA_ReportSink sink, void* context) {
  currentSink.Set(sink != nullptr ? Sink{sink, context} : Sink{});
}
