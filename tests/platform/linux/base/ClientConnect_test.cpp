// Connecting: ProprietarySocketClient::connectToServer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>

#include "tests/platform/linux/base/ClientFixture.h"
#include "tests/platform/linux/base/ReplacedCalls.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/TempFolder.h"

using namespace sockettest;
using testsupport::CapturedOutput;

namespace {

class ClientConnect : public LeavesNothing {};

TEST_F(ClientConnect, NewClientIsIdle) {
    TestClient client(4000);
    const LinkStatus status = client.status();
    EXPECT_FALSE(status.connected || status.closing || status.dispatchRunning || status.pingRunning);
    EXPECT_EQ(client.descriptor(), -1);
    EXPECT_EQ(client.missingPingCount(), 0);
    EXPECT_EQ(client.onDisconnect.load(), nullptr);
    EXPECT_EQ(client.getServerVersion() + client.getServerVersionLabel(), "");
}

TEST_F(ClientConnect, WithoutHostItIsTheLoopbackAddress) {
    ProprietarySocketClient client(4000, nullptr);
    EXPECT_EQ(client.host(), "127.0.0.1");
    EXPECT_EQ(client.port(), 4000);
    LoopbackServer server;
    TestClient connecting(server.port(), nullptr);
    EXPECT_TRUE(connecting.connectToServer());
    server.accept();
}

TEST_F(ClientConnect, HostIsCopied) {
    char text[] = "127.0.0.1";
    LoopbackServer server;
    TestClient client(server.port(), text);
    text[0] = 'x';
    EXPECT_EQ(client.host(), "127.0.0.1");
    EXPECT_TRUE(client.connectToServer());
}

TEST_F(ClientConnect, SetsTheFlagsOfALink) {
    LoopbackServer server;
    TestClient client(server.port());
    ASSERT_TRUE(client.connectToServer());
    EXPECT_GE(client.descriptor(), 0);
    EXPECT_TRUE(waitFor([&] { return client.status().dispatchRunning; }));
    const LinkStatus status = client.status();
    EXPECT_TRUE(status.connected);
    EXPECT_FALSE(status.closing || status.pingRunning);
}

TEST_F(ClientConnect, ConnectedClientStaysWithItsConnection) {
    LoopbackServer server;
    TestClient client(server.port());
    ASSERT_TRUE(client.connectToServer());
    const Peer peer = server.accept();
    EXPECT_TRUE(client.connectToServer());
    EXPECT_FALSE(server.hasCaller());
}

TEST_F(ClientConnect, NobodyListeningIsASilentFailureThatMayBeRepeated) {
    UnusedPort port;
    TestClient client(port.port());
    {
        const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
        for (int i = 0; i < 3; ++i) {
            EXPECT_FALSE(client.connectToServer());
            EXPECT_EQ(client.descriptor(), -1);
        }
        EXPECT_EQ(output.text() + errors.text(), "");
    }
    client.closeSocket(false);
    EXPECT_FALSE(client.status().closing) << "an idle client has nothing to close, for good or not";
    port.listenNow();
    EXPECT_TRUE(client.connectToServer());
}

/// A derived class that looks at the state it stands on.
class Looking : public ProprietarySocketClient {
public:
    using ProprietarySocketClient::ProprietarySocketClient;
    ~Looking() override { closeSocket(false); }

    using ProprietarySocketClient::fd, ProprietarySocketClient::connected, ProprietarySocketClient::closing,
        ProprietarySocketClient::dispatchRunning, ProprietarySocketClient::pingRunning,
        ProprietarySocketClient::pingPending, ProprietarySocketClient::missingPings, ProprietarySocketClient::txOverrun;
    using ProprietarySocketClient::rxQueue, ProprietarySocketClient::txQueue, ProprietarySocketClient::pingQueue;

    bool hasThreads() {
        const threadfunc::MutexLock lock(linkMutex);
        return link.receiveThread != 0 && link.transmitThread != 0 && dispatchThread != 0 && link.linkFd == fd;
    }
    bool hasNoThread() {
        const threadfunc::MutexLock lock(linkMutex);
        return link.receiveThread == 0 && link.transmitThread == 0 && dispatchThread == 0 && link.linkFd == -1;
    }
    bool hasNoFigures() {
        const threadfunc::MutexLock lock(statsMutex);
        return maxRoundTrip == 0 && totalRoundTrip == 0 && responseCount == 0 && pingStopwatch.elapsed() == 0;
    }
    ServerConnectionEntry server() {
        const threadfunc::MutexLock lock(serverInfoMutex);
        return serverInfo;
    }
};

void expectIdle(Looking& client) {
    EXPECT_EQ(client.fd, -1);
    EXPECT_FALSE(client.connected || client.closing || client.dispatchRunning || client.pingRunning);
    EXPECT_TRUE(client.hasNoThread());
    EXPECT_EQ(client.rxQueue.size(), 0);
    EXPECT_EQ(client.txQueue.size(), 0);
}

TEST_F(ClientConnect, DerivedClassSeesTheStateOfAnAttemptThatFailed) {
    const UnusedPort port;
    Looking client(port.port(), nullptr);
    EXPECT_FALSE(client.connectToServer());
    expectIdle(client);
    EXPECT_TRUE(client.hasNoFigures());
    EXPECT_FALSE(client.pingPending || client.txOverrun);
    EXPECT_EQ(client.missingPings, 0);
    EXPECT_EQ(client.server(), ServerConnectionEntry{});
    EXPECT_EQ(client.rxQueue.space(), 100);
    EXPECT_EQ(client.txQueue.space(), 100);
    EXPECT_EQ(client.pingQueue.space(), 10);
}

TEST_F(ClientConnect, DerivedClassSeesTheStateOfALink) {
    LoopbackServer server;
    Looking client(server.port(), nullptr);
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(client.connectToServer());
        EXPECT_EQ(client.fd, client.descriptor());
        EXPECT_TRUE(client.connected);
        EXPECT_TRUE(client.hasThreads());
        client.closeSocket(true);
        expectIdle(client);
    }
}

// Options that one could think of: none is set, and the system closes the socket in programs started from here.
TEST_F(ClientConnect, SocketIsAsTheSystemMakesIt) {
    LoopbackServer server;
    TestClient client(server.port());
    ASSERT_TRUE(client.connectToServer());
    const Peer fresh(::socket(AF_INET, SOCK_STREAM, 0));
    struct Option {
        const char* name;
        int level, id;
    };
    for (const Option& option :
         {Option{"TCP_NODELAY", IPPROTO_TCP, TCP_NODELAY}, Option{"SO_KEEPALIVE", SOL_SOCKET, SO_KEEPALIVE},
          Option{"SO_REUSEADDR", SOL_SOCKET, SO_REUSEADDR}, Option{"SO_LINGER", SOL_SOCKET, SO_LINGER},
          Option{"SO_RCVTIMEO", SOL_SOCKET, SO_RCVTIMEO}, Option{"SO_SNDTIMEO", SOL_SOCKET, SO_SNDTIMEO}}) {
        Bytes ours(16), usual(16);
        socklen_t oursLength = 16, usualLength = 16;
        EXPECT_EQ(getsockopt(client.descriptor(), option.level, option.id, ours.data(), &oursLength), 0);
        EXPECT_EQ(getsockopt(fresh.descriptor(), option.level, option.id, usual.data(), &usualLength), 0);
        EXPECT_EQ(ours, usual) << option.name;
    }
    EXPECT_EQ(fcntl(client.descriptor(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(client.descriptor(), F_GETFD), FD_CLOEXEC);
}

TEST_F(ClientConnect, ConnectsByName) {
    LoopbackServer server;
    TestClient client(server.port(), "localhost");
    EXPECT_TRUE(client.connectToServer());
    server.accept();
}

/// The address list of 127.0.0.1 at each of the ports, one behind the other.
void resolveTo(ReplacedCalls& calls, const std::vector<int>& ports) {
    calls.getaddrinfo = [ports](const char*, const char*, const addrinfo* hints, addrinfo** result) {
        addrinfo** end = result;
        for (const int port : ports) {
            const int error = __real_getaddrinfo("127.0.0.1", std::to_string(port).c_str(), hints, end);
            if (error != 0) return error;
            end = &(*end)->ai_next;
        }
        return 0;
    };
}

/// Counts the attempts to connect.
void count(ReplacedCalls& calls, int& attempts) {
    calls.connect = [&attempts](int fd, const sockaddr* address, socklen_t length) {
        ++attempts;
        return __real_connect(fd, address, length);
    };
}

TEST_F(ClientConnect, FirstAddressThatConnectsEndsTheSearch) {
    const UnusedPort silent, silentToo;
    LoopbackServer first, second;
    ReplacedCalls calls;
    int attempts = 0;
    count(calls, attempts);
    resolveTo(calls, {silent.port(), silentToo.port(), first.port(), second.port()});
    TestClient client(1);
    EXPECT_TRUE(client.connectToServer());
    EXPECT_EQ(attempts, 3);
    EXPECT_TRUE(first.hasCaller());
    EXPECT_FALSE(second.hasCaller());
    client.closeSocket(true);
}

TEST_F(ClientConnect, NoAddressThatConnectsIsAFailure) {
    const UnusedPort silent, silentToo;
    ReplacedCalls calls;
    int attempts = 0;
    count(calls, attempts);
    resolveTo(calls, {silent.port(), silentToo.port()});
    TestClient client(1);
    EXPECT_FALSE(client.connectToServer());
    EXPECT_EQ(attempts, 2);
    EXPECT_EQ(client.descriptor(), -1);
}

TEST_F(ClientConnect, AddressWithoutASocketIsPassedOver) {
    LoopbackServer server;
    ReplacedCalls calls;
    resolveTo(calls, {server.port(), server.port()});
    int sockets = 0;
    calls.socket = [&sockets](int family, int type, int protocol) {
        errno = EAFNOSUPPORT;
        return ++sockets == 1 ? -1 : __real_socket(family, type, protocol);
    };
    TestClient client(1);
    EXPECT_TRUE(client.connectToServer());
    EXPECT_EQ(sockets, 2);
    client.closeSocket(true);
}

// The threads, in whatever order they are started.
TEST_F(ClientConnect, StartsThreeThreadsAndSaysFromWhere) {
    LoopbackServer server;
    ReplacedCalls calls;
    std::vector<ThreadRequest> threads;
    calls.mayCreate = [&threads](const ThreadRequest& request) {
        if (request.originFile != nullptr) threads.push_back(request);
        return true;
    };
    TestClient client(server.port());
    ASSERT_TRUE(client.connectToServer());
    std::sort(threads.begin(), threads.end(), [](const auto& a, const auto& b) { return a.originLine < b.originLine; });
    ASSERT_EQ(threads.size(), 3U);
    for (const ThreadRequest& thread : threads) {
        EXPECT_EQ(thread.priority, 20);
        EXPECT_EQ(thread.stackSize, 0U);
    }
    EXPECT_STREQ(threads[0].originFile, "platform/linux/base/src/ProprietarySocketCommon");
    EXPECT_EQ(threads[0].originLine, 71);
    EXPECT_STREQ(threads[1].originFile, "platform/linux/base/src/ProprietarySocketCommon");
    EXPECT_EQ(threads[1].originLine, 72);
    EXPECT_STREQ(threads[2].originFile, "platform/linux/base/src/ProprietarySocketClient");
    EXPECT_EQ(threads[2].originLine, 230);
    client.closeSocket(true);
}

class MissingThread : public LeavesNothing, public testing::WithParamInterface<int> {};

// Whichever thread cannot be started: the attempt fails, nothing is left of it, and the next one may succeed.
TEST_P(MissingThread, FailsTheAttemptAndNothingElse) {
    LoopbackServer server;
    TestClient client(server.port());
    {
        ReplacedCalls calls;
        int refused = 0;
        calls.mayCreate = [&refused](const ThreadRequest& request) {
            if (request.originLine != GetParam()) return true;
            ++refused;
            return false;
        };
        EXPECT_FALSE(client.connectToServer());
        EXPECT_EQ(refused, 1);
        EXPECT_EQ(client.descriptor(), -1);
        EXPECT_FALSE(client.status().connected || client.status().closing);
    }
    EXPECT_TRUE(GetParam() == 0 || server.accept().atEnd());
    int queued = 0;
    for (int i = 0; i < 150; ++i) queued += client.send(7) ? 1 : 0;
    EXPECT_EQ(queued, 100) << "nobody will make room: a sender does not wait";
    EXPECT_TRUE(client.connectToServer());
    const Peer peer = server.accept();
    peer.write(hex("00000008 03E8 0008"));
    EXPECT_TRUE(client.hasReceived(1));
}

INSTANTIATE_TEST_SUITE_P(ByOrigin, MissingThread, testing::Values(0, 71, 72, 230), [](const auto& line) {
    return line.param == 0 ? std::string("resolver") : "line" + std::to_string(line.param);
});

// Without a dispatch thread nobody made room for the receive thread, which was joined for ever.
TEST_F(ClientConnect, MissingDispatchThreadUnderAFloodOfPackets) {
    LoopbackServer server;
    TestClient client(server.port());
    ReplacedCalls calls;
    Peer peer(-1);
    calls.mayCreate = [&](const ThreadRequest& request) {
        if (request.originLine != 230) return true;
        Bytes flood;
        for (int i = 0; i < 500; ++i) flood = flood + hex("00000008 03E8 0008");
        peer = server.accept();
        peer.write(flood);
        return false;
    };
    EXPECT_FALSE(client.connectToServer());
    EXPECT_TRUE(peer.atEnd());
    EXPECT_TRUE(client.received().empty());
}

TEST_F(ClientConnect, MissingMemoryFailsTheAttemptAndNothingElse) {
    LoopbackServer server;
    TestClient client(server.port());
    ReplacedCalls calls;
    std::atomic<int> left{0};  // counted down by all threads of the link
    calls.mayAllocate = [&left](std::size_t) { return left-- > 0; };
    bool connected = false;
    for (int allowed = 0; !connected; ++allowed) {
        ASSERT_LT(allowed, 30);
        left = allowed;
        connected = client.connectToServer();
        if (!connected) client.closeSocket(true);
    }
    client.closeSocket(true);
}

TEST_F(ClientConnect, StalePacketsAreNotSentOnTheNewLink) {
    LoopbackServer server;
    TestClient client(server.port());
    EXPECT_TRUE(client.send(1, hex("AA")));
    ASSERT_TRUE(client.connectToServer());
    EXPECT_TRUE(client.send(2, hex("BB")));
    EXPECT_EQ(server.accept().read(9), hex("00000009 0002 0008 BB"));
}

TEST_F(ClientConnect, ManyThreadsMakeOneConnection) {
    LoopbackServer server;
    TestClient client(server.port());
    std::vector<std::thread> threads;
    std::atomic<int> connected{0};
    for (int i = 0; i < 8; ++i) threads.emplace_back([&] { connected += client.connectToServer() ? 1 : 0; });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(connected, 8);
    const Peer peer = server.accept();
    EXPECT_FALSE(server.hasCaller());
}

/// A server whose queue of callers is full: who connects waits until `open`.
class BusyServer {
public:
    BusyServer() : filler(server.port()) { EXPECT_TRUE(filler.connectToServer()); }
    int port() const { return server.port(); }

private:
    LoopbackServer server{0};
    TestClient filler;
};

// Nobody is told the state of the middle of an attempt.
TEST_F(ClientConnect, StateIsToldBehindTheAttempt) {
    BusyServer busy;
    TestClient client(busy.port());
    std::thread connector([&] { client.connectToServer(); });
    EXPECT_TRUE(waitFor([&] { return client.descriptor() >= 0; }));
    Latch asking;
    std::atomic<bool> told{false};
    LinkStatus status;
    std::thread asker([&] {
        asking.open();
        status = client.status();
        told = true;
    });
    asking.pass();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(told);
    client.closeSocket(true);
    connector.join();
    asker.join();
    EXPECT_FALSE(status.connected || status.closing);
}

class WaitingConnect : public LeavesNothing, public testing::WithParamInterface<bool> {};

// The terminal's user ends the program while it waits for a server that does not answer.
TEST_P(WaitingConnect, EndsWhenTheClientIsClosed) {
    BusyServer busy;
    TestClient client(busy.port());
    std::atomic<bool> done{false}, connected{true};
    std::thread connector([&] {
        connected = client.connectToServer();
        done = true;
    });
    EXPECT_TRUE(waitFor([&] { return client.descriptor() >= 0; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_FALSE(done);
    client.closeSocket(GetParam());
    connector.join();
    EXPECT_FALSE(connected);
    EXPECT_EQ(client.descriptor(), -1);
    EXPECT_EQ(client.status().closing, !GetParam()) << "closed for good, or not at all";
}

INSTANTIATE_TEST_SUITE_P(Reopen, WaitingConnect, testing::Bool());

struct EarlyCloseRow {
    const char* why;
    void (*closeAt)(Calls&, const std::function<void()>&);
};

class EarlyClose : public LeavesNothing, public testing::WithParamInterface<std::tuple<EarlyCloseRow, bool>> {};

// A close just before the connect had begun had nothing to end, and the connect then waited for minutes.
TEST_P(EarlyClose, EndsTheAttemptWheneverItComes) {
    const auto& [row, reopen] = GetParam();
    BusyServer busy;
    TestClient client(busy.port());
    {
        ReplacedCalls calls;
        int closed = 0;
        row.closeAt(calls, [&client, &closed, again = reopen] {
            if (++closed == 1) client.closeSocket(again);
        });
        EXPECT_FALSE(client.connectToServer());
        EXPECT_EQ(closed, 1);
    }
    EXPECT_EQ(client.descriptor(), -1);
    EXPECT_EQ(client.status().closing, !reopen);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, EarlyClose,
    testing::Combine(testing::Values(EarlyCloseRow{"whileResolving",
                                                   [](Calls& calls, const std::function<void()>& close) {
                                                       calls.getaddrinfo = [close](auto... arguments) {
                                                           close();
                                                           return __real_getaddrinfo(arguments...);
                                                       };
                                                   }},
                                     EarlyCloseRow{"beforeTheSocket",
                                                   [](Calls& calls, const std::function<void()>& close) {
                                                       calls.socket = [close](auto... arguments) {
                                                           close();
                                                           return __real_socket(arguments...);
                                                       };
                                                   }},
                                     EarlyCloseRow{"beforeTheConnect",
                                                   [](Calls& calls, const std::function<void()>& close) {
                                                       calls.connect = [close](auto... arguments) {
                                                           close();
                                                           return __real_connect(arguments...);
                                                       };
                                                   }},
                                     EarlyCloseRow{"behindTheConnect",
                                                   [](Calls& calls, const std::function<void()>& close) {
                                                       calls.connect = [close](auto... arguments) {
                                                           const int result = __real_connect(arguments...);
                                                           const int error = errno;
                                                           close();
                                                           errno = error;
                                                           return result;
                                                       };
                                                   }}),
                     testing::Bool()),
    [](const auto& row) {
        return std::string(std::get<0>(row.param).why) + (std::get<1>(row.param) ? "Reopened" : "ForGood");
    });

TEST_F(ClientConnect, SignalsDoNotDisturbIt) {
    const testsupport::InterruptingSignal signal;
    LoopbackServer server(0);
    Peer filler(-1);
    {
        TestClient first(server.port()), client(server.port());
        ASSERT_TRUE(first.connectToServer());
        std::atomic<bool> connected{false};
        std::thread connector([&] { connected = client.connectToServer(); });
        EXPECT_TRUE(waitFor([&] { return client.descriptor() >= 0; }));
        for (int i = 1; i <= 3; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            EXPECT_TRUE(
                testsupport::signalUntil(connector.native_handle(), SIGUSR1, [&] { return signal.seen() >= i; }));
        }
        filler = server.accept();  // makes room for the one that waits
        connector.join();
        EXPECT_TRUE(connected);
        EXPECT_TRUE(client.send(7));
        EXPECT_EQ(server.accept().read(8), hex("00000008 0007 0008"));
    }
}

// Death tests, each in a child process. The suites' names let them run before any other thread exists.

class UnresolvableHostDeathTest : public testing::Test {
protected:
    static std::uint32_t connect(void* client) {
        static_cast<ProprietarySocketClient*>(client)->connectToServer();
        return 0;
    }
};

TEST_F(UnresolvableHostDeathTest, EndsTheProcessWithAMessage) {
    ReplacedCalls calls;
    calls.getaddrinfo = [](const char*, const char*, const addrinfo*, addrinfo**) { return EAI_NONAME; };
    ProprietarySocketClient client(4000, "nowhere.example");
    EXPECT_EXIT(client.connectToServer(), testing::ExitedWithCode(1),
                "^getaddrinfo\\(nowhere.example\\): Name or service not known\n$");
}

// The resolver needs more stack than the worker thread has, most of all when it fails: the flasher died of SIGSEGV
// instead of telling the name. A name that is not even one goes to no server.
TEST_F(UnresolvableHostDeathTest, OnASmallStackToo) {
    const testsupport::ScopedEnvironment search("LOCALDOMAIN", "a.example");
    ProprietarySocketClient client(4000, "host..name");
    EXPECT_EXIT(
        {
            threadfunc::threadJoin(threadfunc::ThreadCreate(30, connect, &client, 0, nullptr, 0));
            _exit(9);
        },
        testing::ExitedWithCode(1), "^getaddrinfo\\(host\\.\\.name\\): [A-Z].*\n$");
}

TEST_F(UnresolvableHostDeathTest, OnTwoThreadsAtOnce) {
    ReplacedCalls calls;
    calls.getaddrinfo = [](const char*, const char*, const addrinfo*, addrinfo**) { return EAI_FAIL; };
    ProprietarySocketClient first(4000, "a.example"), second(4000, "b.example");
    EXPECT_EXIT(
        {
            const pthread_t thread = threadfunc::ThreadCreate(30, connect, &first, 0, nullptr, 0);
            connect(&second);
            threadfunc::threadJoin(thread);
            _exit(9);
        },
        testing::ExitedWithCode(1), "getaddrinfo\\([ab].example\\): Non-recoverable failure in name resolution\n");
}

// The line once stood below the result of an upload that had ended the process meanwhile.
TEST_F(UnresolvableHostDeathTest, SaysNothingMoreWhenTheProcessEndsAlready) {
    static std::atomic<bool> ends{false}, resolved{false};
    ReplacedCalls calls;
    calls.getaddrinfo = [](const char*, const char*, const addrinfo*, addrinfo**) {
        static_cast<void>(waitFor([] { return ends.load(); }));
        resolved = true;
        return EAI_NONAME;
    };
    ProprietarySocketClient client(4000, "nowhere.example");
    const auto endMeanwhile = [&client] {
        std::atexit([] {
            ends = true;
            static_cast<void>(waitFor([] { return resolved.load(); }));
            threadfunc::sleep(100);
        });
        threadfunc::ThreadCreate(30, connect, &client, 0, nullptr, 0);
        threadfunc::exitProcess(7);
    };
    EXPECT_EXIT(endMeanwhile(), testing::ExitedWithCode(7), "^$");
}

// The final state of an upload ends the process from within the hook, while the worker drops the connection.
TEST(EndOfProcessDeathTest, HookEndsTheProcessWhileAnotherThreadCloses) {
    const auto endInHook = [] {
        LoopbackServer server;
        TestClient client(server.port());
        client.onPacket = [&client](TPacket*&) {
            EXPECT_TRUE(waitFor([&client] { return client.status().closing; }));
            threadfunc::exitProcess(3);
        };
        client.connectToServer();
        const Peer peer = server.accept();
        peer.write(hex("00000008 0007 0008"));
        EXPECT_TRUE(client.hasReceived(1));
        client.closeSocket(true);
        _exit(9);
    };
    EXPECT_EXIT(endInHook(), testing::ExitedWithCode(3), "^$");
}

}  // namespace
