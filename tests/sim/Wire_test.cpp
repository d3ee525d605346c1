#include "sim/Wire.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/sim/HexText.h"

namespace {

using simtest::bytes;
using simtest::hex;

TEST(SimPacket, HasAHeaderWithTheHighByteFirst) {
    EXPECT_EQ(hex(sim::makePacket(1, {})), "00 00 00 08 00 01 00 08");
    EXPECT_EQ(hex(sim::makePacket(1004, bytes("aa bb"))), "00 00 00 0a 03 ec 00 08 aa bb");
}

TEST(SimPacket, FillsWhatALargerOffsetLeavesFree) {
    EXPECT_EQ(hex(sim::makePacket(1000, bytes("01 02"), 12)), "00 00 00 0e 03 e8 00 0c ee ee ee ee 01 02");
}

TEST(SimPacket, CountsAllBytesOfALongPayload) {
    const auto packet = sim::makePacket(2, std::vector<std::uint8_t>(292));
    EXPECT_EQ(packet.size(), 300U);
    EXPECT_EQ(hex(std::span(packet).first(4)), "00 00 01 2c");
}

TEST(SimStatusPayload, HasTheSerialWithTheLowByteFirst) {
    EXPECT_EQ(hex(sim::statusPayload({1, 5, 42, 0x2A, 12345})), "01 05 2a 2a 39 30 00 00");
}

TEST(SimStatusPayload, DefaultsToIdleWithoutASerial) {
    EXPECT_EQ(hex(sim::statusPayload({})), "00 01 00 fe ff ff ff ff");
}

TEST(SimConnectionInfo, HasTheProcessIdAndThreeCountedTexts) {
    const sim::Identity identity{12345, "ab", "1.2", ""};
    EXPECT_EQ(hex(sim::connectionInfoPayload(identity)), "39 30 00 00 02 61 62 03 31 2e 32 00");
}

TEST(SimConnectionInfo, CutsATextThatItsCountCannotHold) {
    const sim::Identity identity{1, std::string(256, 'x'), "", ""};
    const auto payload = sim::connectionInfoPayload(identity);
    EXPECT_EQ(payload.size(), 4U + 1 + 255 + 1 + 1);
    EXPECT_EQ(payload[4], 255);
}

TEST(SimCommandName, IsUnknownForAnotherId) {
    EXPECT_EQ(sim::commandName(1), "CmdPing");
    EXPECT_EQ(sim::commandName(2), "CmdConnectionInfo");
    EXPECT_EQ(sim::commandName(1000), "CmdStatus");
    EXPECT_EQ(sim::commandName(1001), "CmdStatusRequest");
    EXPECT_EQ(sim::commandName(1002), "CmdStatusReset");
    EXPECT_EQ(sim::commandName(1003), "CmdByte");
    EXPECT_EQ(sim::commandName(1004), "CmdUpload");
    EXPECT_EQ(sim::commandName(1005), "unknown");
}

TEST(SimUploadRequest, HasModeAddressSerialAndPath) {
    const auto request = sim::parseUpload(bytes("01 2a 39 30 00 80 2f 61 2e 68 00"));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->mode, 1);
    EXPECT_EQ(request->address, 0x2A);
    EXPECT_EQ(request->serial, 0x80003039U);
    EXPECT_EQ(request->path, "/a.h");
}

struct BadUpload {
    const char* why;
    const char* payload;
};
class SimBadUpload : public testing::TestWithParam<BadUpload> {};
TEST_P(SimBadUpload, IsDropped) { EXPECT_FALSE(sim::parseUpload(bytes(GetParam().payload))); }
INSTANTIATE_TEST_SUITE_P(Rows, SimBadUpload,
                         testing::Values(BadUpload{"empty", ""}, BadUpload{"serialCutOff", "01 2a 39 30 00"},
                                         BadUpload{"noPathAtAll", "01 2a 39 30 00 00"},
                                         BadUpload{"emptyPath", "01 2a 39 30 00 00 00"},
                                         BadUpload{"noNul", "01 2a 39 30 00 00 2f 61"},
                                         BadUpload{"nulInsideThePath", "01 2a 39 30 00 00 2f 00 61 00"}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(SimUploadRequest, MayHaveAPathOfOneByte) {
    const auto request = sim::parseUpload(bytes("00 00 00 00 00 00 2f 00"));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->path, "/");
}

}  // namespace
