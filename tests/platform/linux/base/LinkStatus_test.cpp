#include "platform/linux/base/LinkStatus.h"

#include <gtest/gtest.h>

namespace {

TEST(LinkStatus, NewOneIsAllZero) {
    const LinkStatus status;
    EXPECT_FALSE(status.connected || status.closing || status.dispatchRunning || status.pingRunning);
    EXPECT_EQ(status.maxRoundTrip, 0);
    EXPECT_EQ(status.totalRoundTrip, 0);
    EXPECT_EQ(status.responseCount, 0U);
}

TEST(LinkStatus, FieldsStandInTheirOrder) {
    const auto [connected, closing, dispatchRunning, pingRunning, maxRoundTrip, totalRoundTrip, responseCount] =
        LinkStatus{true, false, true, false, 1.5, 2.5, 7};
    EXPECT_TRUE(connected && dispatchRunning);
    EXPECT_FALSE(closing || pingRunning);
    EXPECT_EQ(maxRoundTrip, 1.5);
    EXPECT_EQ(totalRoundTrip, 2.5);
    EXPECT_EQ(responseCount, 7U);
}

struct DifferenceRow {
    const char* why;
    LinkStatus a, b;
    double maxRoundTrip, totalRoundTrip;
    std::uint32_t responseCount;
};

class LinkStatusDifference : public testing::TestWithParam<DifferenceRow> {};

TEST_P(LinkStatusDifference, IsThatOfTheFiguresWithAllFlagsFalse) {
    const LinkStatus difference = GetParam().a - GetParam().b;
    EXPECT_FALSE(difference.connected || difference.closing || difference.dispatchRunning || difference.pingRunning);
    EXPECT_EQ(difference.maxRoundTrip, GetParam().maxRoundTrip);
    EXPECT_EQ(difference.totalRoundTrip, GetParam().totalRoundTrip);
    EXPECT_EQ(difference.responseCount, GetParam().responseCount);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, LinkStatusDifference,
    testing::Values(DifferenceRow{"ofNothing", {}, {}, 0, 0, 0},
                    DifferenceRow{"ofAnInterval",
                                  {true, true, true, true, 0.5, 8.25, 30},
                                  {true, true, true, true, 0.25, 8, 20},
                                  0.25,
                                  0.25,
                                  10},
                    DifferenceRow{"flagsOfOneSide", {true, true, true, true, 1, 1, 1}, {}, 1, 1, 1},
                    DifferenceRow{"flagsOfTheOtherSide", {}, {true, true, true, true, 0, 0, 0}, 0, 0, 0},
                    DifferenceRow{"afterAReset",
                                  {true, false, true, false, 0.25, 0.5, 2},
                                  {true, false, true, false, 1, 4, 3},
                                  -0.75,
                                  -3.5,
                                  0xFFFFFFFF}),
    [](const auto& row) { return std::string(row.param.why); });

}  // namespace
