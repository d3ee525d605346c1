#include "app/StatusBlock.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

using namespace CANFlasher;

namespace {

struct Row {
    const char* why;
    TStatus status;
    std::array<std::string, 6> lines;
};
class StatusLines : public testing::TestWithParam<Row> {};

TEST_P(StatusLines, AreLabelValueAndClear) { EXPECT_EQ(statusLines(GetParam().status), GetParam().lines); }

INSTANTIATE_TEST_SUITE_P(
    Rows, StatusLines,
    testing::Values(
        Row{"default",
            {},
            {"Upload state:\x1b[0K", "    mode     ISO Style\x1b[0K", "    state    Idle\x1b[0K",
             "    progress 0%\x1b[0K", "    adr      fe\x1b[0K", "    serial   ---\x1b[0K"}},
        Row{"ordinary",
            {1, 3, 42, 0x2A, 12345},
            {"Upload state:\x1b[0K", "    mode     MT CAN\x1b[0K", "    state    Searching for device\x1b[0K",
             "    progress 42%\x1b[0K", "    adr      2a\x1b[0K", "    serial   12345\x1b[0K"}},
        Row{"largestKnownSerial",
            {2, 5, 100, 0, 0x1FFFFFFE},
            {"Upload state:\x1b[0K", "    mode     New Module\x1b[0K", "    state    Programming\x1b[0K",
             "    progress 100%\x1b[0K", "    adr      0\x1b[0K", "    serial   536870910\x1b[0K"}},
        Row{"smallestUnknownSerial",
            {3, 6, 100, 253, 0x1FFFFFFF},
            {"Upload state:\x1b[0K", "    mode     Global\x1b[0K", "    state    Done\x1b[0K",
             "    progress 100%\x1b[0K", "    adr      fd\x1b[0K", "    serial   ---\x1b[0K"}},
        Row{"serialWithTheSignBit",
            {0, 0, 7, 7, 0x80000000},
            {"Upload state:\x1b[0K", "    mode     ISO Style\x1b[0K", "    state    Locked\x1b[0K",
             "    progress 7%\x1b[0K", "    adr      7\x1b[0K", "    serial   ---\x1b[0K"}},
        Row{"nothingHasAName",
            {4, 7, 0xFFFFFFFF, 0xABCDEF01, 0},
            {"Upload state:\x1b[0K", "    mode     unknown\x1b[0K", "    state    unknown\x1b[0K",
             "    progress -1%\x1b[0K", "    adr      abcdef01\x1b[0K", "    serial   0\x1b[0K"}},
        Row{"error",
            {0, 100, 255, 255, 1},
            {"Upload state:\x1b[0K", "    mode     ISO Style\x1b[0K", "    state    Error! Device not found.\x1b[0K",
             "    progress 255%\x1b[0K", "    adr      ff\x1b[0K", "    serial   1\x1b[0K"}}),
    [](const auto& row) { return std::string(row.param.why); });

constexpr const char* kDefaultBlock =
    "\x1b[6A"
    "Upload state:\x1b[0K\n"
    "    mode     ISO Style\x1b[0K\n"
    "    state    Idle\x1b[0K\n"
    "    progress 0%\x1b[0K\n"
    "    adr      fe\x1b[0K\n"
    "    serial   ---\x1b[0K\n";

TEST(StatusBlock, FirstPaintMakesRoomOnce) {
    std::ostringstream out;
    bool firstDraw = true;
    drawStatus(out, {}, firstDraw);
    EXPECT_EQ(out.str(), std::string("\n\n\n\n\n\n\n") + kDefaultBlock);
    EXPECT_FALSE(firstDraw);

    out.str("");
    drawStatus(out, {}, firstDraw);
    EXPECT_EQ(out.str(), kDefaultBlock);
    EXPECT_FALSE(firstDraw);
}

TEST(StatusBlock, ARepaintCoversTheWholeOfTheBlockBefore) {
    std::ostringstream out;
    bool firstDraw = false;
    drawStatus(out, {0, 5, 100, 0x2A, 12345}, firstDraw);
    drawStatus(out, {0, 6, 5, 0x2A, 0xFFFFFFFF}, firstDraw);
    EXPECT_EQ(out.str(),
              "\x1b[6A"
              "Upload state:\x1b[0K\n"
              "    mode     ISO Style\x1b[0K\n"
              "    state    Programming\x1b[0K\n"
              "    progress 100%\x1b[0K\n"
              "    adr      2a\x1b[0K\n"
              "    serial   12345\x1b[0K\n"
              "\x1b[6A"
              "Upload state:\x1b[0K\n"
              "    mode     ISO Style\x1b[0K\n"
              "    state    Done\x1b[0K\n"
              "    progress 5%\x1b[0K\n"
              "    adr      2a\x1b[0K\n"
              "    serial   ---\x1b[0K\n");
}

TEST(StatusBlock, LeavesTheStreamDecimal) {
    std::ostringstream out;
    bool firstDraw = false;
    drawStatus(out, {}, firstDraw);
    out.str("");
    out << 255;
    EXPECT_EQ(out.str(), "255");
}

// Standard output shared with a program that made it non-blocking, or a disk that was full for a while.
TEST(StatusBlock, ABlockThatDidNotGetOutKeepsBackNone) {
    std::ostringstream out;
    bool firstDraw = false;
    out.setstate(std::ios_base::badbit);
    drawStatus(out, {}, firstDraw);
    EXPECT_EQ(out.str(), kDefaultBlock);
}

/// Remembers what was written between two flushes.
class FlushRecorder : public std::streambuf {
public:
    std::vector<std::string> pieces;

protected:
    int sync() override {
        pieces.push_back(piece);
        piece.clear();
        return 0;
    }
    int_type overflow(int_type letter) override {
        piece += static_cast<char>(letter);
        return letter;
    }

private:
    std::string piece;
};

TEST(StatusBlock, FlushesAfterEachLine) {
    FlushRecorder recorder;
    std::ostream out(&recorder);
    bool firstDraw = true;
    drawStatus(out, {}, firstDraw);
    EXPECT_EQ(recorder.pieces,
              (std::vector<std::string>{"\n", "\n", "\n", "\n", "\n", "\n", "\n", "\x1b[6AUpload state:\x1b[0K\n",
                                        "    mode     ISO Style\x1b[0K\n", "    state    Idle\x1b[0K\n",
                                        "    progress 0%\x1b[0K\n", "    adr      fe\x1b[0K\n",
                                        "    serial   ---\x1b[0K\n"}));
}

}  // namespace
