// Closing, and the end of a link: ProprietarySocketClient::closeSocket.
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/platform/linux/base/ClientFixture.h"
#include "tests/platform/linux/base/CountedPacket.h"
#include "tests/platform/linux/base/ReplacedCalls.h"
#include "tests/support/CapturedOutput.h"

using namespace sockettest;
using testsupport::CapturedOutput;

namespace {

Bytes packets(int count, unsigned char command = 7) {
    Bytes bytes;
    for (int i = 0; i < count; ++i) bytes = bytes + hex("00000008 00") + Bytes{command} + hex("0008");
    return bytes;
}

class ClientClose : public Connected {};

TEST_F(ClientClose, EndsTheLinkAndItsThreads) {
    connect();
    client.closeSocket(true);
    EXPECT_TRUE(peer.atEnd());
    EXPECT_EQ(client.descriptor(), -1);
    const LinkStatus status = client.status();
    EXPECT_FALSE(status.connected || status.closing || status.dispatchRunning || status.pingRunning);
}

TEST_F(ClientClose, ReopenedClientConnectsAgain) {
    for (int i = 0; i < 5; ++i) {
        connect();
        peer.write(packets(1));
        EXPECT_TRUE(client.hasReceived(static_cast<std::size_t>(i) + 1));
        client.closeSocket(true);
    }
}

TEST_F(ClientClose, ClosedForGoodNeverConnectsAgain) {
    connect();
    client.closeSocket(false);
    EXPECT_TRUE(peer.atEnd());
    EXPECT_TRUE(client.status().closing);
    EXPECT_EQ(client.descriptor(), -1);
    EXPECT_FALSE(client.connectToServer());
    client.closeSocket(true);
    EXPECT_FALSE(client.connectToServer());
    EXPECT_FALSE(server.hasCaller());
}

TEST_F(ClientClose, DoesNothingWithoutALink) {
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    client.closeSocket(true);
    client.closeSocket(false);
    EXPECT_FALSE(client.status().closing);
    connect();
    EXPECT_EQ(output.text() + errors.text(), "");
}

TEST_F(ClientClose, IsSilent) {
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    connect();
    peer.write(packets(3) + hex("0000"));
    client.closeSocket(true);
    EXPECT_EQ(output.text() + errors.text(), "");
}

struct EndRow {
    const char* why;
    void (*end)(Peer&);
};

class LinkEnd : public Connected, public testing::WithParamInterface<EndRow> {};

TEST_P(LinkEnd, IsSilentAndTold) {
    static std::atomic<int> told{0};
    static std::atomic<ProprietarySocketClient*> toldOf{nullptr};
    told = 0;
    client.onDisconnect = [](ProprietarySocketClient* which) {
        toldOf = which;
        ++told;
        return which;
    };
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    connect();
    peer.write(packets(2));
    EXPECT_TRUE(client.hasReceived(2));
    EXPECT_EQ(told, 0);
    GetParam().end(peer);
    EXPECT_TRUE(client.waitForEnd());
    EXPECT_FALSE(client.status().dispatchRunning || client.status().closing);
    EXPECT_TRUE(waitFor([] { return told > 0; }));
    client.closeSocket(true);
    EXPECT_EQ(told, 1);
    EXPECT_EQ(toldOf, &client);
    EXPECT_EQ(output.text() + errors.text(), "");
}

TEST_P(LinkEnd, IsNotReopenedBeforeTheClientIsClosed) {
    connect();
    GetParam().end(peer);
    EXPECT_TRUE(client.waitForEnd());
    EXPECT_GE(client.descriptor(), 0) << "not closed yet";
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(client.connectToServer());
    EXPECT_FALSE(server.hasCaller());
    client.closeSocket(true);
    EXPECT_EQ(client.descriptor(), -1);
    connect();
    EXPECT_TRUE(client.status().connected);
}

TEST_P(LinkEnd, MayBeClosedForGood) {
    connect();
    GetParam().end(peer);
    EXPECT_TRUE(client.waitForEnd());
    client.closeSocket(false);
    EXPECT_FALSE(client.connectToServer());
    EXPECT_TRUE(client.status().closing);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, LinkEnd,
    testing::Values(EndRow{"peerCloses", [](Peer& peer) { peer.close(); }},
                    EndRow{"peerResets", [](Peer& peer) { peer.reset(); }},
                    EndRow{"peerSendsNoMore", [](Peer& peer) { peer.shutdownWriting(); }},
                    EndRow{"cutLength", [](Peer& peer) { peer.write(hex("0000")), peer.close(); }},
                    EndRow{"cutPacket", [](Peer& peer) { peer.write(hex("0000000A 0007")), peer.close(); }},
                    EndRow{"lengthZero", [](Peer& peer) { peer.write(hex("00000000 0007 0008")); }},
                    EndRow{"lengthThree", [](Peer& peer) { peer.write(hex("00000003 0007 0008")); }},
                    EndRow{"lengthSeven", [](Peer& peer) { peer.write(hex("00000007 0007 0008")); }}),
    [](const auto& row) { return std::string(row.param.why); });

TEST_F(ClientClose, NobodyNeedsToBeToldOfTheEnd) {
    connect();
    peer.close();
    EXPECT_TRUE(client.waitForEnd());
}

// The ping queue takes ten ends of links. The eleventh waited for a reader that no program has, and was waited for.
TEST_F(ClientClose, ManyLinksMayEndWithoutAPingThread) {
    for (int i = 0; i < 25; ++i) {
        connect();
        peer.close();
        EXPECT_TRUE(client.waitForEnd());
        client.closeSocket(true);
    }
}

// The receive thread and closeSocket both put an end mark; the second one ended the next link at once.
TEST_F(ClientClose, NoEndMarkIsLeftForTheNextLink) {
    for (int i = 0; i < 50; ++i) {
        connect();
        if (i % 2 == 0) peer.shutdownWriting();
        client.closeSocket(true);
        ASSERT_TRUE(client.connectToServer());
        const Peer next = server.accept();
        next.write(packets(1));
        ASSERT_TRUE(client.hasReceived(static_cast<std::size_t>(i) + 1));
        ASSERT_TRUE(client.status().connected);
        client.closeSocket(true);
    }
}

// 600 reports were enough to stop the receiver, the dispatcher and the closing thread for ever.
TEST_F(ClientClose, PacketsThatArrivedAreHandledFirstAllOfThem) {
    constexpr int kBurst = 2000;
    Latch burstSent;
    client.onPacket = [&](TPacket*&) { burstSent.pass(); };
    connect();
    peer.write(packets(kBurst));
    std::thread closer([&] { client.closeSocket(true); });
    EXPECT_TRUE(waitFor([&] { return client.status().closing; }));
    burstSent.open();
    closer.join();
    EXPECT_EQ(client.received(), std::vector<int>(kBurst, 7));
}

TEST_F(ClientClose, WakesATransmitThreadThatWaitsForThePeer) {
    connect();
    const Bytes large(1U << 20U, 0x55);
    for (int i = 0; i < 40; ++i) EXPECT_TRUE(client.send(7, large));  // more than any socket holds; the peer reads none
    client.closeSocket(true);
    EXPECT_EQ(client.descriptor(), -1);
}

TEST_F(ClientClose, DoesNotWaitForAPeerThatKeepsSending) {
    connect();
    std::atomic<bool> stop{false};
    std::thread sender([&] {
        while (!stop && peer.write(packets(100))) {
        }
    });
    EXPECT_TRUE(client.hasReceived(200));
    client.closeSocket(true);
    stop = true;
    sender.join();
}

TEST_F(ClientClose, ClientThatIsBeingClosedIsNotConnected) {
    Latch inHook, release;
    client.onPacket = [&](TPacket*&) {
        inHook.open();
        release.pass();
    };
    connect();
    peer.write(packets(1));
    inHook.pass();
    std::thread closer([&] { client.closeSocket(true); });
    EXPECT_TRUE(waitFor([&] { return client.status().closing; }));
    EXPECT_TRUE(client.status().connected) << "the dispatch thread still runs";
    EXPECT_FALSE(client.connectToServer());
    release.open();
    closer.join();
    EXPECT_FALSE(server.hasCaller());
    EXPECT_TRUE(client.connectToServer());
}

TEST_F(ClientClose, SecondCallerWaitsForTheFirst) {
    Latch inHook, release;
    client.onPacket = [&](TPacket*&) {
        inHook.open();
        release.pass();
    };
    connect();
    peer.write(packets(1));
    inHook.pass();
    std::atomic<int> returned{0};
    std::vector<std::thread> closers;
    for (int i = 0; i < 3; ++i)
        closers.emplace_back([&] {
            client.closeSocket(true);
            ++returned;
        });
    EXPECT_TRUE(waitFor([&] { return client.status().closing; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(returned, 0);
    release.open();
    for (std::thread& closer : closers) closer.join();
    EXPECT_FALSE(client.status().closing);
    EXPECT_EQ(client.descriptor(), -1);
}

class ClosedForGood : public Connected, public testing::WithParamInterface<bool> {};

// Main ends the program while the worker drops the connection: the worker must not connect once more.
TEST_P(ClosedForGood, WinsOverReopening) {
    Latch inHook, release;
    client.onPacket = [&](TPacket*&) {
        inHook.open();
        release.pass();
        client.closeSocket(!GetParam());
    };
    connect();
    peer.write(packets(1));
    inHook.pass();
    std::thread closer([&] { client.closeSocket(GetParam()); });
    EXPECT_TRUE(waitFor([&] { return client.status().closing; }));
    release.open();
    closer.join();
    EXPECT_TRUE(client.status().closing);
    EXPECT_FALSE(client.connectToServer());
}

INSTANTIATE_TEST_SUITE_P(FirstReopens, ClosedForGood, testing::Bool());

class CloseInHook : public Connected, public testing::WithParamInterface<bool> {};

// The dispatch thread cannot wait for itself: it ends the link, and another thread's call does the rest.
TEST_P(CloseInHook, EndsTheLinkAndReturns) {
    std::atomic<bool> connectedAfterwards{true};
    client.onPacket = [&](TPacket*&) {
        client.closeSocket(GetParam());
        connectedAfterwards = client.connectToServer() || client.status().connected;
    };
    connect();
    peer.write(packets(1));
    EXPECT_TRUE(peer.atEnd());
    EXPECT_TRUE(client.hasReceived(1));
    EXPECT_TRUE(client.waitForEnd());
    EXPECT_TRUE(waitFor([&] { return !client.status().dispatchRunning; }));
    EXPECT_FALSE(connectedAfterwards);
    EXPECT_FALSE(client.connectToServer());
    client.closeSocket(true);
    EXPECT_EQ(client.descriptor(), -1);
    EXPECT_EQ(client.connectToServer(), GetParam()) << "closed for good stays so";
}

INSTANTIATE_TEST_SUITE_P(Reopen, CloseInHook, testing::Bool());

TEST_F(ClientClose, HookOfTheDisconnectMayCloseToo) {
    client.onDisconnect = [](ProprietarySocketClient* which) {
        which->closeSocket(true);
        return which;
    };
    connect();
    peer.close();
    EXPECT_TRUE(client.waitForEnd());
    client.closeSocket(true);
    EXPECT_TRUE(client.connectToServer());
}

TEST_F(ClientClose, HooksMayUseTheClientWhileItIsClosed) {
    Latch closing;
    client.onPacket = [&](TPacket*&) {
        closing.pass();
        client.status();
        client.send(9);
        client.closeSocket(true);
        client.getServerVersion();
    };
    connect();
    peer.write(packets(50));
    std::thread closer([&] { client.closeSocket(true); });
    EXPECT_TRUE(waitFor([&] { return client.status().closing; }));
    closing.open();
    closer.join();
    EXPECT_TRUE(client.connectToServer());
}

TEST_F(ClientClose, QueuedPacketsAreDeletedWithTheLink) {
    connect();
    const Bytes large(1U << 20U, 0x55);
    for (int i = 0; i < 40; ++i) EXPECT_TRUE(client.send(7, large));
    client.closeSocket(true);
    connect();
    EXPECT_TRUE(client.send(8));
    EXPECT_EQ(peer.read(8), hex("00000008 0008 0008"));
}

// Behind the end of a link nobody takes them from the buffer but the closing thread.
TEST_F(ClientClose, PacketsQueuedAfterTheEndOfTheLinkAreDeletedAtOnce) {
    const std::size_t threads = testsupport::runningThreads();
    connect();
    peer.close();
    EXPECT_TRUE(client.waitForEnd());
    EXPECT_TRUE(waitFor([threads] { return testsupport::runningThreads() <= threads; }));
    // Should a thread of before have been counted, the transmit thread may still take one or the other.
    EXPECT_TRUE(waitFor([this] {
        TPacket* packet = new CountedPacket(7);
        EXPECT_TRUE(client.sendPacket(packet, false));
        return CountedPacket::living() == 5;
    }));
    client.closeSocket(true);
    EXPECT_EQ(CountedPacket::living(), 0);
}

// The receive thread and closeSocket both put an end mark; the dispatch thread takes one.
TEST_F(ClientClose, LeavesNothingInTheQueueOfTheDispatchThread) {
    Latch release;
    client.onPacket = [&](TPacket*&) { release.pass(); };
    connect();
    peer.write(packets(1));
    EXPECT_TRUE(client.hasReceived(1));
    std::thread closer([&] { client.closeSocket(true); });
    EXPECT_TRUE(waitFor([this] { return client.descriptor() == -1; }));
    EXPECT_EQ(client.rxQueue.size(), 2);
    release.open();
    closer.join();
    EXPECT_EQ(client.rxQueue.size(), 0);
}

class ClientDestructor : public LeavesNothing {};

std::string warning(int port, int fd) {
    return "ProprietarySocketClient::~ProprietarySocketClient() port " + std::to_string(port) + " fd " +
           std::to_string(fd) +
           " reports: Derived classes or application shall call closeSocket() before destroying the object.\n";
}

TEST_F(ClientDestructor, WarnsOfAClientThatWasNotClosedAndNothingElse) {
    LoopbackServer server;
    Peer peer(-1);
    static std::atomic<int> told{0};
    told = 0;
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    std::string expected;
    {
        ProprietarySocketClient client(server.port(), nullptr);
        client.onDisconnect = [](ProprietarySocketClient* which) {
            ++told;
            return which;
        };
        ASSERT_TRUE(client.connectToServer());
        peer = server.accept();
        expected = warning(server.port(), client.descriptor());
    }
    EXPECT_EQ(errors.text(), expected);
    EXPECT_EQ(output.text(), "");
    EXPECT_TRUE(peer.atEnd()) << "no thread of the link is left";
    EXPECT_EQ(told, 0) << "the derived part is gone";
}

TEST_F(ClientDestructor, WarnsOfALinkThatEndedByItself) {
    LoopbackServer server;
    const CapturedOutput errors(STDERR_FILENO);
    std::string expected;
    {
        ProprietarySocketClient client(server.port(), nullptr);
        ASSERT_TRUE(client.connectToServer());
        expected = warning(server.port(), client.descriptor());
        server.accept().close();
        LinkStatus status;
        EXPECT_TRUE(waitFor([&] { return client.getLinkStatus(&status, false), !status.connected; }));
    }
    EXPECT_EQ(errors.text(), expected);
}

TEST_F(ClientDestructor, IsSilentForAClosedOrIdleClient) {
    LoopbackServer server;
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    {
        ProprietarySocketClient idle(server.port(), nullptr), closed(server.port(), nullptr);
        ASSERT_TRUE(closed.connectToServer());
        closed.closeSocket(true);
    }
    EXPECT_EQ(output.text() + errors.text(), "");
}

}  // namespace
