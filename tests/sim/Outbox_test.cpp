#include "sim/Outbox.h"

#include <gtest/gtest.h>

#include "tests/sim/HexText.h"

namespace {

using namespace std::chrono_literals;
using simtest::bytes;
using simtest::hex;

constexpr sim::Instant kStart{};

std::string takeAll(sim::Outbox& outbox, sim::Instant now) {
    const auto ready = outbox.ready(now);
    std::string text = hex(ready);
    outbox.written(ready.size(), now);
    return text;
}

TEST(SimOutbox, JoinsWhatWaits) {
    sim::Outbox outbox({});
    outbox.put(bytes("01 02"), kStart);
    outbox.put(bytes("03"), kStart);
    EXPECT_EQ(outbox.size(), 3U);
    EXPECT_EQ(takeAll(outbox, kStart), "01 02 03");
    EXPECT_TRUE(outbox.empty());
    EXPECT_EQ(outbox.size(), 0U);
    EXPECT_EQ(outbox.due(), std::nullopt);
}

TEST(SimOutbox, GoesOnBehindAPartialWrite) {
    sim::Outbox outbox({});
    outbox.put(bytes("01 02 03"), kStart);
    outbox.written(1, kStart);
    outbox.put(bytes("04"), kStart);
    EXPECT_EQ(hex(outbox.ready(kStart)), "02 03 04");
}

TEST(SimOutbox, CutsEachPacketWithAPauseBetweenThePieces) {
    sim::Outbox outbox({.cuts = {1, 3}, .cutPause = 10ms});
    outbox.put(bytes("01 02 03 04 05"), kStart);
    outbox.put(bytes("06 07"), kStart);
    EXPECT_EQ(takeAll(outbox, kStart), "01");
    EXPECT_EQ(takeAll(outbox, kStart + 9ms), "");
    EXPECT_EQ(outbox.due(), kStart + 10ms);
    EXPECT_EQ(takeAll(outbox, kStart + 10ms), "02 03");
    EXPECT_EQ(takeAll(outbox, kStart + 25ms), "04 05");
    EXPECT_EQ(outbox.due(), std::nullopt);
    EXPECT_EQ(takeAll(outbox, kStart + 25ms), "06");
    EXPECT_EQ(takeAll(outbox, kStart + 34ms), "");
    EXPECT_EQ(takeAll(outbox, kStart + 35ms), "07");
    EXPECT_TRUE(outbox.empty());
}

TEST(SimOutbox, PieceThatWasBegunNeedsNoPauseToGoOn) {
    sim::Outbox outbox({.cuts = {1}, .cutPause = 10ms});
    outbox.put(bytes("01 02 03"), kStart);
    EXPECT_EQ(takeAll(outbox, kStart), "01");
    outbox.written(1, kStart + 10ms);
    EXPECT_EQ(takeAll(outbox, kStart + 10ms), "03");
}

TEST(SimOutbox, CutBehindTheEndOfAPacketCutsNothing) {
    sim::Outbox outbox({.cuts = {2, 8}});
    outbox.put(bytes("01 02"), kStart);
    EXPECT_EQ(takeAll(outbox, kStart), "01 02");
}

TEST(SimOutbox, GathersPackets) {
    sim::Outbox outbox({.cuts = {}, .gather = 3, .gatherWithin = 50ms});
    outbox.put(bytes("01"), kStart);
    outbox.put(bytes("02"), kStart + 1ms);
    EXPECT_EQ(takeAll(outbox, kStart + 2ms), "");
    EXPECT_FALSE(outbox.empty());
    outbox.put(bytes("03"), kStart + 3ms);
    EXPECT_EQ(takeAll(outbox, kStart + 3ms), "01 02 03");
    EXPECT_EQ(outbox.due(), std::nullopt);
}

TEST(SimOutbox, GatheredPacketsWaitNoLongerThanTheyMay) {
    sim::Outbox outbox({.cuts = {}, .gather = 3, .gatherWithin = 50ms});
    outbox.put(bytes("01"), kStart);
    EXPECT_EQ(outbox.due(), kStart + 50ms);
    EXPECT_EQ(takeAll(outbox, kStart + 49ms), "");
    EXPECT_EQ(takeAll(outbox, kStart + 50ms), "01");
    outbox.put(bytes("02"), kStart + 60ms);
    EXPECT_EQ(outbox.due(), kStart + 110ms);
}

TEST(SimOutbox, ReleasesWhatItGathered) {
    sim::Outbox outbox({.cuts = {}, .gather = 3});
    outbox.put(bytes("01"), kStart);
    outbox.releaseGathered();
    EXPECT_EQ(takeAll(outbox, kStart), "01");
    outbox.releaseGathered();
    EXPECT_TRUE(outbox.empty());
}

}  // namespace
