#pragma once
/// Arithmetic on POSIX times, and between them and calendar fields.
///
/// Results that a type cannot hold are cut to its range; a NaN counts as 0. Calendar fields outside their range carry
/// into the next one (32 January is 1 February). A time that the system cannot convert has -1 seconds.
/// All functions are safe from any thread and return at once.

#include <sys/time.h>

#include <ctime>

namespace threadfunc {

/// `t` moved by `s` seconds (negative: back). Fractions of `s` below a microsecond are cut off; microseconds of the
/// result are 0 to 999999 when those of `t` are.
timeval addSeconds(timeval t, double s);

/// Seconds from `b` to `a`; negative when `a` is earlier.
double secondsBetween(timeval a, timeval b);

/// The moment of these calendar fields in UTC: full `year`, `month` 1 to 12, `usec` as the microseconds.
timeval utcTime(int year, int month, int day, int hour, int minute, int second, int usec);

/// The first moment of the day in UTC: full `year`, `month` 1 to 12.
timeval utcDate(int year, int month, int day);

/// The moment of `fields` in local time, with `usec` as the microseconds.
timeval localTimeval(std::tm fields, int usec);

/// Calendar fields of `seconds` since 1970 in UTC; all 0 when the year does not fit.
std::tm utcBreakdown(std::time_t seconds);

}  // namespace threadfunc
