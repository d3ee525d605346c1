#include "sw_drv/RTkernel/linux/Stopwatch.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>

#include "sw_drv/RTkernel/linux/Clock.h"
#include "sw_drv/RTkernel/linux/Thread.h"
#include "tests/support/Process.h"
#include "tests/sw_drv/RTkernel/linux/KitTest.h"

using kittest::require;
using threadfunc::Stopwatch;

namespace {

TEST(Stopwatch, IsZeroUntilStarted) {
    const Stopwatch watch(false);
    threadfunc::sleep(10);
    EXPECT_EQ(watch.elapsed(), 0.0);
    EXPECT_EQ(watch.elapsedMs(), 0);
}

TEST(Stopwatch, StartedByItsConstructionRuns) {
    const Stopwatch watch(true);
    threadfunc::sleep(50);
    const double first = watch.elapsed();
    EXPECT_GE(first, 0.05 - 2e-6);
    EXPECT_LT(first, 3.0);
    threadfunc::sleep(5);
    EXPECT_GT(watch.elapsed(), first);
    EXPECT_GE(watch.elapsedMs(), 54);
}

TEST(Stopwatch, StandsStillAfterTheStop) {
    Stopwatch watch(false);
    watch.start();
    threadfunc::sleep(30);
    watch.stop();
    const double stopped = watch.elapsed();
    threadfunc::sleep(30);
    EXPECT_EQ(watch.elapsed(), stopped);
    EXPECT_EQ(watch.elapsedMs(), static_cast<int>(stopped * 1000));
    EXPECT_GE(stopped, 0.03 - 2e-6);
    EXPECT_LT(stopped, 3.0);
}

TEST(Stopwatch, StartsOverAtZero) {
    Stopwatch watch(true);
    threadfunc::sleep(500);
    watch.start();
    EXPECT_LT(watch.elapsedMs(), 500);
    watch.stop();
    watch.start();
    threadfunc::sleep(20);
    EXPECT_GE(watch.elapsedMs(), 19);
}

TEST(Stopwatch, StoppedWithoutAStartMeasuresFromTheStartOfTheProgram) {
    Stopwatch watch(false);
    const double before = threadfunc::secondsSinceStart();
    watch.stop();
    EXPECT_GE(watch.elapsed(), before);
}

class StopwatchRange : public kittest::EndingProcess {};

TEST_F(StopwatchRange, OfMillisecondsEndsWithThatOfInt) {
    const auto measure = [] {
        threadfunc::advanceSimulatedTime(0);
        const Stopwatch watch(true);
        threadfunc::advanceSimulatedTime(2147483.0);
        require(watch.elapsedMs() > 2147482000);
        threadfunc::advanceSimulatedTime(1);
        require(watch.elapsedMs() == INT_MAX);
        threadfunc::advanceSimulatedTime(-2147483.0 * 2);
        require(watch.elapsedMs() < -2147481000);
        threadfunc::advanceSimulatedTime(-10);
        require(watch.elapsedMs() == INT_MIN);
        testsupport::leave(0);
    };
    EXPECT_EXIT(measure(), testing::ExitedWithCode(0), "^$");
}

}  // namespace
