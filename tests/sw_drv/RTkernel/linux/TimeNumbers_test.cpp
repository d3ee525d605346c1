#include "sw_drv/RTkernel/linux/TimeNumbers.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "tests/sw_drv/RTkernel/linux/Calendar.h"

using calendar::at;
using calendar::kInfinity;

namespace {

constexpr int kRandomCases = 30000;

// The number that the digits read as: what a person would write down.
template <typename... Values>
double digits(const char* format, Values... values) {
    char text[64];
    std::snprintf(text, sizeof text, format, values...);
    return std::strtod(text, nullptr);
}

int below(std::mt19937& random, int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); }

// Each fifth at the edge of a millisecond or of the second.
int microsecondOf(std::mt19937& random) {
    constexpr int kEdges[] = {0, 1, 999, 1000, 1001, 499'999, 500'000, 998'999, 999'000, 999'999};
    return below(random, 5) == 0 ? kEdges[below(random, 10)] : below(random, 1'000'000);
}

// --- HHMMSS.ffffff from a time -----------------------------------------------------------------------------------

struct OfDayRow {
    const char* why;
    timeval time;
    double number;
};
class TimeOfDayNumber : public testing::TestWithParam<OfDayRow> {};
TEST_P(TimeOfDayNumber, ReadsAsHoursMinutesSeconds) {
    EXPECT_NEAR(threadfunc::timeOfDayNumber(GetParam().time), GetParam().number, 1e-9);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, TimeOfDayNumber,
    testing::Values(OfDayRow{"midnight", at(0, 0), 0}, OfDayRow{"ordinary", at(3723, 456789), 10203.456789},
                    OfDayRow{"lastMicrosecond", at(86399, 999999), 235959.999999},
                    OfDayRow{"nextMidnight", at(86400, 0), 0}, OfDayRow{"nextDay", at(86400 + 3723, 1), 10203.000001},
                    OfDayRow{"today", at(1775221507, 250000), 130507.25},
                    OfDayRow{"microsecondsBeyondASecond", at(3722, 1456789), 10203.456789},
                    OfDayRow{"beyond32Bits", at(4294967296LL + 5, 0), 62821}, OfDayRow{"before1970", at(-1, 0), -1},
                    OfDayRow{"minuteBefore1970", at(-61, 0), -101},
                    OfDayRow{"largest", at(INT64_MAX, 999999), 153007.999999},
                    OfDayRow{"largestAndWildMicroseconds", at(INT64_MAX, INT64_MAX), 153007.775807}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(TimeOfDayNumber, AgreesWithTheDigits) {
    std::mt19937 random(1);
    for (int i = 0; i < kRandomCases; ++i) {
        const calendar::Moment m = calendar::randomMoment(random, 1970, 2150);
        const int usec = microsecondOf(random);
        ASSERT_NEAR(threadfunc::timeOfDayNumber(at(calendar::secondsOf(m), usec)),
                    digits("%02d%02d%02d.%06d", m.hour, m.minute, m.second, usec), 1e-9);
    }
}

TEST(NumberFromMsOfDay, AgreesWithTheDigits) {
    std::mt19937 random(2);
    for (int i = 0; i < kRandomCases; ++i) {
        const int hour = below(random, 24);
        const int minute = below(random, 60);
        const int second = below(random, 60);
        const int ms = below(random, 1000);
        const double number = digits("%02d%02d%02d.%03d", hour, minute, second, ms);
        const int msOfDay = ((hour * 60 + minute) * 60 + second) * 1000 + ms;
        ASSERT_NEAR(threadfunc::numberFromMsOfDay(msOfDay), number, 1e-9) << msOfDay;
        ASSERT_NEAR(threadfunc::dayTimeNumber(17, msOfDay), 17'000'000 + number, 1e-8) << msOfDay;
        ASSERT_EQ(threadfunc::msOfDayFromNumber(threadfunc::numberFromMsOfDay(msOfDay)), msOfDay);
    }
}

// Any number of milliseconds, also negative and beyond the day: the sign goes before the digits.
TEST(DayTimeNumber, AgreesWithTheDigits) {
    std::mt19937 random(6);
    for (int i = 0; i < kRandomCases; ++i) {
        const int ms = static_cast<int>(random());
        const int day = below(random, 200'000) - 100'000;
        const std::int64_t magnitude = std::abs(std::int64_t{ms});
        const double number =
            digits("%s%02d%02d%02d.%03d", ms < 0 ? "-" : "", static_cast<int>(magnitude / 3'600'000 % 24),
                   static_cast<int>(magnitude / 60'000 % 60), static_cast<int>(magnitude / 1000 % 60),
                   static_cast<int>(magnitude % 1000));
        ASSERT_NEAR(threadfunc::numberFromMsOfDay(ms), number, 1e-9) << ms;
        ASSERT_NEAR(threadfunc::dayTimeNumber(day, ms), day * 1e6 + number, 3e-5) << day << " " << ms;
    }
}

struct MsRow {
    const char* why;
    int ms;
    double number;
};
class NumberFromMsOfDay : public testing::TestWithParam<MsRow> {};
TEST_P(NumberFromMsOfDay, ReadsAsHoursMinutesSeconds) {
    EXPECT_NEAR(threadfunc::numberFromMsOfDay(GetParam().ms), GetParam().number, 1e-9);
    EXPECT_NEAR(threadfunc::dayTimeNumber(0, GetParam().ms), GetParam().number, 1e-9);
    EXPECT_NEAR(threadfunc::dayTimeNumber(365, GetParam().ms), 365e6 + GetParam().number, 1e-7);
    EXPECT_NEAR(threadfunc::dayTimeNumber(-1, GetParam().ms), -1e6 + GetParam().number, 1e-8);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, NumberFromMsOfDay,
    testing::Values(MsRow{"midnight", 0, 0}, MsRow{"oneMillisecond", 1, 0.001}, MsRow{"lastOfASecond", 999, 0.999},
                    MsRow{"second", 1000, 1}, MsRow{"minute", 60'000, 100}, MsRow{"hour", 3'600'000, 10000},
                    MsRow{"lastOfTheDay", 86'399'999, 235959.999}, MsRow{"nextMidnight", 86'400'000, 0},
                    MsRow{"nextDay", 86'400'000 + 3'723'004, 10203.004}, MsRow{"largest", INT_MAX, 203123.647},
                    MsRow{"negative", -1500, -1.5}, MsRow{"smallest", INT_MIN, -203123.648}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(DayTimeNumber, HoldsTheLargestDays) {
    EXPECT_EQ(threadfunc::dayTimeNumber(INT_MAX, 0), 2147483647e6);
    EXPECT_EQ(threadfunc::dayTimeNumber(INT_MIN, 0), -2147483648e6);
}

// --- HHMMSS.fff to a time ----------------------------------------------------------------------------------------

struct FromNumberRow {
    const char* why;
    double number;
    int msOfDay;
    std::int64_t seconds;
    std::int64_t microseconds;
};
class FromTimeNumber : public testing::TestWithParam<FromNumberRow> {};
TEST_P(FromTimeNumber, IsMillisecondsOfTheDayAndATime) {
    EXPECT_EQ(threadfunc::msOfDayFromNumber(GetParam().number), GetParam().msOfDay);
    const timeval time = threadfunc::timeOfDayFromNumber(GetParam().number);
    EXPECT_EQ(time.tv_sec, GetParam().seconds);
    EXPECT_EQ(time.tv_usec, GetParam().microseconds);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, FromTimeNumber,
    testing::Values(FromNumberRow{"midnight", 0, 0, 0, 0}, FromNumberRow{"ordinary", 10203.456, 3723456, 3723, 456000},
                    FromNumberRow{"cutsToMilliseconds", 10203.456789, 3723456, 3723, 456000},
                    FromNumberRow{"fractionIsCutAndNotRounded", 235959.9996, 86399999, 86399, 999000},
                    FromNumberRow{"twentyFourHours", 240000.0, 0, 86400, 0},
                    FromNumberRow{"beyondTheDay", 250000.5, 3600500, 90000, 500000},
                    FromNumberRow{"errorOfTheDoubleIsAbsorbed", 0.007, 7, 0, 7000},
                    FromNumberRow{"withinHalfAThousandthOfAMillisecond", 0.0069996, 7, 0, 7000},
                    FromNumberRow{"notQuiteWithinIt", 0.0069994, 6, 0, 6000},
                    FromNumberRow{"absorbedUpToTheNextSecond", 0.9999999, 1000, 0, 1000000},
                    FromNumberRow{"minutesAndSecondsBeyondTheirRange", 9999, 6039000, 6039, 0},
                    FromNumberRow{"negative", -10203.5, -3723499, -3723, -499000},
                    FromNumberRow{"notANumber", NAN, 0, 0, 0},
                    FromNumberRow{"largestHours", 21474836470000.0, 25'200'000, 7730941129200, 0},
                    FromNumberRow{"beyondTheLargestHours", 1e300, 25'200'000, 7730941129200, 0},
                    FromNumberRow{"infinity", kInfinity, 25'200'000, 7730941129200, 0},
                    FromNumberRow{"minusInfinity", -kInfinity, -25'200'000, -7730941129200, 0}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(FromTimeNumber, AgreesWithTheDigits) {
    std::mt19937 random(3);
    for (int i = 0; i < kRandomCases; ++i) {
        const int hour = below(random, 100);
        const int minute = below(random, 60);
        const int second = below(random, 60);
        const int usec = microsecondOf(random);
        const double number = digits("%02d%02d%02d.%06d", hour, minute, second, usec);
        const int seconds = (hour * 60 + minute) * 60 + second;
        ASSERT_EQ(threadfunc::msOfDayFromNumber(number), seconds % 86400 * 1000 + usec / 1000) << number;
        const timeval time = threadfunc::timeOfDayFromNumber(number);
        ASSERT_EQ(time.tv_sec, seconds);
        ASSERT_EQ(time.tv_usec, usec / 1000 * 1000);
    }
}

// Nanoseconds in whole numbers: half a microsecond below a whole millisecond counts as that, no more and no less.
TEST(FromTimeNumber, CutsNanosecondsToMilliseconds) {
    std::mt19937 random(7);
    for (int i = 0; i < kRandomCases; ++i) {
        const int nearEdge = below(random, 1000) * 1'000'000 + 999'400 + below(random, 200);
        const int ns = below(random, 2) == 0 ? nearEdge : below(random, 1'000'000'000);
        if (std::abs(ns % 1'000'000 - 999'500) < 5) continue;  // what a double cannot tell apart
        const int hour = below(random, 100);
        const int minute = below(random, 60);
        const int second = below(random, 60);
        const double number = digits("%02d%02d%02d.%09d", hour, minute, second, ns);
        const int seconds = (hour * 60 + minute) * 60 + second;
        const int ms = (ns + 500) / 1'000'000;
        ASSERT_EQ(threadfunc::msOfDayFromNumber(number), seconds % 86400 * 1000 + ms) << hour << " " << ns;
        ASSERT_EQ(threadfunc::timeOfDayFromNumber(number).tv_usec, ms * 1000);
        ASSERT_EQ(threadfunc::timeOfDayFromNumber(-number).tv_sec, -seconds);
    }
}

TEST(FromTimeNumber, OfEveryMillisecondOfAnHourComesBack) {
    for (int ms = 0; ms < 3'600'000; ms += 7) {
        const int msOfDay = 22 * 3'600'000 + ms;
        ASSERT_EQ(threadfunc::msOfDayFromNumber(threadfunc::numberFromMsOfDay(msOfDay)), msOfDay);
    }
}

// --- YYDDD -------------------------------------------------------------------------------------------------------

struct StampRow {
    const char* why;
    std::int64_t seconds;
    unsigned stamp;
};
class DayStamp : public testing::TestWithParam<StampRow> {};
TEST_P(DayStamp, IsYearOfCenturyAndDayOfYear) {
    EXPECT_EQ(threadfunc::dayStamp(static_cast<std::time_t>(GetParam().seconds)), GetParam().stamp);
}
INSTANTIATE_TEST_SUITE_P(Rows, DayStamp,
                         testing::Values(StampRow{"epoch", 0, 70001}, StampRow{"lastOfALeapYear", 1735603200, 24366},
                                         StampRow{"lastSecondOfALeapYear", 1735689599, 24366},
                                         StampRow{"firstOfTheYear", 1735689600, 25001},
                                         StampRow{"firstOfTheCentury", 946684800, 1}, StampRow{"before1970", -1, 69365},
                                         StampRow{"first1900", -2208988800, 1},
                                         StampRow{"last1899", -2208988801, 99365},
                                         StampRow{"yearDoesNotFit", INT64_MAX, 0}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(DayStamp, AgreesWithACountOfDaysAndLeadsBack) {
    const calendar::Zone fiveAndAHalfHoursEast("ABC-5:30");
    std::mt19937 random(4);
    for (int i = 0; i < kRandomCases; ++i) {
        const calendar::Moment m = calendar::randomMoment(random, 1902, 2150);
        const std::int64_t seconds = calendar::secondsOf(m);
        const auto stamp = static_cast<unsigned>(m.year % 100 * 1000 + calendar::dayOfYear(m));
        ASSERT_EQ(threadfunc::dayStamp(static_cast<std::time_t>(seconds)), stamp);
        if (m.year < 2000 || m.year > 2099) continue;
        const int ms = below(random, 1000);
        const double number = digits("%02d%02d%02d.%03d", m.hour, m.minute, m.second, ms);
        const timeval time = threadfunc::timeFromDayStamp(static_cast<int>(stamp), number, true);
        ASSERT_EQ(time.tv_sec, seconds);
        ASSERT_EQ(time.tv_usec, ms * 1000);
        const timeval local = threadfunc::timeFromDayStamp(static_cast<int>(stamp), number, false);
        ASSERT_EQ(local.tv_sec, seconds - 19800);
        ASSERT_EQ(local.tv_usec, ms * 1000);
    }
}

struct FromStampRow {
    const char* why;
    int stamp;
    double number;
    calendar::Moment moment;
    std::int64_t microseconds;
};
class TimeFromDayStamp : public testing::TestWithParam<FromStampRow> {};
TEST_P(TimeFromDayStamp, IsAMomentInUtc) {
    const calendar::Zone zone("EST5");  // makes no difference
    const timeval time = threadfunc::timeFromDayStamp(GetParam().stamp, GetParam().number, true);
    EXPECT_EQ(time.tv_sec, calendar::secondsOf(GetParam().moment));
    EXPECT_EQ(time.tv_usec, GetParam().microseconds);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, TimeFromDayStamp,
    testing::Values(FromStampRow{"firstDay", 25001, 0, {2025, 1, 1, 0, 0, 0}, 0},
                    FromStampRow{"lastOfALeapYear", 24366, 235959.9996, {2024, 12, 31, 23, 59, 59}, 999000},
                    FromStampRow{"dayBeyondTheYearCarriesOn", 25366, 10203.5, {2026, 1, 1, 1, 2, 3}, 500000},
                    FromStampRow{"dayZeroIsTheDayBefore", 25000, 0, {2024, 12, 31, 0, 0, 0}, 0},
                    FromStampRow{"firstYear", 1, 0, {2000, 1, 1, 0, 0, 0}, 0},
                    FromStampRow{"lastYear", 99365, 0, {2099, 12, 31, 0, 0, 0}, 0},
                    FromStampRow{"hoursBeyondTheDay", 25001, 250000.0, {2025, 1, 2, 1, 0, 0}, 0}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(TimeFromDayStamp, IsReadInLocalTimeWhenNotUtc) {
    const calendar::Zone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(threadfunc::timeFromDayStamp(26015, 120000.25, false).tv_sec,
              calendar::secondsOf({2026, 1, 15, 11, 0, 0}));
    EXPECT_EQ(threadfunc::timeFromDayStamp(26196, 120000.25, false).tv_sec,
              calendar::secondsOf({2026, 7, 15, 10, 0, 0}));  // daylight saving is found out
    EXPECT_EQ(threadfunc::timeFromDayStamp(26196, 120000.25, false).tv_usec, 250000);
}

TEST(TimeFromDayStamp, TakesAnyNumbers) {
    for (const int stamp : {INT_MAX, INT_MIN, 0, -1})
        for (const double number : {1e300, -1e300, kInfinity, static_cast<double>(NAN)})
            for (const bool utc : {true, false}) static_cast<void>(threadfunc::timeFromDayStamp(stamp, number, utc));
}

// --- YYMMDDhhmmss.sss --------------------------------------------------------------------------------------------

TEST(DateTimeNumber, AgreesWithTheDigits) {
    const calendar::Zone zone("EST5");  // makes no difference: the fields are those of UTC
    std::mt19937 random(5);
    for (int i = 0; i < kRandomCases; ++i) {
        const calendar::Moment m = calendar::randomMoment(random, 1970, 2150);
        const int usec = microsecondOf(random);
        const double number = digits("%02d%02d%02d%02d%02d%02d.%03d", m.year % 100, m.month, m.day, m.hour, m.minute,
                                     m.second, usec / 1000);
        std::tm fields{};
        fields.tm_year = m.year - 1900;
        fields.tm_mon = m.month - 1;
        fields.tm_mday = m.day;
        fields.tm_hour = m.hour;
        fields.tm_min = m.minute;
        fields.tm_sec = m.second;
        ASSERT_NEAR(threadfunc::dateTimeNumber(fields, usec / 1000), number, 2e-4);
        ASSERT_NEAR(threadfunc::dateTimeNumberFromTimeval(at(calendar::secondsOf(m), usec)), number, 2e-4);
    }
}

struct DateTimeRow {
    const char* why;
    timeval time;
    double number;
};
class DateTimeNumber : public testing::TestWithParam<DateTimeRow> {};
TEST_P(DateTimeNumber, ReadsAsYearToMillisecond) {
    const calendar::Zone zone("EST5");
    EXPECT_NEAR(threadfunc::dateTimeNumberFromTimeval(GetParam().time), GetParam().number, 2e-4);
}
INSTANTIATE_TEST_SUITE_P(Rows, DateTimeNumber,
                         testing::Values(DateTimeRow{"epoch", at(0, 0), 700101000000.0},
                                         DateTimeRow{"ordinary", at(1775221507, 250000), 260403130507.250},
                                         DateTimeRow{"cutsToMilliseconds", at(1775221507, 250999), 260403130507.250},
                                         DateTimeRow{"firstOfTheCentury", at(946684800, 1000), 101000000.001},
                                         DateTimeRow{"lastOfTheCentury", at(946684799, 999999), 991231235959.999}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(DateTimeNumber, TakesFieldsAsTheyAre) {
    std::tm fields{};
    fields.tm_year = 99;
    fields.tm_mon = 11;
    fields.tm_mday = 31;
    fields.tm_sec = 60;
    EXPECT_NEAR(threadfunc::dateTimeNumber(fields, 1500), 991231000061.5, 2e-4);
    fields.tm_mon = INT_MAX;
    fields.tm_mday = INT_MIN;
    fields.tm_hour = INT_MAX;
    fields.tm_min = INT_MAX;
    EXPECT_TRUE(std::isfinite(threadfunc::dateTimeNumber(fields, INT_MIN)));
    static_cast<void>(threadfunc::dateTimeNumberFromTimeval(at(INT64_MAX, INT64_MAX)));
}

}  // namespace
