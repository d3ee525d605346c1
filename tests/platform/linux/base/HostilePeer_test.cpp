// Whatever a peer sends, the client stays within its buffers and can be used again.
#include <gtest/gtest.h>
#include <unistd.h>

#include <random>

#include "tests/platform/linux/base/ClientFixture.h"
#include "tests/support/CapturedOutput.h"

using namespace sockettest;
using testsupport::CapturedOutput;

namespace {

/// Reads what a payload says it has, and asks for what it has not.
void touch(TPacket*& packet) {
    unsigned sum = 0;
    for (std::uint32_t i = 0; i < packet->getPayloadSize(); ++i) sum += packet->getPayload()[i];
    EXPECT_LE(sum, packet->getPayloadSize() * 255U);
    EXPECT_FALSE(packet->hasPayload(packet->size + 1));
}

struct StreamRow {
    const char* why;
    const char* bytes;
    bool linkLives;
    std::size_t handled;  // by the hook
};

class HostilePeer : public Connected, public testing::WithParamInterface<StreamRow> {
protected:
    HostilePeer() { client.onPacket = touch; }
};

TEST_P(HostilePeer, DoesNoHarm) {
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    connect();
    peer.write(hex(GetParam().bytes));
    if (GetParam().linkLives) {
        peer.write(hex("00000008 1234 0008"));
        EXPECT_TRUE(client.hasReceived(GetParam().handled + 1));
        EXPECT_EQ(client.received().back(), 0x1234);
    } else {
        EXPECT_TRUE(client.waitForEnd());
        EXPECT_EQ(client.received().size(), GetParam().handled);
    }
    client.closeSocket(true);
    connect();
    peer.write(hex("00000008 4321 0008"));
    EXPECT_TRUE(waitFor([this] { return !client.received().empty() && client.received().back() == 0x4321; }));
    EXPECT_EQ(errors.text(), "");
}

INSTANTIATE_TEST_SUITE_P(Rows, HostilePeer,
                         testing::Values(StreamRow{"lengthZero", "00000000 03E8 0008", false, 0},
                                         StreamRow{"lengthOne", "00000001 03E8 0008", false, 0},
                                         StreamRow{"lengthFour", "00000004 03E8 0008", false, 0},
                                         StreamRow{"lengthSeven", "00000007 03E8 0008", false, 0},
                                         StreamRow{"goodThenShort", "00000008 03E8 0008 00000005 03E8", false, 1},
                                         StreamRow{"offsetZero", "0000000A 03E8 0000 0102", true, 1},
                                         StreamRow{"offsetInTheHeader", "0000000A 03E8 0007 0102", true, 1},
                                         StreamRow{"offsetAtTheEnd", "0000000A 03E8 000A 0102", true, 1},
                                         StreamRow{"offsetBeyondTheEnd", "0000000A 03E8 000B 0102", true, 1},
                                         StreamRow{"offsetFarBeyond", "00000008 03E8 FFFF", true, 1},
                                         StreamRow{"pingOutOfSync", "00000008 0001 0008", true, 0},
                                         StreamRow{"pingWithOffsetBeyond", "00000008 0001 FFFF", true, 0},
                                         StreamRow{"infoWithoutPayload", "00000008 0002 0008", true, 0},
                                         StreamRow{"infoWithOffsetBeyond", "0000000C 0002 0010 01020304", true, 0},
                                         StreamRow{"infoWithLongName", "0000000E 0002 0008 01000000 FF 41", true, 0},
                                         StreamRow{"commandZero", "00000008 0000 0008", true, 1},
                                         StreamRow{"commandOfAllBits", "00000008 FFFF 0008", true, 1}),
                         [](const auto& row) { return std::string(row.param.why); });

class HostileLength : public Connected, public testing::WithParamInterface<const char*> {};

TEST_P(HostileLength, IsWaitedForAndEndsWithTheClient) {
    connect();
    peer.write(hex(GetParam()) + hex("03E8 0008 0102030405"));
    peer.write(Bytes(100000, 0xEE));
    EXPECT_TRUE(client.status().connected);
    client.closeSocket(true);
    EXPECT_TRUE(client.received().empty());
}

TEST_P(HostileLength, EndsTheLinkWithThePeer) {
    connect();
    peer.write(hex(GetParam()) + Bytes(100000, 0xEE));
    peer.close();
    EXPECT_TRUE(client.waitForEnd());
    EXPECT_TRUE(client.received().empty());
}

INSTANTIATE_TEST_SUITE_P(Beyond, HostileLength,
                         testing::Values("FFFFFFFF", "80000008", "80000000", "7FFFFFFF", "00FFFFFF"));

class RandomPeer : public Connected {};

TEST_F(RandomPeer, DoesNoHarm) {
    std::mt19937 random(4711);
    client.onPacket = touch;
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    for (int round = 0; round < 150; ++round) {
        connect();
        Bytes bytes;
        while (bytes.size() < 400) {
            // Headers that are often right: otherwise the first length would end every round.
            Bytes packet(8 + random() % 24);
            for (std::uint8_t& byte : packet) byte = static_cast<std::uint8_t>(random() % (round % 2 == 0 ? 12 : 256));
            if (random() % 32 != 0) {
                packet[0] = packet[1] = packet[2] = 0;
                packet[3] = static_cast<std::uint8_t>(packet.size());
            }
            if (random() % 2 != 0) packet[4] = packet[6] = 0;
            bytes = bytes + packet;
        }
        peer.write(bytes);
        if (round % 3 == 0) {
            peer.close();
        } else if (round % 3 == 1) {
            peer.reset();
        }
        EXPECT_TRUE(round % 3 == 2 || client.waitForEnd());
        client.closeSocket(true);
    }
    EXPECT_EQ(errors.text(), "");
}

}  // namespace
