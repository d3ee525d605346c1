#include "platform/linux/base/ProprietarySocketClient.h"

#include <gtest/gtest.h>

#include "tests/platform/linux/base/LoopbackServer.h"
#include "tests/platform/linux/base/ReplacedCalls.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Process.h"

using namespace sockettest;

TEST(ProprietarySocketClient, ConnectsSendsAndClosesForGood) {
    LoopbackServer server;
    ProprietarySocketClient client(server.port(), nullptr);
    ASSERT_TRUE(client.connectToServer());
    Peer peer = server.accept();
    auto* p = new ProprietarySocketCommon::TPacket(1, 1);
    p->getPayload()[0] = 0;
    EXPECT_TRUE(client.sendPacket(p, false));
    EXPECT_EQ(peer.read(9), hex("00000009 0001 0008 00"));
    client.closeSocket(true);
    EXPECT_TRUE(peer.atEnd());
    EXPECT_TRUE(client.connectToServer());
    client.closeSocket(false);
    EXPECT_FALSE(client.connectToServer());
}
