#include "Hardware/CANFlasherClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/Hardware/HandServer.h"
#include "tests/Hardware/Intercept.h"
#include "tests/Hardware/RecordingClient.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Process.h"

using namespace CANFlasher;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::Bytes;
using testsupport::bytes;
using testsupport::HandConnection;
using testsupport::HandServer;
using testsupport::RecordingClient;
using testsupport::statusPacket;
using testsupport::waitFor;

namespace {

/// Hands a CmdStatus of `state`, all else 0, to the client.
void report(CANFlasherClient& client, int state) {
    ProprietarySocketCommon::TPacket packet(8, CmdStatus);
    std::fill_n(packet.getPayload(), 8, static_cast<unsigned char>(0));
    packet.getPayload()[1] = static_cast<unsigned char>(state);
    ProprietarySocketCommon::TPacket* pointer = &packet;
    client.handleRxPacket(pointer);
}

std::string statusHook(int state, int progress) {
    return "status 0 " + std::to_string(state) + " " + std::to_string(progress) + " 42 1";
}

class CANFlasherClientTest : public testing::Test {
protected:
    /// Connects the client and returns the server's end.
    HandConnection connect() {
        EXPECT_TRUE(client.connectToServer());
        return server.accept();
    }

    /// Waits until the hooks were called `count` times, then returns the calls.
    std::vector<std::string> hooksAfter(std::size_t count) {
        EXPECT_TRUE(waitFor([&] { return client.hooks().size() >= count; }));
        return client.hooks();
    }

    HandServer server;
    RecordingClient client{server.port()};
};

TEST_F(CANFlasherClientTest, StartsWithTheDefaultStatusAndNoConnection) {
    EXPECT_EQ(client.currentStatus(), TStatus{});
    EXPECT_FALSE(client.isBusy());
    EXPECT_FALSE(client.busy);
    EXPECT_FALSE(client.suppressPolling);
    EXPECT_FALSE(client.keepConnection);
    EXPECT_EQ(client.updateQueue.capacity, 100U);
    EXPECT_EQ(client.stepTimer.interval(), 50);
    EXPECT_EQ(client.pollTimer.interval(), 1000);
    EXPECT_TRUE(server.isLeftAloneFor(20ms));
}

TEST_F(CANFlasherClientTest, SetsADisconnectHookThatReturnsItsArgument) {
    ASSERT_NE(client.onDisconnect.load(), nullptr);
    EXPECT_EQ(client.onDisconnect.load()(&client), &client);
}

TEST(CANFlasherClientWorker, IsStartedByTheConstructorWithItsOrigin) {
    const HandServer server(HandServer::Start::later);
    const RecordingClient startsTheTimerThread(server.port());
    const testsupport::CapturedOutput output(STDOUT_FILENO);
    threadfunc::threadQuietOff();
    {
        const testsupport::CapturedOutput nothingAboutPriorities(STDERR_FILENO);
        const RecordingClient client(server.port());
        EXPECT_TRUE(waitFor([&] { return output.text().find("line 62\n") != std::string::npos; })) << output.text();
    }
    threadfunc::threadQuietOn();
    EXPECT_THAT(output.text(), testing::MatchesRegex("Starting thread\\. Process: [0-9]+, thread: [0-9]+, "
                                                     "priority: (30|99)\n"  // 99: no right to a priority
                                                     "Call origin: Hardware/CANFlasherClient line 62\n"));
}

TEST(CANFlasherClientWorker, IsAskedForWithItsPriorityAndTheDefaultStack) {
    const RecordingClient startsTheTimerThread(2000);
    std::vector<testsupport::ThreadRequest> threads;
    testsupport::RecordedCalls calls;
    calls.mayCreate = [&](const testsupport::ThreadRequest& thread) {
        threads.push_back(thread);
        return true;
    };
    const RecordingClient client(2000);
    EXPECT_EQ(threads, (std::vector<testsupport::ThreadRequest>{{30, 0, "Hardware/CANFlasherClient", 62}}));
}

TEST(CANFlasherClientWorker, ThatCannotBeStartedIsNotWaitedFor) {
    const testsupport::CapturedOutput standardError(STDERR_FILENO);
    HandServer server;
    HandConnection connection;
    {
        testsupport::RecordedCalls calls;
        calls.mayCreate = [](const testsupport::ThreadRequest& thread) { return thread.originLine != 62; };
        RecordingClient client(server.port());
        EXPECT_EQ(client.upload(ISOStyle, 1, 1, "/proc/self/exe"), kUploadRequested);
        connection = server.accept();
        EXPECT_EQ(connection.readPacket(), bytes({0, 0, 0, 8, 0x03, 0xE9, 0, 8})) << "the caller's own request";
    }
    EXPECT_TRUE(connection.endsByPeer());
    EXPECT_EQ(standardError.text(), "") << "no thread to join, and none that was joined";
}

TEST(CANFlasherClientLife, LeavesNoThreadAndNoDescriptorBehind) {
    HandServer server;
    { const RecordingClient startsTheTimerThread(server.port()); }
    const std::size_t threads = testsupport::runningThreads();
    const std::size_t descriptors = testsupport::openDescriptors();
    for (int round = 0; round < 10; ++round) {
        RecordingClient client(server.port());
        EXPECT_EQ(client.upload(ISOStyle, 1, 1, "/proc/self/exe"), kUploadRequested);
        HandConnection connection = server.accept();
        EXPECT_TRUE(connection.write(statusPacket(5, round)));
    }
    EXPECT_TRUE(waitFor([&] { return testsupport::runningThreads() <= threads; }));
    EXPECT_EQ(testsupport::openDescriptors(), descriptors);
}

TEST(CANFlasherClientLife, NeedsNoWordOfWarningFromTheSocketLayer) {
    const testsupport::CapturedOutput standardError(STDERR_FILENO);
    HandServer server;
    HandConnection connection;
    {
        CANFlasherClient client(server.port(), "127.0.0.1");
        EXPECT_TRUE(client.connectToServer());
        connection = server.accept();
    }
    EXPECT_TRUE(connection.endsByPeer());
    EXPECT_EQ(standardError.text(), "");
}

// ---- connectToServer

TEST(CANFlasherClientConnect, MakesSixAttemptsWithAPauseBehindEach) {
    const HandServer server(HandServer::Start::later);
    RecordingClient client(server.port());
    const testsupport::RecordedCalls calls;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(client.connectToServer());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
    EXPECT_EQ(calls.count("connect"), 6);
}

TEST(CANFlasherClientConnect, ReturnsAtTheFirstSuccess) {
    HandServer server;
    RecordingClient client(server.port());
    const testsupport::RecordedCalls calls;
    EXPECT_TRUE(client.connectToServer());
    EXPECT_TRUE(client.connectToServer()) << "the connection that stands is a success";
    EXPECT_EQ(calls.count("connect"), 1);
}

TEST(CANFlasherClientConnect, SucceedsAsSoonAsTheServerListens) {
    HandServer server(HandServer::Start::later);
    testsupport::RecordedCalls calls;
    std::once_flag once;
    calls.onCall = [&] {
        if (calls.count("connect") == 3) std::call_once(once, [&] { server.listen(); });
    };
    RecordingClient client(server.port());
    std::thread([&] { EXPECT_TRUE(client.connectToServer()); }).join();
    EXPECT_EQ(calls.count("connect"), 3);
}

TEST_F(CANFlasherClientTest, ALinkThatTheServerClosedIsNotOpenedAgainByItself) {
    HandConnection connection = connect();
    EXPECT_EQ(client.upload(ISOStyle, 1, 1, "/proc/self/exe"), kUploadRequested);
    client.pollTimer.setInterval(30);
    connection.close();
    EXPECT_TRUE(waitFor([&] { return !client.connectToServer(); }));
    const int before = client.connectCalls;
    EXPECT_TRUE(waitFor([&] { return client.connectCalls >= before + 3; })) << "polling goes on";
    EXPECT_TRUE(server.isLeftAloneFor(0ms));
    EXPECT_EQ(client.upload(ISOStyle, 1, 1, "/proc/self/exe"), kUploadServerNotReachable);

    client.closeSocket(true);
    EXPECT_TRUE(client.connectToServer());
    EXPECT_TRUE(server.accept().isOpen());
}

// ---- status reports

TEST_F(CANFlasherClientTest, AReportReachesTheStatusAndTheHooks) {
    HandConnection connection = connect();
    connection.write(bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 3, 5, 42, 0x2A, 0x78, 0x56, 0x34, 0x12}));
    EXPECT_THAT(hooksAfter(2), ElementsAre("busy 1", "status 3 5 42 42 305419896"));
    EXPECT_EQ(client.currentStatus(), (TStatus{3, 5, 42, 42, 0x12345678}));
    EXPECT_TRUE(client.isBusy());
}

TEST_F(CANFlasherClientTest, AReportLikeTheDefaultCallsNoHook) {
    HandConnection connection = connect();
    connection.write(bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 0, 1, 0, 254, 255, 255, 255, 255}));
    connection.write(statusPacket(1, 1));
    EXPECT_THAT(hooksAfter(1), ElementsAre(statusHook(1, 1)));
}

TEST_F(CANFlasherClientTest, AnUnchangedReportCallsNeitherHook) {
    HandConnection connection = connect();
    for (int i = 0; i < 3; ++i) connection.write(statusPacket(5, 42));
    connection.write(statusPacket(5, 43));
    EXPECT_THAT(hooksAfter(3), ElementsAre("busy 1", statusHook(5, 42), statusHook(5, 43)));
}

TEST_F(CANFlasherClientTest, AChangeOfAnyFieldCallsTheStatusHook) {
    HandConnection connection = connect();
    connection.write(bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 1, 1, 0, 254, 255, 255, 255, 255}));
    connection.write(bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 1, 7, 0, 254, 255, 255, 255, 255}));
    connection.write(bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 1, 7, 1, 254, 255, 255, 255, 255}));
    connection.write(bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 1, 7, 1, 253, 255, 255, 255, 255}));
    connection.write(bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 1, 7, 1, 253, 255, 255, 255, 254}));
    EXPECT_THAT(hooksAfter(5),
                ElementsAre("status 1 1 0 254 4294967295", "status 1 7 0 254 4294967295", "status 1 7 1 254 4294967295",
                            "status 1 7 1 253 4294967295", "status 1 7 1 253 4278190079"));
}

TEST_F(CANFlasherClientTest, BusyIsReportedOnlyWhenItChangesAndBeforeTheStatus) {
    client.keepConnection = true;
    HandConnection connection = connect();
    for (const int state : {1, 2, 3, 4, 5, 6, 2, 100}) connection.write(statusPacket(state, 0));
    EXPECT_THAT(hooksAfter(12), ElementsAre(statusHook(1, 0), "busy 1", statusHook(2, 0), statusHook(3, 0),
                                            statusHook(4, 0), statusHook(5, 0), "busy 0", statusHook(6, 0), "busy 1",
                                            statusHook(2, 0), "busy 0", statusHook(100, 0)));
}

TEST_F(CANFlasherClientTest, TheStatusIsStoredBeforeTheHooksAreCalled) {
    std::vector<TStatus> seen;
    std::vector<bool> busy;
    client.onHook = [&] {
        seen.push_back(client.currentStatus());
        busy.push_back(client.isBusy());
        busy.push_back(client.busy);
    };
    HandConnection connection = connect();
    connection.write(statusPacket(5, 7));
    hooksAfter(2);
    client.shutDown();
    EXPECT_THAT(seen, ElementsAre(TStatus{0, 5, 7, 42, 1}, TStatus{0, 5, 7, 42, 1}));
    EXPECT_THAT(busy, ElementsAre(true, true, true, true));
}

TEST_F(CANFlasherClientTest, TheBusyFlagFollowsTheReports) {
    client.keepConnection = true;
    for (const int state : {2, 3, 5, 6, 4, 100, 1}) {
        report(client, state);
        EXPECT_EQ(client.busy, state >= 2 && state <= 5) << state;
        EXPECT_EQ(client.isBusy(), client.busy) << state;
    }
}

TEST(CANFlasherClientHooks, OfTheClientItselfDoNothing) {
    const testsupport::CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    CANFlasherClient client(2000, "127.0.0.1");
    client.keepConnection = true;
    for (const int state : {5, 6, 2, 100}) report(client, state);
    client.busyChanged(true);
    client.statusChanged(TStatus{});
    EXPECT_EQ(client.currentStatus(), (TStatus{0, 100, 0, 0, 0}));
    EXPECT_FALSE(client.busy);
    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(errors.text(), "");
}

TEST_F(CANFlasherClientTest, AFirstReportThatIsNotBusyKeepsTheConnection) {
    HandConnection connection = connect();
    for (const int state : {6, 0, 100, 7, 1}) connection.write(statusPacket(state, 0));
    EXPECT_THAT(hooksAfter(5), ElementsAre(statusHook(6, 0), statusHook(0, 0), statusHook(100, 0), statusHook(7, 0),
                                           statusHook(1, 0)));
    EXPECT_TRUE(connection.isSilentFor(50ms));
}

TEST_F(CANFlasherClientTest, BusyReportsKeepTheConnection) {
    HandConnection connection = connect();
    for (const int state : {2, 3, 4, 5}) connection.write(statusPacket(state, 0));
    hooksAfter(5);
    EXPECT_TRUE(connection.isSilentFor(50ms));
}

TEST_F(CANFlasherClientTest, TheDisconnectIsAskedForBetweenTheTwoHooks) {
    std::atomic<bool> released{false};
    std::atomic<int> waiting{0};
    HandConnection connection = connect();
    client.onConnect = [&] {
        ++waiting;
        return waitFor([&] { return released.load(); });
    };
    ASSERT_TRUE(client.updateQueue.tryPut(UpdPoll));  // keeps the worker
    ASSERT_TRUE(waitFor([&] { return waiting == 1; }));
    std::vector<int> commandsWaiting;
    client.onHook = [&] { commandsWaiting.push_back(client.updateQueue.size()); };
    connection.write(statusPacket(5, 1));
    connection.write(statusPacket(6, 1));
    hooksAfter(4);
    released = true;
    client.shutDown();
    EXPECT_THAT(commandsWaiting, ElementsAre(0, 0, 0, 1));
}

TEST_F(CANFlasherClientTest, TheEndMarkEndsTheWorkerAndTheConnectionForGood) {
    HandConnection connection = connect();
    ASSERT_TRUE(client.updateQueue.tryPut(UpdQuit));
    EXPECT_TRUE(connection.endsByPeer());
    EXPECT_FALSE(client.connectToServer());
    const int connects = client.connectCalls;
    ASSERT_TRUE(client.updateQueue.tryPut(UpdPoll));
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(client.connectCalls, connects) << "nobody takes commands any more";
}

TEST_F(CANFlasherClientTest, EachEndOfTheBusyRangeAsksForADisconnectWhoeverTookTheLast) {
    ASSERT_TRUE(client.updateQueue.tryPut(UpdQuit));  // from here on nobody but the test takes commands
    ASSERT_TRUE(waitFor([&] { return client.updateQueue.size() == 0; }));
    for (const int state : {6, 0, 1, 100, 105}) {
        report(client, 5);
        EXPECT_EQ(client.updateQueue.size(), 0);
        report(client, state);
        TUpdCmd command{};
        EXPECT_TRUE(client.updateQueue.tryGet(command)) << state;
        EXPECT_EQ(command, UpdDisconnect) << state;
        EXPECT_EQ(client.updateQueue.size(), 0);
    }
}

class CANFlasherClientEnd : public CANFlasherClientTest, public testing::WithParamInterface<int> {};

TEST_P(CANFlasherClientEnd, LeavingTheBusyRangeDropsTheConnectionWhateverTheState) {
    HandConnection connection = connect();
    connection.write(statusPacket(5, 99));
    connection.write(statusPacket(GetParam(), 100));
    EXPECT_TRUE(connection.endsByPeer());
    EXPECT_THAT(hooksAfter(4), ElementsAre("busy 1", statusHook(5, 99), "busy 0", statusHook(GetParam(), 100)));
}

TEST_P(CANFlasherClientEnd, KeepConnectionKeepsIt) {
    client.keepConnection = true;
    HandConnection connection = connect();
    connection.write(statusPacket(2, 99));
    connection.write(statusPacket(GetParam(), 100));
    hooksAfter(4);
    EXPECT_TRUE(connection.isSilentFor(20ms));
}

INSTANTIATE_TEST_SUITE_P(States, CANFlasherClientEnd, testing::Values(0, 1, 6, 7, 99, 100, 105, 106, 255),
                         testing::PrintToStringParamName());

TEST_F(CANFlasherClientTest, AfterItsOwnDisconnectTheNextPollOpensANewConnection) {
    client.suppressPolling = true;
    HandConnection connection = connect();
    connection.write(statusPacket(5, 99));
    connection.write(statusPacket(6, 100));
    EXPECT_TRUE(connection.endsByPeer());
    client.suppressPolling = false;
    EXPECT_TRUE(client.updateQueue.tryPut(UpdPoll));
    HandConnection next = server.accept();
    EXPECT_EQ(next.read(8), bytes({0, 0, 0, 8, 0x03, 0xE9, 0, 8}));
    next.write(statusPacket(6, 100));
    next.write(statusPacket(6, 101));
    EXPECT_THAT(hooksAfter(5).back(), statusHook(6, 101));
}

// ---- packets from a peer

struct BadPacketRow {
    const char* why;
    Bytes packet;
};
class CANFlasherClientBadStatus : public CANFlasherClientTest, public testing::WithParamInterface<BadPacketRow> {};

TEST_P(CANFlasherClientBadStatus, IsDropped) {
    const testsupport::CapturedOutput output(STDOUT_FILENO);
    HandConnection connection = connect();
    connection.write(GetParam().packet);
    connection.write(statusPacket(1, 1));
    EXPECT_THAT(hooksAfter(1), ElementsAre(statusHook(1, 1)));
    EXPECT_EQ(output.text(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Rows, CANFlasherClientBadStatus,
    testing::Values(BadPacketRow{"noPayload", bytes({0, 0, 0, 8, 0x03, 0xE8, 0, 8})},
                    BadPacketRow{"sevenBytes", bytes({0, 0, 0, 15, 0x03, 0xE8, 0, 8, 0, 6, 0, 0, 0, 0, 0})},
                    BadPacketRow{"offsetLeavesSevenBytes",
                                 bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 9, 0, 6, 0, 0, 0, 0, 0, 0})},
                    BadPacketRow{"offsetAtTheEnd", bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 16, 0, 6, 0, 0, 0, 0, 0, 0})},
                    BadPacketRow{"offsetBehindTheEnd", bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 17, 0, 6, 0, 0, 0, 0, 0, 0})},
                    BadPacketRow{"largestOffset", bytes({0, 0, 0, 16, 0x03, 0xE8, 255, 255, 0, 6, 0, 0, 0, 0, 0, 0})}),
    [](const auto& row) { return std::string(row.param.why); });

TEST_F(CANFlasherClientTest, AStatusMayStandBehindMoreHeader) {
    HandConnection connection = connect();
    connection.write(bytes({0, 0, 0, 20, 0x03, 0xE8, 0, 12, 9, 9, 9, 9, 0, 1, 50, 0x2A, 1, 0, 0, 0}));
    EXPECT_THAT(hooksAfter(1), ElementsAre(statusHook(1, 50)));
}

TEST_F(CANFlasherClientTest, AStatusMayBeLongerThanItNeeds) {
    HandConnection connection = connect();
    connection.write(bytes({0, 0, 0, 18, 0x03, 0xE8, 0, 8, 0, 1, 50, 0x2A, 1, 0, 0, 0, 7, 7}));
    EXPECT_THAT(hooksAfter(1), ElementsAre(statusHook(1, 50)));
}

class CANFlasherClientUnexpected : public CANFlasherClientTest, public testing::WithParamInterface<int> {};

TEST_P(CANFlasherClientUnexpected, CommandIsPrintedAndDropped) {
    const testsupport::CapturedOutput output(STDOUT_FILENO);
    HandConnection connection = connect();
    connection.write(bytes({0, 0, 0, 16, GetParam() / 256, GetParam() % 256, 0, 8, 0, 6, 0, 0, 0, 0, 0, 0}));
    connection.write(statusPacket(1, 1));
    EXPECT_THAT(hooksAfter(1), ElementsAre(statusHook(1, 1)));
    EXPECT_THAT(output.text(),
                testing::MatchesRegex("CANFlasherClient::handleRxPacket\\( 0x[0-9a-f]+ \\) Unexpected command: " +
                                      std::to_string(GetParam()) + "\n"));
}

INSTANTIATE_TEST_SUITE_P(Commands, CANFlasherClientUnexpected,
                         testing::Values(0, 3, 999, 1001, 1002, 1003, 1004, 1005, 65535),
                         testing::PrintToStringParamName());

TEST_F(CANFlasherClientTest, HandlingAPacketLeavesItToTheCaller) {
    ProprietarySocketCommon::TPacket packet(8, CmdStatus);
    std::fill_n(packet.getPayload(), 8, static_cast<unsigned char>(1));
    ProprietarySocketCommon::TPacket* pointer = &packet;
    client.handleRxPacket(pointer);
    EXPECT_EQ(pointer, &packet);
    EXPECT_THAT(client.hooks(), ElementsAre("status 1 1 1 1 16843009"));
}

TEST_F(CANFlasherClientTest, TheUnexpectedLineNamesThePacket) {
    const testsupport::CapturedOutput output(STDOUT_FILENO);
    ProprietarySocketCommon::TPacket packet(0, 4711);
    ProprietarySocketCommon::TPacket* pointer = &packet;
    client.handleRxPacket(pointer);
    EXPECT_EQ(pointer, &packet);
    char address[32];
    std::snprintf(address, sizeof address, "%p", static_cast<void*>(&packet));
    EXPECT_EQ(output.written(),
              std::string("CANFlasherClient::handleRxPacket( ") + address + " ) Unexpected command: 4711\n")
        << "the line of a shutdown signal must not overtake it";
}

// ---- single commands

TEST_F(CANFlasherClientTest, StatusResetIsSent) {
    client.sendStatusReset();
    EXPECT_EQ(server.accept().read(8), bytes({0, 0, 0, 8, 0x03, 0xEA, 0, 8}));
    EXPECT_THAT(client.hooks(), IsEmpty());
}

TEST_F(CANFlasherClientTest, StatusResetWithoutServerAppliesTheDefault) {
    HandConnection connection = connect();
    connection.write(statusPacket(5, 42));
    hooksAfter(2);
    client.onConnect = [] { return false; };
    client.sendStatusReset();
    EXPECT_THAT(client.hooks(), ElementsAre("busy 1", statusHook(5, 42), "busy 0", "status 0 1 0 254 4294967295"));
    EXPECT_EQ(client.currentStatus(), TStatus{});
    EXPECT_TRUE(connection.endsByPeer()) << "as if it had been received";
}

TEST_F(CANFlasherClientTest, StatusResetWithoutServerIsSilentWhenNothingWasKnown) {
    client.onConnect = [] { return false; };
    client.sendStatusReset();
    EXPECT_THAT(client.hooks(), IsEmpty());
}

TEST_F(CANFlasherClientTest, CommandByteSendsTheLowByte) {
    EXPECT_EQ(client.sendCommandByte(0x12), 1U);
    EXPECT_EQ(client.sendCommandByte(0x1FF), 1U);
    EXPECT_EQ(client.sendCommandByte(-2), 1U);
    EXPECT_EQ(client.sendCommandByte(0), 1U);
    EXPECT_EQ(server.accept().read(36), bytes({0, 0, 0, 9, 0x03, 0xEB, 0, 8, 0x12,  //
                                               0, 0, 0, 9, 0x03, 0xEB, 0, 8, 0xFF,  //
                                               0, 0, 0, 9, 0x03, 0xEB, 0, 8, 0xFE,  //
                                               0, 0, 0, 9, 0x03, 0xEB, 0, 8, 0x00}));
}

TEST_F(CANFlasherClientTest, CommandByteWithoutServerAnswersZero) {
    client.onConnect = [] { return false; };
    EXPECT_EQ(client.sendCommandByte(1), 0U);
    EXPECT_TRUE(server.isLeftAloneFor(0ms));
}

}  // namespace
