#pragma once
/// A calendar for checking: counts years and months one by one, and knows nothing of the C library's.

#include <sys/time.h>

#include <cstdint>
#include <ctime>
#include <limits>
#include <random>

#include "tests/support/TempFolder.h"

namespace calendar {

struct Moment {
    int year, month, day, hour, minute, second;
};

constexpr bool isLeap(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

constexpr int daysIn(int year, int month) {
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return kDays[month - 1] + (month == 2 && isLeap(year) ? 1 : 0);
}

/// 1 for 1 January.
constexpr int dayOfYear(const Moment& m) {
    int days = m.day;
    for (int month = 1; month < m.month; ++month) days += daysIn(m.year, month);
    return days;
}

/// Seconds since 1970, UTC.
constexpr std::int64_t secondsOf(const Moment& m) {
    std::int64_t days = dayOfYear(m) - 1;
    for (int year = 1970; year < m.year; ++year) days += isLeap(year) ? 366 : 365;
    for (int year = m.year; year < 1970; ++year) days -= isLeap(year) ? 366 : 365;
    return days * 86400 + m.hour * 3600 + m.minute * 60 + m.second;
}
static_assert(secondsOf({2026, 4, 3, 13, 5, 7}) == 1775221507);
static_assert(secondsOf({1969, 12, 31, 23, 59, 59}) == -1);

/// A moment of the years given; each twentieth is the first or last of its month, and of its day.
inline Moment randomMoment(std::mt19937& random, int firstYear, int lastYear) {
    const auto below = [&random](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
    Moment m{firstYear + below(lastYear - firstYear + 1), 1 + below(12), 1, below(24), below(60), below(60)};
    m.day = 1 + below(daysIn(m.year, m.month));
    const int edge = below(40);
    if (edge == 0) m = {m.year, m.month, 1, 0, 0, 0};
    if (edge == 1) m = {m.year, m.month, daysIn(m.year, m.month), 23, 59, 59};
    return m;
}

/// That time since 1970, UTC.
inline timeval at(std::int64_t seconds, std::int64_t microseconds) {
    timeval time{};
    time.tv_sec = seconds;
    time.tv_usec = microseconds;
    return time;
}

inline constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// The local time zone for the life of the object, in the form "EST5EDT,M3.2.0,M11.1.0" of POSIX.
class Zone {
public:
    explicit Zone(const char* zone) : variable("TZ", zone) { tzset(); }
    Zone(const Zone&) = delete;
    Zone& operator=(const Zone&) = delete;

private:
    struct ReadAgain {
        ~ReadAgain() { tzset(); }
    };
    ReadAgain afterwards;  // after the variable is as it was
    testsupport::ScopedEnvironment variable;
};

}  // namespace calendar
