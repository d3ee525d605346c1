#include "sim/Outbox.h"

#include <gtest/gtest.h>

#include "tests/sim/HexText.h"

namespace {

using namespace std::chrono_literals;
using simtest::bytes;
using simtest::hex;

constexpr sim::Instant kAtFirst{};

std::string takeAll(sim::Outbox& outbox, sim::Instant now) {
    const auto ready = outbox.ready(now);
    std::string text = hex(ready);
    outbox.written(ready.size(), now);
    return text;
}

TEST(SimOutbox, JoinsWhatWaits) {
    sim::Outbox outbox({});
    outbox.put(bytes("01 02"), kAtFirst);
    outbox.put(bytes("03"), kAtFirst);
    EXPECT_EQ(outbox.size(), 3U);
    EXPECT_EQ(takeAll(outbox, kAtFirst), "01 02 03");
    EXPECT_TRUE(outbox.empty());
    EXPECT_EQ(outbox.size(), 0U);
    EXPECT_EQ(outbox.due(), std::nullopt);
}

TEST(SimOutbox, GoesOnBehindAPartialWrite) {
    sim::Outbox outbox({});
    outbox.put(bytes("01 02 03"), kAtFirst);
    outbox.written(1, kAtFirst);
    outbox.put(bytes("04"), kAtFirst);
    EXPECT_EQ(hex(outbox.ready(kAtFirst)), "02 03 04");
}

TEST(SimOutbox, CutsEachPacketWithAPauseBetweenThePieces) {
    sim::Outbox outbox({.cuts = {1, 3}, .cutPause = 10ms});
    outbox.put(bytes("01 02 03 04 05"), kAtFirst);
    outbox.put(bytes("06 07"), kAtFirst);
    EXPECT_EQ(takeAll(outbox, kAtFirst), "01");
    EXPECT_EQ(takeAll(outbox, kAtFirst + 9ms), "");
    EXPECT_EQ(outbox.due(), kAtFirst + 10ms);
    EXPECT_EQ(takeAll(outbox, kAtFirst + 10ms), "02 03");
    EXPECT_EQ(takeAll(outbox, kAtFirst + 25ms), "04 05");
    EXPECT_EQ(outbox.due(), std::nullopt);
    EXPECT_EQ(takeAll(outbox, kAtFirst + 25ms), "06");
    EXPECT_EQ(takeAll(outbox, kAtFirst + 34ms), "");
    EXPECT_EQ(takeAll(outbox, kAtFirst + 35ms), "07");
    EXPECT_TRUE(outbox.empty());
}

TEST(SimOutbox, PieceThatWasBegunNeedsNoPauseToGoOn) {
    sim::Outbox outbox({.cuts = {1}, .cutPause = 10ms});
    outbox.put(bytes("01 02 03"), kAtFirst);
    EXPECT_EQ(takeAll(outbox, kAtFirst), "01");
    outbox.written(1, kAtFirst + 10ms);
    EXPECT_EQ(takeAll(outbox, kAtFirst + 10ms), "03");
}

TEST(SimOutbox, CutBehindTheEndOfAPacketCutsNothing) {
    sim::Outbox outbox({.cuts = {2, 8}});
    outbox.put(bytes("01 02"), kAtFirst);
    EXPECT_EQ(takeAll(outbox, kAtFirst), "01 02");
}

TEST(SimOutbox, GathersPackets) {
    sim::Outbox outbox({.cuts = {}, .gather = 3, .gatherWithin = 50ms});
    outbox.put(bytes("01"), kAtFirst);
    outbox.put(bytes("02"), kAtFirst + 1ms);
    EXPECT_EQ(takeAll(outbox, kAtFirst + 2ms), "");
    EXPECT_FALSE(outbox.empty());
    outbox.put(bytes("03"), kAtFirst + 3ms);
    EXPECT_EQ(takeAll(outbox, kAtFirst + 3ms), "01 02 03");
    EXPECT_EQ(outbox.due(), std::nullopt);
}

TEST(SimOutbox, GatheredPacketsWaitNoLongerThanTheyMay) {
    sim::Outbox outbox({.cuts = {}, .gather = 3, .gatherWithin = 50ms});
    outbox.put(bytes("01"), kAtFirst);
    EXPECT_EQ(outbox.due(), kAtFirst + 50ms);
    EXPECT_EQ(takeAll(outbox, kAtFirst + 49ms), "");
    EXPECT_EQ(takeAll(outbox, kAtFirst + 50ms), "01");
    outbox.put(bytes("02"), kAtFirst + 60ms);
    EXPECT_EQ(outbox.due(), kAtFirst + 110ms);
}

TEST(SimOutbox, ReleasesWhatItGathered) {
    sim::Outbox outbox({.cuts = {}, .gather = 3});
    outbox.put(bytes("01"), kAtFirst);
    outbox.releaseGathered();
    EXPECT_EQ(takeAll(outbox, kAtFirst), "01");
    outbox.releaseGathered();
    EXPECT_TRUE(outbox.empty());
}

}  // namespace
