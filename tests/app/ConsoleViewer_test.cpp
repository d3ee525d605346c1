#include "app/ConsoleViewer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <streambuf>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include "tests/Hardware/HandServer.h"
#include "tests/app/ForkedRun.h"

using namespace CANFlasher;
using namespace std::chrono_literals;
using testsupport::bytes;
using testsupport::ForkedRun;
using testsupport::HandConnection;
using testsupport::HandServer;

namespace {

constexpr int kGoesOn = 42;  // status of a process whose viewer did not end it

class Viewer : public consoleViewer {
public:
    explicit Viewer(bool followUpload) : consoleViewer(followUpload, 41265, "localhost") {}
    using consoleViewer::exitAfterFirstDraw;
    using consoleViewer::firstDraw;
};

/// A process that shows `statuses` and then ends with kGoesOn.
class Showing : public ForkedRun {
public:
    Showing(bool followUpload, const std::vector<TStatus>& statuses)
        : ForkedRun([&] {
              Viewer viewer(followUpload);
              for (const TStatus& status : statuses) viewer.statusChanged(status);
              return kGoesOn;
          }) {}
};

struct Row {
    const char* why;
    std::uint32_t state;
    const char* text;
    bool ends;
};
class ConsoleViewerState : public testing::TestWithParam<Row> {
protected:
    std::string block() const {
        return std::string(
                   "\x1b[6A"
                   "Upload state:\x1b[0K\n"
                   "    mode     Global\x1b[0K\n"
                   "    state    ") +
               GetParam().text +
               "\x1b[0K\n"
               "    progress 42%\x1b[0K\n"
               "    adr      2a\x1b[0K\n"
               "    serial   12345\x1b[0K\n";
    }
    const TStatus status{Global, GetParam().state, 42, 0x2A, 12345};
};

TEST_P(ConsoleViewerState, IsPaintedAndEndsTheProcessWhenItIsFinal) {
    Showing process(true, {status});
    EXPECT_EQ(process.wait(), GetParam().ends ? 0 : kGoesOn);
    EXPECT_EQ(process.standardOutput(), "\n\n\n\n\n\n\n" + block() + (GetParam().ends ? "\n" : ""));
    EXPECT_EQ(process.standardError(), "");
}

TEST_P(ConsoleViewerState, EndsTheProcessAtOnceWithoutFollowing) {
    Showing process(false, {status});
    EXPECT_EQ(process.wait(), 0);
    EXPECT_EQ(process.standardOutput(), "\n\n\n\n\n\n\n" + block() + "\n");
}

TEST_P(ConsoleViewerState, IsPaintedOverTheBlockBefore) {
    Showing process(true, {{Global, Idle, 42, 0x2A, 0xFFFFFFFF}, status});
    EXPECT_EQ(process.wait(), GetParam().ends ? 0 : kGoesOn);
    EXPECT_EQ(process.standardOutput(),
              "\n\n\n\n\n\n\n"
              "\x1b[6A"
              "Upload state:\x1b[0K\n"
              "    mode     Global\x1b[0K\n"
              "    state    Idle\x1b[0K\n"
              "    progress 42%\x1b[0K\n"
              "    adr      2a\x1b[0K\n"
              "    serial   ---\x1b[0K\n" +
                  block() + (GetParam().ends ? "\n" : ""));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ConsoleViewerState,
    testing::Values(Row{"locked", 0, "Locked", true}, Row{"idle", 1, "Idle", false},
                    Row{"preparing", 2, "Preparing for upload", false},
                    Row{"searching", 3, "Searching for device", false}, Row{"erasing", 4, "Erasing FLASH", false},
                    Row{"programming", 5, "Programming", false}, Row{"done", 6, "Done", true},
                    Row{"unknownKeepsWaiting", 7, "unknown", false}, Row{"lastOfTheGap", 99, "unknown", false},
                    Row{"deviceNotFound", 100, "Error! Device not found.", true},
                    Row{"eraseTimeout", 101, "Error! Timed out while waiting for FLASH erase.", true},
                    Row{"responseTimeout", 102, "Error! Timed out while waiting for response.", true},
                    Row{"hexFileNotFound", 103, "Error! Unable to find the hex file.", true},
                    Row{"hexFileOpen", 104, "Error! Unable to open the hex file.", true},
                    Row{"hexFileFormat", 105, "Error! The hex file is incorrectly formatted.", true},
                    Row{"beyondTheNames", 106, "unknown", true}, Row{"largestByte", 255, "unknown", true},
                    Row{"largestSigned", 2147483647, "unknown", true},
                    Row{"signBitKeepsWaiting", 2147483648U, "unknown", false},
                    Row{"allOnesKeepsWaiting", 4294967295U, "unknown", false}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(ConsoleViewer, PaintsNothingByItself) {
    ForkedRun process([] {
        const Viewer viewer(true);
        return kGoesOn;
    });
    EXPECT_EQ(process.wait(), kGoesOn);
    EXPECT_EQ(process.standardOutput(), "");
}

TEST(ConsoleViewer, TheFieldsSayWhatWasAskedForAndWhetherABlockStands) {
    for (const bool followUpload : {true, false}) {
        ForkedRun process([followUpload] {
            Viewer viewer(followUpload);
            if (viewer.exitAfterFirstDraw != (followUpload ? 0 : 1)) return 1;
            if (!viewer.firstDraw) return 2;
            viewer.drawStatus({MTCAN, Programming, 42, 0x2A, 12345});
            return viewer.firstDraw ? 3 : kGoesOn;
        });
        EXPECT_EQ(process.wait(), kGoesOn) << followUpload;
    }
}

TEST(ConsoleViewer, PaintingAloneEndsNothingAndTheNextBlockCoversTheOneBefore) {
    ForkedRun process([] {
        consoleViewer viewer(false, 41265, "localhost");
        viewer.drawStatus({MTCAN, Done, 100, 0x2A, 12345});
        viewer.drawStatus({MTCAN, Locked, 100, 0x2A, 12345});
        return kGoesOn;
    });
    EXPECT_EQ(process.wait(), kGoesOn);
    const std::string before = "\x1b[6AUpload state:\x1b[0K\n    mode     MT CAN\x1b[0K\n    state    ";
    const std::string after = "\x1b[0K\n    progress 100%\x1b[0K\n    adr      2a\x1b[0K\n    serial   12345\x1b[0K\n";
    EXPECT_EQ(process.standardOutput(), "\n\n\n\n\n\n\n" + before + "Done" + after + before + "Locked" + after);
}

/// Takes the place of the terminal: holds up the first paint until its viewer is being destroyed, and then looks for a
/// while whether the viewer stays one.
class HeldPaint : public std::streambuf {
public:
    explicit HeldPaint(const CANFlasherClient& painted) : client(painted) {}

    std::atomic<bool> begun{false};
    std::atomic<bool> destroying{false};
    std::atomic<bool> stayedWhole{false};

protected:
    int sync() override {
        if (begun.exchange(true)) return 0;
        stayedWhole = testsupport::waitFor([this] { return destroying.load(); }) &&
                      !testsupport::waitFor([this] { return typeid(client) != typeid(consoleViewer); }, 200ms);
        return 0;
    }
    int_type overflow(int_type letter) override { return letter; }

private:
    const CANFlasherClient& client;
};

// The base waits for the dispatch thread as well, but by then nothing of the viewer is left.
TEST(ConsoleViewer, IsNotTakenApartWhileItPaints) {
    HandServer server;
    ForkedRun process([&server] {
        auto viewer = std::make_unique<consoleViewer>(true, server.port(), "127.0.0.1");
        HeldPaint paint(*viewer);
        std::streambuf* const terminal = std::cout.rdbuf(&paint);
        if (!viewer->connectToServer()) return 1;
        if (!testsupport::waitFor([&paint] { return paint.begun.load(); })) return 2;
        paint.destroying = true;
        viewer.reset();
        std::cout.rdbuf(terminal);
        return paint.stayedWhole ? kGoesOn : 3;
    });
    HandConnection connection = server.accept();
    EXPECT_TRUE(connection.write(bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 1, 5, 42, 0x2A, 0x39, 0x30, 0, 0})));
    EXPECT_EQ(process.wait(), kGoesOn) << process.standardError();
}

TEST(ConsoleViewer, AFinalStateIsTheLastThatIsPainted) {
    Showing process(true, {{0, Done, 100, 1, 1}, {0, Idle, 0, 1, 1}});
    EXPECT_EQ(process.wait(), 0);
    EXPECT_EQ(process.standardOutput().find("Idle"), std::string::npos);
}

// A server that runs already tells how its last upload ended just when the program says that it cannot start one.
TEST(ConsoleViewer, AfterGivingUpNothingIsPaintedAndNoStatusEndsTheRun) {
    ForkedRun process([] {
        Viewer viewer(true);
        viewer.giveUp();
        viewer.statusChanged({MTCAN, Done, 100, 0x2A, 12345});
        viewer.giveUp();
        return kGoesOn;
    });
    EXPECT_EQ(process.wait(), kGoesOn);
    EXPECT_EQ(process.standardOutput(), "");
}

struct HeldRow {
    const char* why;
    void (*then)(Viewer&);
    int status;
    bool painted;
};
class ConsoleViewerHeld : public testing::TestWithParam<HeldRow> {};

TEST_P(ConsoleViewerHeld, ReportWaitsUntilItIsKnownWhetherItCounts) {
    ForkedRun process([] {
        Viewer viewer(true);
        viewer.holdReports();
        std::atomic<bool> came{false};
        std::thread report([&] {
            viewer.statusChanged({MTCAN, Done, 100, 0x2A, 12345});
            came = true;
        });
        std::this_thread::sleep_for(50ms);
        if (came || !viewer.firstDraw) return 1;
        GetParam().then(viewer);
        report.join();
        return kGoesOn;
    });
    EXPECT_EQ(process.wait(), GetParam().status);
    EXPECT_EQ(process.standardOutput().find("Done") != std::string::npos, GetParam().painted);
}

INSTANTIATE_TEST_SUITE_P(Rows, ConsoleViewerHeld,
                         testing::Values(HeldRow{"shown", [](Viewer& viewer) { viewer.showReports(); }, 0, true},
                                         HeldRow{"givenUp", [](Viewer& viewer) { viewer.giveUp(); }, kGoesOn, false}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(ConsoleViewer, AHeldReportDoesNotKeepTheViewer) {
    HandServer server;
    ForkedRun process([&server] {
        consoleViewer viewer(true, server.port(), "127.0.0.1");
        viewer.holdReports();
        return viewer.connectToServer() && testsupport::waitFor([&viewer] { return viewer.busy.load(); }) ? kGoesOn : 1;
    });
    HandConnection connection = server.accept();
    EXPECT_TRUE(connection.write(bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 1, 5, 42, 0x2A, 0x39, 0x30, 0, 0})));
    EXPECT_EQ(process.wait(), kGoesOn);
}

std::atomic<bool> ending{false};

TEST(ConsoleViewer, WhoGivesUpTooLateWaitsForTheEnd) {
    ForkedRun process([] {
        std::atexit([] {
            ending = true;
            std::this_thread::sleep_for(200ms);
        });
        Viewer viewer(true);
        std::thread([&viewer] { viewer.statusChanged({MTCAN, Done, 100, 0x2A, 12345}); }).detach();
        if (!testsupport::waitFor([] { return ending.load(); })) _exit(1);
        viewer.giveUp();
        _exit(kGoesOn);
        return 0;
    });
    EXPECT_EQ(process.wait(), 0);
}

}  // namespace
