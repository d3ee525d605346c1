#include "Hardware/UploadPackets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/Hardware/HandServer.h"

using namespace CANFlasher;
using testsupport::Bytes;
using testsupport::bytes;

namespace {

using Packet = ProprietarySocketCommon::TPacket;

Bytes wireBytes(const PacketPtr& packet) { return Bytes(packet->data, packet->data + packet->size); }

TEST(UploadPackets, StatusRequestHasNoPayload) {
    const PacketPtr packet = makeCommand(CmdStatusRequest);
    EXPECT_EQ(wireBytes(packet), bytes({0, 0, 0, 8, 0x03, 0xE9, 0, 8}));
    EXPECT_EQ(packet->command, 1001);
}

TEST(UploadPackets, StatusResetHasNoPayload) {
    EXPECT_EQ(wireBytes(makeCommand(CmdStatusReset)), bytes({0, 0, 0, 8, 0x03, 0xEA, 0, 8}));
}

TEST(UploadPackets, CommandByteCarriesOneByte) {
    EXPECT_EQ(wireBytes(makeCommandByte(0)), bytes({0, 0, 0, 9, 0x03, 0xEB, 0, 8, 0}));
    EXPECT_EQ(wireBytes(makeCommandByte(255)), bytes({0, 0, 0, 9, 0x03, 0xEB, 0, 8, 255}));
}

struct UploadRow {
    const char* why;
    UploadRequest request;
    Bytes packet;
};
class UploadPacket : public testing::TestWithParam<UploadRow> {};

TEST_P(UploadPacket, HasLittleEndianFieldsAndAZeroBehindThePath) {
    EXPECT_EQ(wireBytes(makeUpload(GetParam().request)), GetParam().packet);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, UploadPacket,
    testing::Values(
        UploadRow{"ordinary",
                  {Global, 0x2A, 0x12345678, "/a.hex"},
                  bytes({0, 0, 0, 21, 0x03, 0xEC, 0, 8, 3, 0x2A, 0x78, 0x56, 0x34, 0x12}, "/a.hex", 1)},
        UploadRow{"emptyPath", {ISOStyle, 0, 0, ""}, bytes({0, 0, 0, 15, 0x03, 0xEC, 0, 8, 0, 0, 0, 0, 0, 0, 0})},
        UploadRow{"highestAddressAndSerial",
                  {MTCAN, 253, 0xFFFFFFFF, "/b"},
                  bytes({0, 0, 0, 17, 0x03, 0xEC, 0, 8, 1, 0xFD, 0xFF, 0xFF, 0xFF, 0xFF}, "/b", 1)},
        UploadRow{"negativeAddressIsItsLowByte",
                  {NewModule, -1, 1, "/c"},
                  bytes({0, 0, 0, 17, 0x03, 0xEC, 0, 8, 2, 0xFF, 1, 0, 0, 0}, "/c", 1)},
        UploadRow{"veryNegativeAddressIsItsLowByte",
                  {ISOStyle, -255, 0, "/c"},
                  bytes({0, 0, 0, 17, 0x03, 0xEC, 0, 8, 0, 0x01, 0, 0, 0, 0}, "/c", 1)},
        UploadRow{"modeWithoutAName",
                  {static_cast<TMode>(0x1FF), 1, 0, "/c"},
                  bytes({0, 0, 0, 17, 0x03, 0xEC, 0, 8, 0xFF, 1, 0, 0, 0, 0}, "/c", 1)},
        UploadRow{"longestPath",
                  {ISOStyle, 1, 0, std::string(4095, 'x')},
                  bytes({0, 0, 0x10, 0x0E, 0x03, 0xEC, 0, 8, 0, 1, 0, 0, 0, 0}, std::string(4095, 'x'), 1)}),
    [](const auto& row) { return std::string(row.param.why); });

struct StatusRow {
    const char* why;
    Bytes payload;
    std::uint16_t payloadOffset;
    std::optional<TStatus> status;
};
class StatusPacket : public testing::TestWithParam<StatusRow> {};

TEST_P(StatusPacket, IsReadWhenItIsLongEnough) {
    const StatusRow& row = GetParam();
    Packet packet(static_cast<unsigned>(row.payload.size()), CmdStatus);
    std::copy(row.payload.begin(), row.payload.end(), packet.getPayload());
    packet.payloadOffset = row.payloadOffset;  // what a peer wrote
    EXPECT_EQ(parseStatus(packet), row.status);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, StatusPacket,
    testing::Values(
        StatusRow{"ordinary", bytes({1, 5, 42, 0x2A, 0x78, 0x56, 0x34, 0x12}), 8, TStatus{1, 5, 42, 42, 0x12345678}},
        StatusRow{"allOnes", Bytes(8, 255), 8, TStatus{255, 255, 255, 255, 0xFFFFFFFF}},
        StatusRow{"allZero", Bytes(8, 0), 8, TStatus{0, 0, 0, 0, 0}},
        StatusRow{"serialIsLittleEndian", bytes({0, 0, 0, 0, 1, 0, 0, 0}), 8, TStatus{0, 0, 0, 0, 1}},
        StatusRow{"bytesBehindAreIgnored", bytes({1, 2, 3, 4, 5, 0, 0, 0, 9}), 8, TStatus{1, 2, 3, 4, 5}},
        StatusRow{"offsetBehindMoreHeader", bytes({9, 9, 9, 9, 1, 2, 3, 4, 5, 0, 0, 0}), 12, TStatus{1, 2, 3, 4, 5}},
        StatusRow{"sevenBytes", Bytes(7, 0), 8, std::nullopt}, StatusRow{"noPayload", {}, 8, std::nullopt},
        StatusRow{"offsetLeavesSevenBytes", Bytes(8, 0), 9, std::nullopt},
        StatusRow{"offsetAtTheEnd", Bytes(8, 0), 16, std::nullopt},
        StatusRow{"offsetBehindTheEnd", Bytes(8, 0), 17, std::nullopt},
        StatusRow{"largestOffset", Bytes(8, 0), 65535, std::nullopt}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(StatusPacketWithoutData, IsDropped) { EXPECT_EQ(parseStatus(Packet()), std::nullopt); }

}  // namespace
