/// Absolute time and its text forms.
/// Threads: free functions; the local time zone is the process's.
#ifndef SCA_PLATFORM_SCA_TIME_H
#define SCA_PLATFORM_SCA_TIME_H

#include "platform/SCA_Object.h"

/// Units of absolute time in a second and in a millisecond.
constexpr unsigned long long SCA_AbsTimePerSecond = 10000000ULL;
constexpr unsigned long long SCA_AbsTimePerMs = 10000ULL;

/// @return The wall-clock time in units of 100 ns since 1601-01-01 00:00:00 UTC.
SCA_API unsigned long long SCA_GetAbsTime();

/// Writes an absolute time as local "YYYY-MM-DD HH:MM:SS", zero-terminated; the empty text for 0
/// ("never") and for times that the calendar cannot express.
/// @param size  Capacity of `text` in bytes, > 0; 20 hold every time up to the year 9999.
/// @return 1, or 0 when the text did not fit, `text` then being empty.
SCA_API int SCA_FormatAbsTime(unsigned long long absTime, char* text, unsigned long size);

/// The current local date as "YYYY-MM-DD" (11 bytes) and time as "HH:MM:SS" (9 bytes); result and
/// failure as above.
SCA_API int SCA_GetDateString(char* text, unsigned long size);
SCA_API int SCA_GetTimeString(char* text, unsigned long size);

/// The current local date: the year in full, the month and the day from 1.
SCA_API void SCA_GetCurrentDate(int* year, int* month, int* day);

#endif  // SCA_PLATFORM_SCA_TIME_H
