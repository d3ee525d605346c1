#pragma once
/// Times as decimal numbers that a person can read: HHMMSS.ffffff, YYDDD and YYMMDDhhmmss.sss.
///
/// No time zone is applied: hours, minutes and seconds are those of UTC. Numbers from outside are cut to what hours of
/// 32 bits can hold; a NaN counts as 0. All functions are safe from any thread and return at once.

#include <sys/time.h>

#include <ctime>

namespace threadfunc {

/// HHMMSS.ffffff of `t`: 3723 s and 456789 us give 10203.456789.
double timeOfDayNumber(timeval t);

/// HHMMSS.fff of `ms` milliseconds after midnight.
double numberFromMsOfDay(int ms);

/// DHHMMSS.fff: `numberFromMsOfDay(ms)` with `day` in front, day * 1000000.
double dayTimeNumber(int day, int ms);

/// Milliseconds after midnight of HHMMSS.fff, cut to whole ones; 240000 is midnight again. A fraction within half a
/// thousandth of a millisecond below a whole one counts as that.
int msOfDayFromNumber(double timeNumber);

/// Time from midnight of HHMMSS.fff, with whole milliseconds; 240000 is 86400 s.
timeval timeOfDayFromNumber(double timeNumber);

/// YYDDD of `t` in UTC, 1 January is day 1: 24366 is the last day of 2024. 0 when the year does not fit.
unsigned dayStamp(std::time_t t);

/// The moment of YYDDD (2000 to 2099) and HHMMSS.fff, read as UTC or as local time. Days beyond the year carry on.
timeval timeFromDayStamp(int dayStampValue, double timeNumber, bool utc);

/// YYMMDDhhmmss.sss of calendar `fields` (month 0 to 11, year since 1900) and `ms`.
double dateTimeNumber(const std::tm& fields, int ms);

/// YYMMDDhhmmss.sss of `t` in UTC.
double dateTimeNumberFromTimeval(timeval t);

}  // namespace threadfunc
