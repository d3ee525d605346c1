#include "sw_drv/RTkernel/linux/TimerList.h"

#include <gtest/gtest.h>

#include <climits>
#include <deque>
#include <string>
#include <vector>

using threadfunc::dueTime;
using threadfunc::kLongestDelayMs;
using threadfunc::TimerEntry;
using threadfunc::TimerList;
using threadfunc::timeUntil;

namespace {

using Dues = std::vector<std::int32_t>;

/// A list with entries due at the given times, inserted in that order.
struct Filled {
    explicit Filled(const Dues& dues) {
        for (const std::int32_t due : dues)
            wentToFront.push_back(list.insert(entries.emplace_back(TimerEntry{nullptr, due})));
    }

    /// Positions, in order of insertion, of the entries due at `now`.
    std::vector<int> popped(std::int32_t now) {
        std::vector<int> order;
        for (const TimerEntry* entry : list.popDue(now))
            for (std::size_t i = 0; i < entries.size(); ++i)
                if (entry == &entries[i]) order.push_back(static_cast<int>(i));
        return order;
    }

    std::deque<TimerEntry> entries;  // stay where they are
    TimerList list;
    std::vector<bool> wentToFront;
};

struct OrderRow {
    const char* why;
    Dues dues;
    std::int32_t now;
    std::vector<int> popped;
    std::vector<bool> wentToFront;
};
class TimerListOrder : public testing::TestWithParam<OrderRow> {};
TEST_P(TimerListOrder, IsByDueTimeAndTheYoungerFirst) {
    Filled filled(GetParam().dues);
    EXPECT_EQ(filled.wentToFront, GetParam().wentToFront);
    EXPECT_EQ(filled.popped(GetParam().now), GetParam().popped);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, TimerListOrder,
    testing::Values(OrderRow{"empty", {}, 100, {}, {}},  //
                    OrderRow{"dueBeforeNow", {99}, 100, {0}, {true}}, OrderRow{"dueNow", {100}, 100, {0}, {true}},
                    OrderRow{"dueNextMillisecond", {101}, 100, {}, {true}},
                    OrderRow{"ascending", {1, 2, 3}, 100, {0, 1, 2}, {true, false, false}},
                    OrderRow{"descending", {3, 2, 1}, 100, {2, 1, 0}, {true, true, true}},
                    OrderRow{"between", {1, 9, 5}, 100, {0, 2, 1}, {true, false, false}},
                    OrderRow{"sameTimeInReverseOrder", {5, 5, 5}, 100, {2, 1, 0}, {true, true, true}},
                    OrderRow{"sameTimeBehindAnEarlierOne", {1, 5, 5}, 100, {0, 2, 1}, {true, false, false}},
                    OrderRow{"onlyThoseThatAreDue", {50, 150, 100, 101}, 100, {0, 2}, {true, false, false, false}},
                    OrderRow{"negativeTimes", {-5, -7, 0}, 0, {1, 0, 2}, {true, true, false}},
                    OrderRow{"acrossTheWrap",
                             {INT_MAX - 1, INT_MIN + 1, INT_MAX, INT_MIN},
                             INT_MIN + 1,
                             {0, 2, 3, 1},
                             {true, false, false, false}},
                    OrderRow{"notYetAfterTheWrap", {INT_MIN + 1, INT_MAX}, INT_MAX, {1}, {true, true}},
                    OrderRow{"overdueSinceBeforeTheWrap", {INT_MAX}, INT_MIN + 1000, {0}, {true}},
                    OrderRow{"longestDelayIsNotDueNow", {dueTime(7, kLongestDelayMs)}, 7, {}, {true}},
                    OrderRow{"longestDelayGoesBehindOneThatIsADayLate",
                             {-24 * 60 * 60 * 1000 + 1, dueTime(0, kLongestDelayMs)},
                             0,
                             {0},
                             {true, false}}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(TimerList, PopsEachEntryOnceAndLeavesTheOthers) {
    Filled filled({10, 20, 30});
    EXPECT_EQ(filled.popped(20), (std::vector{0, 1}));
    EXPECT_EQ(filled.popped(20), std::vector<int>{});
    EXPECT_EQ(filled.popped(30), std::vector{2});
}

TEST(TimerList, RemoveTakesOutThatEntryOnly) {
    Filled filled({10, 10, 20});
    filled.list.remove(filled.entries[1]);
    filled.list.remove(filled.entries[1]);  // not listed: nothing happens
    EXPECT_EQ(filled.popped(100), (std::vector{0, 2}));
}

TEST(TimerList, EntryGoesToTheFrontOfAListThatBecameEmpty) {
    Filled filled({10});
    filled.list.remove(filled.entries[0]);
    filled.entries[0].due = 99;
    EXPECT_TRUE(filled.list.insert(filled.entries[0]));
}

struct TimeoutRow {
    const char* why;
    Dues dues;
    std::int32_t now;
    std::int32_t timeoutMs;
};
class TimerListTimeout : public testing::TestWithParam<TimeoutRow> {};
TEST_P(TimerListTimeout, IsUntilTheFirstIsDueAndAtMost200) {
    const Filled filled(GetParam().dues);
    EXPECT_EQ(filled.list.nextTimeoutMs(GetParam().now), GetParam().timeoutMs);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, TimerListTimeout,
    testing::Values(TimeoutRow{"nothingArmed", {}, 0, 200}, TimeoutRow{"one", {150}, 100, 50},
                    TimeoutRow{"theFirst", {190, 150, 170}, 100, 50}, TimeoutRow{"dueNow", {100}, 100, 0},
                    TimeoutRow{"overdueIsNotNegative", {99}, 100, 0}, TimeoutRow{"justBelowTheLimit", {299}, 100, 199},
                    TimeoutRow{"theLimit", {300}, 100, 200}, TimeoutRow{"beyondTheLimit", {301}, 100, 200},
                    TimeoutRow{"longestDelay", {dueTime(0, kLongestDelayMs)}, 0, 200},
                    TimeoutRow{"acrossTheWrap", {INT_MIN + 9}, INT_MAX, 10},
                    TimeoutRow{"overdueAcrossTheWrap", {INT_MAX}, INT_MIN, 0}),
    [](const auto& row) { return std::string(row.param.why); });

struct DueRow {
    const char* why;
    std::int32_t now;
    std::int32_t ms;
    std::int32_t due;
};
class TimerDueTime : public testing::TestWithParam<DueRow> {};
TEST_P(TimerDueTime, IsNowPlusTheDelay) { EXPECT_EQ(dueTime(GetParam().now, GetParam().ms), GetParam().due); }
INSTANTIATE_TEST_SUITE_P(
    Rows, TimerDueTime,
    testing::Values(DueRow{"ordinary", 1000, 50, 1050}, DueRow{"zero", 1000, 0, 1000},
                    DueRow{"negativeIsZero", 1000, -1, 1000}, DueRow{"mostNegativeIsZero", 1000, INT_MIN, 1000},
                    DueRow{"longest", 0, 2061083647, 2061083647}, DueRow{"beyondTheLongest", 0, 2061083648, 2061083647},
                    DueRow{"largest", 1, INT_MAX, 2061083648}, DueRow{"upToTheWrap", INT_MAX - 1, 1, INT_MAX},
                    DueRow{"acrossTheWrap", INT_MAX, 1, INT_MIN}, DueRow{"fromNegative", -10, 30, 20}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(TimerDueTime, IsToldApartFromNowByTheDifference) {
    EXPECT_EQ(timeUntil(100, 90), 10);
    EXPECT_EQ(timeUntil(90, 100), -10);
    EXPECT_EQ(timeUntil(INT_MIN, INT_MAX), 1);
    EXPECT_EQ(timeUntil(INT_MAX, INT_MIN), -1);
}

}  // namespace
