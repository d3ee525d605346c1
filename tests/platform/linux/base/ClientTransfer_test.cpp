// Packets on their way: sendPacket, the link's threads and the dispatch thread.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <numeric>

#include "tests/platform/linux/base/ClientFixture.h"
#include "tests/platform/linux/base/CountedPacket.h"
#include "tests/platform/linux/base/ReplacedCalls.h"
#include "tests/support/CapturedOutput.h"

using namespace sockettest;
using testsupport::CapturedOutput;

namespace {

class ClientReceive : public Connected {};

TEST_F(ClientReceive, HandsPacketsToTheHookInOrderOneAtATimeOnOneThread) {
    connect();
    Bytes stream;
    std::vector<int> expected;
    for (int i = 0; i < 500; ++i) {
        stream = stream + hex("00000009") + Bytes{static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)} +
                 hex("0008 55");
        if (i != 1 && i != 2) expected.push_back(i);  // these two are the socket layer's own
    }
    const CapturedOutput output(STDOUT_FILENO);
    peer.write(stream);
    EXPECT_TRUE(client.hasReceived(expected.size()));
    EXPECT_EQ(client.received(), expected);
    EXPECT_FALSE(client.mixed());
}

TEST_F(ClientReceive, HookSeesThePacketAsItCame) {
    Bytes data;
    std::uint32_t payloadSize = 0;
    client.onPacket = [&](TPacket*& packet) {
        data.assign(packet->data, packet->data + packet->size);
        payloadSize = packet->getPayloadSize();
    };
    connect();
    peer.write(hex("0000000E 03E8 000C 01020304 0506"));
    EXPECT_TRUE(client.hasReceived(1));
    client.closeSocket(true);
    EXPECT_EQ(data, hex("0000000E 03E8 000C 01020304 0506"));
    EXPECT_EQ(payloadSize, 2U);
}

TEST_F(ClientReceive, HookMayKeepThePacket) {
    PacketPtr kept;
    client.onPacket = [&](TPacket*& packet) { kept.reset(std::exchange(packet, nullptr)); };
    connect();
    peer.write(hex("00000009 0007 0008 55"));
    EXPECT_TRUE(client.hasReceived(1));
    client.closeSocket(true);
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->getCommand(), 7);
    EXPECT_EQ(kept->getPayload()[0], 0x55);
}

TEST_F(ClientReceive, HookMayDeleteThePacket) {
    client.onPacket = [&](TPacket*& packet) { PacketPtr(std::exchange(packet, nullptr)); };
    connect();
    peer.write(hex("00000008 0007 0008 00000008 0007 0008"));
    EXPECT_TRUE(client.hasReceived(2));
}

TEST_F(ClientReceive, HookMayPutAnotherPacketInItsPlace) {
    client.onPacket = [&](TPacket*& packet) { PacketPtr(std::exchange(packet, new CountedPacket(9))); };
    connect();
    peer.write(hex("00000008 0007 0008"));
    EXPECT_TRUE(client.hasReceived(1));
    client.closeSocket(true);
    EXPECT_EQ(CountedPacket::living(), 0) << "what the hook leaves is deleted";
}

TEST_F(ClientReceive, BaseOfTheHookDeletesThePacket) {
    ProprietarySocketClient plain(4000, nullptr);
    TPacket* packet = new CountedPacket(9);
    plain.handleRxPacket(packet);
    EXPECT_EQ(packet, nullptr);
    EXPECT_EQ(CountedPacket::living(), 0);
}

TEST_F(ClientReceive, WithoutAnOverridePacketsComeAndGo) {
    ProprietarySocketClient plain(server.port(), nullptr);
    ASSERT_TRUE(plain.connectToServer());
    const Peer plainPeer = server.accept();
    plainPeer.write(hex("00000008 0007 0008 00000008 0008 0008"));
    TPacket* packet = newPacket(1, hex("00"));
    EXPECT_TRUE(plain.sendPacket(packet, false));
    EXPECT_EQ(plainPeer.read(9), hex("00000009 0001 0008 00"));
    plain.closeSocket(true);
}

TEST_F(ClientReceive, PacketsInPiecesAndTogether) {
    connect();
    for (const Bytes& piece : {hex("00"), hex("00000B 0007 00"), hex("08 010203 0000"), hex("0008 0008 0008 00000009"),
                               hex("0009 0008 FF")}) {
        peer.write(piece);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    EXPECT_TRUE(client.hasReceived(3));
    EXPECT_EQ(client.received(), (std::vector<int>{7, 8, 9}));
}

/// True when the peer's socket takes more bytes within `limit`.
bool takesMore(const Peer& peer, std::chrono::milliseconds limit) {
    pollfd wanted{peer.descriptor(), POLLOUT, 0};
    return poll(&wanted, 1, static_cast<int>(limit.count())) > 0;
}

// 64 KiB packets: the queue takes 100, two are in hands, the rest is what sockets hold.
TEST_F(ClientReceive, FullQueueStopsReadingFromTheSocket) {
    constexpr std::size_t kPacketBytes = 65536, kTaken = 102;
    Latch release;
    client.onPacket = [&](TPacket*&) { release.pass(); };
    connect();
    const Bytes packet = hex("00010000 0007 0008") + Bytes(kPacketBytes - 8);
    std::size_t accepted = 0, offset = 0;
    while (takesMore(peer, accepted < kTaken ? testsupport::kDeadline : std::chrono::milliseconds(300))) {
        const ssize_t sent = sendto(peer.descriptor(), packet.data() + offset, packet.size() - offset,
                                    MSG_NOSIGNAL | MSG_DONTWAIT, nullptr, 0);
        ASSERT_GT(sent, 0);
        offset += static_cast<std::size_t>(sent);
        if (offset < packet.size()) continue;
        offset = 0;
        ASSERT_LT(++accepted, 1000U) << "64 MB taken from a peer and not handled";
    }
    EXPECT_GE(accepted, kTaken) << "100 in the queue, one handled, one waiting for room";
    release.open();
    EXPECT_TRUE(client.hasReceived(accepted));
    EXPECT_EQ(client.received().size(), accepted);
    client.closeSocket(true);  // the hook looks at the latch until then
}

// Packets of 9 bytes: only a length field is read by 4.
TEST_F(ClientReceive, QueueTakesAHundredPackets) {
    constexpr int kSent = 300, kBegun = 102;
    std::atomic<int> begun{0};
    ReplacedCalls calls;
    calls.recv = [&begun](int fd, void* buffer, std::size_t count, int flags) {
        const ssize_t got = __real_recv(fd, buffer, count, flags);
        if (count == 4 && got == 4) ++begun;
        return got;
    };
    Latch release;
    client.onPacket = [&](TPacket*&) { release.pass(); };
    connect();
    Bytes packets;
    for (int i = 0; i < kSent; ++i) packets = packets + hex("00000009 0007 0008 55");
    EXPECT_TRUE(peer.write(packets));
    EXPECT_TRUE(waitFor([&begun] { return begun >= kBegun; })) << begun;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(begun, kBegun) << "100 in the queue, one handled, one waiting for room";
    release.open();
    EXPECT_TRUE(client.hasReceived(kSent));
    client.closeSocket(true);
}

class ClientSend : public Connected {};

TEST_F(ClientSend, PacketsGoOutInTheOrderInWhichTheyWereQueued) {
    connect();
    Bytes expected;
    for (int i = 0; i < 300; ++i) {
        const Bytes payload(static_cast<std::size_t>(i % 7), static_cast<std::uint8_t>(i));
        EXPECT_TRUE(client.send(static_cast<unsigned short>(i), payload));
        expected = expected + hex("000000") + Bytes{static_cast<std::uint8_t>(8 + i % 7)} +
                   Bytes{static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)} + hex("0008") + payload;
    }
    EXPECT_EQ(peer.read(expected.size()), expected);
}

TEST_F(ClientSend, TakesThePacket) {
    connect();
    for (const bool dropIfFull : {false, true}) {
        TPacket* packet = newPacket(7);
        EXPECT_TRUE(client.sendPacket(packet, dropIfFull));
        EXPECT_EQ(packet, nullptr);
    }
    EXPECT_EQ(peer.read(16), hex("00000008 0007 0008 00000008 0007 0008"));
}

// On the queue a null pointer would end the transmit thread.
TEST_F(ClientSend, NoPacketIsRefused) {
    connect();
    for (const bool dropIfFull : {false, true}) {
        TPacket* packet = nullptr;
        EXPECT_FALSE(client.sendPacket(packet, dropIfFull));
    }
    EXPECT_TRUE(client.send(7));
    EXPECT_EQ(peer.read(8), hex("00000008 0007 0008"));
}

TEST_F(ClientSend, ManySendersLoseNothing) {
    constexpr int kSenders = 4, kPackets = 300;
    connect();
    std::vector<std::thread> senders;
    for (int s = 0; s < kSenders; ++s)
        senders.emplace_back([&, s] {
            for (int i = 0; i < kPackets; ++i)
                EXPECT_TRUE(client.send(static_cast<unsigned short>(s),
                                        {static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)}));
        });
    std::vector<int> next(kSenders);
    for (int i = 0; i < kSenders * kPackets; ++i) {
        const Bytes packet = peer.read(10);
        ASSERT_EQ(packet.size(), 10U);
        ASSERT_LT(packet[5], kSenders);
        EXPECT_EQ(packet[8] * 256 + packet[9], next[packet[5]]++) << "each sender's packets in its order";
    }
    for (std::thread& sender : senders) sender.join();
}

/// Holds the transmit thread in `send` until a test lets it go on, one packet at a time.
class StalledSend {
public:
    explicit StalledSend(ReplacedCalls& calls) {
        calls.send = [this](int, const void*, std::size_t size, int) {
            ++entered_;
            gate.wait();
            ++left;
            return static_cast<ssize_t>(size);
        };
    }
    /// Waits until the `count`th packet is in `send`.
    void waitFor(int count) const {
        EXPECT_TRUE(testsupport::waitFor([this, count] { return entered_ >= count; })) << entered_ << " of " << count;
    }
    /// Lets `count` packets out; the next one, if there is one, is in `send` afterwards.
    void letOut(int count) {
        const int goal = entered_ + count;
        for (int i = 0; i < count; ++i) gate.post();
        waitFor(goal);
    }
    void letAllOut() {
        for (int i = 0; i < 1000; ++i) gate.post();
    }

private:
    threadfunc::semaphore gate{0};
    std::atomic<int> entered_{0}, left{0};
};

class TransmitBuffer : public LeavesNothing {
protected:
    TransmitBuffer() : stall(calls), client(server.port()) {
        client.onPacket = [this](TPacket*&) { refusedToHook += client.send(8) ? 0 : 1; };
        EXPECT_TRUE(client.connectToServer());
        peer = server.accept();
        EXPECT_TRUE(offer());  // this one stays in `send`
        stall.waitFor(1);
    }
    ~TransmitBuffer() override {
        stall.letAllOut();
        client.closeSocket(false);
    }

    bool offer() {
        packet = new CountedPacket(7);
        return client.sendPacket(packet, true);
    }
    void fill(int count) {
        for (int i = 0; i < count; ++i) ASSERT_TRUE(offer());
    }
    std::string prefix() const {
        return "ProprietarySocketClient::sendPacket() Port " + std::to_string(client.port()) + ", fd " +
               std::to_string(client.descriptor()) + " Reports: ";
    }
    std::string overrun() const { return prefix() + "Tx Buffer overrun, message lost.\n"; }
    std::string recovery() const { return prefix() + "Tx Buffer usage below 50%.\n"; }

    ReplacedCalls calls;
    StalledSend stall;
    LoopbackServer server;
    TestClient client;
    Peer peer{-1};
    TPacket* packet = nullptr;
    std::atomic<int> refusedToHook{0};
};

TEST_F(TransmitBuffer, HundredAndFirstPacketIsDroppedAndReportedOnce) {
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    fill(100);
    EXPECT_EQ(errors.text(), "");
    const int before = CountedPacket::living();
    EXPECT_FALSE(offer());
    EXPECT_EQ(packet, nullptr);
    EXPECT_EQ(CountedPacket::living(), before) << "deleted";
    EXPECT_EQ(errors.text(), overrun());
    EXPECT_FALSE(offer());
    EXPECT_EQ(packet, nullptr);
    EXPECT_EQ(errors.text(), overrun()) << "one report an episode";
    EXPECT_EQ(output.text(), "");
}

TEST_F(TransmitBuffer, RecoveryIsReportedOnceWhenFewerThanFiftyAreQueued) {
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    fill(100);
    EXPECT_FALSE(offer());
    stall.letOut(51);  // leaves 49
    EXPECT_TRUE(offer());
    EXPECT_EQ(output.text(), "") << "50 queued is not below half";
    stall.letOut(2);  // leaves 48
    EXPECT_EQ(output.text(), "") << "told when the next packet is queued";
    EXPECT_TRUE(offer());
    EXPECT_EQ(output.written(), recovery()) << "not kept in the buffer behind the line on standard error";
    EXPECT_TRUE(offer());
    EXPECT_EQ(output.text(), recovery());
    EXPECT_EQ(errors.text(), overrun());
}

TEST_F(TransmitBuffer, WaitingSenderReportsTheRecoveryToo) {
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    fill(100);
    EXPECT_FALSE(offer());
    stall.letOut(52);
    EXPECT_TRUE(client.send(8));
    EXPECT_EQ(output.text(), recovery());
}

TEST_F(TransmitBuffer, PingReportsTheRecoveryToo) {
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    fill(100);
    EXPECT_FALSE(offer());
    stall.letOut(52);
    client.handlePingTick();
    EXPECT_EQ(output.text(), recovery());
}

TEST_F(TransmitBuffer, EachEpisodeIsReported) {
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    std::string overruns, recoveries;
    for (int episode = 0; episode < 3; ++episode) {
        while (offer()) {
        }
        overruns += overrun();
        EXPECT_EQ(errors.text(), overruns);
        stall.letOut(60);
        EXPECT_TRUE(offer());
        recoveries += recovery();
        EXPECT_EQ(output.text(), recoveries);
    }
}

TEST_F(TransmitBuffer, WithoutAnOverrunThereIsNoRecovery) {
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    fill(100);
    stall.letOut(90);
    EXPECT_TRUE(offer());
    EXPECT_EQ(output.text() + errors.text(), "");
}

TEST_F(TransmitBuffer, SenderWaitsForRoomAndReportsNothing) {
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    fill(100);
    std::atomic<bool> queued{false};
    std::thread sender([&] { queued = client.send(8); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(queued);
    stall.letOut(1);
    sender.join();
    EXPECT_TRUE(queued);
    EXPECT_EQ(output.text() + errors.text(), "");
}

TEST_F(TransmitBuffer, PingWaitsForRoomAndReportsNothing) {
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    fill(100);
    Latch ticking;
    std::atomic<bool> done{false};
    std::thread ping([&] {
        ticking.open();
        client.handlePingTick();
        done = true;
    });
    ticking.pass();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(done);
    stall.letOut(1);
    ping.join();
    EXPECT_EQ(output.text() + errors.text(), "");
}

class SenderAtTheEnd : public TransmitBuffer, public testing::WithParamInterface<bool> {};

// The flasher's worker waited in sendPacket for a link that was gone, and the destructor for the worker.
TEST_P(SenderAtTheEnd, IsReleased) {
    fill(100);
    std::atomic<int> refused{0};
    std::vector<std::thread> senders;
    for (int i = 0; i < 3; ++i)
        senders.emplace_back([&] {
            TPacket* mine = new CountedPacket(8);
            if (!client.sendPacket(mine, false) && mine == nullptr) ++refused;
        });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::thread closer;
    if (GetParam()) {
        peer.close();
    } else {
        closer = std::thread([&] { client.closeSocket(true); });
    }
    for (std::thread& sender : senders) sender.join();
    EXPECT_EQ(refused, 3);
    stall.letAllOut();
    if (closer.joinable()) closer.join();
    client.closeSocket(true);
    EXPECT_EQ(CountedPacket::living(), 0);
}

INSTANTIATE_TEST_SUITE_P(PeerEndsIt, SenderAtTheEnd, testing::Bool());

// The hook waits for room to send, the receive thread for room in its queue: the end of the link must reach both.
TEST_F(TransmitBuffer, HookThatWaitsToSendIsReleasedByTheEndOfTheLink) {
    fill(100);
    Bytes packets;
    for (int i = 0; i < 50; ++i) packets = packets + hex("00000008 0009 0008");
    peer.write(packets);
    EXPECT_TRUE(client.hasReceived(1));
    peer.close();
    EXPECT_TRUE(client.hasReceived(50));
    EXPECT_TRUE(client.waitForEnd());
    EXPECT_EQ(refusedToHook, 50);
}

TEST_F(TransmitBuffer, PacketsQueuedBeforeTheEndStillGoOut) {
    fill(10);
    peer.shutdownWriting();
    EXPECT_TRUE(client.waitForEnd());
    stall.letOut(10);
    stall.letAllOut();
    EXPECT_TRUE(waitFor([] { return CountedPacket::living() == 0; }));
}

class ClientWithoutLink : public LeavesNothing {};

TEST_F(ClientWithoutLink, QueuesAHundredPacketsAndDropsTheRest) {
    UnusedPort port;
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    const std::string start = "ProprietarySocketClient::sendPacket() Port " + std::to_string(port.port()) + ", fd ";
    const std::string overrun = start + "-1 Reports: Tx Buffer overrun, message lost.\n";
    {
        TestClient client(port.port());
        const auto send = [&client](bool dropIfFull) {
            TPacket* packet = new CountedPacket(7);
            const bool queued = client.sendPacket(packet, dropIfFull);
            EXPECT_EQ(packet, nullptr);
            return queued;
        };
        for (int i = 0; i < 100; ++i) EXPECT_TRUE(send(i % 2 == 0));
        EXPECT_FALSE(send(false)) << "nobody will make room: it does not wait";
        EXPECT_EQ(errors.text(), "");
        EXPECT_FALSE(send(true));
        EXPECT_FALSE(send(true));
        EXPECT_EQ(errors.text(), overrun);
        EXPECT_EQ(CountedPacket::living(), 100);

        port.listenNow();
        ASSERT_TRUE(client.connectToServer());
        EXPECT_EQ(CountedPacket::living(), 0) << "stale";
        EXPECT_TRUE(send(true));
        EXPECT_EQ(output.text(),
                  start + std::to_string(client.descriptor()) + " Reports: Tx Buffer usage below 50%.\n");
        EXPECT_EQ(errors.text(), overrun);
    }
    EXPECT_EQ(CountedPacket::living(), 0);
}

TEST_F(ClientWithoutLink, DeletesWhatItHoldsWhenItDies) {
    {
        TestClient client(4000);
        TPacket* packet = new CountedPacket(7);
        EXPECT_TRUE(client.sendPacket(packet, false));
        EXPECT_EQ(CountedPacket::living(), 1);
    }
    EXPECT_EQ(CountedPacket::living(), 0);
}

TEST_F(ClientWithoutLink, SenderDoesNotWaitAfterTheLinkEnded) {
    LoopbackServer server;
    TestClient client(server.port());
    ASSERT_TRUE(client.connectToServer());
    server.accept().close();
    EXPECT_TRUE(client.waitForEnd());
    int queued = 0;
    for (int i = 0; i < 250; ++i) queued += client.send(7) ? 1 : 0;
    EXPECT_LE(queued, 101) << "a buffer full, and one that the transmit thread took at its end";
}

struct SendResult {
    const char* why;
    ssize_t result;
    int error;
};

class FailingSend : public LeavesNothing, public testing::WithParamInterface<SendResult> {};

// A broken connection shows on the receiving side; the transmit thread just goes on.
TEST_P(FailingSend, IsIgnoredAndThePacketDeleted) {
    LoopbackServer server;
    ReplacedCalls calls;
    std::atomic<int> asked{0};
    calls.send = [&asked](int fd, const void* data, std::size_t size, int flags) -> ssize_t {
        if (++asked != 1) return __real_send(fd, data, size, flags);
        errno = GetParam().error;
        return GetParam().result;
    };
    TestClient client(server.port());
    ASSERT_TRUE(client.connectToServer());
    const Peer peer = server.accept();
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    TPacket* lost = new CountedPacket(7);
    EXPECT_TRUE(client.sendPacket(lost, false));
    EXPECT_TRUE(client.send(8));
    EXPECT_EQ(peer.read(8), hex("00000008 0008 0008"));
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(CountedPacket::living(), 0);
    EXPECT_TRUE(client.status().connected);
    EXPECT_EQ(output.text() + errors.text(), "");
    client.closeSocket(true);
}

INSTANTIATE_TEST_SUITE_P(Rows, FailingSend,
                         testing::Values(SendResult{"brokenPipe", -1, EPIPE}, SendResult{"noBuffers", -1, ENOBUFS},
                                         SendResult{"short", 3, 0}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST_F(ClientSend, InterruptedSendIsRepeated) {
    client.closeSocket(true);
    ReplacedCalls calls;
    std::atomic<int> asked{0};
    calls.send = [&asked](int fd, const void* data, std::size_t size, int flags) -> ssize_t {
        errno = EINTR;
        return ++asked < 3 ? -1 : __real_send(fd, data, size, flags);
    };
    connect();
    EXPECT_TRUE(client.send(8));
    EXPECT_EQ(peer.read(8), hex("00000008 0008 0008"));
    EXPECT_EQ(asked, 3);
    client.closeSocket(true);
}

}  // namespace
