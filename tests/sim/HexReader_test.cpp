#include "sim/HexReader.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using sim::AddressRange;

struct GoodFile {
    const char* why;
    std::string text;
    std::vector<AddressRange> ranges;
};
class SimHexFile : public testing::TestWithParam<GoodFile> {};
TEST_P(SimHexFile, FillsItsAddresses) {
    const auto read = sim::readHex(GetParam().text);
    if (const auto* problem = std::get_if<sim::HexProblem>(&read))
        FAIL() << problem->line << ':' << problem->column << ": expected " << problem->expected << ", got "
               << problem->got;
    const auto& image = std::get<sim::HexImage>(read);
    EXPECT_EQ(image.ranges, GetParam().ranges);
    std::uint64_t count = 0;
    for (const AddressRange& range : GetParam().ranges) count += std::uint64_t{range.last} - range.first + 1;
    EXPECT_EQ(image.byteCount, count);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, SimHexFile,
    testing::Values(
        GoodFile{"oneRecord", ":0300300002337A1E\n:00000001FF\n", {{0x30, 0x32}}},
        GoodFile{"lowerCaseDigits", ":0300300002337a1e\n:00000001ff\n", {{0x30, 0x32}}},
        GoodFile{"carriageReturns", ":0300300002337A1E\r\n:00000001FF\r\n", {{0x30, 0x32}}},
        GoodFile{"mixedLineEnds", ":0300300002337A1E\r\n:00000001FF\n", {{0x30, 0x32}}},
        GoodFile{"lastLineWithoutAnEnd", ":0300300002337A1E\n:00000001FF", {{0x30, 0x32}}},
        GoodFile{"endRecordAlone", ":00000001FF\n", {}},
        GoodFile{"dataRecordWithoutData", ":00003000D0\n:00000001FF\n", {}},
        GoodFile{
            "neighboursJoinInAnyOrder", ":01001200AA43\n:01001000AA45\n:01001100AA44\n:00000001FF\n", {{0x10, 0x12}}},
        GoodFile{"linearAddress", ":020000040800F2\n:01001000AA45\n:00000001FF\n", {{0x08000010, 0x08000010}}},
        GoodFile{"segmentAddress", ":020000021200EA\n:01001000AA45\n:00000001FF\n", {{0x12010, 0x12010}}},
        GoodFile{"latestBaseCounts", ":020000040800F2\n:020000020000FC\n:01001000AA45\n:00000001FF\n", {{0x10, 0x10}}},
        GoodFile{"segmentWrapsAt64KiB",
                 ":020000021000EC\n:02FFFF00AABB9B\n:00000001FF\n",
                 {{0x10000, 0x10000}, {0x1FFFF, 0x1FFFF}}},
        GoodFile{"withoutABaseItWrapsToo", ":02FFFF00AABB9B\n:00000001FF\n", {{0x0, 0x0}, {0xFFFF, 0xFFFF}}},
        GoodFile{"linearRunsOn", ":020000040001F9\n:02FFFF00AABB9B\n:00000001FF\n", {{0x1FFFF, 0x20000}}},
        GoodFile{"lastByteOf4GiB", ":02000004FFFFFC\n:01FFFF00AA57\n:00000001FF\n", {{0xFFFFFFFF, 0xFFFFFFFF}}},
        GoodFile{"startAddressesProgramNothing",
                 ":0400000300003800C1\n:0400000508000000EF\n:01001000AA45\n:00000001FF\n",
                 {{0x10, 0x10}}}),
    [](const auto& row) { return std::string(row.param.why); });

struct BadFile {
    const char* why;
    std::string text;
    std::uint32_t line, column;
    const char* expected;
    const char* got;
};
class SimBadHexFile : public testing::TestWithParam<BadFile> {};
TEST_P(SimBadHexFile, NamesLineColumnAndWhatWasExpected) {
    const auto read = sim::readHex(GetParam().text);
    const auto* problem = std::get_if<sim::HexProblem>(&read);
    ASSERT_NE(problem, nullptr);
    EXPECT_EQ(problem->line, GetParam().line);
    EXPECT_EQ(problem->column, GetParam().column);
    EXPECT_EQ(problem->expected, GetParam().expected);
    EXPECT_EQ(problem->got, GetParam().got);
}
const char* const kNoEnd = "the end record :00000001FF";
const char* const kColon = "':' at the start of a record";
const char* const kData = "a hex digit of the data bytes that the length promises";
INSTANTIATE_TEST_SUITE_P(
    Rows, SimBadHexFile,
    testing::Values(
        BadFile{"empty", "", 1, 1, kNoEnd, "the end of the file"},
        BadFile{"noEndRecord", ":01001000AA45\n", 2, 1, kNoEnd, "the end of the file"},
        BadFile{"noEndRecordAndNoLineEnd", ":01001000AA45", 1, 14, kNoEnd, "the end of the file"},
        BadFile{"noColon", "01001000AA45\n", 1, 1, kColon, "'0'"},
        BadFile{"blankLine", ":01001000AA45\n\n:00000001FF\n", 2, 1, kColon, "the end of the line"},
        BadFile{"blankInFront", " :01001000AA45\n", 1, 1, kColon, "' '"},
        BadFile{"byteOrderMark", "\xEF\xBB\xBF:00000001FF\n", 1, 1, kColon, "byte EF"},
        BadFile{"nulByte", std::string("\0", 1), 1, 1, kColon, "byte 00"},
        BadFile{"colonAlone", ":\n", 1, 2, "a hex digit of the length", "the end of the line"},
        BadFile{"noHexDigitInTheLength", ":0G", 1, 3, "a hex digit of the length", "'G'"},
        BadFile{"noHexDigitInTheAddress", ":0100x000AA45\n", 1, 6, "a hex digit of the address", "'x'"},
        BadFile{"noHexDigitInTheType", ":010010 0AA45\n", 1, 8, "a hex digit of the record type", "' '"},
        BadFile{"noHexDigitInTheData", ":01001000A-45\n", 1, 11, kData, "'-'"},
        BadFile{"noHexDigitInTheChecksum", ":01001000AA4\n", 1, 13, "a hex digit of the checksum",
                "the end of the line"},
        BadFile{"fewerBytesThanTheLengthSays", ":02001000AA45\n", 1, 14, "a hex digit of the checksum",
                "the end of the line"},
        BadFile{"farFewerBytesThanTheLengthSays", ":03001000AA45\n", 1, 14, kData, "the end of the line"},
        BadFile{"moreBytesThanTheLengthSays", ":01001000AA4500\n", 1, 14, "the end of the line", "'0'"},
        BadFile{"blankAtTheEndOfALine", ":01001000AA45 \n", 1, 14, "the end of the line", "' '"},
        BadFile{"carriageReturnAlone", ":01001000AA45\r:00000001FF\r", 1, 15, "LF after CR", "':'"},
        BadFile{"cutInARecord", ":01001000A", 1, 11, kData, "the end of the file"},
        BadFile{"wrongChecksum", ":01001000AA45\n:01001100AA45\n", 2, 12, "checksum 44", "45"},
        BadFile{"checksumOfADamagedByte", ":0300300002337B1E\n", 1, 16, "checksum 1D", "1E"},
        BadFile{"type06", ":00000006FA\n", 1, 8, "a record type from 00 to 05", "06"},
        BadFile{"typeFF", ":000000FF01\n", 1, 8, "a record type from 00 to 05", "FF"},
        BadFile{"endRecordWithData", ":01000001AA54\n", 1, 2, "length 00 of a record of type 01", "01"},
        BadFile{"endRecordWithAnAddress", ":00100001EF\n", 1, 4, "address 0000 of a record of type 01", "1000"},
        BadFile{"segmentAddressTooShort", ":0100000212EB\n", 1, 2, "length 02 of a record of type 02", "01"},
        BadFile{"segmentAddressWithAnAddress", ":020001021200E9\n", 1, 4, "address 0000 of a record of type 02",
                "0001"},
        BadFile{"startSegmentTooShort", ":020000030038C3\n", 1, 2, "length 04 of a record of type 03", "02"},
        BadFile{"linearAddressTooLong", ":03000004080000F1\n", 1, 2, "length 02 of a record of type 04", "03"},
        BadFile{"linearAddressWithAnAddress", ":0200FF040800F3\n", 1, 4, "address 0000 of a record of type 04", "00FF"},
        BadFile{"startLinearTooShort", ":020000050800F1\n", 1, 2, "length 04 of a record of type 05", "02"},
        BadFile{"sameAddressTwice", ":01001000AA45\n:01001000AB44\n", 2, 10, "an address that no earlier record fills",
                "00000010"},
        BadFile{"overlapsFromBelow", ":02001000AABB89\n:02000F00AABB8A\n", 2, 12,
                "an address that no earlier record fills", "00000010"},
        BadFile{"overlapsFromAbove", ":02001000AABB89\n:02001100AABB88\n", 2, 10,
                "an address that no earlier record fills", "00000011"},
        BadFile{"encloses", ":01001100AA44\n:03001000AABBCCBC\n", 2, 12, "an address that no earlier record fills",
                "00000011"},
        BadFile{"overlapsBehindTheWrap", ":01000000AA55\n:02FFFF00AABB9B\n", 2, 12,
                "an address that no earlier record fills", "00000000"},
        BadFile{"overlapsThroughAnotherBase", ":020000021000EC\n:01001000AA45\n:020000040001F9\n:01001000AA45\n", 4, 10,
                "an address that no earlier record fills", "00010010"},
        BadFile{"runsPast4GiB", ":02000004FFFFFC\n:02FFFF00AABB9B\n", 2, 12, "an address from 00000000 to FFFFFFFF",
                "100000000"},
        BadFile{"dataAfterTheEnd", ":00000001FF\n:01001000AA45\n", 2, 1, "the end of the file",
                "a record after the end record"},
        BadFile{"secondEndRecord", ":00000001FF\n:00000001FF\n", 2, 1, "the end of the file", "a second end record"},
        BadFile{"blankLineAfterTheEnd", ":00000001FF\n\n", 2, 1, "the end of the file", "the end of the line"},
        BadFile{"rubbishAfterTheEnd", ":00000001FF\nx", 2, 1, "the end of the file", "'x'"}),
    [](const auto& row) { return std::string(row.param.why); });

struct Ranged {
    const char* why;
    AddressRange allowed;
    const char* expected;  // null: fine
    const char* got;
    std::uint32_t column;
};
class SimHexRange : public testing::TestWithParam<Ranged> {};
TEST_P(SimHexRange, HoldsAllData) {
    const auto read = sim::readHex(":02001000AABB89\n:00000001FF\n", GetParam().allowed);
    const auto* problem = std::get_if<sim::HexProblem>(&read);
    ASSERT_EQ(problem != nullptr, GetParam().expected != nullptr);
    if (problem == nullptr) return;
    EXPECT_EQ(problem->expected, GetParam().expected);
    EXPECT_EQ(problem->got, GetParam().got);
    EXPECT_EQ(problem->column, GetParam().column);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, SimHexRange,
    testing::Values(Ranged{"exact", {0x10, 0x11}, nullptr, nullptr, 0},
                    Ranged{"oneTooHigh", {0x10, 0x10}, "an address from 00000010 to 00000010", "00000011", 12},
                    Ranged{"oneTooLow", {0x11, 0x11}, "an address from 00000011 to 00000011", "00000010", 10},
                    Ranged{"allTooHigh", {0x00, 0x0F}, "an address from 00000000 to 0000000F", "00000010", 10}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(SimHexReader, SurvivesDamageAtAnyPlace) {
    const std::string good = ":020000040800F2\n:0300300002337A1E\r\n:0400000508000000EF\n:00000001FF\n";
    std::mt19937 random(7);
    for (int round = 0; round < 20000; ++round) {
        std::string text = good;
        for (int hits = 0; hits < 3; ++hits) text[random() % text.size()] = static_cast<char>(random());
        text.resize(random() % (text.size() + 1));
        const auto read = sim::readHex(text);
        if (const auto* problem = std::get_if<sim::HexProblem>(&read)) {
            ASSERT_FALSE(problem->expected.empty());
            ASSERT_GE(problem->line, 1U);
            ASSERT_GE(problem->column, 1U);
        }
    }
}

}  // namespace
