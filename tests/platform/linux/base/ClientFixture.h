#pragma once
/// A client that notes what it receives, and a test that leaves nothing behind.

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/base/ProprietarySocketClient.h"
#include "tests/platform/linux/base/CountedPacket.h"
#include "tests/platform/linux/base/LoopbackServer.h"
#include "tests/support/Process.h"

namespace sockettest {

using testsupport::waitFor;

/// A packet with these payload bytes, owned by the caller.
TPacket* newPacket(unsigned short command, const Bytes& payload = {});

/// Opens once, keeps everybody out until then.
class Latch {
public:
    void open() { opened = true; }
    /// Waits until it is open; a test that fails to open it goes on all the same after a long time.
    void pass() const {
        EXPECT_TRUE(waitFor([this] { return opened.load(); }));
    }

private:
    std::atomic<bool> opened{false};
};

class TestClient : public ProprietarySocketClient {
public:
    explicit TestClient(int port, const char* host = nullptr) : ProprietarySocketClient(port, host) {}
    ~TestClient() override { closeSocket(false); }

    /// Runs with each packet, after it was noted. Set before connecting.
    std::function<void(TPacket*&)> onPacket;

    void handleRxPacket(TPacket*& packet) override;
    /// Commands of the packets received so far, in order.
    std::vector<int> received() const;
    bool hasReceived(std::size_t count) const;
    /// True when two packets were ever handled at once, or on different threads.
    bool mixed() const { return mixedUp; }

    /// Queues a packet as the flasher does.
    bool send(unsigned short command, const Bytes& payload = {});
    LinkStatus status();
    bool waitForEnd();

    using ProprietarySocketClient::handlePingTick;
    using ProprietarySocketClient::kPingIntervalMs;
    using ProprietarySocketClient::pingIntervalMs;
    using ProprietarySocketClient::pingQueue;
    using ProprietarySocketClient::rxQueue;

private:
    mutable threadfunc::mutex guard;
    std::vector<int> commands GUARDED_BY(guard);
    std::atomic<bool> handling{false};
    std::atomic<bool> mixedUp{false};
    std::atomic<pthread_t> handler{0};
};

/// Checks that each test leaves as many threads and descriptors as it found.
class LeavesNothing : public testing::Test {
protected:
    LeavesNothing();
    ~LeavesNothing() override;

private:
    std::size_t threadsBefore;
    std::size_t descriptorsBefore;
};

/// A server and a client of it that is connected, and the server's end of the connection.
class Connected : public LeavesNothing {
protected:
    Connected() : client(server.port()) {}
    /// The hooks of the client are set before this.
    void connect();

    LoopbackServer server;
    TestClient client;
    Peer peer{-1};
};

}  // namespace sockettest
