#include "sw_drv/RTkernel/linux/TimeConversion.h"

#include <cmath>
#include <cstdint>

#include "sw_drv/RTkernel/linux/Saturate.h"

namespace threadfunc {

timeval addSeconds(timeval t, double s) {
    double whole = 0;
    const double fraction = std::modf(s, &whole);
    auto seconds = saturatingSum<std::int64_t>(t.tv_sec, saturate<std::int64_t>(whole));
    auto microseconds = saturatingSum<std::int64_t>(t.tv_usec, saturate<std::int64_t>(fraction * 1e6));
    if (microseconds < 0) {
        microseconds += 1'000'000;
        seconds = saturatingSum<std::int64_t>(seconds, -1);
    } else if (microseconds > 999'999) {
        microseconds -= 1'000'000;
        seconds = saturatingSum<std::int64_t>(seconds, 1);
    }
    timeval sum{};
    sum.tv_sec = seconds;
    sum.tv_usec = microseconds;
    return sum;
}

double secondsBetween(timeval a, timeval b) {
    const auto inSeconds = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
    };
    return inSeconds(a) - inSeconds(b);
}

timeval utcTime(int year, int month, int day, int hour, int minute, int second, int usec) {
    std::tm fields{};
    fields.tm_year = saturatingSum(year, -1900);
    fields.tm_mon = saturatingSum(month, -1);
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    fields.tm_isdst = -1;
    timeval time{};
    time.tv_sec = timegm(&fields);
    time.tv_usec = usec;
    return time;
}

timeval utcDate(int year, int month, int day) { return utcTime(year, month, day, 0, 0, 0, 0); }

timeval localTimeval(std::tm fields, int usec) {
    timeval time{};
    time.tv_sec = std::mktime(&fields);
    time.tv_usec = usec;
    return time;
}

std::tm utcBreakdown(std::time_t seconds) {
    std::tm fields{};
    return gmtime_r(&seconds, &fields) != nullptr ? fields : std::tm{};
}

}  // namespace threadfunc
