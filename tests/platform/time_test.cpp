#include "platform/SCA_Time.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

namespace {

constexpr unsigned long long kUnixEpoch = 116444736000000000ULL;
// Central European time as a rule, which needs no time zone files.
constexpr char kBerlin[] = "CET-1CEST,M3.5.0,M10.5.0/3";

class Zone {
 public:
  explicit Zone(const char* name) {
    if (const char* former = std::getenv("TZ"); former != nullptr) former_ = former;
    Set(name);
  }
  ~Zone() { former_.empty() ? Unset() : Set(former_.c_str()); }

 private:
  static void Set(const char* name) {
    ::setenv("TZ", name, 1);
    ::tzset();
  }
  static void Unset() {
    ::unsetenv("TZ");
    ::tzset();
  }
  std::string former_;
};

unsigned long long FromUnix(unsigned long long seconds) {
  return kUnixEpoch + seconds * SCA_AbsTimePerSecond;
}

std::string Format(unsigned long long absTime) {
  char text[20] = "old";
  EXPECT_EQ(SCA_FormatAbsTime(absTime, text, sizeof text), 1) << absTime;
  return text;
}

TEST(FormatAbsTime, GivesLocalCalendarTime) {
  struct Row {
    unsigned long long absTime;
    const char* utc;
    const char* berlin;
  };
  const Row rows[] = {
      {0, "", ""},
      {1, "1601-01-01 00:00:00", "1601-01-01 01:00:00"},
      {FromUnix(0), "1970-01-01 00:00:00", "1970-01-01 01:00:00"},
      {FromUnix(0) - 1, "1969-12-31 23:59:59", "1970-01-01 00:59:59"},
      {FromUnix(951782400), "2000-02-29 00:00:00", "2000-02-29 01:00:00"},
      {FromUnix(1711846800) - 1, "2024-03-31 00:59:59", "2024-03-31 01:59:59"},
      {FromUnix(1711846800), "2024-03-31 01:00:00", "2024-03-31 03:00:00"},
      {FromUnix(253402297199), "9999-12-31 22:59:59", "9999-12-31 23:59:59"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.absTime);
    {
      const Zone zone("UTC0");
      EXPECT_EQ(Format(row.absTime), row.utc);
    }
    const Zone zone(kBerlin);
    EXPECT_EQ(Format(row.absTime), row.berlin);
  }
}

TEST(FormatAbsTime, LeavesAnEmptyTextWhereItDoesNotFit) {
  const Zone zone("UTC0");
  for (const unsigned long long absTime : {FromUnix(0), FromUnix(253402300800), ULLONG_MAX}) {
    const unsigned long needed = absTime == FromUnix(0) ? 20 : 21;  // a year of five digits
    for (unsigned long size = 1; size < needed; ++size) {
      std::vector<char> text(size, '?');
      EXPECT_EQ(SCA_FormatAbsTime(absTime, text.data(), size), 0) << absTime << ' ' << size;
      EXPECT_STREQ(text.data(), "") << size;
    }
  }
  char one[1] = {'?'};
  EXPECT_EQ(SCA_FormatAbsTime(0, one, sizeof one), 1);
  EXPECT_EQ(one[0], '\0');
}

TEST(AbsTime, FollowsTheWallClock) {
  const auto before = FromUnix(static_cast<unsigned long long>(std::time(nullptr)));
  const unsigned long long first = SCA_GetAbsTime();
  const unsigned long long second = SCA_GetAbsTime();
  const auto after = FromUnix(static_cast<unsigned long long>(std::time(nullptr)));
  // The coarse clock behind time() may lag by a tick.
  EXPECT_GE(first, before);
  EXPECT_LE(first, second);
  EXPECT_LE(second, after + 2 * SCA_AbsTimePerSecond);
}

TEST(DateAndTimeString, AreTheTwoHalvesOfNow) {
  const Zone zone(kBerlin);
  char date[11];
  char time[9];
  std::string before;
  std::string after;
  do {  // once more when a second ended meanwhile
    before = Format(SCA_GetAbsTime());
    EXPECT_EQ(SCA_GetDateString(date, sizeof date), 1);
    EXPECT_EQ(SCA_GetTimeString(time, sizeof time), 1);
    after = Format(SCA_GetAbsTime());
  } while (before != after);
  EXPECT_EQ(std::string(date) + " " + time, before);
  EXPECT_EQ(SCA_GetDateString(date, 10), 0);
  EXPECT_STREQ(date, "");
  EXPECT_EQ(SCA_GetTimeString(time, 8), 0);
  EXPECT_STREQ(time, "");
}

}  // namespace
