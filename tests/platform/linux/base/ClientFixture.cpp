#include "tests/platform/linux/base/ClientFixture.h"

#include <algorithm>

namespace sockettest {

using threadfunc::MutexLock;

TPacket* newPacket(unsigned short command, const Bytes& payload) {
    auto* const packet = new TPacket(static_cast<unsigned>(payload.size()), command);
    std::copy(payload.begin(), payload.end(), packet->getPayload());
    return packet;
}

void TestClient::handleRxPacket(TPacket*& packet) {
    if (handling.exchange(true)) mixedUp = true;
    const pthread_t first = handler.exchange(pthread_self());
    if (first != 0 && pthread_equal(first, pthread_self()) == 0) mixedUp = true;
    {
        const MutexLock lock(guard);
        commands.push_back(packet->getCommand());
    }
    if (onPacket) onPacket(packet);
    handling = false;
}

std::vector<int> TestClient::received() const {
    const MutexLock lock(guard);
    return commands;
}

bool TestClient::hasReceived(std::size_t count) const {
    return waitFor([this, count] { return received().size() >= count; });
}

bool TestClient::send(unsigned short command, const Bytes& payload) {
    TPacket* packet = newPacket(command, payload);
    return sendPacket(packet, false);
}

LinkStatus TestClient::status() {
    LinkStatus status;
    getLinkStatus(&status, false);
    return status;
}

bool TestClient::waitForEnd() {
    return waitFor([this] { return !status().connected; });
}

namespace {

// What the process keeps once it has it: the timer thread and its pipe.
void startTimerThread() { const threadfunc::timer_template<int> timer(1, nullptr, 0); }

}  // namespace

LeavesNothing::LeavesNothing() : threadsBefore(0), descriptorsBefore(0) {
    startTimerThread();
    threadsBefore = testsupport::runningThreads();
    descriptorsBefore = testsupport::openDescriptors();
}

LeavesNothing::~LeavesNothing() {
    // A thread that was joined may stand in the kernel's list for a moment.
    EXPECT_TRUE(waitFor([this] { return testsupport::runningThreads() <= threadsBefore; }))
        << testsupport::runningThreads() << " threads instead of " << threadsBefore;
    EXPECT_EQ(testsupport::openDescriptors(), descriptorsBefore);
}

void Connected::connect() {
    ASSERT_TRUE(client.connectToServer());
    peer = server.accept();
}

}  // namespace sockettest
