#include "sw_drv/RTkernel/linux/WholeText.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

using threadfunc::printWhole;

namespace {

/// Keeps what arrives, piece by piece.
class Arrivals : public std::streambuf {
public:
    std::vector<std::string> pieces;
    int flushes = 0;

private:
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        EXPECT_EQ(flushes, 0);
        pieces.emplace_back(text, static_cast<std::size_t>(size));
        return size;
    }
    int_type overflow(int_type letter) override {
        pieces.emplace_back(1, static_cast<char>(letter));
        return letter;
    }
    int sync() override {
        ++flushes;
        return 0;
    }
};

struct PieceRow {
    const char* why;
    std::size_t first;
    std::size_t second;
    std::vector<std::size_t> arriving;
};
class WholeText : public testing::TestWithParam<PieceRow> {};
TEST_P(WholeText, ArrivesInOnePieceAndIsFlushed) {
    const std::string first(GetParam().first, 'a');
    const std::string second(GetParam().second, 'b');
    Arrivals arrivals;
    std::ostream stream(&arrivals);
    stream << std::setw(5000) << std::setfill('0');  // left by somebody else: not for this text
    printWhole(stream, {first, second, "\n"});
    std::string all;
    std::vector<std::size_t> sizes;
    for (const std::string& piece : arrivals.pieces) {
        all += piece;
        sizes.push_back(piece.size());
    }
    EXPECT_EQ(all, first + second + "\n");
    EXPECT_EQ(sizes, GetParam().arriving);
    EXPECT_EQ(arrivals.flushes, 1);
}
INSTANTIATE_TEST_SUITE_P(Rows, WholeText,
                         testing::Values(PieceRow{"emptyLine", 0, 0, {1}}, PieceRow{"line", 20, 30, {51}},
                                         PieceRow{"longest", 1000, 23, {1024}},
                                         PieceRow{"oneMoreGoesInTwo", 1000, 24, {1024, 1}},
                                         PieceRow{"muchMoreInSeveral", 10, 2500, {1024, 1024, 463}}),
                         [](const auto& row) { return std::string(row.param.why); });

struct MissingRow {
    const char* why;
    std::string_view first;
    std::string_view second;
    const char* arriving;
    bool failed;
};
class MissingPiece : public testing::TestWithParam<MissingRow> {};
TEST_P(MissingPiece, EndsTheTextAndLeavesTheStreamFailed) {
    std::stringbuf arrived;
    std::ostream stream(&arrived);
    printWhole(stream, {GetParam().first, GetParam().second, "\n"});
    EXPECT_EQ(arrived.str(), GetParam().arriving);
    EXPECT_EQ(stream.bad(), GetParam().failed);
}
INSTANTIATE_TEST_SUITE_P(Rows, MissingPiece,
                         testing::Values(MissingRow{"second", "text", {}, "text", true},
                                         MissingRow{"first", {}, "text", "", true},
                                         MissingRow{"emptyIsNotMissing", "", "text", "text\n", false},
                                         MissingRow{"lastEmptyIsNotMissing", "text", "", "text\n", false}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(TextBeforeAMissingPiece, IsFlushed) {
    Arrivals arrivals;
    std::ostream stream(&arrivals);
    printWhole(stream, {"text", {}, "\n"});
    EXPECT_EQ(arrivals.pieces, std::vector<std::string>{"text"});
    EXPECT_EQ(arrivals.flushes, 1);
}

}  // namespace
