#pragma once
/// Times and dates as text, laid out by a pattern of one-letter fields. Safe from any thread.

#include <cstdint>
#include <string>

namespace threadfunc {

/// A time of day in three bytes.
struct PackedTime {
    std::uint8_t hour;    ///< 0 to 23
    std::uint8_t minute;  ///< 0 to 59
    std::uint8_t second;  ///< 0 to 59; 60 in a leap second
};

/// A calendar day.
struct PackedDate {
    std::uint8_t day;      ///< 1 to 31
    std::uint8_t month;    ///< 1 to 12
    std::uint16_t year;    ///< in full, such as 2026
    std::uint8_t weekday;  ///< 0 is Sunday
};

/// `pattern` with 'h' replaced by the hour, 'm' by the minute and 's' by the second, two digits each; every other
/// character stands for itself. A null pattern is "h:m:s".
std::string timeText(PackedTime t, const char* pattern);

/// `pattern` with 'd' replaced by the day, 'm' by the month, 'y' by the year in its century and 'c' by the century,
/// two digits each (more where the value has more); every other character stands for itself.
/// A null pattern is "h:m:s" as well, which writes "h:04:s" in April.
std::string dateText(PackedDate d, const char* pattern);

/// Writes `timeText` and an end mark to `dst`, which has room for three characters a field, one for each other
/// character, and the end mark. Returns 1; 0 when `dst` is null.
int formatTime(char* dst, PackedTime t, const char* pattern);

/// Writes `dateText` and an end mark to `dst`, with room as for `formatTime`. Returns 1; 0 when `dst` is null.
int formatDate(char* dst, PackedDate d, const char* pattern);

}  // namespace threadfunc
