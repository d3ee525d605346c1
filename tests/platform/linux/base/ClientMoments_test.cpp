// The client is closed at each call that its threads make in the life of a connection, one call after the other.
#include <gtest/gtest.h>

#include "tests/platform/linux/base/ClientFixture.h"
#include "tests/platform/linux/base/ReplacedCalls.h"

using namespace sockettest;

namespace {

/// Stops the thread that makes the call of this number until another thread has begun to act, and a little longer.
class Moment {
public:
    Moment(ReplacedCalls& calls, int number) : chosen(number) {
        watch(calls.getaddrinfo, __real_getaddrinfo);
        watch(calls.socket, __real_socket);
        watch(calls.connect, __real_connect);
        watch(calls.recv, __real_recv);
        watch(calls.send, __real_send);
        calls.mayCreate = [this](const ThreadRequest&) { return pass(), true; };
    }

    bool hasCome() const { return come; }
    /// Waits for the moment, or until `over` holds.
    void await(const std::atomic<bool>& over) {
        EXPECT_TRUE(waitFor([this, &over] { return come || over; }));
        acting = true;
    }

private:
    template <typename Function, typename Real>
    void watch(Function& call, Real real) {
        call = [this, real](auto... arguments) {
            pass();
            return real(arguments...);
        };
    }

    void pass() {
        if (made++ != chosen) return;
        come = true;
        EXPECT_TRUE(waitFor([this] { return acting.load(); }));
        std::this_thread::sleep_for(std::chrono::microseconds(300));
    }

    const int chosen;
    std::atomic<int> made{0};
    std::atomic<bool> come{false}, acting{false};
};

class EveryMoment : public LeavesNothing, public testing::WithParamInterface<bool> {
protected:
    /// One connection, from the first call to its end, closed at call `number`. False when it makes fewer calls.
    bool closeAt(int number) {
        ReplacedCalls calls;
        TestClient client(server.port());
        client.onPacket = [&client](TPacket*&) { client.send(9); };
        Moment moment(calls, number);
        std::atomic<bool> over{false};
        std::thread closer([&] {
            moment.await(over);
            client.closeSocket(GetParam());
        });
        const bool connected = client.connectToServer();
        const Peer peer = server.hasCaller() ? server.accept() : Peer(-1);
        peer.write(hex("00000008 0007 0008 0000000A 0007 0008 0102 00000008 0007 0008"));
        client.send(7);
        client.send(8, hex("55"));
        EXPECT_TRUE(waitFor([&] { return moment.hasCome() || (connected && peer.read(41).size() == 41); }));
        const bool came = moment.hasCome();
        over = true;
        closer.join();
        client.closeSocket(true);
        EXPECT_EQ(client.descriptor(), -1);
        EXPECT_FALSE(client.status().connected || client.status().dispatchRunning);
        EXPECT_EQ(client.connectToServer(), GetParam()) << "and may be used again, or not";
        client.closeSocket(false);
        while (server.hasCaller()) server.accept();
        return came;
    }

    LoopbackServer server;
};

TEST_P(EveryMoment, OfAConnectionTheClientMayBeClosed) {
    int number = 0;
    while (closeAt(number)) ++number;
    EXPECT_GE(number, 15) << "three calls to connect, four threads, five packets in and out";
}

INSTANTIATE_TEST_SUITE_P(Reopened, EveryMoment, testing::Bool());

}  // namespace
