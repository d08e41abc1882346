#include "platform/SCA_Time.h"

#include <gtest/gtest.h>

#include <climits>
#include <ctime>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/Environment.h"

namespace {

using Time = unsigned long long;

// The time zone of the process while it lives; as a rule, which needs no time zone files.
struct Zone {
  explicit Zone(const char* rule) : variable("TZ", rule) { ::tzset(); }
  ScopedVariable variable;
};

constexpr char kBerlin[] = "CET-1CEST,M3.5.0,M10.5.0/3";

constexpr Time FromUnix(Time seconds) {
  return (seconds + 11644473600) * SCA_AbsTimePerSecond;
}

std::string Format(Time absTime) {
  char text[20] = "old";
  EXPECT_EQ(SCA_FormatAbsTime(absTime, text, sizeof text), 1) << absTime;
  return text;
}

TEST(FormatAbsTime, GivesLocalCalendarTime) {
  const std::tuple<Time, const char*, const char*> rows[] = {
      {0, "", ""},
      {1, "1601-01-01 00:00:00", "1601-01-01 01:00:00"},
      {FromUnix(0) - 1, "1969-12-31 23:59:59", "1970-01-01 00:59:59"},
      {FromUnix(951782400), "2000-02-29 00:00:00", "2000-02-29 01:00:00"},
      {FromUnix(1711846800) - 1, "2024-03-31 00:59:59", "2024-03-31 01:59:59"},
      {FromUnix(1711846800), "2024-03-31 01:00:00", "2024-03-31 03:00:00"},
      {FromUnix(253402297199), "9999-12-31 22:59:59", "9999-12-31 23:59:59"},
  };
  for (const auto& [absTime, utc, berlin] : rows) {
    EXPECT_EQ((Zone("UTC0"), Format(absTime)), utc);
    EXPECT_EQ((Zone(kBerlin), Format(absTime)), berlin);
  }
}

TEST(FormatAbsTime, LeavesAnEmptyTextWhereItDoesNotFit) {
  // From the year 10000 on the text is longer.
  for (const auto& [absTime, size] : {std::pair(FromUnix(86400), 19UL), {ULLONG_MAX, 20UL}}) {
    std::vector<char> text(size, '?');
    EXPECT_EQ(SCA_FormatAbsTime(absTime, text.data(), size), 0) << absTime;
    EXPECT_STREQ(text.data(), "");
  }
}

TEST(DateAndTimeString, AreTheTwoHalvesOfNow) {
  const Zone zone(kBerlin);
  char date[11];
  char time[9];
  Time now = 0;
  do {  // once more when a second ended meanwhile
    now = SCA_GetAbsTime();
    EXPECT_EQ(SCA_GetDateString(date, sizeof date), 1);
    EXPECT_EQ(SCA_GetTimeString(time, sizeof time), 1);
  } while (Format(now) != Format(SCA_GetAbsTime()));
  EXPECT_EQ(std::string(date) + " " + time, Format(now));
  // The coarse clock behind time() may lag by a tick.
  EXPECT_LT(FromUnix(static_cast<Time>(std::time(nullptr))) - now + SCA_AbsTimePerSecond,
            60 * SCA_AbsTimePerSecond);
}

}  // namespace
