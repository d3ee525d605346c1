#include "sw_drv/RTkernel/linux/SystemClock.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <ctime>
#include <string>

#include "sw_drv/RTkernel/linux/Clock.h"
#include "tests/sw_drv/RTkernel/linux/Calendar.h"

using threadfunc::PackedDate;
using threadfunc::PackedTime;

using calendar::at;

namespace {

// Runs `body` with the local time now, again when the second has passed meanwhile.
template <typename Body>
void withinOneSecond(const Body& body) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::time_t before = std::time(nullptr);
        std::tm local{};
        tzset();
        localtime_r(&before, &local);
        const bool agrees = body(local);
        if (std::time(nullptr) != before) continue;
        EXPECT_TRUE(agrees);
        return;
    }
    FAIL() << "too slow";
}

struct ZoneRow {
    const char* why;
    const char* zone;
};
class LocalClock : public testing::TestWithParam<ZoneRow> {};
TEST_P(LocalClock, ShowsTheLocalTimeAndDateNow) {
    const calendar::Zone zone(GetParam().zone);
    withinOneSecond([](const std::tm& now) {
        const PackedTime time = threadfunc::packedLocalTime();
        return time.hour == now.tm_hour && time.minute == now.tm_min && time.second == now.tm_sec;
    });
    withinOneSecond([](const std::tm& now) {
        const PackedDate date = threadfunc::packedLocalDate();
        return date.day == now.tm_mday && date.month == now.tm_mon + 1 && date.year == now.tm_year + 1900 &&
               date.weekday == now.tm_wday;
    });
}
TEST_P(LocalClock, IsFormattedByThePattern) {
    const calendar::Zone zone(GetParam().zone);
    withinOneSecond([](const std::tm& now) {
        std::array<char, 32> text{};
        std::array<char, 32> expected{};
        std::strftime(expected.data(), expected.size(), "%H-%M-%S", &now);
        return threadfunc::formatLocalTime(text.data(), "h-m-s") == 1 && std::string(text.data()) == expected.data();
    });
    withinOneSecond([](const std::tm& now) {
        std::array<char, 32> text{};
        std::array<char, 32> expected{};
        std::strftime(expected.data(), expected.size(), "%d.%m.%Y", &now);
        return threadfunc::formatLocalDate(text.data(), "d.m.cy") == 1 && std::string(text.data()) == expected.data();
    });
}
INSTANTIATE_TEST_SUITE_P(Rows, LocalClock,
                         testing::Values(ZoneRow{"utc", "UTC0"}, ZoneRow{"east", "ABC-11:30"}, ZoneRow{"west", "ABC+9"},
                                         ZoneRow{"otherDay", "ABC-14"}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(LocalClock, FormatsNothingWithoutADestination) {
    EXPECT_EQ(threadfunc::formatLocalTime(nullptr, "h"), 0);
    EXPECT_EQ(threadfunc::formatLocalDate(nullptr, "d"), 0);
}

TEST(LocalClock, OfANullPatternIsThatOfTimes) {
    withinOneSecond([](const std::tm& now) {
        std::array<char, 32> time{};
        std::array<char, 32> date{};
        std::array<char, 32> month{};
        std::array<char, 32> clock{};
        std::strftime(month.data(), month.size(), "h:%m:s", &now);
        std::strftime(clock.data(), clock.size(), "%H:%M:%S", &now);
        threadfunc::formatLocalTime(time.data(), nullptr);
        threadfunc::formatLocalDate(date.data(), nullptr);
        return std::string(time.data()) == clock.data() && std::string(date.data()) == month.data();
    });
}

// localtime reads TZ at each call and localtime_r does not: a terminal that changes its zone shows it at once.
TEST(LocalClock, FollowsAChangeOfTheZone) {
    const calendar::Zone before("UTC0");  // and after the test what it was: localtime leaves its zone in the C library
    const testsupport::ScopedEnvironment east("TZ", "ABC-5");
    const int inEast = threadfunc::packedLocalTime().hour;
    const testsupport::ScopedEnvironment west("TZ", "ABC+5");
    const int inWest = threadfunc::packedLocalTime().hour;
    const int apart = (inEast - inWest + 24) % 24;
    EXPECT_TRUE(apart == 10 || apart == 9);  // 9 when an hour began between the two
}

struct SetTimeRow {
    const char* why;
    timeval now;
    PackedTime time;
    std::int64_t seconds;
};
class ClockWithTime : public testing::TestWithParam<SetTimeRow> {};
TEST_P(ClockWithTime, IsThatTimeOfTheUtcDay) {
    const calendar::Zone zone("EST5");  // makes no difference: the time is taken as UTC
    const timeval set = threadfunc::clockWithTime(GetParam().now, GetParam().time);
    EXPECT_EQ(set.tv_sec, GetParam().seconds);
    EXPECT_EQ(set.tv_usec, GetParam().now.tv_usec);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, ClockWithTime,
    testing::Values(
        SetTimeRow{"ordinary", at(1775221507, 250000), {9, 5, 7}, calendar::secondsOf({2026, 4, 3, 9, 5, 7})},
        SetTimeRow{"midnight", at(1775221507, 0), {0, 0, 0}, calendar::secondsOf({2026, 4, 3, 0, 0, 0})},
        SetTimeRow{"last", at(1775221507, 0), {23, 59, 59}, calendar::secondsOf({2026, 4, 3, 23, 59, 59})},
        SetTimeRow{"atMidnight", at(1775174400, 0), {1, 0, 0}, calendar::secondsOf({2026, 4, 3, 1, 0, 0})},
        SetTimeRow{"beyond32Bits", at(4294967296, 0), {0, 0, 1}, 4294944001}),
    [](const auto& row) { return std::string(row.param.why); });

struct SetDateRow {
    const char* why;
    const char* zone;
    timeval now;
    PackedDate date;
    std::int64_t seconds;
};
class ClockWithDate : public testing::TestWithParam<SetDateRow> {};
TEST_P(ClockWithDate, IsThatLocalMidnightAndTheTimeOfTheUtcDay) {
    const calendar::Zone zone(GetParam().zone);
    const timeval set = threadfunc::clockWithDate(GetParam().now, GetParam().date);
    EXPECT_EQ(set.tv_sec, GetParam().seconds);
    EXPECT_EQ(set.tv_usec, GetParam().now.tv_usec);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, ClockWithDate,
    testing::Values(
        SetDateRow{"yearCountsFrom1998Kept",
                   "UTC0",
                   at(1775221507, 250000),
                   {15, 7, 29, 0},
                   calendar::secondsOf({2027, 7, 15, 13, 5, 7})},
        SetDateRow{"firstYear", "UTC0", at(1775221507, 0), {1, 1, 0, 0}, calendar::secondsOf({1998, 1, 1, 13, 5, 7})},
        SetDateRow{"weekdayIsNotLookedAt",
                   "UTC0",
                   at(1775221507, 0),
                   {15, 7, 29, 6},
                   calendar::secondsOf({2027, 7, 15, 13, 5, 7})},
        SetDateRow{"midnightIsLocal",
                   "CET-1",
                   at(1775221507, 0),
                   {15, 7, 29, 0},
                   calendar::secondsOf({2027, 7, 15, 12, 5, 7})},
        SetDateRow{"inStandardTimeAlsoInSummer",
                   "CET-1CEST,M3.5.0,M10.5.0/3",
                   at(1775221507, 0),
                   {15, 7, 29, 0},
                   calendar::secondsOf({2027, 7, 15, 12, 5, 7})},
        SetDateRow{"fullYearLandsFarAhead",
                   "UTC0",
                   at(1775221507, 0),
                   {3, 4, 2026, 5},
                   calendar::secondsOf({4024, 4, 3, 13, 5, 7})}),
    [](const auto& row) { return std::string(row.param.why); });

}  // namespace
