#pragma once
/// A client that remembers what its hooks were called with and whose connection attempts can be answered by the test.

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "Hardware/CANFlasherClient.h"

namespace testsupport {

class RecordingClient : public CANFlasher::CANFlasherClient {
public:
    explicit RecordingClient(int port, const char* host = "127.0.0.1") : CANFlasherClient(port, host) {}
    ~RecordingClient() override { shutDown(); }

    /// Answers `connectToServer`; unset: the client does. Set while no other thread calls it.
    std::function<bool()> onConnect;
    /// Runs in each hook behind the recording, on the thread of the hook.
    std::function<void()> onHook;
    std::atomic<int> connectCalls{0};

    bool connectToServer() override {
        ++connectCalls;
        return onConnect ? onConnect() : CANFlasherClient::connectToServer();
    }

    /// "busy 1", "status 0 5 42 42 12345" (mode, state, progress, address, serial), in the order of the calls.
    std::vector<std::string> hooks() const {
        const std::lock_guard lock(hooksMutex);
        return recorded;
    }

    using CANFlasherClient::pollTimer;
    using CANFlasherClient::shutDown;
    using CANFlasherClient::stepTimer;
    using CANFlasherClient::updateQueue;

    void busyChanged(bool busyNow) override { record("busy " + std::to_string(busyNow ? 1 : 0)); }
    void statusChanged(const TStatus& status) override {
        record("status " + std::to_string(status.mode) + " " + std::to_string(status.state) + " " +
               std::to_string(status.progress) + " " + std::to_string(status.address) + " " +
               std::to_string(status.serial));
    }

private:
    void record(const std::string& call) {
        {
            const std::lock_guard lock(hooksMutex);
            recorded.push_back(call);
        }
        if (onHook) onHook();
    }

    mutable std::mutex hooksMutex;
    std::vector<std::string> recorded;
};

}  // namespace testsupport
