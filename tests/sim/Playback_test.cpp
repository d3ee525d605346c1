#include "sim/Playback.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace std::chrono_literals;
using sim::Duration;
using sim::Frame;
using sim::Normal;
using sim::Wait;

constexpr sim::Instant kStart{};

/// Notes what it is asked. A report of the upload is its state and progress, a step is its place in the list of kinds.
class NotingStage : public sim::Stage {
public:
    bool perform(const sim::Step& step) override {
        notes += "[" + std::to_string(step.index()) + "]";
        return goOn;
    }
    std::optional<std::vector<Frame>> beginUpload() override {
        notes += "read";
        if (!fileGood) return std::nullopt;
        return std::vector<Frame>{{2, 0, 0ms},   {3, 0, 10ms},   {4, 0, 20ms},  {5, 0, 30ms},
                                  {5, 40, 40ms}, {5, 100, 50ms}, {6, 100, 60ms}};
    }
    void show(const Frame& frame) override {
        notes += " " + std::to_string(frame.state) + "/" + std::to_string(frame.progress);
    }

    std::string notes;
    bool goOn = true;
    bool fileGood = true;
};

/// All that happens up to `now`.
std::string playedUntil(Duration now, const sim::Sequence& steps, std::uint32_t speed = 1) {
    NotingStage stage;
    sim::Playback playback(steps, speed, kStart);
    playback.advance(kStart + now, stage);
    return stage.notes;
}

const sim::Step kReport = sim::Report{};  // kind 3

TEST(SimPlayback, ShowsEachReportWhenItsTimeHasCome) {
    const sim::Sequence steps{Normal{}};
    EXPECT_EQ(playedUntil(0ms, steps), "read 2/0");
    EXPECT_EQ(playedUntil(9ms, steps), "read 2/0");
    EXPECT_EQ(playedUntil(10ms, steps), "read 2/0 3/0");
    EXPECT_EQ(playedUntil(99ms, steps), "read 2/0 3/0 4/0 5/0");
    EXPECT_EQ(playedUntil(150ms, steps), "read 2/0 3/0 4/0 5/0 5/40 5/100");
    EXPECT_EQ(playedUntil(1h, steps), "read 2/0 3/0 4/0 5/0 5/40 5/100 6/100");
}

TEST(SimPlayback, DoesTheSameHoweverOftenItIsCalled) {
    const sim::Sequence steps{Normal{}, kReport};
    NotingStage stage;
    sim::Playback playback(steps, 1, kStart);
    for (auto now = 0ms; now <= 210ms; now += 1ms) playback.advance(kStart + now, stage);
    EXPECT_EQ(stage.notes, "read 2/0 3/0 4/0 5/0 5/40 5/100 6/100[3]");
    EXPECT_TRUE(playback.finished());
}

TEST(SimPlayback, SaysWhenTheNextStepIsDue) {
    const sim::Sequence steps{Wait{15ms}, kReport};
    NotingStage stage;
    sim::Playback playback(steps, 1, kStart + 5ms);
    EXPECT_EQ(playback.due(), kStart + 5ms);
    playback.advance(kStart + 12ms, stage);
    EXPECT_EQ(playback.due(), kStart + 20ms);
    EXPECT_FALSE(playback.finished());
}

TEST(SimPlayback, CatchesUpWithoutDrift) {
    const sim::Sequence steps{Wait{10ms}, kReport, Wait{10ms}, kReport};
    NotingStage stage;
    sim::Playback playback(steps, 1, kStart);
    playback.advance(kStart, stage);
    playback.advance(kStart + 18ms, stage);
    EXPECT_EQ(stage.notes, "[3]");
    playback.advance(kStart + 20ms, stage);
    EXPECT_EQ(stage.notes, "[3][3]");
}

TEST(SimPlayback, SpeedDividesAllTimes) {
    EXPECT_EQ(playedUntil(1999us, {Wait{20ms}, kReport}, 10), "");
    EXPECT_EQ(playedUntil(2000us, {Wait{20ms}, kReport}, 10), "[3]");
    EXPECT_EQ(playedUntil(21ms, {Normal{}}, 10), "read 2/0 3/0 4/0 5/0 5/40 5/100 6/100");
}

struct Until {
    const char* why;
    sim::Moment moment;
    Duration reachedAt;
    const char* shown;
};
class SimUntil : public testing::TestWithParam<Until> {};
TEST_P(SimUntil, PausesThereAndGoesOnAfterwards) {
    const sim::Sequence steps{Normal{GetParam().moment}, kReport, Normal{}};
    if (GetParam().reachedAt > 0ms) {
        const std::string before = playedUntil(GetParam().reachedAt - 1us, steps);
        EXPECT_EQ(before.find("[3]"), std::string::npos);
    }
    const std::string at = playedUntil(GetParam().reachedAt, steps);
    EXPECT_EQ(at.substr(0, at.find("[3]") + 3), std::string("read") + GetParam().shown + "[3]");
    std::string all = playedUntil(210ms, steps);
    all.erase(all.find("[3]"), 3);
    EXPECT_EQ(all, "read 2/0 3/0 4/0 5/0 5/40 5/100 6/100");
}
INSTANTIATE_TEST_SUITE_P(Rows, SimUntil,
                         testing::Values(Until{"preparing", {2, {}}, 10ms, " 2/0"},
                                         Until{"searching", {3, {}}, 30ms, " 2/0 3/0"},
                                         Until{"erasing", {4, {}}, 60ms, " 2/0 3/0 4/0"},
                                         Until{"programming", {5, {}}, 210ms, " 2/0 3/0 4/0 5/0 5/40 5/100"},
                                         Until{"done", {6, {}}, 210ms, " 2/0 3/0 4/0 5/0 5/40 5/100 6/100"},
                                         Until{"percent0", {5, 0}, 60ms, " 2/0 3/0 4/0 5/0"},
                                         Until{"percentBetween", {5, 39}, 100ms, " 2/0 3/0 4/0 5/0 5/40"},
                                         Until{"percentExact", {5, 40}, 100ms, " 2/0 3/0 4/0 5/0 5/40"},
                                         Until{"percent100", {5, 100}, 150ms, " 2/0 3/0 4/0 5/0 5/40 5/100"}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(SimPlayback, MomentThatIsOverNeedsNoTime) {
    const sim::Sequence steps{Normal{{5, 40}}, Normal{{3, {}}}, Normal{{5, 10}}, kReport};
    EXPECT_EQ(playedUntil(100ms, steps), "read 2/0 3/0 4/0 5/0 5/40[3]");
}

TEST(SimPlayback, BadFileEndsTheSequence) {
    NotingStage stage;
    stage.fileGood = false;
    const sim::Sequence steps{kReport, Normal{}, kReport};
    sim::Playback playback(steps, 1, kStart);
    playback.advance(kStart, stage);
    EXPECT_EQ(stage.notes, "[3]read");
    EXPECT_TRUE(playback.finished());
}

TEST(SimPlayback, StageMayEndTheSequence) {
    NotingStage stage;
    stage.goOn = false;
    const sim::Sequence steps{kReport, kReport};
    sim::Playback playback(steps, 1, kStart);
    playback.advance(kStart, stage);
    EXPECT_EQ(stage.notes, "[3]");
    EXPECT_TRUE(playback.finished());
}

TEST(SimPlayback, EmptySequenceIsOverAtOnce) {
    NotingStage stage;
    const sim::Sequence steps;
    sim::Playback playback(steps, 1, kStart);
    EXPECT_EQ(playback.due(), kStart);
    playback.advance(kStart, stage);
    EXPECT_TRUE(playback.finished());
}

TEST(SimPlayback, WaitAtTheEndBelongsToTheSequence) {
    NotingStage stage;
    const sim::Sequence steps{kReport, Wait{10ms}};
    sim::Playback playback(steps, 1, kStart);
    playback.advance(kStart + 9ms, stage);
    EXPECT_FALSE(playback.finished());
    EXPECT_EQ(playback.due(), kStart + 10ms);
    playback.advance(kStart + 10ms, stage);
    EXPECT_TRUE(playback.finished());
}

}  // namespace
