// The upload request: what is accepted, what goes on the wire and when.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/Hardware/HandServer.h"
#include "tests/Hardware/RecordingClient.h"
#include "tests/support/TempFolder.h"

using namespace CANFlasher;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::Bytes;
using testsupport::bytes;
using testsupport::HandConnection;
using testsupport::HandServer;
using testsupport::RecordingClient;
using testsupport::waitFor;

namespace {

const Bytes kStatusRequest = bytes({0, 0, 0, 8, 0x03, 0xE9, 0, 8});
const Bytes kStatusReset = bytes({0, 0, 0, 8, 0x03, 0xEA, 0, 8});

/// A CmdUpload with mode and address below 256, serial 0x12345678, and `path`, which must be shorter than 200 letters.
Bytes uploadPacket(int mode, int address, const std::string& path) {
    const int length = static_cast<int>(8 + path.size() + 7);
    return bytes({0, 0, 0, length, 0x03, 0xEC, 0, 8, mode, address, 0x78, 0x56, 0x34, 0x12}, path, 1);
}

std::chrono::milliseconds since(std::chrono::steady_clock::time_point begin) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
}

class Upload : public testing::Test {
protected:
    std::uint32_t request(const std::string& path, std::int32_t address = 0x2A, TMode mode = NewModule) {
        return client.upload(mode, address, 0x12345678, path);
    }

    testsupport::TempFolder folder;
    const std::string hexFile = folder.write("a.hex", ":00000001FF\n");
    HandServer server;
    RecordingClient client{server.port()};
};

TEST_F(Upload, AsksForTheStatusThenSendsResetAndRequestOnTheSecondStep) {
    client.pollTimer.setInterval(60'000);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(request(hexFile), kUploadRequested);
    HandConnection connection = server.accept();
    EXPECT_EQ(connection.readPacket(), kStatusRequest);
    EXPECT_EQ(connection.readPacket(), kStatusReset);
    const auto sent = since(begin);
    EXPECT_EQ(connection.readPacket(), uploadPacket(2, 0x2A, hexFile));
    EXPECT_GE(sent, 96ms) << "two steps of 50 ms, each of which may come 2 ms early";
    EXPECT_THAT(client.hooks(), IsEmpty());
}

TEST_F(Upload, PollsEverySecond) {
    client.stepTimer.setInterval(60'000);
    EXPECT_EQ(request(hexFile), kUploadRequested);
    HandConnection connection = server.accept();
    EXPECT_EQ(connection.readPacket(), kStatusRequest);
    auto before = std::chrono::steady_clock::now();
    for (int poll = 0; poll < 2; ++poll) {
        EXPECT_EQ(connection.readPacket(), kStatusRequest);
        EXPECT_GE(since(before), 950ms);
        EXPECT_LE(since(before), 5s);
        before = std::chrono::steady_clock::now();
    }
}

TEST_F(Upload, TheStepTimerIsNotRestartedAfterTheRequest) {
    client.stepTimer.setInterval(5);
    client.pollTimer.setInterval(60'000);
    EXPECT_EQ(request(hexFile), kUploadRequested);
    HandConnection connection = server.accept();
    connection.readPacket();
    connection.readPacket();
    EXPECT_EQ(connection.readPacket(), uploadPacket(2, 0x2A, hexFile));
    const int connects = client.connectCalls;
    EXPECT_TRUE(connection.isSilentFor(100ms));
    EXPECT_EQ(client.connectCalls, connects);
}

struct AddressRow {
    const char* why;
    std::int32_t address;
    int onTheWire;
};
class UploadAddress : public Upload, public testing::WithParamInterface<AddressRow> {};

TEST_P(UploadAddress, IsAcceptedAndItsLowByteSent) {
    client.stepTimer.setInterval(1);
    client.pollTimer.setInterval(60'000);
    EXPECT_EQ(request(hexFile, GetParam().address), kUploadRequested);
    HandConnection connection = server.accept();
    connection.readPacket();
    connection.readPacket();
    EXPECT_EQ(connection.readPacket(), uploadPacket(2, GetParam().onTheWire, hexFile));
}

INSTANTIATE_TEST_SUITE_P(Rows, UploadAddress,
                         testing::Values(AddressRow{"zero", 0, 0}, AddressRow{"highest", 253, 253},
                                         AddressRow{"negativePasses", -1, 255},
                                         AddressRow{"smallest", -2147483647 - 1, 0}),
                         [](const auto& row) { return std::string(row.param.why); });

class UploadBadAddress : public Upload, public testing::WithParamInterface<std::int32_t> {};

TEST_P(UploadBadAddress, IsRefusedWithoutConnecting) {
    EXPECT_EQ(request(hexFile, GetParam()), kUploadInvalidAddress);
    EXPECT_EQ(client.connectCalls, 0);
    EXPECT_TRUE(server.isLeftAloneFor(0ms));
}

INSTANTIATE_TEST_SUITE_P(Addresses, UploadBadAddress, testing::Values(254, 255, 256, 2147483647),
                         testing::PrintToStringParamName());

TEST_F(Upload, EveryModeIsSent) {
    client.stepTimer.setInterval(1);
    client.suppressPolling = true;
    EXPECT_TRUE(client.connectToServer());
    HandConnection connection = server.accept();
    for (const TMode mode : {ISOStyle, MTCAN, NewModule, Global}) {
        EXPECT_EQ(request(hexFile, 1, mode), kUploadRequested);
        EXPECT_EQ(connection.readPacket(), kStatusReset);
        EXPECT_EQ(connection.readPacket(), uploadPacket(mode, 1, hexFile));
    }
}

TEST_F(Upload, AMissingFileIsRefusedBeforeTheAddressIsLookedAt) {
    const std::string dangling = folder / "dangling.hex";
    ASSERT_EQ(symlink("nothing", dangling.c_str()), 0);
    for (const std::string& path :
         {folder / "missing.hex", std::string(), hexFile + "/", dangling, folder / "no/a.hex"})
        EXPECT_EQ(request(path, 254), kUploadFileNotFound) << path;
    EXPECT_EQ(client.connectCalls, 0);
}

TEST_F(Upload, ThePathIsSentResolved) {
    client.stepTimer.setInterval(1);
    client.suppressPolling = true;
    ASSERT_EQ(mkdir((folder / "sub").c_str(), 0755), 0);
    ASSERT_EQ(symlink("../a.hex", (folder / "sub/link.hex").c_str()), 0);
    EXPECT_TRUE(client.connectToServer());
    HandConnection connection = server.accept();
    for (const char* name : {"sub/link.hex", "sub/../a.hex", "./a.hex"}) {
        EXPECT_EQ(request(folder / name), kUploadRequested) << name;
        EXPECT_EQ(connection.readPacket(), kStatusReset);
        EXPECT_EQ(connection.readPacket(), uploadPacket(2, 0x2A, hexFile)) << name;
    }
}

TEST_F(Upload, ADirectoryOrDeviceIsAcceptedAndNothingHappens) {
    const std::string pipe = folder / "pipe";
    const std::string link = folder / "link";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    ASSERT_EQ(symlink(".", link.c_str()), 0);
    for (const std::string& path : {folder.path(), std::string("/dev/null"), pipe, link})
        EXPECT_EQ(request(path), kUploadRequested) << path;
    EXPECT_TRUE(server.isLeftAloneFor(150ms));
    EXPECT_EQ(client.connectCalls, 0);
}

TEST_F(Upload, ADirectoryLeavesAConnectionThatStandsSilent) {
    EXPECT_TRUE(client.connectToServer());
    HandConnection connection = server.accept();
    EXPECT_EQ(request(folder.path()), kUploadRequested);
    EXPECT_TRUE(connection.isSilentFor(150ms));
}

TEST(UploadWithoutServer, IsRefusedAfterSixAttempts) {
    const testsupport::TempFolder folder;
    const HandServer server(HandServer::Start::later);
    RecordingClient client(server.port());
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(client.upload(ISOStyle, 1, 1, folder.write("a.hex", "")), kUploadServerNotReachable);
    EXPECT_GE(since(begin), 300ms);
    EXPECT_EQ(client.connectCalls, 1) << "neither status request nor step follows";
    std::this_thread::sleep_for(80ms);
    EXPECT_EQ(client.connectCalls, 1) << "and no timer runs";
}

TEST_F(Upload, AFileThatIsGoneByThenIsNotRequested) {
    client.pollTimer.setInterval(60'000);
    std::atomic<int> calls{0};
    client.onConnect = [&] {
        if (++calls == 3) unlink(hexFile.c_str());  // the upload, its status request, the first step
        return client.CANFlasherClient::connectToServer();
    };
    EXPECT_EQ(request(hexFile), kUploadRequested);
    HandConnection connection = server.accept();
    EXPECT_EQ(connection.readPacket(), kStatusRequest);
    EXPECT_TRUE(waitFor([&] { return calls == 4; }));
    EXPECT_TRUE(connection.isSilentFor(50ms));
    client.shutDown();
}

TEST_F(Upload, SuppressedPollingSendsNoStatusRequest) {
    client.suppressPolling = true;
    client.pollTimer.setInterval(20);
    EXPECT_EQ(request(hexFile), kUploadRequested);
    HandConnection connection = server.accept();
    EXPECT_EQ(connection.readPacket(), kStatusReset);
    EXPECT_EQ(connection.readPacket(), uploadPacket(2, 0x2A, hexFile));
    EXPECT_TRUE(connection.isSilentFor(100ms));
}

TEST_F(Upload, PollingThatIsSuppressedLaterEndsForGood) {
    client.pollTimer.setInterval(20);
    EXPECT_EQ(request(hexFile), kUploadRequested);
    HandConnection connection = server.accept();
    const int before = client.connectCalls;
    EXPECT_TRUE(waitFor([&] { return client.connectCalls > before + 5; }));
    client.suppressPolling = true;
    EXPECT_TRUE(waitFor([&] {
        const int connects = client.connectCalls;
        std::this_thread::sleep_for(100ms);
        return client.connectCalls == connects;
    }));
    client.suppressPolling = false;
    const int connects = client.connectCalls;
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(client.connectCalls, connects) << "the timer was not armed again";
}

TEST_F(Upload, APollThatCannotConnectIsSilentAndPollsAgain) {
    client.pollTimer.setInterval(5);
    client.stepTimer.setInterval(60'000);
    std::atomic<bool> reachable{true};
    client.onConnect = [&] { return reachable && client.CANFlasherClient::connectToServer(); };
    EXPECT_EQ(request(hexFile), kUploadRequested);
    reachable = false;
    const int before = client.connectCalls;
    EXPECT_TRUE(waitFor([&] { return client.connectCalls > before + 3; }));
    EXPECT_THAT(client.hooks(), IsEmpty());
    client.shutDown();
}

TEST_F(Upload, AStepThatCannotConnectIsTheLast) {
    client.suppressPolling = true;
    client.stepTimer.setInterval(5);
    std::atomic<int> answers{1};  // the call of upload itself
    client.onConnect = [&] { return answers-- > 0; };
    EXPECT_EQ(request(hexFile), kUploadRequested);
    EXPECT_TRUE(waitFor([&] { return client.connectCalls == 2; }));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(client.connectCalls, 2);
    client.shutDown();
}

TEST_F(Upload, ALinkLostBeforeTheResetAppliesTheDefaultStatus) {
    EXPECT_TRUE(client.connectToServer());
    HandConnection connection = server.accept();
    connection.write(bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 0, 1, 9, 0x2A, 1, 0, 0, 0}));
    EXPECT_TRUE(waitFor([&] { return client.hooks().size() == 1; }));
    client.suppressPolling = true;
    client.stepTimer.setInterval(5);
    std::atomic<int> calls{0};
    client.onConnect = [&] { return ++calls != 4; };  // upload, first step, second step, its reset
    EXPECT_EQ(request(hexFile), kUploadRequested);
    EXPECT_TRUE(waitFor([&] { return client.hooks().size() == 2; }));
    EXPECT_THAT(client.hooks(), ElementsAre("status 0 1 9 42 1", "status 0 1 0 254 4294967295"));
    EXPECT_EQ(connection.readPacket(), uploadPacket(2, 0x2A, hexFile)) << "the request is handed on all the same";
    client.shutDown();
}

/// Keeps the worker in the `number`th attempt to connect until it is let go.
class HeldWorker {
public:
    /// Attempt `refused` fails, none with 0.
    HeldWorker(RecordingClient& held, int number, int refused = 0) {
        held.onConnect = [this, &held, number, refused] {
            const int call = ++calls;
            if (call == refused) return false;
            if (call == number) {
                arrived = true;
                EXPECT_TRUE(waitFor([this] { return released.load(); }));
            }
            return held.CANFlasherClient::connectToServer();
        };
    }
    bool hasArrived() {
        return waitFor([this] { return arrived.load(); });
    }
    void letGo() { released = true; }

private:
    std::atomic<int> calls{0};
    std::atomic<bool> arrived{false};
    std::atomic<bool> released{false};
};

TEST_F(Upload, ASecondRequestReplacesTheFirstAndBeginsItsTwoStepsAnew) {
    client.suppressPolling = true;
    HeldWorker worker(client, 3);  // the upload, the first step, the second
    EXPECT_EQ(request(hexFile, 1), kUploadRequested);
    HandConnection connection = server.accept();
    EXPECT_TRUE(worker.hasArrived());
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(request(hexFile, 2), kUploadRequested);
    worker.letGo();
    EXPECT_EQ(connection.readPacket(), kStatusReset);
    EXPECT_GE(since(begin), 48ms) << "the step that was held came too early for the second request, and only armed it";
    EXPECT_EQ(connection.readPacket(), uploadPacket(2, 2, hexFile));
    EXPECT_TRUE(connection.isSilentFor(120ms));

    EXPECT_EQ(request(hexFile, 3), kUploadRequested);
    EXPECT_EQ(connection.readPacket(), kStatusReset) << "a request after that goes out again";
    EXPECT_EQ(connection.readPacket(), uploadPacket(2, 3, hexFile));
    client.shutDown();
}

TEST_F(Upload, ARequestThatCannotConnectHasReplacedTheFirstAllTheSame) {
    client.suppressPolling = true;
    HeldWorker worker(client, 3, 4);  // the upload, the first step, the second; the upload that follows
    EXPECT_EQ(request(hexFile, 1), kUploadRequested);
    HandConnection connection = server.accept();
    EXPECT_TRUE(worker.hasArrived());
    EXPECT_EQ(request(hexFile, 2), kUploadServerNotReachable);
    worker.letGo();
    EXPECT_EQ(connection.readPacket(), kStatusReset);
    EXPECT_EQ(connection.readPacket(), uploadPacket(2, 2, hexFile));
    client.shutDown();
}

TEST_F(Upload, ADirectoryReplacesARequestThatHasNotGoneOut) {
    client.suppressPolling = true;
    HeldWorker worker(client, 2);
    EXPECT_EQ(request(hexFile), kUploadRequested);
    HandConnection connection = server.accept();
    EXPECT_TRUE(worker.hasArrived());
    EXPECT_EQ(request(folder.path()), kUploadRequested);
    worker.letGo();
    EXPECT_TRUE(connection.isSilentFor(150ms));
    client.shutDown();
}

struct RefusedRow {
    const char* why;
    const char* file;
    std::int32_t address;
    std::uint32_t result;
};
class UploadRefused : public Upload, public testing::WithParamInterface<RefusedRow> {};

TEST_P(UploadRefused, LeavesARequestThatHasNotGoneOutAsItIs) {
    const std::string otherFile = folder.write("b.hex", "");
    client.suppressPolling = true;
    HeldWorker worker(client, 3);  // the upload, the first step, the second
    EXPECT_EQ(request(hexFile, 1), kUploadRequested);
    HandConnection connection = server.accept();
    EXPECT_TRUE(worker.hasArrived());
    EXPECT_EQ(client.upload(Global, GetParam().address, 7, folder / GetParam().file), GetParam().result);
    worker.letGo();
    EXPECT_EQ(connection.readPacket(), kStatusReset);
    EXPECT_EQ(connection.readPacket(), uploadPacket(2, 1, hexFile));
    EXPECT_EQ(client.connectCalls, 4) << "it went out with the step that was held, after its reset";
    client.shutDown();
}

INSTANTIATE_TEST_SUITE_P(Rows, UploadRefused,
                         testing::Values(RefusedRow{"missingFile", "missing.hex", 2, 1},
                                         RefusedRow{"invalidAddress", "b.hex", 254, 2}),
                         [](const auto& row) { return std::string(row.param.why); });

/// Ends the worker, so that nobody takes what the timers put.
void endWorker(RecordingClient& client) {
    ASSERT_TRUE(client.updateQueue.tryPut(UpdQuit));
    ASSERT_TRUE(waitFor([&] { return client.updateQueue.size() == 0; }));
}

TEST_F(Upload, SuppressedPollingDoesNotArmItsTimer) {
    endWorker(client);
    client.suppressPolling = true;
    client.pollTimer.setInterval(1);
    client.stepTimer.setInterval(30);
    client.onConnect = [] { return true; };
    EXPECT_EQ(request(hexFile), kUploadRequested);
    EXPECT_TRUE(waitFor([&] { return client.updateQueue.size() > 0; }));
    TUpdCmd command{};
    EXPECT_TRUE(client.updateQueue.tryGet(command));
    EXPECT_EQ(command, UpdStep);
    EXPECT_FALSE(client.updateQueue.tryGet(command));
}

TEST_F(Upload, AStatusRequestThatCannotConnectIsNoFailureAndBothTimersRun) {
    endWorker(client);
    client.stepTimer.setInterval(1);
    client.pollTimer.setInterval(1);
    int calls = 0;
    client.onConnect = [&] { return ++calls != 2; };
    EXPECT_EQ(request(hexFile), kUploadRequested);
    EXPECT_EQ(calls, 2);
    EXPECT_TRUE(waitFor([&] { return client.updateQueue.size() == 2; }));
    std::vector<TUpdCmd> commands(2);
    for (TUpdCmd& command : commands) EXPECT_TRUE(client.updateQueue.tryGet(command));
    EXPECT_THAT(commands, testing::UnorderedElementsAre(UpdStep, UpdPoll));
}

TEST_F(Upload, UnknownCommandsOfTheWorkerAreIgnored) {
    for (const std::uint32_t command : {4U, 99U, 0xFFFFFFFFU})
        EXPECT_TRUE(client.updateQueue.tryPut(static_cast<TUpdCmd>(command)));
    EXPECT_TRUE(client.updateQueue.tryPut(UpdPoll));
    EXPECT_EQ(server.accept().readPacket(), kStatusRequest);
    EXPECT_EQ(client.connectCalls, 1);
}

}  // namespace
