/// Memory and processor time as the system states them, up to figures that no test machine has.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "sw_drv/RTkernel/linux/CpuMeter.h"
#include "sw_drv/RTkernel/linux/ProcessInfo.h"
#include "tests/sw_drv/RTkernel/linux/InjectedCalls.h"

namespace {

/// The system states this usage for the life of the object, in which nothing may ask for another than the process's.
class Stated {
public:
    explicit Stated(const rusage& usage) {
        injected::usage = &usage;
        injected::otherUsages = 0;
    }
    ~Stated() {
        injected::usage = nullptr;
        EXPECT_EQ(injected::otherUsages, 0);
    }
    Stated(const Stated&) = delete;
    Stated& operator=(const Stated&) = delete;
};

struct CurrentRow {
    const char* why;
    const char* statm;
    long pageBytes;
    std::uint32_t bytes;
};
class CurrentMemoryUse : public testing::TestWithParam<CurrentRow> {};
TEST_P(CurrentMemoryUse, IsTheSecondNumberInPages) {
    injected::fileText = GetParam().statm;
    injected::pageBytes = GetParam().pageBytes;
    const std::uint32_t bytes = threadfunc::currentMemoryUse();
    injected::fileText = nullptr;
    injected::pageBytes = 0;
    EXPECT_EQ(bytes, GetParam().bytes);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, CurrentMemoryUse,
    testing::Values(CurrentRow{"ordinary", "1000 3 2 1 0 5 0\n", 4096, 12288},
                    CurrentRow{"largePages", "1000 3 2 1 0 5 0\n", 65536, 196608},
                    CurrentRow{"totalIsSkippedWhateverItIs", "x 3", 4096, 12288}, CurrentRow{"empty", "", 4096, 0},
                    CurrentRow{"totalAlone", "1000", 4096, 0}, CurrentRow{"noNumber", "1000 x", 4096, 0},
                    CurrentRow{"justBelow4GiB", "1048575 1048575 1", 4096, 4294963200U},
                    CurrentRow{"endsAtTheLargestNumberOf32Bits", "1048576 1048576 1", 4096, 4294967295U},
                    CurrentRow{"farBeyond", "2000000000 2000000000 1", 65536, 4294967295U}),
    [](const auto& row) { return std::string(row.param.why); });

struct PeakRow {
    const char* why;
    long kilobytes;
    std::uint32_t bytes;
};
class PeakMemoryUse : public testing::TestWithParam<PeakRow> {};
TEST_P(PeakMemoryUse, IsGivenInBytes) {
    rusage stated{};
    stated.ru_maxrss = GetParam().kilobytes;
    const Stated usage(stated);
    const std::uint32_t bytes = threadfunc::peakMemoryUse();
    EXPECT_EQ(bytes, GetParam().bytes);
}
INSTANTIATE_TEST_SUITE_P(Rows, PeakMemoryUse,
                         testing::Values(PeakRow{"kilobyte", 1, 1024}, PeakRow{"justBelow4GiB", 4194303, 4294966272U},
                                         PeakRow{"endsAtTheLargestNumberOf32Bits", 4194304, 4294967295U},
                                         PeakRow{"farBeyond", 2147483647, 4294967295U}),
                         [](const auto& row) { return std::string(row.param.why); });

// --- Processor time ----------------------------------------------------------------------------------------------

rusage usageOf(int userSeconds, int userMicroseconds, int systemSeconds, int systemMicroseconds) {
    rusage usage{};
    usage.ru_utime.tv_sec = userSeconds;
    usage.ru_utime.tv_usec = userMicroseconds;
    usage.ru_stime.tv_sec = systemSeconds;
    usage.ru_stime.tv_usec = systemMicroseconds;
    return usage;
}

struct CpuRow {
    const char* why;
    rusage start;
    rusage end;
    double seconds[3];  // user, system, both
    int milliseconds[3];
};
class CpuMeterFigures : public testing::TestWithParam<CpuRow> {
protected:
    static void expectFigures(const threadfunc::CpuMeter& meter) {
        for (const int kind : {0, 1, 2}) {
            EXPECT_NEAR(meter.seconds(kind), GetParam().seconds[kind], 1e-6) << kind;
            EXPECT_EQ(meter.milliseconds(kind), GetParam().milliseconds[kind]) << kind;
        }
        EXPECT_EQ(meter.seconds(3), -1.0);
    }
};
TEST_P(CpuMeterFigures, AreTheEndLessTheStart) {
    threadfunc::CpuMeter meter;
    const rusage later = usageOf(4000, 0, 4000, 0);
    {
        const Stated start(GetParam().start);
        meter.start();
    }
    {
        const Stated end(GetParam().end);
        expectFigures(meter);  // while running
        meter.stop();
    }
    const Stated afterwards(later);
    expectFigures(meter);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, CpuMeterFigures,
    testing::Values(CpuRow{"nothing", usageOf(1, 2, 3, 4), usageOf(1, 2, 3, 4), {0, 0, 0}, {0, 0, 0}},
                    CpuRow{
                        "user", usageOf(1, 250'000, 3, 0), usageOf(3, 750'000, 3, 0), {2.5, 0, 2.5}, {2500, 0, 2500}},
                    CpuRow{"system", usageOf(1, 0, 3, 0), usageOf(1, 0, 4, 500'000), {0, 1.5, 1.5}, {0, 1500, 1500}},
                    CpuRow{"acrossASecond",
                           usageOf(1, 750'000, 3, 500'000),
                           usageOf(2, 250'000, 4, 0),
                           {0.5, 0.5, 1},
                           {500, 500, 1000}},
                    CpuRow{"millisecondsAreCut",
                           usageOf(0, 0, 0, 0),
                           usageOf(0, 1'999, 0, 2'500),
                           {0.001999, 0.0025, 0.004499},
                           {1, 2, 4}},
                    CpuRow{"millisecondsEndWithTheRangeOfInt",
                           usageOf(0, 0, 0, 0),
                           usageOf(2'147'483, 0, 2'147'484, 0),
                           {2147483, 2147484, 4294967},
                           {2147483000, 2147483647, 2147483647}}),
    [](const auto& row) { return std::string(row.param.why); });

}  // namespace
