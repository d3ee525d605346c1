#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>

#include "platform/linux/base/ServerConnectionList.h"
#include "tests/platform/linux/base/ClientFixture.h"
#include "tests/platform/linux/base/CountedPacket.h"
#include "tests/platform/linux/base/ReplacedCalls.h"
#include "tests/support/CapturedOutput.h"

using namespace sockettest;
using testsupport::CapturedOutput;

static_assert(TestClient::kPingIntervalMs == 1000);

namespace {

const Bytes kPing = hex("00000009 0001 0008 00");

/// Lets a client handle a packet as its dispatch thread would; true when it was one of the socket layer's own.
bool handle(ProprietarySocketClient& client, unsigned short command, const Bytes& payload = {}) {
    const PacketPtr owner(newPacket(command, payload));
    TPacket* packet = owner.get();
    const bool consumed = client.handleBuiltinPacket(packet);
    EXPECT_EQ(packet, owner.get()) << "the caller deletes it";
    return consumed;
}

/// Time stands still unless a test moves it.
class Ping : public Connected {
protected:
    Ping() {
        calls.clock_gettime = [this] { return now; };
        calls.gettimeofday = [this] { return wallClock; };
    }
    ~Ping() override { client.closeSocket(false); }

    /// Moves the monotonic clock; 1/64 s is a fraction that a double and microseconds both hold exactly.
    void pass(int sixtyFourths) { now.tv_nsec += sixtyFourths * 15'625'000L; }

    LinkStatus statistics(bool reset = false) {
        LinkStatus status;
        client.getLinkStatus(&status, reset);
        return status;
    }

    timespec now{1'000'000, 0};
    timeval wallClock{13 * 3600 + 45 * 60 + 2, 123'000};
    ReplacedCalls calls;
};

TEST_F(Ping, TickSendsARequestOfOneZeroByte) {
    const CapturedOutput output(STDOUT_FILENO);
    connect();
    client.handlePingTick();
    client.handlePingTick();
    EXPECT_EQ(peer.read(18), kPing + kPing);
}

TEST_F(Ping, AnswerThatWasNotAskedForIsReportedAndCountsNothing) {
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    EXPECT_TRUE(handle(client, 1, hex("00")));
    EXPECT_EQ(output.written(), "134502.123 ProprietarySocketClient CmdPing received out of sync\n");
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(statistics().responseCount, 0U);
    EXPECT_EQ(statistics().maxRoundTrip, 0);
    EXPECT_EQ(statistics().totalRoundTrip, 0);
}

TEST_F(Ping, SecondAnswerToOneRequestIsOutOfSync) {
    const CapturedOutput output(STDOUT_FILENO);
    client.handlePingTick();
    EXPECT_TRUE(handle(client, 1));
    EXPECT_EQ(output.text(), "");
    EXPECT_TRUE(handle(client, 1));
    EXPECT_EQ(output.text(), "134502.123 ProprietarySocketClient CmdPing received out of sync\n");
    EXPECT_EQ(statistics().responseCount, 1U);
}

TEST_F(Ping, MissingAnswersAreCountedAndReportedAtEachTick) {
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    client.handlePingTick();
    EXPECT_EQ(output.text(), "") << "nothing was asked before";
    for (int i = 0; i < 3; ++i) client.handlePingTick();
    EXPECT_EQ(output.written(),
              "134502.123 ProprietarySocketClient CmdPing response missing (1)\n"
              "134502.123 ProprietarySocketClient CmdPing response missing (2)\n"
              "134502.123 ProprietarySocketClient CmdPing response missing (3)\n");
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(client.missingPingCount(), 3);
}

TEST_F(Ping, AnswerAndATickResetTheCountWithoutALine) {
    const CapturedOutput output(STDOUT_FILENO);
    for (int i = 0; i < 3; ++i) client.handlePingTick();
    EXPECT_EQ(client.missingPingCount(), 2);
    const std::string before = output.text();
    EXPECT_TRUE(handle(client, 1));
    EXPECT_EQ(client.missingPingCount(), 2) << "the next tick resets it";
    client.handlePingTick();
    EXPECT_EQ(client.missingPingCount(), 0);
    EXPECT_EQ(output.text(), before);
    client.handlePingTick();
    EXPECT_EQ(output.text(), before + "134502.123 ProprietarySocketClient CmdPing response missing (1)\n");
}

// Who follows the lines of a link that comes and goes counts on it: the count goes on, and no request is forgotten.
TEST_F(Ping, AnAnswerThatTheFormerLinkOwesIsMissingAtTheFirstTickOfTheNext) {
    const CapturedOutput output(STDOUT_FILENO);
    connect();
    client.handlePingTick();
    client.closeSocket(true);
    connect();
    client.handlePingTick();
    EXPECT_EQ(output.text(), "134502.123 ProprietarySocketClient CmdPing response missing (1)\n");
}

struct TimeRow {
    const char* why;
    timeval time;
    const char* text;
};

class PingTime : public Ping, public testing::WithParamInterface<TimeRow> {};

TEST_P(PingTime, IsTheTimeOfDayAsOneNumber) {
    wallClock = GetParam().time;
    const CapturedOutput output(STDOUT_FILENO);
    handle(client, 1);
    client.handlePingTick();
    client.handlePingTick();
    const std::string time = GetParam().text;
    EXPECT_EQ(output.text(), time + " ProprietarySocketClient CmdPing received out of sync\n" + time +
                                 " ProprietarySocketClient CmdPing response missing (1)\n");
}

INSTANTIATE_TEST_SUITE_P(Rows, PingTime,
                         testing::Values(TimeRow{"midnight", {1'700'006'400, 0}, " 0.000"},
                                         TimeRow{"firstSeconds", {1'700'006'400 + 9, 5'000}, " 9.005"},
                                         TimeRow{"lastSecondOfTheDay", {86399, 999'000}, "235959.999"},
                                         TimeRow{"afternoon", {1'700'006'400 + 49502, 123'000}, "134502.123"}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST_F(Ping, RoundTripsAreSummedUpAndTheLongestIsKept) {
    struct Step {
        int roundTrip;
        double longest, total;
    };
    std::uint32_t count = 0;
    for (const Step& step : {Step{16, 0.25, 0.25}, Step{8, 0.25, 0.375}, Step{32, 0.5, 0.875}, Step{0, 0.5, 0.875}}) {
        client.handlePingTick();
        pass(step.roundTrip);
        EXPECT_TRUE(handle(client, 1));
        EXPECT_DOUBLE_EQ(statistics().maxRoundTrip, step.longest);
        EXPECT_DOUBLE_EQ(statistics().totalRoundTrip, step.total);
        EXPECT_EQ(statistics().responseCount, ++count);
    }
}

TEST_F(Ping, RoundTripCountsFromTheLastRequest) {
    const CapturedOutput output(STDOUT_FILENO);
    client.handlePingTick();
    pass(40);
    client.handlePingTick();
    pass(4);
    EXPECT_TRUE(handle(client, 1));
    EXPECT_DOUBLE_EQ(statistics().maxRoundTrip, 4.0 / 64);
}

// The payload of an answer is not looked at, wherever it is said to be.
TEST_F(Ping, AnyPayloadMakesAnAnswer) {
    for (const std::uint16_t offset : std::initializer_list<std::uint16_t>{8, 0, 9, 0xFFFF}) {
        const PacketPtr owner(newPacket(1, hex("AA BB")));
        owner->payloadOffset = offset;
        client.handlePingTick();
        TPacket* packet = owner.get();
        EXPECT_TRUE(client.handleBuiltinPacket(packet));
    }
    EXPECT_TRUE((client.handlePingTick(), handle(client, 1)));
    EXPECT_EQ(statistics().responseCount, 5U);
}

TEST_F(Ping, StatisticsAreResetInTheStepThatReadsThem) {
    connect();
    client.handlePingTick();
    pass(16);
    EXPECT_TRUE(handle(client, 1));
    EXPECT_TRUE(waitFor([&] { return statistics().dispatchRunning; }));
    const LinkStatus read = statistics(true);
    EXPECT_EQ(read.responseCount, 1U);
    EXPECT_DOUBLE_EQ(read.totalRoundTrip, 0.25);
    const LinkStatus after = statistics();
    EXPECT_EQ(after.responseCount, 0U);
    EXPECT_EQ(after.maxRoundTrip, 0);
    EXPECT_EQ(after.totalRoundTrip, 0);
    EXPECT_TRUE(after.connected && after.dispatchRunning) << "flags are no figures";
}

TEST_F(Ping, StatisticsOfNowhereAreNotReadNorReset) {
    client.handlePingTick();
    EXPECT_TRUE(handle(client, 1));
    client.getLinkStatus(nullptr, true);
    client.getLinkStatus(nullptr, false);
    EXPECT_EQ(statistics().responseCount, 1U);
}

TEST_F(Ping, RequestsWithoutMemoryAreLeftToTheNextTick) {
    const CapturedOutput output(STDOUT_FILENO);
    for (int allowed = 0; allowed < 2; ++allowed) {
        calls.mayAllocate = [left = allowed](std::size_t) mutable { return left-- > 0; };
        client.handlePingTick();
    }
    calls.mayAllocate = nullptr;
    client.handlePingTick();
    EXPECT_EQ(output.text(), "") << "nothing was asked, so nothing is missing";
}

struct CommandRow {
    int command;
    bool consumed;
};

class BuiltinCommand : public Ping, public testing::WithParamInterface<CommandRow> {};

TEST_P(BuiltinCommand, IsConsumedAndNoOther) {
    const CapturedOutput output(STDOUT_FILENO);
    EXPECT_EQ(handle(client, static_cast<unsigned short>(GetParam().command), hex("01")), GetParam().consumed);
}

INSTANTIATE_TEST_SUITE_P(Ids, BuiltinCommand,
                         testing::Values(CommandRow{0, false}, CommandRow{1, true}, CommandRow{2, true},
                                         CommandRow{3, false}, CommandRow{257, false}, CommandRow{258, false},
                                         CommandRow{1000, false}, CommandRow{65535, false}),
                         [](const auto& row) { return "command" + std::to_string(row.param.command); });

/// The ping thread of a connected client, as an owner would run it.
class PingThread {
public:
    explicit PingThread(TestClient& client)
        : thread(threadfunc::ThreadCreate(20, ProprietarySocketClient::pingSupervision, &client, 0, nullptr, 0)) {}
    ~PingThread() { join(); }
    PingThread(const PingThread&) = delete;
    PingThread& operator=(const PingThread&) = delete;

    std::uint32_t join() { return thread == 0 ? 0 : threadfunc::threadJoin(std::exchange(thread, 0)); }

private:
    pthread_t thread;
};

class PingSupervision : public Connected {
protected:
    bool runs() { return client.status().pingRunning; }
    void connectWithInterval(int intervalMs) {
        client.pingIntervalMs = intervalMs;
        connect();
    }
};

constexpr int kNever = 3'600'000;

TEST_F(PingSupervision, AsksOnceASecond) {
    connect();
    EXPECT_EQ(client.pingIntervalMs, 1000);
    const auto start = std::chrono::steady_clock::now();
    const PingThread ping(client);
    EXPECT_EQ(peer.read(9), kPing);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(elapsed, std::chrono::milliseconds(998)) << "the first request comes after the first second";
    client.closeSocket(true);
}

TEST_F(PingSupervision, AsksAgainAndAgainUntilTheLinkEnds) {
    connectWithInterval(5);
    const CapturedOutput output(STDOUT_FILENO);
    PingThread ping(client);
    EXPECT_EQ(peer.read(27), kPing + kPing + kPing);
    EXPECT_TRUE(runs());
    peer.close();
    EXPECT_EQ(ping.join(), 0U);
    EXPECT_FALSE(runs());
}

TEST_F(PingSupervision, MeasuresAnswersThatComeOverTheLink) {
    connectWithInterval(5);
    const CapturedOutput output(STDOUT_FILENO);
    PingThread ping(client);
    // On a busy machine an answer may come after the next request; the one to that request is then one too many.
    EXPECT_TRUE(
        waitFor([&] { return peer.read(9) == kPing && peer.write(kPing) && client.status().responseCount >= 3; }));
    const LinkStatus status = client.status();
    EXPECT_GT(status.maxRoundTrip, 0);
    EXPECT_GE(status.totalRoundTrip, status.maxRoundTrip);
    EXPECT_LE(status.totalRoundTrip, status.maxRoundTrip * status.responseCount);
    client.closeSocket(true);
}

TEST_F(PingSupervision, NeverEndsTheLinkItself) {
    connectWithInterval(2);
    std::string text;
    {
        const CapturedOutput output(STDOUT_FILENO);
        const PingThread ping(client);
        EXPECT_TRUE(waitFor([&] { return client.missingPingCount() >= 20; }));
        EXPECT_TRUE(client.status().connected);
        client.closeSocket(true);
        text = output.text();
    }
    EXPECT_THAT(
        text, testing::ContainsRegex(
                  "^ *[0-9]+\\.[0-9]{3} ProprietarySocketClient CmdPing response missing \\(1\\)\n *[0-9]+\\.[0-9]{3} "
                  "ProprietarySocketClient CmdPing response missing \\(2\\)\n"));
}

TEST_F(PingSupervision, WithoutALinkItEndsAtOnce) {
    client.pingIntervalMs = kNever;
    PingThread ping(client);
    EXPECT_EQ(ping.join(), 0U);
    EXPECT_FALSE(runs());
}

TEST_F(PingSupervision, EndOfTheLinkWakesIt) {
    connectWithInterval(kNever);
    PingThread ping(client);
    EXPECT_TRUE(waitFor([this] { return runs(); }));
    peer.close();
    ping.join();
    EXPECT_FALSE(runs());
}

TEST_F(PingSupervision, ClosingWakesIt) {
    connectWithInterval(kNever);
    PingThread ping(client);
    EXPECT_TRUE(waitFor([this] { return runs(); }));
    client.closeSocket(false);
    ping.join();
    EXPECT_FALSE(runs());
}

// The ends of twelve links that nobody supervised were taken for ticks.
TEST_F(PingSupervision, EndsOfFormerLinksAreNoTicks) {
    client.pingIntervalMs = kNever;
    for (int i = 0; i < 12; ++i) {
        connect();
        client.closeSocket(true);
    }
    connect();
    const PingThread ping(client);
    EXPECT_TRUE(waitFor([this] { return runs(); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(peer.hasBytes());
    client.closeSocket(true);
}

TEST_F(PingSupervision, StartsAnewOnANewLink) {
    client.pingIntervalMs = 5;
    const CapturedOutput output(STDOUT_FILENO);
    for (int i = 0; i < 3; ++i) {
        connect();
        PingThread ping(client);
        EXPECT_EQ(peer.read(9), kPing);
        client.closeSocket(true);
        ping.join();
        EXPECT_FALSE(runs());
    }
}

// A thread that was slow to see its link end went on with the next one, beside that one's own thread.
TEST_F(PingSupervision, ThreadOfAnEndedLinkDoesNotTakeTheNextOne) {
    client.pingIntervalMs = kNever;
    for (int i = 0; i < 30; ++i) {
        connect();
        PingThread ping(client);
        EXPECT_TRUE(waitFor([this] { return runs(); }));
        client.closeSocket(true);
        connect();
        ping.join();
        EXPECT_TRUE(client.status().connected);
        client.closeSocket(true);
    }
}

// The thread's request waits for room in the transmit buffer; the end of the link must reach it there.
TEST_F(PingSupervision, WaitingForRoomEndsWithTheLink) {
    connectWithInterval(5);
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    const Bytes large(1U << 20U);
    while (client.status().connected) {
        TPacket* packet = newPacket(7, large);
        if (!client.sendPacket(packet, true)) break;
    }
    const std::string ownLoss = errors.text();
    EXPECT_NE(ownLoss, "");
    PingThread ping(client);
    EXPECT_TRUE(waitFor([this] { return runs(); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    client.closeSocket(true);
    ping.join();
    EXPECT_FALSE(runs());
    EXPECT_LE(client.pingQueue.size(), 1) << "the ticks that waited are gone; the end of the link may have come later";
    EXPECT_EQ(errors.text(), ownLoss) << "the ping thread reports no loss";
}

// What the end of the link puts into the queue of the ticks is no tick.
TEST_F(PingSupervision, EndOfTheLinkCountsNoMissingAnswer) {
    connectWithInterval(kNever);
    const CapturedOutput output(STDOUT_FILENO);
    client.handlePingTick();
    PingThread ping(client);
    EXPECT_TRUE(waitFor([this] { return runs(); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    peer.close();
    ping.join();
    EXPECT_EQ(client.missingPingCount(), 0);
    EXPECT_EQ(output.text(), "");
}

/// What the hook of the disconnect saw each time: the state when it was called, and whether the ping thread ended while
/// it waited for that.
struct Told {
    LinkStatus status;
    bool pingEnded;
};
std::vector<Told> told;  // written by a dispatch thread, read when that was joined

ProprietarySocketClient* noteDisconnect(ProprietarySocketClient* client) {
    const auto status = [client] {
        LinkStatus now;
        client->getLinkStatus(&now, false);
        return now;
    };
    const LinkStatus atCall = status();
    told.push_back({atCall, waitFor([&status] { return !status().pingRunning; })});
    return client;
}

class ToldDisconnect : public PingSupervision, public testing::WithParamInterface<bool> {};

TEST_P(ToldDisconnect, ComesOnceALinkWhenTheLinkIsDownAndThePingThreadWoken) {
    told.clear();
    client.onDisconnect = noteDisconnect;
    for (std::size_t links = 1; links <= 2; ++links) {
        connectWithInterval(kNever);
        PingThread ping(client);
        EXPECT_TRUE(waitFor([this] { return runs() && client.status().dispatchRunning; }));
        if (GetParam()) {
            peer.close();
            EXPECT_TRUE(client.waitForEnd());
        }
        client.closeSocket(true);
        ASSERT_EQ(told.size(), links);
        EXPECT_FALSE(told.back().status.connected || told.back().status.dispatchRunning);
        EXPECT_TRUE(told.back().pingEnded);
    }
}

INSTANTIATE_TEST_SUITE_P(PeerEndsIt, ToldDisconnect, testing::Bool());

class ConnectionInfoPacket : public Connected {
protected:
    /// Sends the packet and waits until it was handled.
    void deliver(const Bytes& packet) {
        const std::size_t before = client.received().size();
        peer.write(packet + hex("00000008 0007 0008"));
        EXPECT_TRUE(client.hasReceived(before + 1));
    }
    static std::vector<ServerConnectionEntry> known(std::int32_t processId) {
        std::vector<ServerConnectionEntry> entries;
        ProprietarySocketClient::getServerConnectionList(entries);
        std::erase_if(entries, [processId](const auto& entry) { return entry.processId != processId; });
        return entries;
    }
};

TEST_F(ConnectionInfoPacket, FillsTheRecordAndTheList) {
    connect();
    EXPECT_EQ(client.getServerVersion(), "");
    // Process id 3101, "ostrel", "1.2", "Beta".
    deliver(hex("0000001C 0002 0008 1D0C0000 06") + raw("ostrel") + hex("03") + raw("1.2") + hex("04") + raw("Beta"));
    EXPECT_EQ(client.getServerVersion(), "1.2");
    EXPECT_EQ(client.getServerVersionLabel(), "Beta");
    EXPECT_EQ(known(3101), (std::vector{ServerConnectionEntry{3101, "ostrel", "(FS) File Server", "", "1.2", "Beta"}}));
    EXPECT_EQ(client.received(), std::vector<int>{7}) << "the hook does not see it";
}

TEST_F(ConnectionInfoPacket, SecondOneOfAProcessReplacesTheFirst) {
    connect();
    recordServerConnection(ServerConnectionEntry{3102, "x", "y", "local", "9", "z"});
    deliver(hex("00000012 0002 0008 1E0C0000 03") + raw("foo") + hex("01") + raw("2"));
    EXPECT_EQ(known(3102), (std::vector{ServerConnectionEntry{3102, "foo", "", "", "2", ""}}));
    deliver(hex("0000000C 0002 0008 1E0C0000"));
    EXPECT_EQ(known(3102), (std::vector{ServerConnectionEntry{3102, "", "", "", "", ""}}));
    EXPECT_EQ(client.getServerVersion(), "") << "replaced too";
}

TEST_F(ConnectionInfoPacket, OtherProcessAddsAnEntry) {
    connect();
    deliver(hex("0000000C 0002 0008 1F0C0000"));
    deliver(hex("0000000C 0002 0008 200C0000"));
    EXPECT_EQ(known(3103).size(), 1U);
    EXPECT_EQ(known(3104).size(), 1U);
}

struct IgnoredRow {
    const char* why;
    const char* packet;
};

class IgnoredConnectionInfo : public ConnectionInfoPacket, public testing::WithParamInterface<IgnoredRow> {};

TEST_P(IgnoredConnectionInfo, IsConsumedAndChangesNothing) {
    connect();
    deliver(hex("00000011 0002 0008 210C0000 00 01") + raw("5") + hex("01") + raw("L"));
    ASSERT_EQ(client.getServerVersion() + client.getServerVersionLabel(), "5L");
    std::vector<ServerConnectionEntry> before, after;
    getServerConnectionList(before);
    deliver(hex(GetParam().packet));
    getServerConnectionList(after);
    EXPECT_EQ(client.getServerVersion() + client.getServerVersionLabel(), "5L");
    EXPECT_EQ(after, before);
    EXPECT_EQ(client.received(), (std::vector<int>{7, 7}));
}

INSTANTIATE_TEST_SUITE_P(Rows, IgnoredConnectionInfo,
                         testing::Values(IgnoredRow{"noPayload", "00000008 0002 0008"},
                                         IgnoredRow{"oneByte", "00000009 0002 0008 01"},
                                         IgnoredRow{"threeBytes", "0000000B 0002 0008 010203"},
                                         IgnoredRow{"offsetLeavesThreeBytes", "0000000E 0002 000B 010203040506"},
                                         IgnoredRow{"offsetAtTheEnd", "0000000C 0002 000C 01020304"},
                                         IgnoredRow{"offsetBeyondTheEnd", "0000000C 0002 000D 01020304"},
                                         IgnoredRow{"offsetFarBeyond", "0000000C 0002 FFFF 01020304"}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST_F(ConnectionInfoPacket, PayloadStartsAtItsOffset) {
    connect();
    deliver(hex("00000016 0002 000C AAAAAAAA 220C0000 00 03") + raw("1.2") + hex("00"));
    EXPECT_EQ(client.getServerVersion(), "1.2");
    EXPECT_EQ(known(3106).size(), 1U);
}

TEST_F(ConnectionInfoPacket, EveryClientHasItsOwnRecord) {
    connect();
    TestClient other(server.port());
    deliver(hex("0000000F 0002 0008 230C0000 00 01") + raw("7"));
    EXPECT_EQ(client.getServerVersion(), "7");
    EXPECT_EQ(other.getServerVersion(), "");
}

}  // namespace
