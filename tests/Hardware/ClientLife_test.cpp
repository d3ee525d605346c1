// The ends of life of the client: nothing may wait for ever, and no hook may meet a dead object.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/Hardware/HandServer.h"
#include "tests/Hardware/Intercept.h"
#include "tests/Hardware/RecordingClient.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/TempFolder.h"

using namespace CANFlasher;
using namespace std::chrono_literals;
using testsupport::Bytes;
using testsupport::bytes;
using testsupport::HandConnection;
using testsupport::HandServer;
using testsupport::RecordingClient;
using testsupport::statusPacket;
using testsupport::waitFor;

namespace {

/// Runs `action` and ends the whole test program when it does not return: a thread that hangs cannot be joined.
template <typename Action>
void mustReturn(const char* what, Action action) {
    std::atomic<bool> returned{false};
    std::thread runner([&] {
        action();
        returned = true;
    });
    if (!waitFor([&] { return returned.load(); })) {
        std::fprintf(stderr, "hangs: %s\n", what);
        std::_Exit(1);
    }
    runner.join();
}

/// Lets threads wait until the test opens it.
class Gate {
public:
    void open() { opened = true; }
    void pass() {
        ++waiting;
        while (!opened) std::this_thread::sleep_for(1ms);
    }
    bool someoneWaits() const { return waiting > 0; }

private:
    std::atomic<bool> opened{false};
    std::atomic<int> waiting{0};
};

// The dispatch thread once waited for room for the disconnects of a burst while the worker, closing for the first of
// them, waited for the dispatch thread.
TEST(ClientLife, ABurstOfReportsInAndOutOfBusyStopsNobody) {
    HandServer server;
    auto client = std::make_unique<RecordingClient>(server.port());
    ASSERT_TRUE(client->connectToServer());
    HandConnection connection = server.accept();
    Bytes burst;
    for (int i = 0; i < 2000; ++i) {
        const Bytes packet = statusPacket(i % 2 == 0 ? 5 : 6, i % 100);
        burst.insert(burst.end(), packet.begin(), packet.end());
    }
    connection.write(burst);
    EXPECT_TRUE(waitFor([&] { return !client->hooks().empty(); }));
    mustReturn("destruction after a burst", [&] { client.reset(); });
}

TEST(ClientLife, ABurstIsFollowedByADisconnectAndANewConnectionWorks) {
    HandServer server;
    RecordingClient client(server.port());
    client.onHook = [] { std::this_thread::sleep_for(50us); };
    ASSERT_TRUE(client.connectToServer());
    HandConnection connection = server.accept();
    for (int i = 0; i < 1000; ++i)
        if (!connection.write(statusPacket(i % 2 == 0 ? 5 : 6, i % 100))) break;
    Bytes ignored = connection.read(1);
    connection.close();
    EXPECT_TRUE(waitFor([&] { return client.connectToServer(); })) << "the worker came round and closed the old link";
    HandConnection next = server.accept();
    const std::size_t before = client.hooks().size();
    EXPECT_TRUE(next.write(statusPacket(1, 77)));
    EXPECT_TRUE(waitFor([&] { return client.hooks().size() > before; }));
}

TEST(ClientLife, AFullQueueDoesNotHoldUpTheDispatchThread) {
    HandServer server;
    Gate gate;
    RecordingClient client(server.port());
    ASSERT_TRUE(client.connectToServer());
    HandConnection connection = server.accept();
    client.onConnect = [&] {
        gate.pass();
        return false;
    };
    ASSERT_TRUE(client.updateQueue.tryPut(UpdPoll));  // keeps the worker
    ASSERT_TRUE(waitFor([&] { return gate.someoneWaits(); }));
    while (client.updateQueue.tryPut(static_cast<TUpdCmd>(99))) {
    }
    connection.write(statusPacket(5, 1));
    connection.write(statusPacket(6, 2));
    connection.write(statusPacket(6, 3));
    EXPECT_TRUE(waitFor([&] { return client.hooks().size() == 5; })) << "reports are handled while the worker waits";
    EXPECT_TRUE(connection.isSilentFor(20ms));
    gate.open();
    EXPECT_TRUE(connection.endsByPeer()) << "the disconnect is not lost";
    mustReturn("shut down", [&] { client.shutDown(); });
}

// The queue may be full when the disconnect is asked for, and empty before the worker is told that it is overdue.
TEST(ClientLife, ADisconnectWithoutRoomWakesAWorkerThatHasNothingLeftToDo) {
    HandServer server;
    static thread_local bool isFull;
    testsupport::RecordedCalls calls;
    calls.mayTake = [] { return !std::exchange(isFull, false); };
    RecordingClient client(server.port());
    client.onHook = [] { isFull = true; };  // once more for the thread that reports
    ASSERT_TRUE(client.connectToServer());
    HandConnection connection = server.accept();
    connection.write(statusPacket(5, 1));
    connection.write(statusPacket(6, 2));
    EXPECT_TRUE(connection.endsByPeer());
    ASSERT_TRUE(client.updateQueue.tryPut(UpdPoll));
    EXPECT_EQ(server.accept().readPacket(), bytes({0, 0, 0, 8, 0x03, 0xE9, 0, 8})) << "the worker goes on";
}

TEST(ClientLife, TenDisconnectsWaitingAreOne) {
    HandServer server;
    Gate gate;
    RecordingClient client(server.port());
    ASSERT_TRUE(client.connectToServer());
    HandConnection connection = server.accept();
    client.onConnect = [&] {
        gate.pass();
        return false;
    };
    ASSERT_TRUE(client.updateQueue.tryPut(UpdPoll));
    ASSERT_TRUE(waitFor([&] { return gate.someoneWaits(); }));
    for (int i = 0; i < 10; ++i) {
        connection.write(statusPacket(5, i));
        connection.write(statusPacket(6, i));
    }
    EXPECT_TRUE(waitFor([&] { return client.hooks().size() == 40; }));
    EXPECT_EQ(client.updateQueue.size(), 1);
    gate.open();
    EXPECT_TRUE(connection.endsByPeer());
    mustReturn("shut down", [&] { client.shutDown(); });
}

TEST(ClientLife, ADisconnectIsTakenInItsTurn) {
    HandServer server;
    Gate gate;
    RecordingClient client(server.port());
    ASSERT_TRUE(client.connectToServer());
    HandConnection connection = server.accept();
    client.stepTimer.setInterval(60'000);
    client.suppressPolling = true;
    client.onConnect = [&] {
        gate.pass();
        return client.CANFlasherClient::connectToServer();
    };
    ASSERT_TRUE(client.updateQueue.tryPut(UpdStep));
    ASSERT_TRUE(waitFor([&] { return gate.someoneWaits(); }));
    client.suppressPolling = false;
    ASSERT_TRUE(client.updateQueue.tryPut(UpdPoll));
    connection.write(statusPacket(5, 1));
    connection.write(statusPacket(6, 1));
    EXPECT_TRUE(waitFor([&] { return client.updateQueue.size() == 2; }));
    gate.open();
    connection.read(100);  // until the end
    EXPECT_EQ(client.connectCalls, 3);
    EXPECT_TRUE(server.isLeftAloneFor(50ms)) << "the poll came first and found the connection";
}

TEST(ClientLife, ADisconnectOfTheOwnerDropsTheConnectionAndAPollOpensANewOne) {
    HandServer server;
    RecordingClient client(server.port());
    ASSERT_TRUE(client.connectToServer());
    HandConnection connection = server.accept();
    ASSERT_TRUE(client.updateQueue.tryPut(UpdDisconnect));
    ASSERT_TRUE(client.updateQueue.tryPut(UpdPoll));
    EXPECT_TRUE(connection.endsByPeer());
    EXPECT_EQ(server.accept().readPacket(), bytes({0, 0, 0, 8, 0x03, 0xE9, 0, 8}));
}

TEST(ClientLife, AFullQueueDoesNotHoldUpDestruction) {
    HandServer server;
    auto client = std::make_unique<RecordingClient>(server.port());
    client->onConnect = [] {
        std::this_thread::sleep_for(100ms);
        return false;
    };
    while (client->updateQueue.tryPut(UpdPoll)) {
    }
    const auto begin = std::chrono::steady_clock::now();
    mustReturn("destruction with a full queue", [&] { client.reset(); });
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s) << "what waited was discarded";
}

// A peer that does not read keeps the transmit buffer full, and the worker once waited for room in it for ever.
TEST(ClientLife, APeerThatDoesNotReadDoesNotHoldUpDestruction) {
    HandServer server;
    auto client = std::make_unique<RecordingClient>(server.port());
    ASSERT_TRUE(client->connectToServer());
    const HandConnection connection = server.accept();
    const testsupport::CapturedOutput theOverrunLine(STDERR_FILENO);
    auto* large = new ProprietarySocketCommon::TPacket(64U << 20U, CmdByte);
    ASSERT_TRUE(client->sendPacket(large, false));
    for (bool room = true; room;) {
        auto* small = new ProprietarySocketCommon::TPacket(0, CmdStatusRequest);
        room = client->sendPacket(small, true);
    }
    ASSERT_TRUE(client->updateQueue.tryPut(UpdPoll));
    EXPECT_TRUE(waitFor([&] { return client->connectCalls == 2; }));
    std::this_thread::sleep_for(20ms);  // the worker waits in sendPacket now
    mustReturn("destruction with a peer that does not read", [&] { client.reset(); });
}

TEST(ClientLife, APollWaitsForRoomInAFullTransmitBuffer) {
    constexpr int kPackets = 101;  // one that is being sent and a buffer full
    const testsupport::CapturedOutput standardError(STDERR_FILENO);
    HandServer server;
    Gate gate;
    testsupport::RecordedCalls calls;
    calls.onCall = [&] { gate.pass(); };
    RecordingClient client(server.port());
    client.pollTimer.setInterval(60'000);
    EXPECT_TRUE(client.connectToServer());
    HandConnection connection = server.accept();
    for (int i = 0; i < kPackets; ++i) EXPECT_EQ(client.sendCommandByte(i), 1U);  // the last waits for the first to go
    const int before = client.connectCalls;
    EXPECT_TRUE(client.updateQueue.tryPut(UpdPoll));
    EXPECT_TRUE(waitFor([&] { return client.connectCalls > before; }));
    std::this_thread::sleep_for(20ms);  // the worker waits in sendPacket now
    gate.open();
    for (int i = 0; i < kPackets; ++i) EXPECT_EQ(connection.readPacket(), bytes({0, 0, 0, 9, 0x03, 0xEB, 0, 8, i}));
    EXPECT_EQ(connection.readPacket(), bytes({0, 0, 0, 8, 0x03, 0xE9, 0, 8}));
    EXPECT_EQ(standardError.text(), "");
    client.shutDown();
}

TEST(ClientLife, ShutDownMayBeCalledAgain) {
    HandServer server;
    RecordingClient client(server.port());
    ASSERT_TRUE(client.connectToServer());
    HandConnection connection = server.accept();
    client.shutDown();
    EXPECT_TRUE(connection.endsByPeer());
    client.shutDown();
    EXPECT_FALSE(client.connectToServer()) << "closed for good";
}

TEST(ClientLife, NoHookRunsInAClientThatWasShutDown) {
    HandServer server;
    RecordingClient client(server.port());
    ASSERT_TRUE(client.connectToServer());
    HandConnection connection = server.accept();
    connection.write(statusPacket(5, 42));
    ASSERT_TRUE(waitFor([&] { return client.hooks().size() == 2; }));
    client.shutDown();
    client.sendStatusReset();
    EXPECT_EQ(client.hooks().size(), 2U) << "not even for the default status of a client without a server";
}

TEST(ClientLife, AnIdleClientThatWasShutDownNeverConnects) {
    HandServer server;
    RecordingClient client(server.port());
    client.shutDown();
    EXPECT_FALSE(client.connectToServer());
    EXPECT_FALSE(client.ProprietarySocketClient::connectToServer());
    EXPECT_TRUE(server.isLeftAloneFor(0ms));
}

// A worker that had just failed to connect went on trying, and destruction waited for it: long, when the host was
// silent.
TEST(ClientLife, AWorkerBetweenTwoAttemptsMakesNoMore) {
    const HandServer server(HandServer::Start::later);
    const testsupport::RecordedCalls calls;
    RecordingClient client(server.port());
    ASSERT_TRUE(client.updateQueue.tryPut(UpdPoll));
    ASSERT_TRUE(waitFor([&] { return calls.count("connect") > 0; }));
    const int before = calls.count("connect");
    mustReturn("shut down", [&] { client.shutDown(); });
    EXPECT_LE(calls.count("connect"), before + 1);
}

TEST(ClientLife, TimersThatTheWorkerArmedAgainAreStopped) {
    HandServer server;
    Gate gate;
    RecordingClient client(server.port());
    client.pollTimer.setInterval(1);
    client.onConnect = [&] {
        gate.pass();
        return false;
    };
    ASSERT_TRUE(client.updateQueue.tryPut(UpdPoll));
    ASSERT_TRUE(waitFor([&] { return gate.someoneWaits(); }));
    std::thread late([&] {
        std::this_thread::sleep_for(50ms);  // shutDown has stopped the timers and waits for the worker
        gate.open();
    });
    client.shutDown();
    late.join();
    TUpdCmd command{};
    while (client.updateQueue.tryGet(command)) {
    }
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(client.updateQueue.size(), 0);
}

/// Hooks that use a member of the derived class, as a viewer does.
class SlowViewer : public CANFlasherClient {
public:
    SlowViewer(int port, std::atomic<int>& calls) : CANFlasherClient(port, "127.0.0.1"), hookCalls(calls) {}
    ~SlowViewer() override { shutDown(); }

protected:
    void statusChanged(const TStatus& status) override {
        std::this_thread::sleep_for(1ms);
        painted.push_back(std::to_string(status.progress));
        ++hookCalls;
    }

private:
    std::atomic<int>& hookCalls;
    std::vector<std::string> painted;
};

TEST(ClientLife, NoHookRunsOnceTheDerivedPartDies) {
    for (int round = 0; round < 10; ++round) {
        HandServer server;
        std::atomic<int> calls{0};
        auto viewer = std::make_unique<SlowViewer>(server.port(), calls);
        ASSERT_TRUE(viewer->connectToServer());
        HandConnection connection = server.accept();
        for (int i = 0; i < 20; ++i) connection.write(statusPacket(5, i));
        EXPECT_TRUE(waitFor([&] { return calls > 0; }));
        mustReturn("destruction while painting", [&] { viewer.reset(); });
        const int atEnd = calls;
        std::this_thread::sleep_for(3ms);
        EXPECT_EQ(calls, atEnd);
    }
}

TEST(ClientLife, MayEndAtAnyMomentOfAnUpload) {
    const testsupport::TempFolder folder;
    const std::string hexFile = folder.write("a.hex", "");
    HandServer server;
    for (int round = 0; round < 25; ++round) {
        auto client = std::make_unique<RecordingClient>(server.port());
        client->stepTimer.setInterval(1);
        client->pollTimer.setInterval(1);
        ASSERT_EQ(client->upload(ISOStyle, 1, 1, hexFile), kUploadRequested);
        HandConnection connection = server.accept();
        for (const int state : {1, 5, 6}) connection.write(statusPacket(state, round));
        std::this_thread::sleep_for(std::chrono::microseconds(400 * round));
        mustReturn("destruction during an upload", [&] { client.reset(); });
    }
}

// The thread that makes the call is stopped at it until destruction has begun, and a little longer.
TEST(ClientLife, MayEndAtEachCallOfItsThreads) {
    constexpr int kCalls = 60;  // the polls go on and on
    const testsupport::TempFolder folder;
    const std::string hexFile = folder.write("a.hex", "");
    HandServer server;
    for (int number = 0; number < kCalls; ++number) {
        std::atomic<int> made{0};
        std::atomic<bool> come{false}, ending{false};
        testsupport::RecordedCalls calls;
        calls.onCall = [&] {
            if (made++ != number) return;
            come = true;
            EXPECT_TRUE(waitFor([&] { return ending.load(); }));
            std::this_thread::sleep_for(300us);
        };
        auto client = std::make_unique<RecordingClient>(server.port());
        client->stepTimer.setInterval(1);
        client->pollTimer.setInterval(1);
        ASSERT_EQ(client->upload(ISOStyle, 1, 1, hexFile), kUploadRequested);
        HandConnection connection = server.accept();
        for (const int state : {1, 5, 6}) connection.write(statusPacket(state, number));
        ASSERT_TRUE(waitFor([&] { return come.load(); })) << "call " << number;
        ending = true;
        mustReturn("destruction at a call", [&] { client.reset(); });
        while (server.accept(0ms).isOpen()) {
        }
    }
}

/// True for the reports that `statusPacket` makes and for none at all. By value: two looks would see two reports.
bool wasReported(const TStatus& status) { return status.address == 42 || status == TStatus{}; }

TEST(ClientLife, RequestsAndReportsFromSeveralThreadsKeepTheStatusWhole) {
    const testsupport::TempFolder folder;
    const std::string hexFile = folder.write("a.hex", "");
    HandServer server;
    RecordingClient client(server.port());
    client.keepConnection = true;
    client.stepTimer.setInterval(1);
    client.pollTimer.setInterval(1);
    ASSERT_TRUE(client.connectToServer());
    HandConnection connection = server.accept();
    std::thread reporter([&] {
        for (int i = 0; i < 200; ++i) connection.write(statusPacket(i % 8, i % 101));
    });
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(client.upload(MTCAN, i, 1, hexFile), kUploadRequested);
        EXPECT_TRUE(wasReported(client.currentStatus()));
        client.isBusy();
    }
    reporter.join();
    mustReturn("shut down", [&] { client.shutDown(); });
}

/// Takes connections, reports an upload on each from begin to end, and closes every third at once.
class ReportingServer {
public:
    ReportingServer() : thread([this] { serve(); }) {}
    ~ReportingServer() {
        stop = true;
        thread.join();
    }
    ReportingServer(const ReportingServer&) = delete;
    ReportingServer& operator=(const ReportingServer&) = delete;
    int port() const { return server.port(); }

private:
    void serve() {
        std::vector<HandConnection> connections;
        for (int i = 0; !stop; ++i) {
            HandConnection connection = server.accept(1ms);
            if (!connection.isOpen()) continue;
            for (const int state : {1, 2, 5, 6}) connection.write(statusPacket(state, i % 101));
            if (i % 3 == 0) connection.close();
            connections.push_back(std::move(connection));
            if (connections.size() > 4) connections.erase(connections.begin());
        }
    }

    HandServer server;
    std::atomic<bool> stop{false};
    std::thread thread;
};

TEST(ClientLife, ManyThreadsUseOneClientAThousandTimesEach) {
    constexpr int kRounds = 1000;
    const testsupport::TempFolder folder;
    const std::string hexFile = folder.write("a.hex", "");
    const ReportingServer server;
    RecordingClient client(server.port());
    client.stepTimer.setInterval(1);
    client.pollTimer.setInterval(1);
    client.onConnect = [&] { return client.ProprietarySocketClient::connectToServer(); };  // one attempt, no pause
    const std::vector<std::function<void(int)>> work{
        [&](int i) { client.upload(MTCAN, i % 254, 1, hexFile); },
        [&](int i) { client.sendCommandByte(i); },
        [&](int i) { i % 2 == 0 ? client.sendStatusReset() : client.closeSocket(true); },
        [&](int i) { static_cast<void>(client.updateQueue.tryPut(i % 2 == 0 ? UpdDisconnect : UpdPoll)); },
        [&](int) { EXPECT_TRUE(wasReported(client.currentStatus())); },
        [&](int i) {
            LinkStatus link;
            client.getLinkStatus(&link, i % 2 == 0);
            EXPECT_FALSE(link.pingRunning);
        }};
    std::vector<std::thread> threads;
    for (const auto& one : work)
        threads.emplace_back([&one] {
            for (int i = 0; i < kRounds; ++i) one(i);
        });
    for (std::thread& thread : threads) thread.join();
    mustReturn("shut down", [&] { client.shutDown(); });
    EXPECT_FALSE(client.connectToServer());
}

}  // namespace
