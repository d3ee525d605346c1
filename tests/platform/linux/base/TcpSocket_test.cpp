#include "platform/linux/base/TcpSocket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <thread>

#include "platform/linux/base/Resolver.h"
#include "tests/platform/linux/base/LoopbackServer.h"
#include "tests/platform/linux/base/ReplacedCalls.h"
#include "tests/support/Process.h"

using namespace sockettest;

namespace {

bool connectSocket(int fd, const addrinfo& address) { return beginConnect(fd, address) && awaitConnect(fd); }

AddressList loopback(int port) { return resolveHost("127.0.0.1", port).addresses; }

TEST(OwnedSocket, ClosesWithTheObjectUnlessReleased) {
    const std::size_t before = testsupport::openDescriptors();
    int kept = -1;
    {
        const OwnedSocket none(-1), closed(socket(AF_INET, SOCK_STREAM, 0));
        OwnedSocket released(socket(AF_INET, SOCK_STREAM, 0));
        kept = released.release();
        EXPECT_EQ(released.get(), -1);
        EXPECT_EQ(testsupport::openDescriptors(), before + 2);
    }
    EXPECT_EQ(testsupport::openDescriptors(), before + 1);
    const Peer closer(kept);
}

TEST(TcpSocket, OpensTheSocketOfTheEntry) {
    ReplacedCalls calls;
    calls.socket = [](int family, int type, int protocol) {
        EXPECT_EQ(family, 71);
        EXPECT_EQ(type, 72 | SOCK_CLOEXEC);
        EXPECT_EQ(protocol, 73);
        return 74;
    };
    addrinfo entry{};
    entry.ai_family = 71;
    entry.ai_socktype = 72;
    entry.ai_protocol = 73;
    EXPECT_EQ(openSocket(entry), 74);
}

// The server that the flasher starts must not inherit the connection.
TEST(TcpSocket, IsClosedOnExecAndHasNoOptionsSet) {
    LoopbackServer server;
    const AddressList address = loopback(server.port());
    const OwnedSocket socket(openSocket(*address));
    EXPECT_EQ(fcntl(socket.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_TRUE(connectSocket(socket.get(), *address));
    EXPECT_EQ(fcntl(socket.get(), F_GETFL) & O_NONBLOCK, 0);
}

TEST(TcpSocket, RefusedIsAFailure) {
    const UnusedPort unused;
    const AddressList address = loopback(unused.port());
    const OwnedSocket socket(openSocket(*address));
    EXPECT_FALSE(connectSocket(socket.get(), *address));
}

/// Starts connecting in the background and claims that a signal came in between.
void interrupt(ReplacedCalls& calls, int& interruptions) {
    calls.connect = [&interruptions](int fd, const sockaddr* address, socklen_t length) {
        ++interruptions;
        static_cast<void>(__real_connect(fd, address, length));
        errno = EINTR;
        return -1;
    };
}

TEST(TcpSocket, InterruptedConnectGoesOnToItsEnd) {
    LoopbackServer server;
    const AddressList address = loopback(server.port());
    ReplacedCalls calls;
    int interruptions = 0;
    interrupt(calls, interruptions);
    const OwnedSocket socket(openSocket(*address));
    EXPECT_TRUE(connectSocket(socket.get(), *address));
    EXPECT_EQ(interruptions, 1) << "a second connect would fail, the first still runs";
    const Peer peer = server.accept();
    peer.write(hex("42"));
    char byte = 0;
    EXPECT_EQ(recv(socket.get(), &byte, 1, 0), 1);
}

TEST(TcpSocket, InterruptedConnectToNobodyFails) {
    const UnusedPort unused;
    const AddressList address = loopback(unused.port());
    ReplacedCalls calls;
    int interruptions = 0;
    interrupt(calls, interruptions);
    const OwnedSocket socket(openSocket(*address));
    EXPECT_FALSE(connectSocket(socket.get(), *address));
    EXPECT_EQ(interruptions, 1);
}

// Nobody listens on the server's port, which is one that the system gives to outgoing connections: the near end may
// get it, and TCP then connects the socket to itself. The flasher would have talked to its own echo for ever.
TEST(TcpSocket, ConnectedToItselfIsNotConnected) {
    int port = 0;
    {
        const UnusedPort unused;
        port = unused.port();
    }
    const AddressList address = loopback(port);
    const OwnedSocket socket(openSocket(*address));
    const int reuse = 1;
    setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
    ASSERT_EQ(bind(socket.get(), address->ai_addr, address->ai_addrlen), 0);
    EXPECT_FALSE(connectSocket(socket.get(), *address));
    sockaddr_storage itself{};
    socklen_t length = sizeof itself;
    EXPECT_EQ(getpeername(socket.get(), reinterpret_cast<sockaddr*>(&itself), &length), 0) << "the system did it";
}

// A listener whose queue is full leaves callers waiting.
class WaitingSocket : public testing::Test {
protected:
    WaitingSocket() {
        EXPECT_TRUE(connectSocket(first.get(), *address));
        EXPECT_TRUE(beginConnect(waiting.get(), *address));
    }

    LoopbackServer server{0};
    const AddressList address = loopback(server.port());
    const OwnedSocket first{openSocket(*address)}, waiting{openSocket(*address)};
};

TEST_F(WaitingSocket, ShutdownEndsTheWait) {
    std::atomic<bool> done{false}, connected{true};
    std::thread connector([&] {
        connected = awaitConnect(waiting.get());
        done = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_FALSE(done);
    shutdown(waiting.get(), SHUT_RDWR);
    connector.join();
    EXPECT_FALSE(connected);
}

TEST_F(WaitingSocket, ShutdownInFrontOfTheWaitEndsItToo) {
    shutdown(waiting.get(), SHUT_RDWR);
    EXPECT_FALSE(awaitConnect(waiting.get()));
}

TEST_F(WaitingSocket, RoomAtTheListenerEndsTheWait) {
    const Peer freed = server.accept();
    EXPECT_TRUE(awaitConnect(waiting.get()));
    EXPECT_EQ(fcntl(waiting.get(), F_GETFL) & O_NONBLOCK, 0);
}

}  // namespace
