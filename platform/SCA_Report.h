/// The error report function: every diagnostic of the library goes through it.
/// Threads: any thread may report and may change the sink.
#ifndef SCA_PLATFORM_SCA_REPORT_H
#define SCA_PLATFORM_SCA_REPORT_H

#include "platform/SCA_Object.h"

/// Levels of reports and of log messages.
constexpr unsigned long SCA_LevelDebug = 2;
constexpr unsigned long SCA_LevelInfo = 3;
constexpr unsigned long SCA_LevelWarning = 4;
constexpr unsigned long SCA_LevelError = 5;

/// @return A level in a word: "debug", "info", "warning", "error"; "unknown" for any other number.
///         Static storage.
SCA_API const char* SCA_LevelText(unsigned long level);

/// Receives every report.
/// @param context  The pointer given with the sink.
/// @param level    One of the levels above.
/// @param source   Name of the implementation unit, such as "SCA_TikaClientV1"; static storage.
/// @param line     Source line of the report.
/// @param text     The formatted message, zero-terminated, without a line end. Control bytes except
///                 the tab have become blanks. At most `SCA_MaxReportText` - 1 bytes, longer ones
///                 are cut. Valid during the call only.
/// Called on the reporting thread, from several threads at once, under no lock of the library. It
/// may report and may change the sink; it must not throw.
using SCA_ReportSink = void (*)(void* context, unsigned long level, const char* source, int line,
                                const char* text);

/// Capacity of a report's text in bytes, the terminating zero included.
constexpr unsigned long SCA_MaxReportText = 8192;

/// What `SCA_GetReportFunction` returns: callable as report(level, format, arguments).
class SCA_API SCA_ReportFunction {
 public:
  SCA_ReportFunction(const char* source, int line) : source_(source), line_(line) {}

  /// Formats as printf does and hands the text to the sink.
  void operator()(unsigned long level, const char* format, ...) const
      __attribute__((format(printf, 3, 4)));

 private:
  const char* source_;
  int line_;
};

/// @param source  Name of the implementation unit; must outlive the function returned.
/// @param line    The caller's source line.
SCA_API SCA_ReportFunction SCA_GetReportFunction(const char* source, int line);

/// Replaces the sink of the whole process.
/// @param sink     Null restores the default, which prints level 4 and above to standard error.
/// @param context  Handed to each call of the sink; a report that is under way may still use the
///                 previous pair after this returns.
SCA_API void SCA_SetReportSink(SCA_ReportSink sink, void* context);

#endif  // SCA_PLATFORM_SCA_REPORT_H
