#include "sim/Pace.h"

#include <gtest/gtest.h>

#include <numeric>
#include <string>

namespace {

using sim::Duration;
using sim::Frame;

constexpr sim::Pace kTenBytesPerBlock{1'000'000,   10,          Duration(0), Duration(2000),
                                      Duration(3), Duration(4), Duration(5)};

TEST(SimPace, BlockTakesItsFramesTheAnswerAndTheWrite) {
    sim::Pace pace;
    pace.bitsPerSecond = 131'000;  // one frame a millisecond
    pace.writeTime = Duration(500);
    EXPECT_EQ(sim::blockTime(pace, 8).count(), 2500);
    EXPECT_EQ(sim::blockTime(pace, 9).count(), 3500);
    EXPECT_EQ(sim::blockTime(pace, 256).count(), 33'500);
}

TEST(SimPace, SixtyFourKibibytesTakeTenSeconds) {
    const auto frames = sim::undisturbedUpload({}, 65536);
    Duration total{0};
    for (const Frame& frame : frames) total += frame.after;
    EXPECT_GT(total, std::chrono::milliseconds(9500));
    EXPECT_LT(total, std::chrono::milliseconds(10500));
}

TEST(SimPace, GoesThroughAllStatesInOrder) {
    const auto frames = sim::undisturbedUpload(kTenBytesPerBlock, 20);
    const auto block = Duration(3 * 131);
    EXPECT_EQ(frames, (std::vector<Frame>{{2, 0, Duration(0)},
                                          {3, 0, Duration(2000)},
                                          {4, 0, Duration(3)},
                                          {5, 0, Duration(4)},
                                          {5, 50, block},
                                          {5, 100, block},
                                          {6, 100, Duration(5)}}));
}

TEST(SimPace, ReportsEachPercentageOnceHoweverManyBlocks) {
    const auto frames = sim::undisturbedUpload(kTenBytesPerBlock, 1'000'000);
    ASSERT_EQ(frames.size(), 3U + 101 + 1);
    for (std::size_t percent = 0; percent <= 100; ++percent) EXPECT_EQ(frames[3 + percent].progress, percent);
}

TEST(SimPace, LastBlockMayBeShort) {
    const auto frames = sim::undisturbedUpload(kTenBytesPerBlock, 11);
    ASSERT_EQ(frames.size(), 7U);
    EXPECT_EQ(frames[4], (Frame{5, 90, Duration(3 * 131)}));
    EXPECT_EQ(frames[5], (Frame{5, 100, Duration(2 * 131)}));
}

TEST(SimPace, NothingToProgramIsProgrammedAtOnce) {
    const auto frames = sim::undisturbedUpload(kTenBytesPerBlock, 0);
    ASSERT_EQ(frames.size(), 6U);
    EXPECT_EQ(frames[4], (Frame{5, 100, Duration(0)}));
}

TEST(SimPace, SumOfTheStepsIsTheTimeOfAllBlocks) {
    sim::Pace pace;
    pace.blockBytes = 7;
    const auto frames = sim::undisturbedUpload(pace, 7 * 1000);
    Duration programming{0};
    for (const Frame& frame : frames)
        if (frame.state == 5 && frame.progress > 0) programming += frame.after;
    EXPECT_EQ(programming, sim::blockTime(pace, 7) * 1000);
}

TEST(SimPace, HoldsAtTheLargestFigures) {
    sim::Pace slowest;
    slowest.bitsPerSecond = 1000;
    slowest.blockBytes = 1;
    slowest.writeTime = std::chrono::seconds(10);
    for (const Frame& frame : sim::undisturbedUpload(slowest, 16 * 1024 * 1024)) EXPECT_GE(frame.after.count(), 0);
}

}  // namespace
