#include "Hardware/CANFlasherClient.h"

#include <utility>

#include "AgApp/Directories.h"
#include "Hardware/RegularFile.h"
#include "Hardware/ServerCommand.h"
#include "toolsmisc/Path.h"

namespace CANFlasher {

namespace {

constexpr int kConnectAttempts = 6;
constexpr int kConnectPauseMs = 50;
constexpr int kStepIntervalMs = 50;
constexpr int kPollIntervalMs = 1000;
constexpr unsigned kUpdateQueueCapacity = 100;
constexpr int kWorkerPriority = 30;

const auto kNoThread = static_cast<pthread_t>(-1);

}  // namespace

CANFlasherClient::CANFlasherClient(int port, const char* host)
    : ProprietarySocketClient(port, host),
      updateQueue(kUpdateQueueCapacity),
      stepTimer(kStepIntervalMs, &updateQueue, UpdStep),
      pollTimer(kPollIntervalMs, &updateQueue, UpdPoll),
      serverProgram(toolsmisc::joinPath(AgApp::getBinDirectory(), kServerName)),
      updateThread(kNoThread) {
    onDisconnect = [](ProprietarySocketClient* client) { return client; };
    const pthread_t started =
        threadfunc::ThreadCreate(kWorkerPriority, runWorker, this, 0, "Hardware/CANFlasherClient", 62);
    if (started != 0) updateThread = started;
}

CANFlasherClient::~CANFlasherClient() { shutDown(); }

/// Nothing here may wait for ever. The dispatch thread never waits for the worker (requestDisconnect), so closing the
/// link, which joins it, returns; closing frees a worker that waits in sendPacket for a peer that does not read; so the
/// worker comes round to its queue again, and the end mark finds room and is taken.
void CANFlasherClient::shutDown() {
    ending = true;
    pollTimer.stop();
    stepTimer.stop();
    TUpdCmd dropped{};
    while (updateQueue.tryGet(dropped)) {
    }
    closeForGood();  // also when the worker is just between two attempts to connect
    if (updateThread != kNoThread) {
        updateQueue.put(UpdQuit);
        threadfunc::threadJoin(std::exchange(updateThread, kNoThread));
    }
    // The worker may have armed them again before it took the end mark.
    pollTimer.stop();
    stepTimer.stop();
}

bool CANFlasherClient::connectToServer() {
    for (int attempt = 0; attempt < kConnectAttempts && !ending; ++attempt) {
        if (ProprietarySocketClient::connectToServer()) return true;
        threadfunc::sleep(kConnectPauseMs);
    }
    return false;
}

std::uint32_t CANFlasherClient::upload(TMode mode, std::int32_t address, std::uint32_t serial,
                                       const std::string& hexFile) {
    const std::string path = toolsmisc::getRealPath(hexFile);
    if (path.empty()) return kUploadFileNotFound;
    if (address > kHighestDeviceAddress) return kUploadInvalidAddress;
    storeRequest({mode, address, serial, path});
    // Scripts rely on the success: a directory as hex file is how they keep the program waiting without an upload.
    if (!leadsToRegularFile(path)) return kUploadRequested;
    if (!connectToServer()) return kUploadServerNotReachable;
    if (!suppressPolling) poll();
    stepTimer.restartOnce();
    return kUploadRequested;
}

void CANFlasherClient::sendStatusReset() {
    if (connectToServer()) {
        send(makeCommand(CmdStatusReset));
    } else if (!ending) {
        applyStatus(TStatus{});
    }
}

std::uint32_t CANFlasherClient::sendCommandByte(std::int32_t value) {
    if (!connectToServer()) return 0;
    return send(makeCommandByte(static_cast<std::uint8_t>(static_cast<std::uint32_t>(value) & 0xFFU))) ? 1 : 0;
}

TStatus CANFlasherClient::currentStatus() const {
    const threadfunc::MutexLock lock(statusMutex);
    return lastStatus;
}

bool CANFlasherClient::isBusy() const {
    const threadfunc::MutexLock lock(statusMutex);
    return busy;
}

void CANFlasherClient::statusChanged(const TStatus& /*status*/) {}

void CANFlasherClient::busyChanged(bool /*busyNow*/) {}

void CANFlasherClient::storeRequest(UploadRequest newRequest) {
    const threadfunc::MutexLock lock(requestMutex);
    request = std::move(newRequest);
    uploadArmed = false;
}

/// Sends `packet`, waiting while the transmit buffer is full. Returns false when it was lost.
bool CANFlasherClient::send(PacketPtr packet) {
    if (packet == nullptr) return false;
    TPacket* handed = packet.release();
    return sendPacket(handed, false);
}

}  // namespace CANFlasher
