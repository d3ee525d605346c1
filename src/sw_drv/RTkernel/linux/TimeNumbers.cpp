#include "sw_drv/RTkernel/linux/TimeNumbers.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "sw_drv/RTkernel/linux/Saturate.h"
#include "sw_drv/RTkernel/linux/TimeConversion.h"

namespace threadfunc {

namespace {

struct HoursToMilliseconds {
    std::int64_t hours;
    std::int64_t minutes;
    std::int64_t seconds;
    std::int64_t milliseconds;

    std::int64_t inSeconds() const { return hours * 3600 + minutes * 60 + seconds; }
};

// The digits of HHMMSS.fff. Half a thousandth of a millisecond absorbs what the fraction loses in a double.
HoursToMilliseconds fieldsOf(double timeNumber) {
    constexpr double kLargest = INT32_MAX * 1e4;  // hours of 32 bits
    const double number = std::isnan(timeNumber) ? 0 : std::clamp(timeNumber, -kLargest, kLargest);
    const double hours = std::trunc(number / 10000);
    const double minutes = std::trunc((number - hours * 10000) / 100);
    const double rest = number - hours * 10000 - minutes * 100;
    const double seconds = std::trunc(rest);
    const double milliseconds = std::trunc((rest - seconds) / 0.001 + 0.0005);
    return {static_cast<std::int64_t>(hours), static_cast<std::int64_t>(minutes), static_cast<std::int64_t>(seconds),
            static_cast<std::int64_t>(milliseconds)};
}

timeval timevalOf(std::int64_t seconds, std::int64_t microseconds) {
    timeval time{};
    time.tv_sec = seconds;
    time.tv_usec = microseconds;
    return time;
}

}  // namespace

double timeOfDayNumber(timeval t) {
    const auto s = saturatingSum<std::int64_t>(t.tv_sec, t.tv_usec / 1'000'000);
    const std::int64_t hhmmss = s / 3600 % 24 * 10000 + s / 60 % 60 * 100 + s % 60;
    return static_cast<double>(hhmmss) + static_cast<double>(t.tv_usec % 1'000'000) / 1e6;
}

double numberFromMsOfDay(int ms) { return timeOfDayNumber(timevalOf(ms / 1000, std::int64_t{ms % 1000} * 1000)); }

double dayTimeNumber(int day, int ms) { return numberFromMsOfDay(ms) + day * 1e6; }

int msOfDayFromNumber(double timeNumber) {
    const HoursToMilliseconds fields = fieldsOf(timeNumber);
    return static_cast<int>(fields.inSeconds() % 86400 * 1000 + fields.milliseconds);
}

timeval timeOfDayFromNumber(double timeNumber) {
    const HoursToMilliseconds fields = fieldsOf(timeNumber);
    return timevalOf(fields.inSeconds(), fields.milliseconds * 1000);
}

unsigned dayStamp(std::time_t t) {
    std::tm fields{};
    if (gmtime_r(&t, &fields) == nullptr) return 0;
    const int yearOfCentury = (fields.tm_year % 100 + 100) % 100;
    return static_cast<unsigned>(yearOfCentury * 1000 + fields.tm_yday + 1);
}

timeval timeFromDayStamp(int dayStampValue, double timeNumber, bool utc) {
    const HoursToMilliseconds time = fieldsOf(timeNumber);
    std::tm fields{};
    fields.tm_year = dayStampValue / 1000 + 100;
    fields.tm_mday = dayStampValue % 1000;
    fields.tm_hour = static_cast<int>(time.hours);
    fields.tm_min = static_cast<int>(time.minutes);
    fields.tm_sec = static_cast<int>(time.seconds);
    fields.tm_isdst = -1;
    return timevalOf(utc ? timegm(&fields) : std::mktime(&fields), time.milliseconds * 1000);
}

double dateTimeNumber(const std::tm& fields, int ms) {
    return fields.tm_year % 100 * 1e10 + (fields.tm_mon + 1.0) * 1e8 + fields.tm_mday * 1e6 + fields.tm_hour * 1e4 +
           fields.tm_min * 100.0 + fields.tm_sec + ms / 1000.0;
}

double dateTimeNumberFromTimeval(timeval t) {
    const auto ms = t.tv_usec / 1000;
    return dateTimeNumber(utcBreakdown(t.tv_sec), saturate<int>(static_cast<double>(ms)));
}

}  // namespace threadfunc
