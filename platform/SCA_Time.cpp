#include "platform/SCA_Time.h"

#include <chrono>
#include <ctime>

namespace {

// Seconds from 1601-01-01 to 1970-01-01: 369 years, 89 of them leap years.
constexpr long long kEpochOffsetSeconds = 11644473600LL;

int FormatLocal(std::time_t seconds, const char* format, char* text, unsigned long size) {
  std::tm local{};
  if (localtime_r(&seconds, &local) != nullptr && std::strftime(text, size, format, &local) != 0) {
    return 1;
  }
  text[0] = '\0';
  return 0;
}

}  // namespace

unsigned long long SCA_GetAbsTime() {
  using Ticks = std::chrono::duration<long long, std::ratio<1, SCA_AbsTimePerSecond>>;
  const auto sinceUnix = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<unsigned long long>(std::chrono::duration_cast<Ticks>(sinceUnix).count() +
                                         kEpochOffsetSeconds *
                                             static_cast<long long>(SCA_AbsTimePerSecond));
}

int SCA_FormatAbsTime(unsigned long long absTime, char* text, unsigned long size) {
  if (absTime == 0) {
    text[0] = '\0';
    return 1;
  }
  const auto seconds = static_cast<std::time_t>(absTime / SCA_AbsTimePerSecond);
  return FormatLocal(seconds - kEpochOffsetSeconds, "%Y-%m-%d %H:%M:%S", text, size);
}

int SCA_GetDateString(char* text, unsigned long size) {
  return FormatLocal(std::time(nullptr), "%Y-%m-%d", text, size);
}

int SCA_GetTimeString(char* text, unsigned long size) {
  return FormatLocal(std::time(nullptr), "%H:%M:%S", text, size);
}

void SCA_GetCurrentDate(int* year, int* month, int* day) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  *year = local.tm_year + 1900;
  *month = local.tm_mon + 1;
  *day = local.tm_mday;
}
