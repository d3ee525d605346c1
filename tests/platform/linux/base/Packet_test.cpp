#include <gtest/gtest.h>

#include <array>
#include <type_traits>

#include "platform/linux/base/ProprietarySocketCommon.h"
#include "tests/platform/linux/base/CountedPacket.h"
#include "tests/platform/linux/base/LoopbackServer.h"
#include "tests/platform/linux/base/ReplacedCalls.h"
#include "tests/support/CapturedOutput.h"

using namespace sockettest;

static_assert(std::has_virtual_destructor_v<TPacket> && std::has_virtual_destructor_v<ProprietarySocketCommon>);
static_assert(!std::is_copy_constructible_v<TPacket> && !std::is_copy_assignable_v<TPacket>);
static_assert(std::is_same_v<decltype(TPacket().size), std::uint32_t>);
static_assert(std::is_same_v<decltype(TPacket().command), std::uint16_t>);
static_assert(std::is_same_v<decltype(TPacket().payloadOffset), std::uint16_t>);
static_assert(std::is_same_v<decltype(TPacket().getCommand()), std::uint16_t>);
static_assert(std::is_same_v<decltype(TPacket().getPayloadSize()), std::uint32_t>);
static_assert(ProprietarySocketCommon::CmdPing == 1 && ProprietarySocketCommon::CmdConnectionInfo == 2);

namespace {

struct HeaderRow {
    const char* why;
    unsigned payloadSize;
    unsigned short command;
    const char* header;
};

class NewPacket : public testing::TestWithParam<HeaderRow> {};

TEST_P(NewPacket, HasItsHeaderWritten) {
    TPacket packet(GetParam().payloadSize, GetParam().command);
    ASSERT_NE(packet.data, nullptr);
    EXPECT_EQ(Bytes(packet.data, packet.data + 8), hex(GetParam().header));
    EXPECT_EQ(packet.size, GetParam().payloadSize + 8);
    EXPECT_EQ(packet.getCommand(), GetParam().command);
    EXPECT_EQ(packet.command, GetParam().command);
    EXPECT_EQ(packet.payloadOffset, 8);
    EXPECT_EQ(packet.getPayload(), packet.data + 8);
    EXPECT_EQ(packet.getPayloadSize(), GetParam().payloadSize);
}

INSTANTIATE_TEST_SUITE_P(Rows, NewPacket,
                         testing::Values(HeaderRow{"withoutPayload", 0, 1, "00000008 0001 0008"},
                                         HeaderRow{"pingRequest", 1, 1, "00000009 0001 0008"},
                                         HeaderRow{"commandOfTwoBytes", 8, 1000, "00000010 03E8 0008"},
                                         HeaderRow{"lengthOfTwoBytes", 292, 1004, "0000012C 03EC 0008"},
                                         HeaderRow{"lengthOfThreeBytes", 0x01FFFF - 8, 0xFFFF, "0001FFFF FFFF 0008"},
                                         HeaderRow{"commandZero", 3, 0, "0000000B 0000 0008"}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(Packet, WithoutPayloadIsTheHeaderAlone) {
    const TPacket packet(0, 1);
    ASSERT_EQ(packet.size, 8U);
    EXPECT_EQ(Bytes(packet.data, packet.data + packet.size), hex("00 00 00 08 00 01 00 08"));
    EXPECT_EQ(packet.getPayloadSize(), 0U);
}

TEST(Packet, PingRequestIsNineBytes) {
    TPacket packet(1, 1);
    packet.getPayload()[0] = 0;
    ASSERT_EQ(packet.size, 9U);
    EXPECT_EQ(Bytes(packet.data, packet.data + packet.size), hex("00 00 00 09 00 01 00 08 00"));
}

TEST(Packet, EmptyBeforeARead) {
    TPacket packet;
    EXPECT_EQ(packet.data, nullptr);
    EXPECT_EQ(packet.size, 0U);
    EXPECT_EQ(packet.command, 0);
    EXPECT_EQ(packet.payloadOffset, 8);
    EXPECT_EQ(packet.getPayload(), nullptr);
    EXPECT_EQ(packet.getPayloadSize(), 0U) << "0 - 8 does not wrap";
    EXPECT_FALSE(packet.hasPayload(0));
}

TEST(Packet, FieldsStandInTheirOrder) {
    const TPacket packet;
    const auto address = [](const auto& field) { return reinterpret_cast<std::uintptr_t>(&field); };
    EXPECT_LT(address(packet.data), address(packet.size));
    EXPECT_LT(address(packet.size), address(packet.command));
    EXPECT_LT(address(packet.command), address(packet.payloadOffset));
}

void expectWithoutMemory(TPacket& packet) {
    EXPECT_EQ(packet.data, nullptr);
    EXPECT_EQ(packet.size, 0U);
    EXPECT_EQ(packet.command, 0);
    EXPECT_EQ(packet.payloadOffset, 0);
    EXPECT_EQ(packet.getCommand(), 0);
    EXPECT_EQ(packet.getPayload(), nullptr);
    EXPECT_EQ(packet.getPayloadSize(), 0U);
    EXPECT_FALSE(packet.hasPayload(0));
    packet.dumpPayload();
}

TEST(Packet, WithoutMemoryAllIsZero) {
    ReplacedCalls calls;
    std::size_t asked = 0;
    calls.mayAllocate = [&asked](std::size_t size) {
        asked = size;
        return false;
    };
    TPacket packet(100, 7);
    EXPECT_EQ(asked, 108U);
    expectWithoutMemory(packet);
}

TEST(Packet, PayloadTooLongForTheLengthFieldIsNoMemory) {
    ReplacedCalls calls;
    calls.mayAllocate = [](std::size_t) { return ADD_FAILURE(), false; };
    for (const unsigned payloadSize : {0xFFFFFFF8U, 0xFFFFFFF9U, 0xFFFFFFFFU}) {
        TPacket packet(payloadSize, 7);
        expectWithoutMemory(packet);
    }
}

TEST(Packet, LongestPayloadIsAskedForWithoutWrapping) {
    ReplacedCalls calls;
    std::uint64_t asked = 0;
    calls.mayAllocate = [&asked](std::size_t size) {
        asked = size;
        return false;
    };
    TPacket packet(0xFFFFFFF7U, 7);
    expectWithoutMemory(packet);
    EXPECT_EQ(asked, sizeof(std::size_t) > 4 ? 0xFFFFFFFFU : asked);
}

TEST(Packet, HalfOfTheAddressSpaceIsNoMemoryOnThirtyTwoBits) {
    if (sizeof(std::size_t) > 4) GTEST_SKIP() << "there is room for it on 64 bits";
    TPacket packet(0x80000000U, 7);
    expectWithoutMemory(packet);
}

struct OffsetRow {
    const char* why;
    std::uint16_t offset;
    int start;  // -1: no payload
    std::uint32_t size;
};

class PayloadOffset : public testing::TestWithParam<OffsetRow> {};

// An offset comes from the peer: a payload that would lie outside the buffer is none.
TEST_P(PayloadOffset, NeverLeadsOutOfTheBuffer) {
    TPacket packet(12, 7);
    packet.payloadOffset = GetParam().offset;
    const bool some = GetParam().start >= 0;
    EXPECT_EQ(packet.getPayload(), some ? packet.data + GetParam().start : nullptr);
    EXPECT_EQ(static_cast<const TPacket&>(packet).getPayload(), packet.getPayload());
    EXPECT_EQ(packet.getPayloadSize(), GetParam().size);
    EXPECT_EQ(packet.hasPayload(0), some);
    EXPECT_EQ(packet.hasPayload(GetParam().size), some);
    EXPECT_FALSE(packet.hasPayload(GetParam().size + 1));
    EXPECT_FALSE(packet.hasPayload(0xFFFFFFFF));
}

INSTANTIATE_TEST_SUITE_P(Rows, PayloadOffset,
                         testing::Values(OffsetRow{"ours", 8, 8, 12}, OffsetRow{"extraHeaderBytes", 12, 12, 8},
                                         OffsetRow{"insideTheHeader", 4, 4, 16}, OffsetRow{"zero", 0, 0, 20},
                                         OffsetRow{"lastByte", 19, 19, 1}, OffsetRow{"atTheEnd", 20, 20, 0},
                                         OffsetRow{"oneBeyond", 21, -1, 0}, OffsetRow{"farBeyond", 65535, -1, 0}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(Packet, DestroyedThroughTheVirtualDestructor) {
    struct Derived : TPacket {
        explicit Derived(bool& flag) : TPacket(4, 1), gone(flag) {}
        ~Derived() override { gone = true; }
        bool& gone;
    };
    bool gone = false;
    TPacket* packet = new Derived(gone);
    delete packet;
    EXPECT_TRUE(gone);
}

std::string dumpOf(const Bytes& payload) {
    TPacket packet(static_cast<unsigned>(payload.size()), 7);
    std::copy(payload.begin(), payload.end(), packet.getPayload());
    const testsupport::CapturedOutput output(STDOUT_FILENO);
    packet.dumpPayload();
    return output.text();
}

struct DumpRow {
    const char* why;
    const char* payload;
    const char* text;
};

class Dump : public testing::TestWithParam<DumpRow> {};

TEST_P(Dump, IsOneLineAByte) { EXPECT_EQ(dumpOf(hex(GetParam().payload)), GetParam().text); }

INSTANTIATE_TEST_SUITE_P(
    Rows, Dump,
    testing::Values(DumpRow{"nothingForNoPayload", "", ""},
                    DumpRow{"letterAndLineFeed", "41 0A", "   0:  65 - 41 : 'A'\n   1:  10 - 0A : '.'\n"},
                    DumpRow{"oneDigit", "00", "   0:   0 - 00 : '.'\n"},
                    DumpRow{"lastBeforeTheBlank", "1F", "   0:  31 - 1F : '.'\n"},
                    DumpRow{"blank", "20", "   0:  32 - 20 : ' '\n"}, DumpRow{"tilde", "7E", "   0: 126 - 7E : '~'\n"},
                    DumpRow{"deleteCharacterIsShownAsItself", "7F", "   0: 127 - 7F : '\x7F'\n"},
                    DumpRow{"firstAbove", "80", "   0: 128 - 80 : '.'\n"},
                    DumpRow{"largest", "FF", "   0: 255 - FF : '.'\n"}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(Packet, DumpStartsAtThePayloadOffset) {
    TPacket packet(6, 7);
    packet.payloadOffset = 12;
    packet.data[12] = 'x';
    packet.data[13] = 'y';
    const testsupport::CapturedOutput output(STDOUT_FILENO);
    packet.dumpPayload();
    EXPECT_EQ(output.text(), "   0: 120 - 78 : 'x'\n   1: 121 - 79 : 'y'\n");
}

TEST(Packet, DumpCountsBeyondFourDigits) {
    const std::string text = dumpOf(Bytes(10001, 0x41));
    EXPECT_EQ(text.substr(0, 21), "   0:  65 - 41 : 'A'\n");
    EXPECT_TRUE(text.ends_with("9999:  65 - 41 : 'A'\n10000:  65 - 41 : 'A'\n"));
}

}  // namespace
