#include "platform/SCA_Report.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ReportCapture.h"

namespace {

void Report(unsigned long level, const std::string& text) {
  SCA_GetReportFunction("SCA_Source", 42)(level, "%s", text.c_str());
}

TEST(Report, ReachesTheSinkAsItWasMadeButCut) {
  std::string seen;
  SCA_SetReportSink(
      [](void* context, unsigned long level, const char* source, int line, const char* text) {
        *static_cast<std::string*>(context) =
            std::to_string(level) + " " + source + " " + std::to_string(line) + " " + text;
      },
      &seen);
  SCA_GetReportFunction("SCA_Unit", 17)(SCA_LevelDebug, "%lu%% of %s", 50UL, "100%d");
  EXPECT_EQ(seen, "2 SCA_Unit 17 50% of 100%d");
  const std::size_t most = SCA_MaxReportText - 1;
  for (const std::size_t length : {std::size_t{0}, most - 1, most, most + 1, 4 * most}) {
    Report(5, std::string(length, 'x'));
    EXPECT_EQ(seen, "5 SCA_Source 42 " + std::string(std::min(length, most), 'x'));
  }
  SCA_SetReportSink(nullptr, nullptr);
}

TEST(Report, DefaultSinkPrintsWarningsAndErrorsOnly) {
  const auto printed = [] {
    ::testing::internal::CaptureStderr();
    for (unsigned long level = 0; level <= SCA_LevelError; ++level) Report(level, "text");
    return ::testing::internal::GetCapturedStderr();
  };
  {
    const ReportCapture capture;
    EXPECT_EQ(printed(), "") << "the sink was replaced";
    EXPECT_EQ(capture.All().size(), SCA_LevelError + 1);
  }
  EXPECT_EQ(printed(), "SCA_Source:42: text\nSCA_Source:42: text\n") << "the default is back";
}

TEST(Report, SinkMayReportAndChangeTheSink) {
  std::vector<std::string> seen;
  SCA_SetReportSink(
      [](void* context, unsigned long level, const char*, int, const char* text) {
        static_cast<std::vector<std::string>*>(context)->emplace_back(text);
        if (level > 0) Report(level - 1, std::string(text) + "+");
        SCA_SetReportSink(nullptr, nullptr);
      },
      &seen);
  Report(2, "x");
  Report(SCA_LevelInfo, "to the default sink, which does not print it");
  EXPECT_EQ(seen, std::vector<std::string>({"x", "x+", "x++"}));
}

TEST(Report, NoneIsLostWhileTheSinkChanges) {
  using Count = std::atomic<unsigned long>;
  constexpr unsigned long kReports = 20000;
  Count counts[2] = {};
  const SCA_ReportSink count = [](void* context, unsigned long, const char*, int, const char*) {
    static_cast<Count*>(context)->fetch_add(1);
  };
  SCA_SetReportSink(count, &counts[0]);
  std::thread reporter([] {
    for (unsigned long i = 0; i < kReports; ++i) Report(SCA_LevelError, "text");
  });
  for (unsigned i = 0; counts[0] + counts[1] < kReports; ++i) {
    SCA_SetReportSink(count, &counts[i % 2]);
  }
  reporter.join();
  SCA_SetReportSink(nullptr, nullptr);
  EXPECT_EQ(counts[0] + counts[1], kReports);
}

}  // namespace
