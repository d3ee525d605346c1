#include "sw_drv/RTkernel/linux/TimeConversion.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>

#include "sw_drv/RTkernel/linux/Saturate.h"
#include "tests/support/TempFolder.h"
#include "tests/sw_drv/RTkernel/linux/Calendar.h"

using calendar::at;
using calendar::kInfinity;

namespace {

void expectTime(const timeval& time, std::int64_t seconds, std::int64_t microseconds) {
    EXPECT_EQ(time.tv_sec, seconds);
    EXPECT_EQ(time.tv_usec, microseconds);
}

struct AddRow {
    const char* why;
    timeval start;
    double added;
    timeval sum;
};
class AddSeconds : public testing::TestWithParam<AddRow> {};
TEST_P(AddSeconds, KeepsMicrosecondsInRange) {
    expectTime(threadfunc::addSeconds(GetParam().start, GetParam().added), GetParam().sum.tv_sec,
               GetParam().sum.tv_usec);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, AddSeconds,
    testing::Values(AddRow{"nothing", at(10, 20), 0.0, at(10, 20)}, AddRow{"seconds", at(10, 20), 3.0, at(13, 20)},
                    AddRow{"half", at(10, 20), 0.5, at(10, 500'020)},
                    AddRow{"toTheLastMicrosecond", at(10, 499'999), 0.5, at(10, 999'999)},
                    AddRow{"carries", at(10, 500'000), 0.5, at(11, 0)},
                    AddRow{"carriesBeyond", at(10, 750'000), 1.75, at(12, 500'000)},
                    AddRow{"back", at(10, 500'000), -0.5, at(10, 0)},
                    AddRow{"borrows", at(10, 250'000), -0.5, at(9, 750'000)},
                    AddRow{"borrowsToTheLast", at(10, 0), -0.000001, at(9, 999'999)},
                    AddRow{"backManySeconds", at(10, 0), -12.25, at(-3, 750'000)},
                    AddRow{"cutsFractionsOff", at(10, 0), 0.0000019, at(10, 1)},
                    AddRow{"cutsNegativeFractionsOff", at(10, 5), -0.0000019, at(10, 4)},
                    AddRow{"belowAMicrosecond", at(10, 5), 0.0000009, at(10, 5)},
                    AddRow{"notANumberIsNothing", at(10, 20), NAN, at(10, 20)},
                    AddRow{"infinityEndsAtTheLargest", at(10, 20), kInfinity, at(INT64_MAX, 20)},
                    AddRow{"minusInfinityEndsAtTheSmallest", at(-10, 20), -kInfinity, at(INT64_MIN, 20)},
                    AddRow{"carryAtTheLargest", at(INT64_MAX, 999'999), 0.5, at(INT64_MAX, 499'999)},
                    AddRow{"borrowAtTheSmallest", at(INT64_MIN, 0), -0.5, at(INT64_MIN, 500'000)},
                    AddRow{"wildMicroseconds", at(0, INT64_MAX), 0.5, at(1, INT64_MAX - 1'000'000)}),
    [](const auto& row) { return std::string(row.param.why); });

struct BetweenRow {
    const char* why;
    timeval a;
    timeval b;
    double seconds;
};
class SecondsBetween : public testing::TestWithParam<BetweenRow> {};
TEST_P(SecondsBetween, IsTheFirstLessTheSecond) {
    EXPECT_NEAR(threadfunc::secondsBetween(GetParam().a, GetParam().b), GetParam().seconds, 1e-6);
}
INSTANTIATE_TEST_SUITE_P(Rows, SecondsBetween,
                         testing::Values(BetweenRow{"same", at(5, 5), at(5, 5), 0},
                                         BetweenRow{"later", at(7, 0), at(5, 0), 2},
                                         BetweenRow{"earlier", at(5, 0), at(7, 0), -2},
                                         BetweenRow{"microseconds", at(5, 250'000), at(5, 0), 0.25},
                                         BetweenRow{"acrossASecond", at(6, 100'000), at(5, 900'000), 0.2},
                                         BetweenRow{"today", at(1775221507, 250'000), at(1775221500, 0), 7.25}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(UtcTime, AgreesWithACountOfDays) {
    std::mt19937 random(4711);
    for (int i = 0; i < 20000; ++i) {
        const calendar::Moment m = calendar::randomMoment(random, 1902, 2200);
        const int usec = static_cast<int>(random() % 1'000'000);
        const timeval time = threadfunc::utcTime(m.year, m.month, m.day, m.hour, m.minute, m.second, usec);
        ASSERT_EQ(time.tv_sec, calendar::secondsOf(m)) << m.year << "-" << m.month << "-" << m.day;
        ASSERT_EQ(time.tv_usec, usec);
        const timeval date = threadfunc::utcDate(m.year, m.month, m.day);
        ASSERT_EQ(date.tv_sec, calendar::secondsOf({m.year, m.month, m.day, 0, 0, 0}));
        ASSERT_EQ(date.tv_usec, 0);
    }
}

struct UtcRow {
    const char* why;
    int year, month, day, hour, minute, second;
    std::int64_t seconds;
};
class UtcTime : public testing::TestWithParam<UtcRow> {};
TEST_P(UtcTime, IsTheMomentOfTheFields) {
    const UtcRow& row = GetParam();
    expectTime(threadfunc::utcTime(row.year, row.month, row.day, row.hour, row.minute, row.second, 7), row.seconds, 7);
}
INSTANTIATE_TEST_SUITE_P(Rows, UtcTime,
                         testing::Values(UtcRow{"epoch", 1970, 1, 1, 0, 0, 0, 0},
                                         UtcRow{"leapDay", 2024, 2, 29, 0, 0, 0, 1709164800},
                                         UtcRow{"before1970", 1969, 12, 31, 23, 59, 58, -2},
                                         UtcRow{"beyond32Bits", 2038, 1, 19, 3, 14, 8, 2147483648},
                                         UtcRow{"dayCarries", 2026, 1, 32, 0, 0, 0, 1769904000},  // 1 February
                                         UtcRow{"monthCarries", 2025, 13, 1, 0, 0, 0, 1767225600},
                                         UtcRow{"secondCarries", 1970, 1, 1, 0, 0, 61, 61},
                                         UtcRow{"smallestYear", INT_MIN, 1, 1, 0, 0, 0, -67768040609740800}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(UtcBreakdown, AgreesWithACountOfDays) {
    const calendar::Zone zone("EST5");  // makes no difference
    std::mt19937 random(4712);
    for (int i = 0; i < 20000; ++i) {
        const calendar::Moment m = calendar::randomMoment(random, 1902, 2200);
        const std::tm fields = threadfunc::utcBreakdown(static_cast<std::time_t>(calendar::secondsOf(m)));
        ASSERT_EQ(fields.tm_year, m.year - 1900);
        ASSERT_EQ(fields.tm_mon, m.month - 1);
        ASSERT_EQ(fields.tm_mday, m.day);
        ASSERT_EQ(fields.tm_hour, m.hour);
        ASSERT_EQ(fields.tm_min, m.minute);
        ASSERT_EQ(fields.tm_sec, m.second);
        ASSERT_EQ(fields.tm_yday, calendar::dayOfYear(m) - 1);
    }
}

TEST(UtcBreakdown, OfATimeWithoutAYearIsAllZero) {
    const std::tm fields = threadfunc::utcBreakdown(std::numeric_limits<std::time_t>::max());
    EXPECT_EQ(fields.tm_year, 0);
    EXPECT_EQ(fields.tm_mon, 0);
    EXPECT_EQ(fields.tm_mday, 0);
    EXPECT_EQ(fields.tm_sec, 0);
}

std::tm fieldsOf(int year, int month, int day, int hour) {
    std::tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_isdst = -1;
    return fields;
}

TEST(LocalTimeval, IsReadInTheLocalTimeZone) {
    const calendar::Zone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    const std::int64_t winter = calendar::secondsOf({2026, 1, 15, 11, 0, 0});
    const std::int64_t summer = calendar::secondsOf({2026, 7, 15, 10, 0, 0});
    expectTime(threadfunc::localTimeval(fieldsOf(2026, 1, 15, 12), 42), winter, 42);
    expectTime(threadfunc::localTimeval(fieldsOf(2026, 7, 15, 12), 43), summer, 43);
    expectTime(threadfunc::utcTime(2026, 7, 15, 10, 0, 0, 0), summer, 0);  // UTC knows no zone
    std::tm inStandardTime = fieldsOf(2026, 7, 15, 12);
    inStandardTime.tm_isdst = 0;  // as the caller says, also in summer
    expectTime(threadfunc::localTimeval(inStandardTime, 44), summer + 3600, 44);
}

// --- Numbers of doubles ------------------------------------------------------------------------------------------

struct SaturateRow {
    const char* why;
    double value;
    std::int32_t as32;
    std::int64_t as64;
};
class Saturate : public testing::TestWithParam<SaturateRow> {};
TEST_P(Saturate, CutsToTheRange) {
    EXPECT_EQ(threadfunc::saturate<std::int32_t>(GetParam().value), GetParam().as32);
    EXPECT_EQ(threadfunc::saturate<std::int64_t>(GetParam().value), GetParam().as64);
}
INSTANTIATE_TEST_SUITE_P(Rows, Saturate,
                         testing::Values(SaturateRow{"zero", 0.0, 0, 0}, SaturateRow{"cutsDown", 2.9, 2, 2},
                                         SaturateRow{"cutsUp", -2.9, -2, -2}, SaturateRow{"notANumber", NAN, 0, 0},
                                         SaturateRow{"largestInt", 2147483647.0, INT_MAX, 2147483647},
                                         SaturateRow{"largestIntAndAHalf", 2147483647.5, INT_MAX, 2147483647},
                                         SaturateRow{"beyondInt", 2147483648.0, INT_MAX, 2147483648},
                                         SaturateRow{"smallestInt", -2147483648.0, INT_MIN, -2147483648LL},
                                         SaturateRow{"smallestIntAndAHalf", -2147483648.5, INT_MIN, -2147483648LL},
                                         SaturateRow{"below", -2147483649.0, INT_MIN, -2147483649LL},
                                         SaturateRow{"beyond64", 9223372036854775808.0, INT_MAX, INT64_MAX},
                                         SaturateRow{"smallest64", -9223372036854775808.0, INT_MIN, INT64_MIN},
                                         SaturateRow{"infinity", kInfinity, INT_MAX, INT64_MAX},
                                         SaturateRow{"minusInfinity", -kInfinity, INT_MIN, INT64_MIN}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(SaturatingSum, EndsAtTheRange) {
    EXPECT_EQ(threadfunc::saturatingSum(2, 3), 5);
    EXPECT_EQ(threadfunc::saturatingSum(INT_MAX, 1), INT_MAX);
    EXPECT_EQ(threadfunc::saturatingSum(INT_MAX, -1), INT_MAX - 1);
    EXPECT_EQ(threadfunc::saturatingSum(INT_MIN, -1), INT_MIN);
    EXPECT_EQ(threadfunc::saturatingSum(-1, INT_MIN), INT_MIN);
    EXPECT_EQ(threadfunc::saturatingSum(INT_MIN, INT_MAX), -1);
}

}  // namespace
