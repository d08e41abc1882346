#include "platform/SCA_Report.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ReportCapture.h"

namespace {

void ReportText(unsigned long level, const std::string& text) {
  SCA_GetReportFunction("SCA_Source", 42)(level, "%s", text.c_str());
}

std::string StandardErrorOf(void (*action)()) {
  ::testing::internal::CaptureStderr();
  action();
  return ::testing::internal::GetCapturedStderr();
}

TEST(Report, ReachesTheSinkAsItWasMade) {
  struct Seen {
    std::string text;
    unsigned long level;
    int line;
  } seen{};
  SCA_SetReportSink(
      [](void* context, unsigned long level, const char* source, int line, const char* text) {
        *static_cast<Seen*>(context) = {std::string(source) + ": " + text, level, line};
      },
      &seen);
  SCA_GetReportFunction("SCA_Unit", 17)(SCA_LevelDebug, "%lu%% of %s", 50UL, "100%d");
  SCA_SetReportSink(nullptr, nullptr);
  EXPECT_EQ(seen.text, "SCA_Unit: 50% of 100%d");
  EXPECT_EQ(seen.level, SCA_LevelDebug);
  EXPECT_EQ(seen.line, 17);
}

TEST(Report, DefaultSinkPrintsWarningsAndErrorsOnly) {
  const auto reportAll = [] {
    for (const unsigned long level : {0UL, SCA_LevelDebug, SCA_LevelInfo}) ReportText(level, "no");
    ReportText(SCA_LevelWarning, "first");
    ReportText(SCA_LevelError, "second");
  };
  {
    const ReportCapture capture;
    EXPECT_EQ(StandardErrorOf(reportAll), "") << "the sink was replaced";
    EXPECT_EQ(capture.All().size(), 5U);
  }
  const std::string printed = StandardErrorOf(reportAll);
  EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 2) << printed;
  for (const char* part : {"SCA_Source", "42", "first", "second"}) {
    EXPECT_NE(printed.find(part), std::string::npos) << printed;
  }
  EXPECT_LT(printed.find("first"), printed.find("second"));
}

TEST(Report, LongTextIsCut) {
  ReportCapture capture;
  const std::size_t most = SCA_MaxReportText - 1;
  for (const std::size_t length : {std::size_t{0}, most - 1, most, most + 1, 4 * most}) {
    capture.Clear();
    ReportText(SCA_LevelError, std::string(length, 'x'));
    ASSERT_EQ(capture.All().size(), 1U);
    EXPECT_EQ(capture.All()[0].text, std::string(std::min(length, most), 'x'));
  }
}

TEST(Report, SinkMayReportAndChangeTheSink) {
  std::vector<std::string> seen;
  SCA_SetReportSink(
      [](void* context, unsigned long level, const char*, int, const char* text) {
        static_cast<std::vector<std::string>*>(context)->emplace_back(text);
        if (level == 0) return;
        ReportText(level - 1, std::string(text) + "+");
        SCA_SetReportSink(nullptr, nullptr);
      },
      &seen);
  ReportText(2, "x");
  ReportText(SCA_LevelInfo, "to the default sink, which does not print it");
  SCA_SetReportSink(nullptr, nullptr);
  EXPECT_EQ(seen, std::vector<std::string>({"x", "x+", "x++"}));
}

TEST(Report, NoneIsLostWhileTheSinkChanges) {
  using Count = std::atomic<unsigned long>;
  Count counts[2] = {};
  Count reported{0};
  std::atomic<bool> stop{false};
  const SCA_ReportSink count = [](void* context, unsigned long, const char*, int, const char*) {
    static_cast<Count*>(context)->fetch_add(1);
  };
  SCA_SetReportSink(count, &counts[0]);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (; !stop; reported.fetch_add(1)) ReportText(SCA_LevelError, "text");
    });
  }
  for (unsigned i = 0; counts[0] < 1000 || counts[1] < 1000; ++i) {
    SCA_SetReportSink(count, &counts[i % 2]);
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  SCA_SetReportSink(nullptr, nullptr);
  EXPECT_EQ(counts[0] + counts[1], reported);
}

}  // namespace
