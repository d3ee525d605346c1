#include "sim/PacketAssembler.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "tests/sim/HexText.h"

namespace {

using simtest::bytes;
using simtest::hex;

TEST(SimPacketAssembler, HandsOutNothingBeforeAPacketIsWhole) {
    sim::PacketAssembler assembler;
    const auto packet = bytes("00 00 00 0a 03 e8 00 08 01 02");
    for (const std::uint8_t byte : packet) {
        EXPECT_FALSE(assembler.next());
        assembler.append({&byte, 1});
    }
    const auto got = assembler.next();
    ASSERT_TRUE(got);
    EXPECT_EQ(got->command(), 1000);
    EXPECT_EQ(got->payloadOffset(), 8);
    EXPECT_EQ(hex(got->payload()), "01 02");
    EXPECT_EQ(hex(got->bytes), "00 00 00 0a 03 e8 00 08 01 02");
    EXPECT_FALSE(assembler.next());
}

TEST(SimPacketAssembler, TakesJoinedPacketsApartAndKeepsTheBeginningOfTheNext) {
    sim::PacketAssembler assembler;
    assembler.append(bytes("00 00 00 09 00 01 00 08 00  00 00 00 08 03 e9 00 08  00 00 00"));
    EXPECT_EQ(assembler.next().value().command(), 1);
    EXPECT_EQ(assembler.next().value().command(), 1001);
    EXPECT_FALSE(assembler.next());
    EXPECT_EQ(assembler.pendingBytes(), 3U);
    assembler.append(bytes("08 03 ea 00 08"));
    EXPECT_EQ(assembler.next().value().command(), 1002);
    EXPECT_EQ(assembler.pendingBytes(), 0U);
}

struct Length {
    const char* why;
    const char* bytes;
    const char* problem;
};
class SimBadLength : public testing::TestWithParam<Length> {};
TEST_P(SimBadLength, EndsTheStreamForGood) {
    sim::PacketAssembler assembler;
    assembler.append(bytes("00 00 00 08 03 e9 00 08"));
    assembler.append(bytes(GetParam().bytes));
    EXPECT_TRUE(assembler.next());
    EXPECT_FALSE(assembler.broken());
    EXPECT_FALSE(assembler.next());
    EXPECT_TRUE(assembler.broken());
    EXPECT_EQ(assembler.problem(), GetParam().problem);
    assembler.append(bytes("00 00 00 08 03 e9 00 08"));
    EXPECT_FALSE(assembler.next());
    EXPECT_EQ(assembler.pendingBytes(), 0U);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, SimBadLength,
    testing::Values(Length{"zero", "00 00 00 00", "a packet of 0 bytes; a packet has 8 to 65536"},
                    Length{"oneBelowTheHeader", "00 00 00 07", "a packet of 7 bytes; a packet has 8 to 65536"},
                    Length{"oneAboveTheLongest", "00 01 00 01", "a packet of 65537 bytes; a packet has 8 to 65536"},
                    Length{"all", "ff ff ff ff", "a packet of 4294967295 bytes; a packet has 8 to 65536"}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(SimPacketAssembler, TakesThePacketOfTheLargestLength) {
    sim::PacketAssembler assembler;
    assembler.append(bytes("00 01 00 00 00 01 00 08"));
    assembler.append(std::vector<std::uint8_t>(65527));
    EXPECT_FALSE(assembler.next());
    assembler.append(bytes("00"));
    EXPECT_EQ(assembler.next().value().payload().size(), 65528U);
}

struct Offset {
    const char* why;
    const char* packet;
    bool inside;
};
class SimPayloadOffset : public testing::TestWithParam<Offset> {};
TEST_P(SimPayloadOffset, IsMeasured) {
    EXPECT_EQ(sim::Packet{bytes(GetParam().packet)}.payloadInside(), GetParam().inside);
}
INSTANTIATE_TEST_SUITE_P(Rows, SimPayloadOffset,
                         testing::Values(Offset{"insideTheHeader", "00 00 00 09 00 01 00 07 00", false},
                                         Offset{"behindTheHeader", "00 00 00 09 00 01 00 08 00", true},
                                         Offset{"atTheEnd", "00 00 00 09 00 01 00 09 00", true},
                                         Offset{"behindTheEnd", "00 00 00 09 00 01 00 0a 00", false},
                                         Offset{"largest", "00 00 00 09 00 01 ff ff 00", false}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(SimPacketAssembler, SurvivesRandomBytesInRandomPieces) {
    std::mt19937 random(20240607);
    for (int round = 0; round < 2000; ++round) {
        sim::PacketAssembler assembler;
        for (int piece = 0; piece < 20; ++piece) {
            std::vector<std::uint8_t> data(random() % 40);
            for (std::uint8_t& byte : data) byte = static_cast<std::uint8_t>(random() % 4 == 0 ? random() : 0);
            assembler.append(data);
            while (const auto packet = assembler.next()) {
                ASSERT_GE(packet->bytes.size(), 8U);
                ASSERT_LE(packet->bytes.size(), 65536U);
                if (!packet->payloadInside()) continue;
                ASSERT_LE(packet->payload().size(), packet->bytes.size() - 8);
            }
        }
    }
}

}  // namespace
