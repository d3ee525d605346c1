// Connecting, sending and closing by several threads at once, as the flasher's main and worker threads do.
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/platform/linux/base/ClientFixture.h"
#include "tests/support/CapturedOutput.h"

using namespace sockettest;
using testsupport::CapturedOutput;

namespace {

/// Takes every connection, answers with a few packets, and ends every second one itself.
class BusyPeer {
public:
    explicit BusyPeer(LoopbackServer& listening) : server(listening), thread([this] { serve(); }) {}
    ~BusyPeer() {
        stop = true;
        thread.join();
    }
    BusyPeer(const BusyPeer&) = delete;
    BusyPeer& operator=(const BusyPeer&) = delete;

private:
    void serve() {
        std::vector<Peer> peers;
        for (int i = 0; !stop; ++i) {
            if (!waitFor([this] { return stop || server.hasCaller(); }) || stop) return;
            Peer peer = server.accept();
            peer.write(hex("00000008 0007 0008 0000000C 0002 0008 E90C0000 00000009 0008 0008 55"));
            if (i % 4 == 1) peer.close();
            if (i % 4 == 3) peer.reset();
            peers.push_back(std::move(peer));
            if (peers.size() > 8) peers.erase(peers.begin());
        }
    }

    LoopbackServer& server;
    std::atomic<bool> stop{false};
    std::thread thread;
};

class ClientStress : public LeavesNothing {};

/// Where pointers have 32 bits it is an emulator that runs the threads, slowly; AddressSanitizer is slow too, and it is
/// not the one that looks for races.
int rounds() {
#if defined(__SANITIZE_THREAD__)
    return 1000;
#else
    return sizeof(void*) == 4 || testsupport::instrumentedBuild() ? 200 : 1000;
#endif
}

TEST_F(ClientStress, TwoThreadsConnectSendAndClose) {
    LoopbackServer server;
    const BusyPeer busy(server);
    TestClient client(server.port());
    client.onPacket = [&client](TPacket*&) { client.send(9); };
    const auto work = [&client](bool closes) {
        for (int i = 0; i < rounds(); ++i) {
            client.connectToServer();
            client.send(7, hex("0102"));
            client.status();
            if (closes || i % 3 == 0) client.closeSocket(true);
        }
    };
    std::thread first(work, true), second(work, false);
    first.join();
    second.join();
    client.closeSocket(true);
    EXPECT_FALSE(client.status().closing);
    EXPECT_TRUE(waitFor([&client] { return client.connectToServer() || (client.closeSocket(true), false); }));
}

TEST_F(ClientStress, FourThreadsCloseOneLink) {
    LoopbackServer server;
    const BusyPeer busy(server);
    TestClient client(server.port());
    for (int i = 0; i < rounds(); ++i) {
        client.connectToServer();
        std::vector<std::thread> closers;
        for (int n = 0; n < 4; ++n) closers.emplace_back([&client] { client.closeSocket(true); });
        for (std::thread& closer : closers) closer.join();
        ASSERT_EQ(client.descriptor(), -1);
        ASSERT_FALSE(client.status().connected || client.status().closing);
    }
}

TEST_F(ClientStress, ClosedForGoodWhileAnotherThreadConnects) {
    LoopbackServer server;
    const BusyPeer busy(server);
    for (int i = 0; i < rounds(); ++i) {
        TestClient client(server.port());
        std::atomic<bool> stop{false};
        std::thread worker([&] {
            while (!stop) {
                client.connectToServer();
                client.closeSocket(true);
            }
        });
        while (!client.status().closing || client.connectToServer()) client.closeSocket(false);
        stop = true;
        worker.join();
        client.closeSocket(false);
        ASSERT_EQ(client.descriptor(), -1);
    }
}

TEST_F(ClientStress, PingsOfManyLinks) {
    LoopbackServer server;
    const BusyPeer busy(server);
    TestClient client(server.port());
    client.pingIntervalMs = 1;
    const CapturedOutput output(STDOUT_FILENO);
    for (int i = 0; i < rounds(); ++i) {
        client.connectToServer();
        const pthread_t ping =
            threadfunc::ThreadCreate(20, ProprietarySocketClient::pingSupervision, &client, 0, nullptr, 0);
        client.send(7);
        client.closeSocket(true);
        threadfunc::threadJoin(ping);
        ASSERT_FALSE(client.status().pingRunning);
    }
}

}  // namespace
