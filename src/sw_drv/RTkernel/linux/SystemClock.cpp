#include "sw_drv/RTkernel/linux/SystemClock.h"

#include <cstdint>
#include <ctime>

#include "sw_drv/RTkernel/linux/Clock.h"

namespace threadfunc {

namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

std::tm localNow() {
    const std::time_t now = wallClockSeconds();
    std::tm fields{};
    tzset();  // as localtime would: a change of the zone shows at once
    localtime_r(&now, &fields);
    return fields;
}

timeval machineTime() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now;
}

int setMachineTime(const timeval& time) { return settimeofday(&time, nullptr); }

}  // namespace

PackedTime packedLocalTime() {
    const std::tm now = localNow();
    return {static_cast<std::uint8_t>(now.tm_hour), static_cast<std::uint8_t>(now.tm_min),
            static_cast<std::uint8_t>(now.tm_sec)};
}

PackedDate packedLocalDate() {
    const std::tm now = localNow();
    return {static_cast<std::uint8_t>(now.tm_mday), static_cast<std::uint8_t>(now.tm_mon + 1),
            static_cast<std::uint16_t>(now.tm_year + 1900), static_cast<std::uint8_t>(now.tm_wday)};
}

// Cuts the day at midnight UTC although packedLocalTime reads local time: terminals set their clock from UTC sources
// and show it locally.
timeval clockWithTime(timeval now, PackedTime t) {
    const int secondOfDay = t.hour * 3600 + t.minute * 60 + t.second;
    now.tv_sec = now.tv_sec / kSecondsPerDay * kSecondsPerDay + secondOfDay;
    return now;
}

// The year counts from 1998, unlike that of packedLocalDate: the date messages that callers pass on count so. They mean
// standard time, all year round.
timeval clockWithDate(timeval now, PackedDate d) {
    std::tm midnight{};
    midnight.tm_mday = d.day;
    midnight.tm_mon = d.month - 1;
    midnight.tm_year = d.year + 98;
    now.tv_sec = std::mktime(&midnight) + now.tv_sec % kSecondsPerDay;
    return now;
}

int setClockTime(PackedTime t) { return setMachineTime(clockWithTime(machineTime(), t)); }

int setClockDate(PackedDate d) { return setMachineTime(clockWithDate(machineTime(), d)); }

int formatLocalTime(char* dst, const char* pattern) { return formatTime(dst, packedLocalTime(), pattern); }

int formatLocalDate(char* dst, const char* pattern) { return formatDate(dst, packedLocalDate(), pattern); }

}  // namespace threadfunc
