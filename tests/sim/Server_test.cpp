#include "sim/Server.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <deque>
#include <random>
#include <string>

#include "tests/sim/HexText.h"
#include "tests/sim/ServerThread.h"
#include "tests/sim/TestClient.h"
#include "tests/support/Process.h"
#include "tests/support/TempFolder.h"

namespace {

using namespace std::chrono_literals;
using simtest::kPing;
using simtest::ServerThread;
using simtest::TestClient;
using testsupport::waitFor;

constexpr char kStatusRequest[] = "00 00 00 08 03 e9 00 08";
constexpr char kStatusReset[] = "00 00 00 08 03 ea 00 08";
constexpr char kIdle[] = "00 00 00 10 03 e8 00 08 00 01 00 fe ff ff ff ff";
constexpr char kHexFile[] = ":0300300002337A1E\n:00000001FF\n";

/// An upload request of mode 1, address 0x2a, serial 12345.
std::string uploadOf(const std::string& path) {
    const std::size_t size = 8 + 7 + path.size();
    const std::vector<std::uint8_t> text(path.begin(), path.end());
    const std::vector<std::uint8_t> length{static_cast<std::uint8_t>(size >> 8), static_cast<std::uint8_t>(size)};
    return "00 00 " + simtest::hex(length) + " 03 ec 00 08 01 2a 39 30 00 00 " + simtest::hex(text) + " 00";
}

/// A report of that upload.
std::string report(const std::string& state, const std::string& progress) {
    return "00 00 00 10 03 e8 00 08 01 " + state + " " + progress + " 2a 39 30 00 00";
}

/// A scenario without a greeting, so that a test reads its own packets alone.
std::string quiet(const std::string& settings, const std::string& steps) {
    return settings + "\non connect\non upload\n" + steps + "\n";
}

/// Reads past whole packets until `wanted` comes; false when the connection ends before.
bool comes(const TestClient& client, const std::string& wanted) {
    for (std::string packet = client.receivePacket(); !packet.empty(); packet = client.receivePacket())
        if (packet == wanted) return true;
    return false;
}

/// Makes sure that the server has taken these connections, not only the kernel.
void expectAccepted(std::initializer_list<const TestClient*> clients) {
    for (const TestClient* client : clients) {
        client->send(kPing);
        EXPECT_EQ(client->receivePacket(), kPing);
    }
}

class SimServer : public testing::Test {
protected:
    testsupport::TempFolder folder;
    std::string hexFile = folder.write("a.hex", kHexFile);
};

TEST_F(SimServer, SaysWhoItIsToEachClient) {
    ServerThread server("process-id 12345\napplication ab\nversion 1.2\nversion-label x");
    for (const auto family : {TestClient::Family::ipv4, TestClient::Family::ipv6}) {
        if (family == TestClient::Family::ipv6 && !simtest::hasIpv6()) continue;
        const TestClient client(server.port(), family);
        EXPECT_EQ(client.receivePacket(), "00 00 00 15 00 02 00 08 39 30 00 00 02 61 62 03 31 2e 32 01 78");
    }
}

TEST_F(SimServer, SendsItsOwnProcessIdByDefault) {
    ServerThread server;
    const TestClient client(server.port());
    const auto id = static_cast<std::uint32_t>(getpid());
    const std::vector<std::uint8_t> expected{static_cast<std::uint8_t>(id), static_cast<std::uint8_t>(id >> 8),
                                             static_cast<std::uint8_t>(id >> 16), static_cast<std::uint8_t>(id >> 24)};
    EXPECT_EQ(client.receivePacket().substr(24, 11), simtest::hex(expected));
}

TEST_F(SimServer, ListensOnNoOtherAddress) {
    ServerThread server;
    const sim::Descriptor probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(server.port());
    address.sin_addr.s_addr = htonl(0x7F000002);  // 127.0.0.2, which a wildcard listener would answer
    EXPECT_NE(connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
}

TEST_F(SimServer, AnswersPings) {
    ServerThread server(quiet("", "normal"));
    const TestClient client(server.port());
    client.send(kPing);
    client.send("00 00 00 08 00 01 00 08");
    EXPECT_EQ(client.receivePacket(), kPing);
    EXPECT_EQ(client.receivePacket(), kPing);
}

TEST_F(SimServer, AnswersEachStatusRequest) {
    ServerThread server(quiet("", "normal"));
    const TestClient client(server.port());
    for (int round = 0; round < 3; ++round) client.send(kStatusRequest);
    for (int round = 0; round < 3; ++round) EXPECT_EQ(client.receivePacket(), kIdle);
}

TEST_F(SimServer, PlaysAWholeUpload) {
    ServerThread server(quiet("speed 1000\nblock 1", "normal"));
    const TestClient client(server.port());
    client.send(uploadOf(hexFile));
    for (const char* progress : {"02 00", "03 00", "04 00", "05 00", "05 21", "05 42", "05 64", "06 64"})
        EXPECT_EQ(client.receivePacket(), report(std::string(progress, 2), std::string(progress + 3, 2)));
    client.send(kStatusRequest);
    EXPECT_EQ(client.receivePacket(), report("06", "64"));
}

TEST_F(SimServer, KeepsTheFinalStatusForTheNextClient) {
    ServerThread server(quiet("speed 1000", "normal"));
    {
        const TestClient client(server.port());
        client.send(uploadOf(hexFile));
        EXPECT_TRUE(comes(client, report("06", "64")));
    }
    const TestClient next(server.port());
    next.send(kStatusRequest);
    EXPECT_EQ(next.receivePacket(), report("06", "64"));
}

TEST_F(SimServer, ResetMakesTheStatusDefaultAndReportsTheChangeToAll) {
    ServerThread server(quiet("", "state Done"));
    const TestClient client(server.port()), other(server.port());
    expectAccepted({&client, &other});
    client.send(uploadOf(hexFile));
    EXPECT_EQ(client.receivePacket(), report("06", "00"));
    EXPECT_EQ(other.receivePacket(), report("06", "00"));
    client.send(kStatusReset);
    EXPECT_EQ(client.receivePacket(), kIdle);
    EXPECT_EQ(other.receivePacket(), kIdle);
    client.send(kStatusReset);  // nothing changes, nothing is reported
    client.send(kPing);
    EXPECT_EQ(client.receivePacket(), kPing);
}

TEST_F(SimServer, LogsTheByte) {
    ServerThread server(quiet("", "normal"));
    const TestClient client(server.port());
    client.send("00 00 00 09 03 eb 00 08 c8");
    EXPECT_TRUE(waitFor([&] { return server.logText().find("client 1: byte 200\n") != std::string::npos; }));
}

struct FileRow {
    const char* why;
    const char* name;
    const char* state;
    const char* log;
};
class SimServerFile : public testing::TestWithParam<FileRow> {};
TEST_P(SimServerFile, ThatIsBadGivesItsStateAndALine) {
    const testsupport::TempFolder folder;
    folder.write("bad.hex", ":0300300002337A1F\n");
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    ServerThread server(quiet("", "normal"));
    const TestClient client(server.port());
    client.send(uploadOf(folder / GetParam().name));
    EXPECT_EQ(client.receivePacket(), report(GetParam().state, "00"));
    EXPECT_NE(server.logText().find(folder / GetParam().name + GetParam().log), std::string::npos) << server.logText();
    client.send(kPing);  // the sequence is over, and nothing else came of it
    EXPECT_EQ(client.receivePacket(), kPing);
}
INSTANTIATE_TEST_SUITE_P(Rows, SimServerFile,
                         testing::Values(FileRow{"missing", "none.hex", "67", ": open(): No such file or directory\n"},
                                         FileRow{"pipe", "pipe", "68", ": it is not a regular file\n"},
                                         FileRow{"wrongFormat", "bad.hex", "69",
                                                 ":1:16: expected checksum 1E, got 1F\n"}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST_F(SimServer, RefusesASecondUploadWithLockedToItsClientAlone) {
    ServerThread server(quiet("", "state Searching for 3600s"));
    const TestClient first(server.port()), second(server.port());
    expectAccepted({&first, &second});
    first.send(uploadOf(hexFile));
    EXPECT_EQ(first.receivePacket(), report("03", "00"));
    EXPECT_EQ(second.receivePacket(), report("03", "00"));
    second.send(kStatusReset);  // belongs to its upload request, must not wipe the status of the other
    second.send("00 00 00 12 03 ec 00 08 02 07 01 00 00 00 2f 61 62 00");
    EXPECT_EQ(second.receivePacket(), "00 00 00 10 03 e8 00 08 02 00 00 07 01 00 00 00");
    second.send(kStatusRequest);
    EXPECT_EQ(second.receivePacket(), report("03", "00"));
    EXPECT_TRUE(first.quietFor(20ms));
}

TEST_F(SimServer, UploadGoesOnWithoutItsClient) {
    ServerThread server(quiet("", "state Searching for 100ms; close; silence; half 3; send 00; reset; state Done"));
    const TestClient watcher(server.port());
    expectAccepted({&watcher});
    {
        const TestClient client(server.port());
        client.send(uploadOf(hexFile));
        EXPECT_EQ(client.receivePacket(), report("03", "00"));
    }
    EXPECT_EQ(watcher.receivePacket(), report("03", "00"));
    EXPECT_EQ(watcher.receivePacket(), report("06", "00"));
}

TEST_F(SimServer, SecondUploadMayFollowTheFirst) {
    ServerThread server(quiet("speed 1000", "normal"));
    const TestClient client(server.port());
    for (int round = 0; round < 20; ++round) {
        client.send(std::string(kStatusReset) + uploadOf(hexFile));
        ASSERT_TRUE(comes(client, report("06", "64"))) << round;
    }
}

struct Ignored {
    const char* why;
    std::string packet;
    const char* log;
};
class SimServerIgnores : public testing::TestWithParam<Ignored> {};
TEST_P(SimServerIgnores, ButLogsIt) {
    ServerThread server(quiet("ignore 1002", "normal"));
    const TestClient client(server.port());
    client.send(GetParam().packet);
    client.send(kPing);
    EXPECT_EQ(client.receivePacket(), kPing);
    EXPECT_NE(server.logText().find(std::string("client 1: ") + GetParam().log), std::string::npos) << server.logText();
}
INSTANTIATE_TEST_SUITE_P(
    Rows, SimServerIgnores,
    testing::Values(
        Ignored{"unknownCommand", "00 00 00 0a 12 67 00 08 01 02", "unknown command 4711 (unknown) ignored\n"},
        Ignored{"itsOwnCommands", "00 00 00 08 03 e8 00 08", "unknown command 1000 (CmdStatus) ignored\n"},
        Ignored{"commandOfTheScenario", "00 00 00 08 03 ea 00 08",
                "command 1002 (CmdStatusReset) ignored, as the scenario says\n"},
        Ignored{"offsetInsideTheHeader", "00 00 00 08 03 e9 00 00",
                "payload offset 0 in a packet of 8 bytes; dropped\n"},
        Ignored{"offsetBehindThePacket", "00 00 00 08 03 e9 00 09",
                "payload offset 9 in a packet of 8 bytes; dropped\n"},
        Ignored{"byteWithoutAByte", "00 00 00 08 03 eb 00 08", "command 1003 (CmdByte) without its byte; dropped\n"},
        Ignored{"uploadTooShort", "00 00 00 0e 03 ec 00 08 01 2a 39 30 00 00", "command 1004 (CmdUpload) without mode"},
        Ignored{"uploadWithoutANul", "00 00 00 0f 03 ec 00 08 01 2a 39 30 00 00 2f",
                "command 1004 (CmdUpload) without mode"}),
    [](const auto& row) { return std::string(row.param.why); });

TEST_F(SimServer, TakesAPayloadBehindALargerOffset) {
    ServerThread server(quiet("", "normal"));
    const TestClient client(server.port());
    client.send("00 00 00 0b 03 eb 00 0a 11 22 07");
    EXPECT_TRUE(waitFor([&] { return server.logText().find("byte 7\n") != std::string::npos; }));
}

TEST_F(SimServer, EndsAClientWhoseLengthCannotBe) {
    for (const char* bytes : {"00 00 00 07 00 01 00", "00 00 00 00", "ff ff ff ff 00 01 00 08"}) {
        ServerThread server(quiet("", "normal"));
        const TestClient client(server.port()), other(server.port());
        expectAccepted({&client, &other});
        client.send(std::string(kPing) + bytes);
        EXPECT_EQ(client.receivePacket(), kPing);
        EXPECT_EQ(client.ending(), "closed") << bytes;
        other.send(kPing);
        EXPECT_EQ(other.receivePacket(), kPing);
        EXPECT_NE(server.journalText().find(" 1 ! a packet of "), std::string::npos);
    }
}

TEST_F(SimServer, ReadsPacketsInSmallPieces) {
    ServerThread server(quiet("speed 1000", "normal"));
    const TestClient client(server.port());
    for (const std::uint8_t byte : simtest::bytes(kPing + uploadOf(hexFile))) client.sendBytes({byte});
    EXPECT_EQ(client.receivePacket(), kPing);
    EXPECT_TRUE(comes(client, report("06", "64")));
}

TEST_F(SimServer, AnswersAClientThatHasEndedItsDirection) {
    ServerThread server(quiet("", "normal"));
    const TestClient client(server.port());
    client.send(kPing);
    client.closeWriting();
    EXPECT_EQ(client.receivePacket(), kPing);
    EXPECT_EQ(client.ending(), "closed");
}

TEST_F(SimServer, ServesManyClientsAtOnce) {
    ServerThread server(quiet("speed 1000", "normal"));
    std::deque<TestClient> clients;
    for (int count = 0; count < 100; ++count) clients.emplace_back(server.port());
    for (const TestClient& client : clients) client.send(kPing);
    for (const TestClient& client : clients) EXPECT_EQ(client.receivePacket(), kPing);
    clients.front().send(uploadOf(hexFile));
    for (const TestClient& client : clients) EXPECT_TRUE(comes(client, report("06", "64")));
}

TEST_F(SimServer, SurvivesRandomBytes) {
    ServerThread server(quiet("speed 1000", "normal"));
    std::mt19937 random(3);
    for (int round = 0; round < 200; ++round) {
        const TestClient client(server.port());
        std::vector<std::uint8_t> data{0,
                                       0,
                                       0,
                                       static_cast<std::uint8_t>(random() % 40),
                                       static_cast<std::uint8_t>(random() % 5),
                                       static_cast<std::uint8_t>(random())};
        while (data.size() < 200) data.push_back(static_cast<std::uint8_t>(random() % 3 == 0 ? random() : 0));
        client.sendBytes(data);
    }
    const TestClient client(server.port());
    client.send(kPing);
    EXPECT_TRUE(comes(client, kPing));
}

TEST_F(SimServer, WritesEachPacketIntoItsJournal) {
    ServerThread server(quiet("speed 1000", "send 01 02; close"));
    {
        const TestClient client(server.port());
        client.send(kPing);
        EXPECT_EQ(client.receivePacket(), kPing);
        client.send(uploadOf(hexFile));
        EXPECT_EQ(client.receive(3), "01 02");
    }
    EXPECT_TRUE(waitFor([&] { return server.logText().find("client 1: gone") != std::string::npos; }));
    std::string lines = server.journalText();
    std::string shown;
    for (std::size_t begin = 0; begin < lines.size(); begin = lines.find('\n', begin) + 1)
        shown += lines.substr(lines.find(' ', begin), lines.find('\n', begin) - lines.find(' ', begin)) + "\n";
    std::string request = uploadOf(hexFile);
    std::erase(request, ' ');
    EXPECT_EQ(shown,
              " 1 + connected\n"
              " 1 < 1 CmdPing 9 000000090001000800\n"
              " 1 > 1 CmdPing 9 000000090001000800\n"
              " 1 < 1004 CmdUpload " +
                  std::to_string(request.size() / 2) + " " + request +
                  "\n"
                  " 1 > - raw 2 0102\n"
                  " 1 - closed by the scenario\n");
}

TEST_F(SimServer, EndsWhenToldTo) {
    ServerThread server;
    const TestClient client(server.port());
    client.receivePacket();
    EXPECT_EQ(server.stop(), 0);
    EXPECT_NE(client.ending(), "open");
    EXPECT_FALSE(TestClient(server.port()).connected());
}

TEST_F(SimServer, EndsAfterItsIdleTimeWithoutAClient) {
    const auto begin = std::chrono::steady_clock::now();
    ServerThread server("idle 200ms");
    EXPECT_EQ(server.wait(), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 200ms);
}

// The idle time counts from the end of the last client, however long that client was quiet.
TEST_F(SimServer, IsNotIdleWhileItHasAClient) {
    ServerThread server("idle 1s");
    {
        const TestClient client(server.port());
        client.receivePacket();
        std::this_thread::sleep_for(1200ms);
    }
    const TestClient next(server.port());
    next.send(kPing);
    EXPECT_TRUE(comes(next, kPing));
}

TEST_F(SimServer, GivesTheSamePortToItsSuccessorAtOnce) {
    ServerThread server(quiet("", "close"));
    const TestClient client(server.port());
    client.send(uploadOf(hexFile));
    EXPECT_EQ(client.ending(), "closed");  // the server closes first: its port is in TIME_WAIT from now on
    EXPECT_EQ(server.stop(), 0);
    auto next = sim::Listeners::reserve(server.port());
    ASSERT_TRUE(next) << next.failure().text;
    EXPECT_FALSE(next->listen());
}

class SimPortInUse : public SimServer, public testing::WithParamInterface<int> {};
TEST_P(SimPortInUse, IsNoticedOnBothFamilies) {
    if (GetParam() == AF_INET6 && !simtest::hasIpv6()) GTEST_SKIP() << "no IPv6 here";
    const std::uint16_t port = simtest::freePort();
    const sim::Descriptor other(socket(GetParam(), SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    setsockopt(other.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (GetParam() == AF_INET6) setsockopt(other.get(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
    sockaddr_in6 address{};  // large enough for both; everything but family and port is the wildcard address
    address.sin6_family = static_cast<sa_family_t>(GetParam());
    address.sin6_port = htons(port);
    const socklen_t size = GetParam() == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    ASSERT_EQ(bind(other.get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
    ASSERT_EQ(listen(other.get(), 1), 0);
    auto reserved = sim::Listeners::reserve(port);
    ASSERT_FALSE(reserved);
    EXPECT_EQ(reserved.failure().text, "port " + std::to_string(port) + " is already in use");
    EXPECT_EQ(reserved.failure().status, 1);
}
INSTANTIATE_TEST_SUITE_P(Families, SimPortInUse, testing::Values(AF_INET, AF_INET6),
                         [](const auto& row) { return std::string(row.param == AF_INET ? "ipv4" : "ipv6"); });

// Two sockets may be bound to one port as long as neither listens; the second one to listen finds out.
TEST_F(SimServer, PortTakenMeanwhileIsNoticedWhenItListens) {
    const std::uint16_t port = simtest::freePort();
    auto late = sim::Listeners::reserve(port);
    auto early = sim::Listeners::reserve(port);
    ASSERT_TRUE(late && early);
    EXPECT_FALSE(early->listen());
    const auto failure = late->listen();
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->text, "port " + std::to_string(port) + " is already in use");
    EXPECT_FALSE(late->listening());
}

TEST_F(SimServer, ListensLate) {
    const auto begin = std::chrono::steady_clock::now();
    ServerThread server("listen-delay 200ms");
    EXPECT_TRUE(waitFor([&] { return TestClient(server.port()).connected(); }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 200ms);
}

TEST_F(SimServer, RefusesConnectionsAndStillEndsByItself) {
    ServerThread server("refuse connections\nidle 200ms");
    EXPECT_FALSE(TestClient(server.port()).connected());
    EXPECT_EQ(server.wait(), 0);
}

// The steps of scenarios, seen from the client.

TEST_F(SimServer, ClosesInTheOrderlyWay) {
    ServerThread server(quiet("speed 1000\nblock 1", "close at 40%"));
    const TestClient client(server.port());
    client.send(uploadOf(hexFile));
    client.send(kStatusRequest);
    std::string last;
    for (std::string packet = client.receivePacket(); !packet.empty(); packet = client.receivePacket()) last = packet;
    EXPECT_EQ(last, report("05", "42"));
    EXPECT_EQ(client.ending(), "closed");
    client.send(kPing);  // whatever comes now is read and forgotten
    EXPECT_EQ(client.ending(), "closed");
}

TEST_F(SimServer, BreaksWithAReset) {
    ServerThread server(quiet("speed 1000\nblock 1", "reset at 40%"));
    const TestClient client(server.port());
    client.send(uploadOf(hexFile));
    EXPECT_TRUE(comes(client, report("05", "42")));
    EXPECT_EQ(client.ending(), "reset");
}

TEST_F(SimServer, WritesHalfAPacketAndIsSilent) {
    ServerThread server(quiet("", "state Searching; half 10; state Erasing; report; wait 100ms; close"));
    const TestClient client(server.port());
    client.send(uploadOf(hexFile));
    EXPECT_EQ(client.receivePacket(), report("03", "00"));
    client.send(kPing);
    EXPECT_EQ(client.receive(11), "00 00 00 10 03 e8 00 08 01 03");
    EXPECT_EQ(client.ending(), "closed");
}

TEST_F(SimServer, IsSilentToOneClientUntilItSpeaksAgain) {
    ServerThread server(quiet("", "silence; state Searching for 50ms; speak; state Done"));
    const TestClient client(server.port()), other(server.port());
    expectAccepted({&client, &other});
    client.send(uploadOf(hexFile));
    client.send(kPing);
    EXPECT_EQ(client.receivePacket(), report("06", "00"));
    EXPECT_EQ(other.receivePacket(), report("03", "00"));
}

TEST_F(SimServer, MayBeSilentFromTheBeginning) {
    ServerThread server("on connect\nsilence\n");
    const TestClient client(server.port());
    client.send(std::string(kPing) + kStatusRequest);
    EXPECT_TRUE(client.quietFor(100ms));
}

TEST_F(SimServer, GreetsLateWhenTheScenarioSaysSo) {
    ServerThread server("process-id 1\napplication a\nversion b\nversion-label c\non connect\nwait 100ms\ngreet\n");
    const auto begin = std::chrono::steady_clock::now();
    const TestClient client(server.port());
    EXPECT_EQ(client.receivePacket(), "00 00 00 12 00 02 00 08 01 00 00 00 01 61 01 62 01 63");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 100ms);
}

TEST_F(SimServer, SendsAnyBytesAndAnyPacket) {
    ServerThread server(quiet("", "send 00 00 00; packet 4711 01 02; packet 65535"));
    const TestClient client(server.port());
    client.send(uploadOf(hexFile));
    EXPECT_EQ(client.receive(3), "00 00 00");
    EXPECT_EQ(client.receivePacket(), "00 00 00 0a 12 67 00 08 01 02");
    EXPECT_EQ(client.receivePacket(), "00 00 00 08 ff ff 00 08");
}

TEST_F(SimServer, ShowsAnyStatus) {
    ServerThread server(quiet("", "state 255 progress 200 address 1 mode 9 serial none; state 7; report"));
    const TestClient client(server.port());
    client.send(uploadOf(hexFile));
    EXPECT_EQ(client.receivePacket(), "00 00 00 10 03 e8 00 08 09 ff c8 01 ff ff ff ff");
    EXPECT_EQ(client.receivePacket(), "00 00 00 10 03 e8 00 08 09 07 c8 01 ff ff ff ff");
    EXPECT_EQ(client.receivePacket(), "00 00 00 10 03 e8 00 08 09 07 c8 01 ff ff ff ff");
}

TEST_F(SimServer, CutsPacketsAtTheChosenBytes) {
    ServerThread server("split 1 3 8 pause 40ms\non connect\non upload\nstate Done\n");
    const TestClient client(server.port());
    const auto begin = std::chrono::steady_clock::now();
    client.send(uploadOf(hexFile));
    EXPECT_EQ(client.receive(8), "00 00 00 10 03 e8 00 08");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 80ms);
    EXPECT_EQ(client.receive(8), "01 06 00 2a 39 30 00 00");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 120ms);
}

TEST_F(SimServer, GathersPackets) {
    ServerThread server(
        "coalesce 3 within 3600s\non connect\non upload\nstate Preparing for 30ms\nstate Searching for 30ms\n"
        "state Erasing for 30ms\nstate Done\nclose\n");
    const TestClient client(server.port());
    const auto begin = std::chrono::steady_clock::now();
    client.send(uploadOf(hexFile));
    EXPECT_EQ(client.receivePacket(), report("02", "00"));  // not before the third one
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 60ms);
    EXPECT_EQ(client.receivePacket(), report("03", "00"));
    EXPECT_EQ(client.receivePacket(), report("04", "00"));
    EXPECT_EQ(client.receivePacket(), report("06", "00"));  // a close lets go what waits for others
}

TEST_F(SimServer, MovesThePayload) {
    ServerThread server("payload-offset 12\non connect\non upload\nstate Done\n");
    const TestClient client(server.port());
    client.send(kPing);
    EXPECT_EQ(client.receivePacket(), "00 00 00 0d 00 01 00 0c ee ee ee ee 00");
    client.send(uploadOf(hexFile));
    EXPECT_EQ(client.receivePacket(), "00 00 00 14 03 e8 00 0c ee ee ee ee 01 06 00 2a 39 30 00 00");
}

TEST_F(SimServer, SendsABurstInOneGo) {
    ServerThread server(quiet("", "repeat 400; state Programming; state Idle; end; state Done"));
    const TestClient client(server.port());
    client.send(uploadOf(hexFile));
    for (int round = 0; round < 400; ++round) {
        ASSERT_EQ(client.receivePacket(), report("05", "00"));
        ASSERT_EQ(client.receivePacket(), report("01", "00"));
    }
    EXPECT_EQ(client.receivePacket(), report("06", "00"));
}

TEST_F(SimServer, EndsWithTheStatusOfTheScenario) {
    ServerThread server(quiet("", "state Done; exit 7; state Locked"));
    const TestClient client(server.port());
    client.send(uploadOf(hexFile));
    EXPECT_EQ(client.receivePacket(), report("06", "00"));
    EXPECT_EQ(server.wait(), 7);
    EXPECT_NE(client.ending(), "open");
}

TEST_F(SimServer, TakesTheSizeOfTheUploadFromTheScenario) {
    ServerThread server(quiet("speed 1000\nbytes 512", "normal"));
    const TestClient client(server.port());
    client.send(uploadOf(hexFile));
    EXPECT_TRUE(comes(client, report("05", "32")));
    EXPECT_TRUE(comes(client, report("06", "64")));
}

TEST_F(SimServer, HoldsAnUploadToTheRangeOfTheScenario) {
    ServerThread server(quiet("range 0x30 0x31", "normal"));
    const TestClient client(server.port());
    client.send(uploadOf(hexFile));
    EXPECT_EQ(client.receivePacket(), report("69", "00"));
}

TEST_F(SimServer, TakesItsTime) {
    ServerThread server(quiet("prepare-time 50ms\nsearch-time 60ms\nerase-time 70ms\nwrite-time 80ms", "normal"));
    const TestClient client(server.port());
    const auto begin = std::chrono::steady_clock::now();
    client.send(uploadOf(hexFile));
    EXPECT_TRUE(comes(client, report("05", "64")));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 260ms);
}

TEST_F(SimServer, LeavesNothingBehind) {
    const std::size_t before = testsupport::openDescriptors();
    {
        ServerThread server(quiet("speed 1000", "normal"));
        const TestClient client(server.port()), other(server.port());
        expectAccepted({&client, &other});
        client.send(uploadOf(hexFile));
        EXPECT_TRUE(comes(client, report("06", "64")));
    }
    EXPECT_EQ(testsupport::openDescriptors(), before);
}

}  // namespace
