#include "platform/linux/base/ConnectionInfo.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/platform/linux/base/LoopbackServer.h"

using namespace sockettest;

namespace {

using Entry = ServerConnectionEntry;

/// Reads from a block that ends where the payload ends, so that a sanitizer sees a read beyond it.
std::optional<Entry> parse(const Bytes& payload) {
    const std::unique_ptr<std::uint8_t[]> block(new std::uint8_t[payload.size()]);
    std::copy(payload.begin(), payload.end(), block.get());
    return parseConnectionInfo({block.get(), payload.size()});
}

struct PayloadRow {
    const char* why;
    Bytes payload;
    Entry entry;
};

class ConnectionInfo : public testing::TestWithParam<PayloadRow> {};

TEST_P(ConnectionInfo, IsRead) {
    const std::optional<Entry> entry = parse(GetParam().payload);
    ASSERT_TRUE(entry);
    EXPECT_EQ(*entry, GetParam().entry);
}

const Bytes kPid = hex("39 30 00 00");

INSTANTIATE_TEST_SUITE_P(
    Rows, ConnectionInfo,
    testing::Values(
        PayloadRow{"processIdAlone", hex("39 30 00 00"), Entry{12345, "", "", "", "", ""}},
        PayloadRow{"processIdIsLittleEndian", hex("78 56 34 12"), Entry{0x12345678, "", "", "", "", ""}},
        PayloadRow{"processIdOfAllBits", hex("FF FF FF FF"), Entry{-1, "", "", "", "", ""}},
        PayloadRow{"allTexts", kPid + hex("06") + raw("ostrel") + hex("03") + raw("1.2") + hex("04") + raw("Beta"),
                   Entry{12345, "ostrel", "(FS) File Server", "", "1.2", "Beta"}},
        PayloadRow{"unknownName", kPid + hex("03") + raw("foo") + hex("01") + raw("2") + hex("01") + raw("L"),
                   Entry{12345, "foo", "", "", "2", "L"}},
        PayloadRow{"emptyTexts", kPid + hex("00 00 00"), Entry{12345, "", "", "", "", ""}},
        PayloadRow{"nameAloneIsMissing", kPid + hex("00 03") + raw("1.2") + hex("04") + raw("Beta"),
                   Entry{12345, "", "", "", "1.2", "Beta"}},
        PayloadRow{"versionAloneIsMissing", kPid + hex("03") + raw("foo") + hex("00 04") + raw("Beta"),
                   Entry{12345, "foo", "", "", "", "Beta"}},
        PayloadRow{"labelAloneIsThere", kPid + hex("00 00 04") + raw("Beta"), Entry{12345, "", "", "", "", "Beta"}},
        PayloadRow{"bytesBehindTheLabel", kPid + hex("01") + raw("a") + hex("01") + raw("b") + hex("01") + raw("cdef"),
                   Entry{12345, "a", "", "", "b", "c"}},
        PayloadRow{"longestTexts",
                   kPid + hex("FF") + Bytes(255, 'n') + hex("FF") + Bytes(255, 'v') + hex("FF") + Bytes(255, 'l'),
                   Entry{12345, std::string(255, 'n'), "", "", std::string(255, 'v'), std::string(255, 'l')}},
        PayloadRow{"nameRunsPastTheEnd", kPid + hex("07") + raw("ostrel"), Entry{12345, "", "", "", "", ""}},
        PayloadRow{"longestNameRunsPastTheEnd", kPid + hex("FF") + raw("ostrel"), Entry{12345, "", "", "", "", ""}},
        PayloadRow{"versionRunsPastTheEnd", kPid + hex("01") + raw("a") + hex("04") + raw("1.2"),
                   Entry{12345, "a", "", "", "", ""}},
        PayloadRow{"labelRunsPastTheEnd", kPid + hex("01") + raw("a") + hex("01") + raw("b") + hex("05") + raw("Beta"),
                   Entry{12345, "a", "", "", "b", ""}},
        PayloadRow{"zeroByteInsideAText", kPid + hex("03 61 00 62"),
                   Entry{12345, std::string("a\0b", 3), "", "", "", ""}},
        PayloadRow{"bytesAboveAscii", kPid + hex("02 C3 A4"), Entry{12345, "\xC3\xA4", "", "", "", ""}}),
    [](const auto& row) { return std::string(row.param.why); });

// "ostrel", "1.2" and "Beta" take 4 + 7 + 4 + 5 bytes.
class TruncatedConnectionInfo : public testing::TestWithParam<std::size_t> {};

TEST_P(TruncatedConnectionInfo, KeepsTheTextsThatAreWhole) {
    const Bytes whole = kPid + hex("06") + raw("ostrel") + hex("03") + raw("1.2") + hex("04") + raw("Beta");
    ASSERT_EQ(whole.size(), 20U);
    const std::size_t size = GetParam();
    const std::optional<Entry> entry = parse(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
    ASSERT_EQ(entry.has_value(), size >= 4);
    if (!entry) return;
    EXPECT_EQ(entry->processId, 12345);
    EXPECT_EQ(entry->applicationName, size >= 11 ? "ostrel" : "");
    EXPECT_EQ(entry->description, size >= 11 ? "(FS) File Server" : "");
    EXPECT_EQ(entry->version, size >= 15 ? "1.2" : "");
    EXPECT_EQ(entry->versionLabel, size >= 20 ? "Beta" : "");
    EXPECT_EQ(entry->localAlias, "");
}

INSTANTIATE_TEST_SUITE_P(AtEachByte, TruncatedConnectionInfo, testing::Range(std::size_t{0}, std::size_t{21}));

/// The same rules by offsets into the payload: each length stands behind the former text.
Entry byOffsets(const Bytes& payload) {
    const std::size_t p = payload.size();
    const auto length = [&](std::size_t at) { return p > at ? std::size_t{payload[at]} : std::size_t{0}; };
    const auto text = [&](std::size_t at, std::size_t n) {
        if (n == 0 || p < at + n) return std::string();
        const auto begin = payload.begin() + static_cast<std::ptrdiff_t>(at);
        return std::string(begin, begin + static_cast<std::ptrdiff_t>(n));
    };
    const std::size_t n1 = length(4), n2 = length(5 + n1), n3 = length(6 + n1 + n2);
    Entry entry;
    entry.processId =
        static_cast<std::int32_t>(payload[0] + 256U * payload[1] + 65536U * payload[2] + 16777216U * payload[3]);
    entry.applicationName = text(5, n1);
    entry.version = text(6 + n1, n2);
    entry.versionLabel = text(7 + n1 + n2, n3);
    return entry;
}

TEST(ConnectionInfo, AgreesWithTheOffsetsForRandomPayloads) {
    std::mt19937 random(20240229);
    for (int i = 0; i < 30000; ++i) {
        Bytes payload(4 + random() % 24);
        const unsigned largest = i % 3 == 0 ? 256 : 8;
        for (std::uint8_t& byte : payload) byte = static_cast<std::uint8_t>(random() % largest);
        const std::optional<Entry> entry = parse(payload);
        ASSERT_TRUE(entry);
        ASSERT_EQ(*entry, byOffsets(payload)) << testing::PrintToString(payload);
    }
}

}  // namespace
