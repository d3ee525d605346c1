// What the client does with the socket layer's own commands: pings, and the identity of the server.
#include <cstdio>
#include <new>

#include "platform/linux/base/ConnectionInfo.h"
#include "platform/linux/base/ProprietarySocketClient.h"
#include "platform/linux/base/ServerConnectionList.h"

using threadfunc::MutexLock;

namespace {

constexpr int kTick = 0;

double timeOfDay() { return threadfunc::timeOfDayNumber(threadfunc::wallClockNow()); }

void empty(threadfunc::queue_template<int>& queue) {
    for (int value = 0; queue.tryGet(value);) {
    }
}

}  // namespace

std::uint32_t ProprietarySocketClient::pingSupervision(void* client) {
    static_cast<ProprietarySocketClient*>(client)->supervisePings();
    return 0;
}

void ProprietarySocketClient::supervisePings() {
    const std::uint32_t supervised = linkNumber;
    pingRunning = true;
    empty(pingQueue);  // ends of former links; an end of this one has cleared `connected` before it put its value
    threadfunc::timer_template<int> timer(pingIntervalMs, &pingQueue, kTick);
    timer.startPeriodic(pingIntervalMs);
    while (connected && linkNumber == supervised) {
        static_cast<void>(pingQueue.get());
        if (!connected || linkNumber != supervised) break;
        handlePingTick();
    }
    timer.stop();
    empty(pingQueue);
    pingRunning = false;
}

void ProprietarySocketClient::handlePingTick() {
    if (pingPending) {
        std::printf("%6.3f ProprietarySocketClient CmdPing response missing (%i)\n", timeOfDay(), ++missingPings);
        std::fflush(stdout);  // who watches a pipe or a file sees the line when it is true
    } else {
        missingPings = 0;
    }
    PacketPtr ping(new (std::nothrow) TPacket(1, CmdPing));
    if (!ping || !ping->hasPayload(1)) return;  // without memory there is the next tick
    ping->getPayload()[0] = 0;
    {
        const MutexLock lock(statsMutex);
        pingStopwatch.start();
        pingPending = true;
    }
    TPacket* packet = ping.release();
    static_cast<void>(sendPacket(packet, false));
}

bool ProprietarySocketClient::handleBuiltinPacket(TPacket*& packet) {
    switch (packet->getCommand()) {
        case CmdPing:
            handlePingAnswer();
            return true;
        case CmdConnectionInfo:
            handleConnectionInfo(*packet);
            return true;
        default:
            return false;
    }
}

void ProprietarySocketClient::handlePingAnswer() {
    if (!pingPending) {
        std::printf("%6.3f ProprietarySocketClient CmdPing received out of sync\n", timeOfDay());
        std::fflush(stdout);
        return;
    }
    const MutexLock lock(statsMutex);
    const double roundTrip = pingStopwatch.elapsed();
    pingPending = false;
    totalRoundTrip += roundTrip;
    ++responseCount;
    if (maxRoundTrip < roundTrip) maxRoundTrip = roundTrip;
}

void ProprietarySocketClient::handleConnectionInfo(const TPacket& packet) {
    const auto entry = parseConnectionInfo({packet.getPayload(), packet.getPayloadSize()});
    if (!entry) return;
    {
        const MutexLock lock(serverInfoMutex);
        serverInfo = *entry;
    }
    recordServerConnection(*entry);
}

std::string ProprietarySocketClient::getServerVersion() const {
    const MutexLock lock(serverInfoMutex);
    return serverInfo.version;
}

std::string ProprietarySocketClient::getServerVersionLabel() const {
    const MutexLock lock(serverInfoMutex);
    return serverInfo.versionLabel;
}

void ProprietarySocketClient::getLinkStatus(LinkStatus* out, bool reset) {
    if (out == nullptr) return;
    const MutexLock lock(statsMutex);
    *out = {connected, closing, dispatchRunning, pingRunning, maxRoundTrip, totalRoundTrip, responseCount};
    if (!reset) return;
    maxRoundTrip = 0;
    totalRoundTrip = 0;
    responseCount = 0;
}

void ProprietarySocketClient::getServerConnectionList(std::vector<ServerConnectionEntry>& out) {
    ::getServerConnectionList(out);
}

void ProprietarySocketClient::printServerConnectionList() { ::printServerConnectionList(); }
