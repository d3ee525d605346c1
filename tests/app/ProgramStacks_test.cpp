/// How much of their 16384-byte stacks the threads of the whole program have left at the worst. Each paints its stack
/// before it does anything else.

#include <gtest/gtest.h>
#include <netdb.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "app/MainFlow.h"
#include "tests/Hardware/HandServer.h"
#include "tests/app/ForkedRun.h"
#include "tests/support/PaintedStack.h"
#include "tests/support/TempFolder.h"

using testsupport::Bytes;
using testsupport::bytes;
using testsupport::ForkedRun;
using testsupport::HandConnection;
using testsupport::HandServer;
using testsupport::PaintedStack;

namespace {

constexpr std::size_t kSmall = 16384;
constexpr std::size_t kMustBeLeft = 4096;

// Of the forked process: what was left in threads that have ended, and the stacks of those that have not.
std::atomic<std::size_t> leastLeft{kSmall};
std::atomic<int> smallThreads{0};
std::array<std::atomic<const PaintedStack*>, 64> living{};
// No thread ends while its stack is looked at: the C library clears it then.
std::mutex endOfLife;
std::atomic<int> resolutions{INT_MAX};  // that still find the host
std::function<void()> onSystem;

void note(std::size_t left) {
    std::size_t before = leastLeft;
    while (left < before && !leastLeft.compare_exchange_weak(before, left)) {
    }
}

struct Start {
    void* (*routine)(void*);
    void* argument;
};

void* runPainted(void* given) {
    const Start start = *static_cast<Start*>(given);
    delete static_cast<Start*>(given);
    const PaintedStack stack;
    if (stack.size() != kSmall) return start.routine(start.argument);
    auto& place = living.at(static_cast<std::size_t>(smallThreads++));
    place = &stack;
    void* const result = start.routine(start.argument);
    const std::lock_guard lock(endOfLife);
    place = nullptr;
    note(stack.untouched());
    return result;
}

void report() {
    const std::lock_guard lock(endOfLife);
    for (const auto& place : living)
        if (const PaintedStack* const stack = place) note(stack->untouched());
    const std::string line = "threads " + std::to_string(smallThreads) + " left " + std::to_string(leastLeft) + "\n";
    static_cast<void>(write(STDERR_FILENO, line.data(), line.size()) == 0);
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker prescribes these names.
extern "C" {
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                          void* argument) {
    return __real_pthread_create(thread, attributes, runPainted, new Start{routine, argument});
}
int __wrap_system(const char* command);
int __wrap_system(const char* /*command*/) {
    onSystem();
    return 0;
}
void __wrap_sync();
void __wrap_sync() {}
int __real_getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** addresses);
int __wrap_getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** addresses);
int __wrap_getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** addresses) {
    return resolutions-- > 0 ? __real_getaddrinfo(host, service, hints, addresses) : EAI_NONAME;
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

Bytes statusPacket(int state) {
    return bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 3, state, 255, 0xFE, 0xFE, 0xFF, 0xFF, 0x1F});
}

/// A run against a server that says whatever makes the client print, before `last`.
class ProgramStacks : public testing::Test {
protected:
    /// Returns what the report says, "" for none.
    std::string run(int resolutionsThatWork, const std::vector<Bytes>& last) {
        onSystem = [&] { server.listen(); };
        ForkedRun program([&] {
            std::atexit(report);
            resolutions = resolutionsThatWork;
            std::vector<std::string> arguments{
                "dunmallow", "-u", hexFile, "-a", "253", "-p", std::to_string(server.port()), "-s", "127.0.0.1"};
            std::vector<char*> argv;
            for (std::string& argument : arguments) argv.push_back(argument.data());
            argv.push_back(nullptr);
            return CANFlasher::runProgram(static_cast<int>(argv.size()) - 1, argv.data());
        });
        HandConnection connection = server.accept();
        for (const Bytes& packet : talk()) EXPECT_TRUE(connection.write(packet));
        for (Bytes packet = connection.readPacket(); packet.size() >= 8; packet = connection.readPacket())
            if (packet[4] == 0x03 && packet[5] == 0xEC) break;
        for (const Bytes& packet : last) EXPECT_TRUE(connection.write(packet));
        status = program.wait();
        return program.standardError();
    }

    static std::vector<Bytes> talk() {
        Bytes identity = bytes({0, 0, 0x03, 0x0C, 0, 2, 0, 8, 1, 2, 3, 4});
        for (int text = 0; text < 3; ++text) {
            identity.push_back(255);
            identity.insert(identity.end(), 255, 'x');
        }
        return {bytes({0, 0, 0, 8, 0xFF, 0xFF, 0, 8}), identity, bytes({0, 0, 0, 8, 0, 1, 0, 8}), statusPacket(5),
                statusPacket(3)};
    }

    testsupport::TempFolder folder;
    const std::string hexFile = folder.write("a.hex", ":00000001FF\n");
    HandServer server{HandServer::Start::later};
    int status = -1;
};

void expectEnoughLeft(const std::string& errors) {
    int threads = 0;
    std::size_t left = 0;
    const std::size_t place = errors.find("threads ");
    ASSERT_NE(place, std::string::npos) << errors;
    ASSERT_EQ(std::sscanf(errors.c_str() + place, "threads %d left %zu", &threads, &left), 2);
    EXPECT_GE(threads, 5) << "timers, worker, receive, transmit, dispatch";
    EXPECT_GE(left, kMustBeLeft);
    EXPECT_LT(left, kSmall);
    testing::Test::RecordProperty("BytesLeft", std::to_string(left));
}

TEST_F(ProgramStacks, Have4096BytesLeftWhenTheDispatchThreadEndsTheProcess) {
    expectEnoughLeft(run(INT_MAX, {statusPacket(101)}));
    EXPECT_EQ(status, 0);
}

// Idle ends the work: the worker drops the connection and opens it anew with the next poll. The host was looked up
// twice before, to find out that no server runs and then to connect.
TEST_F(ProgramStacks, Have4096BytesLeftWhenTheWorkerFindsNoHostAndEndsTheProcess) {
    expectEnoughLeft(run(2, {statusPacket(1)}));
    EXPECT_EQ(status, 1);
}

}  // namespace
