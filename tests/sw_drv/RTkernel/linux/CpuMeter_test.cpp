#include "sw_drv/RTkernel/linux/CpuMeter.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <string>

#include "sw_drv/RTkernel/linux/Thread.h"
#include "tests/support/TempFolder.h"

using threadfunc::CpuMeter;

namespace {

double secondsUsed(bool user) {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const timeval& time = user ? usage.ru_utime : usage.ru_stime;
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// Spends processor time both in the program and in the system.
void workFor(double seconds) {
    const double user = secondsUsed(true);
    const double system = secondsUsed(false);
    while (secondsUsed(true) < user + seconds || secondsUsed(false) < system + seconds)
        testsupport::readFile("/proc/self/stat");
}

TEST(CpuMeter, IsZeroUntilStarted) {
    const CpuMeter meter;
    for (const int kind : {0, 1, 2}) EXPECT_EQ(meter.seconds(kind), 0.0);
    for (const int kind : {0, 1, 2}) EXPECT_EQ(meter.milliseconds(kind), 0);
}

struct KindRow {
    const char* why;
    int kind;
};
class CpuMeterKind : public testing::TestWithParam<KindRow> {};
TEST_P(CpuMeterKind, ThatIsUnknownGivesMinusOne) {
    CpuMeter meter;
    EXPECT_EQ(meter.seconds(GetParam().kind), -1.0);
    meter.start();
    EXPECT_EQ(meter.seconds(GetParam().kind), -1.0);
    meter.stop();
    EXPECT_EQ(meter.seconds(GetParam().kind), -1.0);
    EXPECT_EQ(meter.milliseconds(GetParam().kind), -1000);
}
INSTANTIATE_TEST_SUITE_P(Rows, CpuMeterKind, testing::Values(KindRow{"firstBeyond", 3}, KindRow{"negative", -1}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(CpuMeter, MeasuresUserAndSystemTimeAndTheirSum) {
    CpuMeter meter;
    const double user = secondsUsed(true);
    const double system = secondsUsed(false);
    meter.start();
    const double userAtStart = secondsUsed(true);
    const double systemAtStart = secondsUsed(false);
    workFor(0.02);
    const double userAtStop = secondsUsed(true);
    const double systemAtStop = secondsUsed(false);
    meter.stop();
    EXPECT_GE(meter.seconds(0), userAtStop - userAtStart - 1e-6);
    EXPECT_LE(meter.seconds(0), secondsUsed(true) - user + 1e-6);
    EXPECT_GE(meter.seconds(1), systemAtStop - systemAtStart - 1e-6);
    EXPECT_LE(meter.seconds(1), secondsUsed(false) - system + 1e-6);
    EXPECT_NEAR(meter.seconds(2), meter.seconds(0) + meter.seconds(1), 1e-12);
    for (const int kind : {0, 1, 2}) EXPECT_EQ(meter.milliseconds(kind), static_cast<int>(meter.seconds(kind) * 1000));
    EXPECT_GE(meter.milliseconds(0), 19);
}

TEST(CpuMeter, GoesOnWhileRunningAndStandsStillAfterTheStop) {
    CpuMeter meter;
    meter.start();
    workFor(0.004);
    const double first = meter.seconds(2);
    EXPECT_GT(first, 0);
    workFor(0.004);
    EXPECT_GT(meter.seconds(2), first);
    meter.stop();
    const double stopped = meter.seconds(2);
    workFor(0.004);
    EXPECT_EQ(meter.seconds(2), stopped);
}

TEST(CpuMeter, StartsOverAtZero) {
    CpuMeter meter;
    meter.start();
    workFor(0.01);
    const double first = meter.seconds(2);
    meter.stop();
    meter.start();
    EXPECT_LT(meter.seconds(2), first);
}

TEST(CpuMeter, MeasuresWorkAndNotTime) {
    CpuMeter meter;
    meter.start();
    threadfunc::sleep(120);
    EXPECT_LT(meter.seconds(2), 0.1);
}

}  // namespace
