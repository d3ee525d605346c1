#include "platform/linux/base/ProprietarySocketClient.h"

#include <cstdio>
#include <utility>

#include "platform/linux/base/ErrorLine.h"

namespace {

constexpr const char* kLoopback = "127.0.0.1";
constexpr int kEndOfLink = 0;

/// The client whose hooks run on this thread. The thread's handle would not tell: it may be a new thread's as soon as
/// this one was joined.
thread_local const ProprietarySocketClient* dispatching = nullptr;

}  // namespace

ProprietarySocketClient::ProprietarySocketClient(int port, const char* host)
    : host_(host == nullptr ? kLoopback : host), port_(port) {}

ProprietarySocketClient::~ProprietarySocketClient() {
    if (fd < 0) return;
    printErrorLine("ProprietarySocketClient::~ProprietarySocketClient() port " + std::to_string(port_) + " fd " +
                   std::to_string(fd) +
                   " reports: Derived classes or application shall call closeSocket() before destroying the object.\n");
    // The threads must not meet a dead object; whoever is told of a disconnect would meet half of one.
    onDisconnect = nullptr;
    closeSocket(false);
}

void ProprietarySocketClient::handleRxPacket(TPacket*& packet) {
    delete packet;
    packet = nullptr;
}

bool ProprietarySocketClient::sendPacket(TPacket*& packet, bool dropIfFull) {
    PacketPtr owned(std::exchange(packet, nullptr));
    if (!owned) return false;  // on the queue a null would be the end mark
    if (!(dropIfFull ? offerPacket(owned) : txQueue.put(owned))) return false;
    reportRecovery();
    return true;
}

bool ProprietarySocketClient::offerPacket(PacketPtr& packet) {
    if (txQueue.tryPut(packet)) return true;
    if (!txOverrun.exchange(true))
        printErrorLine("ProprietarySocketClient::sendPacket() Port " + std::to_string(port_) + ", fd " +
                       std::to_string(fd) + " Reports: Tx Buffer overrun, message lost.\n");
    return false;
}

void ProprietarySocketClient::reportRecovery() {
    if (!txOverrun || txQueue.space() <= txQueue.size() || !txOverrun.exchange(false)) return;
    // Standard output, unlike the overrun: scripts that watch for losses read standard error alone.
    std::printf("ProprietarySocketClient::sendPacket() Port %i, fd %i Reports: Tx Buffer usage below 50%%.\n", port_,
                fd.load());
    std::fflush(stdout);
}

std::uint32_t ProprietarySocketClient::runDispatch(void* client) {
    dispatching = static_cast<ProprietarySocketClient*>(client);
    static_cast<ProprietarySocketClient*>(client)->dispatchPackets();
    return 0;
}

bool ProprietarySocketClient::onDispatchThread() const { return dispatching == this; }

void ProprietarySocketClient::dispatchPackets() {
    dispatchRunning = true;
    while (PacketPtr owned = rxQueue.take()) {
        TPacket* packet = owned.release();
        if (!handleBuiltinPacket(packet)) handleRxPacket(packet);
        owned.reset(packet);  // what the hook left
    }
    dispatchRunning = false;
    connected = false;
    // A full queue wakes the ping thread as well as one more value does; without that thread nobody makes room.
    static_cast<void>(pingQueue.tryPut(kEndOfLink));
    if (const DisconnectHook hook = onDisconnect) hook(this);
}
