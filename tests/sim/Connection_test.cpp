#include "sim/Connection.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>

#include "tests/sim/HexText.h"

namespace {

using namespace std::chrono_literals;
using simtest::bytes;

/// A connection whose other end the test holds.
class SimConnection : public testing::Test {
protected:
    static sim::Descriptor connectedPair(sim::Descriptor& peer) {
        int ends[2] = {-1, -1};
        socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends);
        peer.reset(ends[1]);
        return sim::Descriptor(ends[0]);
    }

    std::string peerReads() const {
        std::array<std::uint8_t, 256> data;
        const ssize_t got = recv(peer.get(), data.data(), data.size(), 0);
        if (got == 0) return "end";
        return got < 0 ? "nothing" : simtest::hex(std::span(data).first(static_cast<std::size_t>(got)));
    }

    void peerWrites(const char* text) const {
        const auto data = bytes(text);
        ASSERT_EQ(send(peer.get(), data.data(), data.size(), MSG_NOSIGNAL), static_cast<ssize_t>(data.size()));
    }

    sim::Instant now = sim::monotonicNow();
    sim::Journal journal;
    sim::Descriptor peer;
    sim::Connection connection{1, connectedPair(peer), {}, journal};
};

TEST_F(SimConnection, WritesWhenItIsFlushed) {
    connection.sendRaw(bytes("01 02"), now);
    EXPECT_TRUE(connection.wantsToWrite(now));
    EXPECT_EQ(peerReads(), "nothing");
    connection.flush(now);
    EXPECT_FALSE(connection.wantsToWrite(now));
    EXPECT_EQ(peerReads(), "01 02");
    EXPECT_EQ(connection.due(now), std::nullopt);
}

TEST_F(SimConnection, ReadsPackets) {
    peerWrites("00 00 00 08 03 e9 00 08 00 00");
    connection.receive(now);
    EXPECT_EQ(connection.nextPacket(now).value().command(), 1001);
    EXPECT_FALSE(connection.nextPacket(now));
    connection.receive(now);  // nothing has come, nothing happens
    EXPECT_TRUE(connection.open());
}

TEST_F(SimConnection, ClosesOnlyAfterAllIsWritten) {
    connection.sendRaw(bytes("01 02"), now);
    connection.close(now, "test");
    EXPECT_FALSE(connection.open());
    connection.sendRaw(bytes("03"), now);
    connection.flush(now);
    EXPECT_EQ(peerReads(), "01 02");
    EXPECT_EQ(peerReads(), "end");
    EXPECT_FALSE(connection.over());
}

TEST_F(SimConnection, ReadsAndForgetsWhatComesWhileItCloses) {
    connection.close(now, "test");
    connection.flush(now);
    peerWrites("00 00 00 08 03 e9 00 08");
    connection.receive(now);
    EXPECT_FALSE(connection.nextPacket(now));
    peer.reset();
    connection.receive(now);
    connection.flush(now);
    EXPECT_TRUE(connection.over());
}

TEST_F(SimConnection, ClosesAfterFiveSecondsWhateverTheClientDoes) {
    connection.close(now, "test");
    connection.flush(now + 4999ms);
    EXPECT_FALSE(connection.over());
    EXPECT_EQ(connection.due(now), now + 5s);
    connection.flush(now + 5s);
    EXPECT_TRUE(connection.over());
}

TEST_F(SimConnection, IsOverWhenTheClientIsGone) {
    peer.reset();
    EXPECT_TRUE(connection.wantsToRead());
    connection.receive(now);
    EXPECT_FALSE(connection.wantsToRead());
    connection.flush(now);
    EXPECT_TRUE(connection.over());
    EXPECT_EQ(connection.due(now), now);
}

TEST_F(SimConnection, IsOverWhenAWriteFails) {
    peer.reset();
    connection.sendRaw(bytes("01"), now);
    connection.flush(now);
    EXPECT_TRUE(connection.over());
}

TEST_F(SimConnection, SilenceHoldsBackWhatComesLaterOnly) {
    connection.sendRaw(bytes("01"), now);
    connection.setSilent(true);
    connection.sendRaw(bytes("02"), now);
    connection.setSilent(false);
    connection.sendRaw(bytes("03"), now);
    connection.flush(now);
    EXPECT_EQ(peerReads(), "01 03");
}

// A client that never reads must not fill the server's memory.
TEST_F(SimConnection, LetsGoAClientThatDoesNotRead) {
    const std::vector<std::uint8_t> large(1024 * 1024);
    for (int count = 0; count < 8; ++count) {
        connection.sendRaw(large, now);
        connection.flush(now);
    }
    EXPECT_FALSE(connection.over());
    EXPECT_TRUE(connection.wantsToWrite(now));
    connection.sendRaw(large, now);
    connection.sendRaw(large, now);
    EXPECT_TRUE(connection.over());
}

}  // namespace
