#include "sw_drv/RTkernel/linux/TimeFormat.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <string>
#include <type_traits>

using threadfunc::PackedDate;
using threadfunc::PackedTime;

namespace {

static_assert(offsetof(PackedTime, hour) == 0 && offsetof(PackedTime, minute) == 1 &&
              offsetof(PackedTime, second) == 2);
static_assert(sizeof(PackedTime) == 3);
static_assert(offsetof(PackedDate, day) == 0 && offsetof(PackedDate, month) == 1 && offsetof(PackedDate, year) == 2 &&
              offsetof(PackedDate, weekday) == 4);

struct TimeRow {
    const char* why;
    PackedTime time;
    const char* pattern;
    const char* text;
};
class FormatTime : public testing::TestWithParam<TimeRow> {};
TEST_P(FormatTime, FillsInThePattern) {
    std::array<char, 64> text;
    text.fill('#');
    EXPECT_EQ(threadfunc::formatTime(text.data(), GetParam().time, GetParam().pattern), 1);
    EXPECT_STREQ(text.data(), GetParam().text);
    EXPECT_EQ(text[std::string(GetParam().text).size() + 1], '#');  // nothing beyond the end mark
    EXPECT_EQ(threadfunc::timeText(GetParam().time, GetParam().pattern), GetParam().text);
    EXPECT_EQ(threadfunc::formatTime(nullptr, GetParam().time, GetParam().pattern), 0);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, FormatTime,
    testing::Values(TimeRow{"nullIsHourMinuteSecond", {9, 5, 7}, nullptr, "09:05:07"},
                    TimeRow{"pattern", {9, 5, 7}, "h.m", "09.05"}, TimeRow{"empty", {9, 5, 7}, "", ""},
                    TimeRow{"twoDigits", {23, 59, 48}, "hms", "235948"},
                    TimeRow{"othersStandForThemselves", {9, 5, 7}, "Hour %h%% d\n", "Hour %09%% d\n"},
                    TimeRow{"again", {9, 5, 7}, "h h", "09 09"}, TimeRow{"onlyLowerCase", {9, 5, 7}, "HMS", "HMS"},
                    TimeRow{"zero", {0, 0, 0}, nullptr, "00:00:00"},
                    TimeRow{"beyondTheRange", {255, 100, 99}, nullptr, "255:100:99"}),
    [](const auto& row) { return std::string(row.param.why); });

struct DateRow {
    const char* why;
    PackedDate date;
    const char* pattern;
    const char* text;
};
class FormatDate : public testing::TestWithParam<DateRow> {};
TEST_P(FormatDate, FillsInThePattern) {
    std::array<char, 64> text;
    text.fill('#');
    EXPECT_EQ(threadfunc::formatDate(text.data(), GetParam().date, GetParam().pattern), 1);
    EXPECT_STREQ(text.data(), GetParam().text);
    EXPECT_EQ(text[std::string(GetParam().text).size() + 1], '#');
    EXPECT_EQ(threadfunc::dateText(GetParam().date, GetParam().pattern), GetParam().text);
    EXPECT_EQ(threadfunc::formatDate(nullptr, GetParam().date, GetParam().pattern), 0);
}
INSTANTIATE_TEST_SUITE_P(Rows, FormatDate,
                         testing::Values(DateRow{"dayMonthYear", {3, 4, 2026, 5}, "d/m/y", "03/04/26"},
                                         DateRow{"centuryAndYear", {3, 4, 2026, 5}, "cy", "2026"},
                                         DateRow{"nullIsThePatternOfTimesKept", {3, 4, 2026, 5}, nullptr, "h:04:s"},
                                         DateRow{"nullInDecember", {3, 12, 2026, 5}, nullptr, "h:12:s"},
                                         DateRow{"empty", {3, 4, 2026, 5}, "", ""},
                                         DateRow{"othersStandForThemselves", {3, 4, 2026, 5}, "%d hs D", "%03 hs D"},
                                         DateRow{"firstOfACentury", {31, 12, 2000, 0}, "d.m.cy", "31.12.2000"},
                                         DateRow{"firstCentury", {1, 1, 7, 0}, "cy", "0007"},
                                         DateRow{"largestYear", {255, 255, 65535, 0}, "d m c y", "255 255 655 35"}),
                         [](const auto& row) { return std::string(row.param.why); });

}  // namespace
