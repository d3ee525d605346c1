#include "sim/Program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>

#include "sim/CommandLine.h"
#include "sim/Listeners.h"
#include "tests/sim/ProgramRun.h"
#include "tests/sim/TestClient.h"
#include "tests/support/Process.h"
#include "tests/support/TempFolder.h"

namespace {

using namespace std::chrono_literals;
using simtest::kPing;
using simtest::ProgramRun;
using simtest::TestClient;
using testsupport::waitFor;

// Mode 1, address 0x2a, serial 12345, path "/none".
constexpr char kUpload[] = "00 00 00 14 03 ec 00 08 01 2a 39 30 00 00 2f 6e 6f 6e 65 00";
constexpr char kLocked[] = "00 00 00 10 03 e8 00 08 01 00 00 2a 39 30 00 00";

bool answers(const TestClient& client) {
    client.send(kPing);
    for (std::string packet = client.receivePacket(); !packet.empty(); packet = client.receivePacket())
        if (packet == kPing) return true;
    return false;
}

bool reachable(std::uint16_t port) {
    return waitFor([port] { return TestClient(port).connected(); });
}

/// It waits for clients and signals: under ThreadSanitizer a signal may be lost that comes just before the first call
/// that blocks.
bool serves(std::uint16_t port) { return reachable(port) && answers(TestClient(port)); }

class SimProgram : public testing::Test {
protected:
    void SetUp() override {
        if (!ProgramRun::possible()) GTEST_SKIP() << "the program cannot be run here";
    }

    std::uint16_t port = simtest::freePort();
    std::string portText = std::to_string(port);
    testsupport::TempFolder folder;
};

TEST_F(SimProgram, ShowsItsUsageOnStandardOutput) {
    ProgramRun run({"-h"});
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(run.output(), sim::usageText(CORVANE_PROGRAM));
    EXPECT_EQ(run.errors(), "");
}

TEST_F(SimProgram, BadArgumentsGiveTheUsageOnStandardErrorAndStatus2) {
    const std::vector<std::vector<std::string>> rows{
        {"-x"}, {"-p"}, {"-p", "0"}, {"-p", "65536"}, {"-q", "-i", "a"}, {"-q", "-i", "0", "-p", "41265", "more"}};
    for (const auto& arguments : rows) {
        ProgramRun run(arguments);
        EXPECT_EQ(run.wait(), 2);
        EXPECT_EQ(run.output(), "");
        const std::string errors = run.errors();
        EXPECT_EQ(errors.substr(0, 9), "corvane: ");
        EXPECT_EQ(errors.substr(errors.find('\n') + 1), sim::usageText(CORVANE_PROGRAM));
    }
}

TEST_F(SimProgram, BadScenarioNamesItsLineAndGivesStatus2) {
    const std::string scenario = folder.write("bad.scenario", "# one\nspeed 2\nclose at noon\n");
    for (const char* mode : {"-f", "-q"}) {
        ProgramRun run({mode, "-p", portText, "-s", scenario});
        EXPECT_EQ(run.wait(), 2);
        EXPECT_EQ(run.output(), "");
        EXPECT_EQ(run.errors(), "corvane: " + scenario +
                                    ":3:10: expected preparing, searching, erasing, programming, done or a percentage "
                                    "from 0% to 100%, got 'noon'\n");
    }
}

TEST_F(SimProgram, PortInUseGivesOneLineAndStatus1) {
    auto other = sim::Listeners::reserve(port);
    ASSERT_TRUE(other);
    ASSERT_FALSE(other->listen());
    for (const char* mode : {"-f", "-q"}) {
        ProgramRun run({mode, "-p", portText});
        EXPECT_EQ(run.wait(), 1);
        EXPECT_EQ(run.output(), "");
        EXPECT_EQ(run.errors(), "corvane: port " + portText + " is already in use\n");
    }
}

TEST_F(SimProgram, JournalThatCannotBeWrittenGivesStatus1) {
    ProgramRun run({"-q", "-p", portText}, {{"CORVANE_JOURNAL=/none/journal"}});
    EXPECT_EQ(run.wait(), 1);
    EXPECT_EQ(run.errors(), "corvane: /none/journal: No such file or directory\n");
}

TEST_F(SimProgram, ServesInTheForegroundUntilASignalComes) {
    for (const int number : {SIGTERM, SIGINT}) {
        ProgramRun run({"-f", "-p", portText});
        ASSERT_TRUE(reachable(port));
        const TestClient client(port);
        EXPECT_TRUE(answers(client));
        run.signal(number);
        EXPECT_EQ(run.wait(), 0);
        EXPECT_EQ(run.output(), "");
        EXPECT_NE(run.errors().find("port " + portText + ", CAN0, listens\n"), std::string::npos) << run.errors();
    }
}

TEST_F(SimProgram, QuietMeansNothingOnTheStandardStreams) {
    ProgramRun run({"-q", "-f", "-i", "-1", "-p", portText}, {{"CORVANE_LOG=" + (folder / "log")}});
    ASSERT_TRUE(serves(port));
    run.signal(SIGTERM);
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(run.output() + run.errors(), "");
    EXPECT_NE(testsupport::readFile(folder / "log").find(", CAN-1, listens\n"), std::string::npos);
}

TEST_F(SimProgram, StartsWithoutStandardDescriptors) {
    simtest::Surroundings bare;
    bare.standardDescriptors = false;
    ProgramRun run({"-f", "-p", portText}, bare);
    ASSERT_TRUE(serves(port));
    run.signal(SIGTERM);
    EXPECT_EQ(run.wait(), 0);
}

TEST_F(SimProgram, FindsReadyScenariosByName) {
    const std::vector<std::pair<std::vector<std::string>, std::vector<std::string>>> rows{
        {{"-s", "locked"}, {}}, {{}, {"CORVANE_SCENARIO=locked"}}, {{"-s", "locked"}, {"CORVANE_SCENARIO=normal"}}};
    for (const auto& [arguments, environment] : rows) {
        std::vector<std::string> all{"-f", "-p", portText};
        all.insert(all.end(), arguments.begin(), arguments.end());
        ProgramRun run(all, {environment});
        ASSERT_TRUE(reachable(port));
        const TestClient client(port);
        client.receivePacket();
        client.send(kUpload);
        EXPECT_EQ(client.receivePacket(), kLocked);
        run.signal(SIGTERM);
        EXPECT_EQ(run.wait(), 0);
    }
}

TEST_F(SimProgram, PathsMayBeRelativeToTheFolderWhereItStarts) {
    folder.write("mine", "journal here.journal\nstate Locked\n");
    ProgramRun run({"-f", "-p", portText, "-s", "./mine"}, {{}, folder.path()});
    ASSERT_TRUE(serves(port));
    EXPECT_NE(testsupport::readFile(folder / "here.journal").find(" < 1 CmdPing 9 000000090001000800\n"),
              std::string::npos);
}

TEST_F(SimProgram, ScenarioMayRefuseTheStart) {
    for (const auto& [scenario, status] : {std::pair("refuse start", 1), std::pair("refuse start 7", 7)}) {
        ProgramRun run({"-q", "-p", portText, "-s", folder.write("a", scenario)});
        EXPECT_EQ(run.wait(), status);
        EXPECT_EQ(run.errors(), "corvane: refuses to start, as the scenario says\n");
    }
}

TEST_F(SimProgram, ScenarioMayKillIt) {
    ProgramRun run({"-q", "-f", "-p", portText, "-s", folder.write("a", "state Locked; die")});
    ASSERT_TRUE(reachable(port));
    const TestClient client(port);
    client.receivePacket();
    client.send(kUpload);
    EXPECT_EQ(client.receivePacket(), kLocked);
    EXPECT_EQ(run.wait(), -SIGKILL);
    EXPECT_NE(client.ending(), "open");
}

TEST_F(SimProgram, EndsByItselfAfterItsIdleTime) {
    const auto begin = std::chrono::steady_clock::now();
    ProgramRun run({"-f", "-q", "-p", portText}, {{"CORVANE_IDLE_SECONDS=1"}});
    EXPECT_EQ(run.wait(), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
}

TEST_F(SimProgram, NeverEndsByItselfOtherwise) {
    ProgramRun run({"-f", "-q", "-p", portText});
    ASSERT_TRUE(reachable(port));
    std::this_thread::sleep_for(300ms);
    EXPECT_TRUE(answers(TestClient(port)));
}

/// The program in the background. Its orphans become children of the test, so that their end can be waited for.
class SimDaemon : public SimProgram {
protected:
    void SetUp() override {
        SimProgram::SetUp();
        prctl(PR_SET_CHILD_SUBREAPER, 1);
    }
    void TearDown() override {
        if (daemon > 0) kill(daemon, SIGKILL);
        simtest::waitForProcess(daemon);
        prctl(PR_SET_CHILD_SUBREAPER, 0);
    }

    /// Starts it as the launch command does and waits for the end of the starting process.
    std::optional<int> launch(std::vector<std::string> environment = {}) {
        environment.push_back("CORVANE_LOG=" + (folder / "log"));
        ProgramRun run({"-q", "-i", "0", "-p", portText}, {environment});
        const std::optional<int> status = run.wait();
        EXPECT_EQ(run.output() + run.errors(), "");
        if (status == 0) daemon = daemonId();
        return status;
    }

    pid_t daemonId() const {
        std::string text;
        const std::string before = "corvane: process ";
        EXPECT_TRUE(waitFor([&] {
            text = testsupport::readFile(folder / "log");
            return text.find(", port ") != std::string::npos;
        }));
        const std::size_t found = text.find(before);
        return found == std::string::npos ? -1 : std::stoi(text.substr(found + before.size()));
    }

    int endDaemon(int number) {
        kill(daemon, number);
        const std::optional<int> status = simtest::waitForProcess(daemon);
        if (status) daemon = -1;
        return status.value_or(-1000);
    }

    pid_t daemon = -1;
};

TEST_F(SimDaemon, ListensBeforeItsStarterEnds) {
    ASSERT_EQ(launch(), 0);
    const TestClient client(port);  // one attempt
    ASSERT_TRUE(client.connected());
    EXPECT_TRUE(answers(client));
    EXPECT_EQ(endDaemon(SIGTERM), 0);
    EXPECT_FALSE(TestClient(port).connected());
}

TEST_F(SimDaemon, IsADaemon) {
    ASSERT_EQ(launch(), 0);
    EXPECT_EQ(getsid(daemon), daemon);
    const std::string process = "/proc/" + std::to_string(daemon);
    EXPECT_EQ(std::filesystem::read_symlink(process + "/cwd"), "/");
    EXPECT_EQ(testsupport::readFile(process + "/comm"), "corvane\n");
    for (const char* standard : {"/fd/0", "/fd/1", "/fd/2"})
        EXPECT_EQ(std::filesystem::read_symlink(process + standard), "/dev/null");
    EXPECT_TRUE(serves(port));
    EXPECT_EQ(endDaemon(SIGINT), 0);
}

// Whoever reads the starter's pipes to their end must not wait for the daemon's.
TEST_F(SimDaemon, HoldsNoDescriptorOfItsStarter) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const sim::Descriptor reading(ends[0]);
    sim::Descriptor writing(ends[1]);
    ASSERT_EQ(launch(), 0);
    writing.reset();
    pollfd event{reading.get(), POLLIN, 0};
    EXPECT_EQ(poll(&event, 1, 30'000), 1);
    char byte = 0;
    EXPECT_EQ(read(reading.get(), &byte, 1), 0);
}

TEST_F(SimDaemon, MayListenAfterItsStarterEnded) {
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(launch({"CORVANE_SETTINGS=listen-delay 300ms"}), 0);
    EXPECT_TRUE(reachable(port));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
}

TEST_F(SimDaemon, SecondOneFindsThePortInUse) {
    ASSERT_EQ(launch(), 0);
    ProgramRun second({"-q", "-p", portText});
    EXPECT_EQ(second.wait(), 1);
    EXPECT_EQ(second.errors(), "corvane: port " + portText + " is already in use\n");
}

TEST_F(SimDaemon, StartsAgainAtOnceOnTheSamePort) {
    for (int round = 0; round < 5; ++round) {
        std::filesystem::remove(folder / "log");
        ASSERT_EQ(launch(), 0);
        const TestClient client(port);
        EXPECT_TRUE(answers(client));
        EXPECT_EQ(endDaemon(SIGTERM), 0);
    }
}

TEST_F(SimDaemon, EndsByItselfWhenIdle) {
    ASSERT_EQ(launch({"CORVANE_SETTINGS=idle 100ms"}), 0);
    EXPECT_EQ(simtest::waitForProcess(daemon), 0);
    daemon = -1;
}

}  // namespace
