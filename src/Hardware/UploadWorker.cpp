// The client's worker thread, and what the dispatch thread hands to it.

#include <cstdio>
#include <optional>
#include <utility>

#include "Hardware/CANFlasherClient.h"
#include "Hardware/RegularFile.h"

namespace CANFlasher {

namespace {

/// A command that the worker ignores.
constexpr auto kNothingToDo = static_cast<TUpdCmd>(0xFFFFFFFFU);

}  // namespace

std::uint32_t CANFlasherClient::runWorker(void* client) {
    static_cast<CANFlasherClient*>(client)->updateLoop();
    return 0;
}

void CANFlasherClient::updateLoop() {
    for (;;) {
        const TUpdCmd command = updateQueue.get();
        if (command == UpdQuit) break;
        handleCommand(command);
        if (disconnect == Disconnect::overdue) dropConnection();
    }
    closeSocket(false);
}

void CANFlasherClient::handleCommand(TUpdCmd command) {
    switch (command) {
        case UpdStep:
            uploadStep();
            break;
        case UpdPoll:
            poll();
            break;
        case UpdDisconnect:
            dropConnection();
            break;
        default:
            break;
    }
}

/// The first step only arms; the request goes out with the second, when the server has had time for its first report.
void CANFlasherClient::uploadStep() {
    if (!connectToServer()) return;
    const std::optional<UploadRequest> due = dueRequest();
    if (!due) {
        stepTimer.restartOnce();
        return;
    }
    if (!leadsToRegularFile(due->hexFile)) return;
    sendStatusReset();
    send(makeUpload(*due));
}

/// The request when it is armed; else arms it and returns nothing. Under one lock: a request that replaces another one
/// in between would go out with its first step, and again with its second.
std::optional<UploadRequest> CANFlasherClient::dueRequest() {
    const threadfunc::MutexLock lock(requestMutex);
    if (!std::exchange(uploadArmed, true)) return std::nullopt;
    return request;
}

void CANFlasherClient::poll() {
    if (suppressPolling) return;
    if (connectToServer()) send(makeCommand(CmdStatusRequest));
    pollTimer.restartOnce();
}

/// Worker thread: drops the connection, once for all that asked before. The next poll opens a new one.
void CANFlasherClient::dropConnection() {
    disconnect = Disconnect::none;
    closeSocket(true);
}

/// Dispatch thread: has the worker drop the connection. Never waits: the worker joins this thread when it closes, and a
/// queue full of timer ticks must not hold both for ever. One disconnect in the queue is as good as ten; an empty
/// queue has none, whoever took it. When there is no room for it, it is overdue and follows the command that the
/// worker handles next; the value that says nothing wakes a worker that has emptied the queue in between.
void CANFlasherClient::requestDisconnect() {
    auto asked = Disconnect::none;
    if (!disconnect.compare_exchange_strong(asked, Disconnect::queued) && updateQueue.size() > 0) return;
    if (updateQueue.tryPut(UpdDisconnect)) return;
    disconnect = Disconnect::overdue;
    static_cast<void>(updateQueue.tryPut(kNothingToDo));
}

void CANFlasherClient::handleRxPacket(TPacket*& packet) {
    if (packet->getCommand() == CmdStatus) {
        if (const auto received = parseStatus(*packet)) applyStatus(*received);
        return;
    }
    std::printf("CANFlasherClient::handleRxPacket( %p ) Unexpected command: %u\n", static_cast<void*>(packet),
                static_cast<unsigned>(packet->getCommand()));
    std::fflush(stdout);  // the line of a shutdown signal goes round the buffer and must not overtake it
}

void CANFlasherClient::applyStatus(const TStatus& received) {
    const bool nowBusy = isBusyState(received.state);
    bool changed = false;
    bool busyDiffers = false;
    {
        const threadfunc::MutexLock lock(statusMutex);
        changed = std::exchange(lastStatus, received) != received;
        busyDiffers = busy.exchange(nowBusy) != nowBusy;
    }
    if (busyDiffers) {
        busyChanged(nowBusy);
        // Whatever the final state: the next poll connects again.
        if (!nowBusy && !keepConnection) requestDisconnect();
    }
    if (changed) statusChanged(received);
}

}  // namespace CANFlasher
