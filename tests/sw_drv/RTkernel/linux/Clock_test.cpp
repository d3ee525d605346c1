#include "sw_drv/RTkernel/linux/Clock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "sw_drv/RTkernel/linux/Stopwatch.h"
#include "sw_drv/RTkernel/linux/SystemClock.h"
#include "sw_drv/RTkernel/linux/Thread.h"
#include "tests/support/Process.h"
#include "tests/support/TempFolder.h"
#include "tests/sw_drv/RTkernel/linux/KitTest.h"

using kittest::require;

namespace {

timespec sinceStart(std::int64_t seconds, long nanoseconds) {
    timespec time{};
    time.tv_sec = static_cast<std::time_t>(seconds);
    time.tv_nsec = nanoseconds;
    return time;
}

struct SinceRow {
    const char* why;
    timespec base;
    timespec now;
    std::int32_t milliseconds;
};
class MillisecondsSince : public testing::TestWithParam<SinceRow> {};
TEST_P(MillisecondsSince, TruncatesAndWraps) {
    EXPECT_EQ(threadfunc::millisecondsSince(GetParam().base, GetParam().now), GetParam().milliseconds);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, MillisecondsSince,
    testing::Values(SinceRow{"same", sinceStart(5, 5), sinceStart(5, 5), 0},
                    SinceRow{"seconds", sinceStart(5, 0), sinceStart(8, 0), 3000},
                    SinceRow{"nanoseconds", sinceStart(5, 0), sinceStart(5, 7'000'000), 7},
                    SinceRow{"cutsDown", sinceStart(5, 0), sinceStart(5, 1'999'999), 1},
                    SinceRow{"justBelowOne", sinceStart(5, 0), sinceStart(5, 999'999), 0},
                    // The nanoseconds are cut apart from the seconds, towards zero: 1000 - 0, not 999.
                    SinceRow{"negativeNanosecondsAreCutTowardsZero", sinceStart(5, 1'999'999), sinceStart(6, 1'000'000),
                             1000},
                    SinceRow{"negativeNanoseconds", sinceStart(5, 900'000'000), sinceStart(7, 100'000'000), 1200},
                    SinceRow{"before", sinceStart(5, 0), sinceStart(3, 0), -2000},
                    SinceRow{"lastBeforeTheWrap", sinceStart(0, 0), sinceStart(2147483, 647'000'000), INT_MAX},
                    SinceRow{"firstAfterTheWrap", sinceStart(0, 0), sinceStart(2147483, 648'000'000), INT_MIN},
                    SinceRow{"afterTwoWraps", sinceStart(0, 0), sinceStart(4294967, 297'000'000), 1},
                    SinceRow{"afterYears", sinceStart(0, 0), sinceStart(4294967LL * 300, 0), -88800}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(MonotonicMilliseconds, RunsWithTheMonotonicClock) {
    const std::int32_t before = threadfunc::monotonicMilliseconds();
    threadfunc::sleep(50);
    const std::int32_t passed = threadfunc::monotonicMilliseconds() - before;
    EXPECT_GE(passed, 48);
    EXPECT_LT(passed, 3000);
}

TEST(MonotonicMilliseconds, StartOfTheClockReturnsZero) { EXPECT_EQ(threadfunc::startMonotonicClock(), 0); }

class FreshClock : public kittest::FreshProcess {};

TEST_F(FreshClock, CountsMillisecondsFromTheFirstReading) {
    const auto read = [] {
        threadfunc::sleep(80);
        const threadfunc::Stopwatch sinceThen(true);
        const std::int32_t first = threadfunc::monotonicMilliseconds();
        require(first <= sinceThen.elapsedMs() + 2);  // both cut to milliseconds
        threadfunc::sleep(80);
        threadfunc::startMonotonicClock();  // set already: changes nothing
        require(threadfunc::monotonicMilliseconds() >= 78);
        testsupport::leave(0);
    };
    EXPECT_EXIT(read(), testing::ExitedWithCode(0), "^$");
}

TEST_F(FreshClock, CountsMillisecondsFromItsStart) {
    const auto read = [] {
        threadfunc::startMonotonicClock();
        threadfunc::sleep(80);
        require(threadfunc::monotonicMilliseconds() >= 78);
        testsupport::leave(0);
    };
    EXPECT_EXIT(read(), testing::ExitedWithCode(0), "^$");
}

TEST_F(FreshClock, CountsSecondsFromTheStartOfTheProgramAndNotFromTheFirstReading) {
    const auto read = [] {
        threadfunc::sleep(100);
        const double seconds = threadfunc::secondsSinceStart();
        require(seconds >= 0.1 && seconds < 30);
        testsupport::leave(0);
    };
    EXPECT_EXIT(read(), testing::ExitedWithCode(0), "^$");
}

TEST(SecondsSinceStart, RunsWithMicrosecondResolution) {
    const double before = threadfunc::secondsSinceStart();
    threadfunc::sleep(50);
    const double passed = threadfunc::secondsSinceStart() - before;
    EXPECT_GE(passed, 0.05 - 2e-6);
    EXPECT_LT(passed, 3.0);
    EXPECT_GT(before, 0);
    EXPECT_NEAR(before * 1e6, std::round(before * 1e6), 1e-3);
}

TEST(WallClock, IsTheSystems) {
    timeval before{};
    timeval after{};
    gettimeofday(&before, nullptr);
    const timeval now = threadfunc::wallClockNow();
    gettimeofday(&after, nullptr);
    EXPECT_FALSE(timercmp(&now, &before, <));
    EXPECT_FALSE(timercmp(&now, &after, >));
}

// --- Simulated time ----------------------------------------------------------------------------------------------

bool same(const timeval& a, const timeval& b) { return a.tv_sec == b.tv_sec && a.tv_usec == b.tv_usec; }

/// Simulated time stays for the rest of the process, so each test has one of its own.
class SimulatedTime : public kittest::EndingProcess {};

TEST_F(SimulatedTime, StartsFromTheSystemsTimeAndStandsStill) {
    const auto advance = [] {
        const timeval before = threadfunc::wallClockNow();
        const std::time_t seconds = threadfunc::advanceSimulatedTime(100.0);
        const timeval simulated = threadfunc::wallClockNow();
        require(seconds == simulated.tv_sec);
        require(seconds - before.tv_sec >= 100 && seconds - before.tv_sec < 110);
        threadfunc::sleep(30);
        require(same(threadfunc::wallClockNow(), simulated));
        testsupport::leave(0);
    };
    EXPECT_EXIT(advance(), testing::ExitedWithCode(0), "^$");
}

TEST_F(SimulatedTime, MovesBySecondsAndMicrosecondsFromWhereItStands) {
    const auto advance = [] {
        threadfunc::advanceSimulatedTime(0);
        const timeval base = threadfunc::wallClockNow();
        const auto microsecondsFromBase = [&base] {
            const timeval now = threadfunc::wallClockNow();
            return (now.tv_sec - base.tv_sec) * 1'000'000LL + now.tv_usec - base.tv_usec;
        };
        threadfunc::advanceSimulatedTime(2.5);
        require(microsecondsFromBase() == 2'500'000);
        threadfunc::advanceSimulatedTime(0.75);
        require(microsecondsFromBase() == 3'250'000);
        threadfunc::advanceSimulatedTime(-3.25);
        require(microsecondsFromBase() == 0);
        require(threadfunc::advanceSimulatedTime(-0.5) == threadfunc::wallClockNow().tv_sec);
        require(microsecondsFromBase() == -500'000);
        require(threadfunc::wallClockNow().tv_usec >= 0 && threadfunc::wallClockNow().tv_usec < 1'000'000);
        testsupport::leave(0);
    };
    EXPECT_EXIT(advance(), testing::ExitedWithCode(0), "^$");
}

TEST_F(SimulatedTime, HoldsForStopwatchesToo) {
    const auto measure = [] {
        threadfunc::advanceSimulatedTime(0);
        threadfunc::Stopwatch watch(true);
        threadfunc::sleep(30);
        require(watch.elapsed() == 0);
        threadfunc::advanceSimulatedTime(12.25);
        require(std::fabs(watch.elapsed() - 12.25) < 1e-6);
        require(std::abs(watch.elapsedMs() - 12250) <= 1);
        testsupport::leave(0);
    };
    EXPECT_EXIT(measure(), testing::ExitedWithCode(0), "^$");
}

// The start of the program is taken on the monotonic clock all the same; kept.
TEST_F(SimulatedTime, IsCountedFromTheMonotonicStartOfTheProgram) {
    const auto compare = [] {
        timespec monotonic{};
        clock_gettime(CLOCK_MONOTONIC, &monotonic);
        const double startOnMonotonic = static_cast<double>(monotonic.tv_sec) +
                                        static_cast<double>(monotonic.tv_nsec) / 1e9 - threadfunc::secondsSinceStart();
        threadfunc::advanceSimulatedTime(5);
        const timeval simulated = threadfunc::wallClockNow();
        const double expected =
            static_cast<double>(simulated.tv_sec) + static_cast<double>(simulated.tv_usec) / 1e6 - startOnMonotonic;
        require(std::fabs(threadfunc::secondsSinceStart() - expected) < 0.5);
        testsupport::leave(0);
    };
    EXPECT_EXIT(compare(), testing::ExitedWithCode(0), "^$");
}

// Differences are taken in 32 bits: after 2038 they go around the corner.
TEST_F(SimulatedTime, Beyond32BitsGoesAroundTheCorner) {
    const auto jump = [] {
        threadfunc::advanceSimulatedTime(0);
        const double before = threadfunc::secondsSinceStart();
        threadfunc::advanceSimulatedTime(4294967296.0);
        require(threadfunc::secondsSinceStart() == before);
        threadfunc::advanceSimulatedTime(1e300);
        threadfunc::advanceSimulatedTime(1e300);
        threadfunc::advanceSimulatedTime(-1e300);
        threadfunc::advanceSimulatedTime(NAN);
        static_cast<void>(threadfunc::secondsSinceStart());
        testsupport::leave(0);
    };
    EXPECT_EXIT(jump(), testing::ExitedWithCode(0), "^$");
}

TEST_F(SimulatedTime, LeavesTheMillisecondClockOfTheTimersAlone) {
    const auto advance = [] {
        const std::int32_t before = threadfunc::monotonicMilliseconds();
        threadfunc::advanceSimulatedTime(3600);
        threadfunc::sleep(50);
        const std::int32_t passed = threadfunc::monotonicMilliseconds() - before;
        require(passed >= 48 && passed < 60'000);
        testsupport::leave(0);
    };
    EXPECT_EXIT(advance(), testing::ExitedWithCode(0), "^$");
}

TEST_F(SimulatedTime, IsWhatTheLocalTimeAndDateShow) {
    const auto show = [] {
        const testsupport::ScopedEnvironment zone("TZ", "UTC0");
        tzset();
        const timeval now = threadfunc::wallClockNow();
        threadfunc::advanceSimulatedTime(static_cast<double>(1775221507 - now.tv_sec) + 0.5);  // 2026-04-03 13:05:07
        const long long moved = threadfunc::wallClockNow().tv_sec - 1775221507LL;
        require(moved >= 0 && moved < 30);
        threadfunc::advanceSimulatedTime(-static_cast<double>(moved));
        const threadfunc::PackedTime time = threadfunc::packedLocalTime();
        const threadfunc::PackedDate date = threadfunc::packedLocalDate();
        require(time.hour == 13 && time.minute == 5 && time.second == 7);
        require(date.day == 3 && date.month == 4 && date.year == 2026 && date.weekday == 5);
        testsupport::leave(0);
    };
    EXPECT_EXIT(show(), testing::ExitedWithCode(0), "^$");
}

class SimulatedTimeOfThreads : public kittest::FreshProcess {};

TEST_F(SimulatedTimeOfThreads, MayBeReadWhileItMoves) {
    const auto read = [] {
        threadfunc::advanceSimulatedTime(0);
        const timeval first = threadfunc::wallClockNow();
        std::vector<std::thread> readers;
        for (int i = 0; i < 2; ++i)
            readers.emplace_back([first] {
                for (int n = 0; n < 2000; ++n) {
                    // Whole seconds are added: torn readings would show other microseconds.
                    require(threadfunc::wallClockNow().tv_usec == first.tv_usec);
                    static_cast<void>(threadfunc::secondsSinceStart());
                }
            });
        for (int n = 0; n < 2000; ++n) threadfunc::advanceSimulatedTime(1);
        for (std::thread& reader : readers) reader.join();
        require(threadfunc::wallClockNow().tv_sec == first.tv_sec + 2000);
        testsupport::leave(0);
    };
    EXPECT_EXIT(read(), testing::ExitedWithCode(0), "^$");
}

}  // namespace
