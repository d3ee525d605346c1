#include "platform/linux/base/ByteOrder.h"

#include <gtest/gtest.h>

#include <array>

using namespace byteorder;

namespace {

struct OrderRow {
    const char* why;
    std::uint32_t value;
    std::array<std::uint8_t, 4> big;
    std::array<std::uint8_t, 4> little;
};

class ByteOrder : public testing::TestWithParam<OrderRow> {};

TEST_P(ByteOrder, LoadsThirtyTwoBits) {
    EXPECT_EQ(loadBig32(GetParam().big.data()), GetParam().value);
    EXPECT_EQ(loadLittle32(GetParam().little.data()), GetParam().value);
}

TEST_P(ByteOrder, StoresThirtyTwoBits) {
    std::array<std::uint8_t, 4> big{}, little{};
    storeBig32(big.data(), GetParam().value);
    storeLittle32(little.data(), GetParam().value);
    EXPECT_EQ(big, GetParam().big);
    EXPECT_EQ(little, GetParam().little);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ByteOrder,
    testing::Values(OrderRow{"zero", 0, {0, 0, 0, 0}, {0, 0, 0, 0}},
                    OrderRow{"allDifferent", 0x01020304, {1, 2, 3, 4}, {4, 3, 2, 1}},
                    OrderRow{"highBitOfEachByte", 0x80818283, {0x80, 0x81, 0x82, 0x83}, {0x83, 0x82, 0x81, 0x80}},
                    OrderRow{"largest", 0xFFFFFFFF, {255, 255, 255, 255}, {255, 255, 255, 255}}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(ByteOrder, SixteenBitsMostSignificantFirst) {
    constexpr std::array<std::uint8_t, 2> bytes{0x83, 0xEC};
    static_assert(loadBig16(bytes.data()) == 0x83EC);
    std::array<std::uint8_t, 2> stored{};
    storeBig16(stored.data(), 0x83EC);
    EXPECT_EQ(stored, bytes);
}

TEST(ByteOrder, AlignmentDoesNotMatter) {
    const std::array<std::uint8_t, 5> bytes{0xAA, 1, 2, 3, 4};
    EXPECT_EQ(loadBig32(bytes.data() + 1), 0x01020304U);
}

}  // namespace
