#pragma once
/// What the flasher client has to make of status reports, and a client that tells what it made of them.

#include <array>
#include <string>
#include <vector>

#include "Hardware/CANFlasherClient.h"
#include "app/StatusBlock.h"
#include "fuzz/Fuzz.h"

namespace fuzz {

/// A hook's call: the status, or whether busy began (1) or ended (0) in `busy`, which is 2 for a status.
struct HookCall {
    int busy = 2;
    CANFlasher::TStatus status{0, 0, 0, 0, 0};
    bool operator==(const HookCall&) const = default;
};

/// Never connects.
class RecordingClient : public CANFlasher::CANFlasherClient {
public:
    RecordingClient() : CANFlasherClient(2000, nullptr) { keepConnection = true; }
    ~RecordingClient() override { shutDown(); }
    std::vector<HookCall> calls;

protected:
    void busyChanged(bool busyNow) override { calls.push_back({busyNow ? 1 : 0}); }
    void statusChanged(const TStatus& status) override { calls.push_back({2, status}); }
};

/// A report of the default status.
inline constexpr std::array<std::uint8_t, 16> kDefaultStatusPacket{0, 0, 0, 16,   3,   0xE8, 0,   8,
                                                                   0, 1, 0, 0xFE, 255, 255,  255, 255};

/// Hands a packet of these bytes, header included, to the client's handler.
inline void handle(RecordingClient& client, std::uint16_t command, std::uint16_t payloadOffset, Bytes bytes) {
    ProprietarySocketCommon::TPacket packet;
    packet.size = static_cast<std::uint32_t>(bytes.size());
    packet.data = new unsigned char[bytes.size()];
    std::copy(bytes.begin(), bytes.end(), packet.data);
    packet.command = command;
    packet.payloadOffset = payloadOffset;
    ProprietarySocketCommon::TPacket* handed = &packet;
    client.handleRxPacket(handed);
    check(handed == &packet);
}

/// Keeps status and hook calls as the protocol's page has them.
class StatusModel {
public:
    CANFlasher::TStatus status{0, 1, 0, 254, 0xFFFFFFFF};
    bool busy = false;
    std::vector<HookCall> calls;

    void receive(Bytes payload) {
        if (payload.size() < 8) return;
        std::uint32_t serial = 0;
        for (int i = 7; i >= 4; --i) serial = serial * 256 + payload[static_cast<std::size_t>(i)];
        const CANFlasher::TStatus received{payload[0], payload[1], payload[2], payload[3], serial};
        const bool nowBusy = payload[1] == 2 || payload[1] == 3 || payload[1] == 4 || payload[1] == 5;
        if (nowBusy != busy) calls.push_back({nowBusy ? 1 : 0});
        if (!(received == status)) calls.push_back({2, received});
        busy = nowBusy;
        status = received;
    }

    /// Line `number` of the block that shows the status.
    std::string line(std::size_t number) const {
        static constexpr std::array<const char*, 7> kWork{
            "Locked", "Idle", "Preparing for upload", "Searching for device", "Erasing FLASH", "Programming", "Done"};
        static constexpr std::array<const char*, 6> kErrors{"Device not found.",
                                                            "Timed out while waiting for FLASH erase.",
                                                            "Timed out while waiting for response.",
                                                            "Unable to find the hex file.",
                                                            "Unable to open the hex file.",
                                                            "The hex file is incorrectly formatted."};
        static constexpr std::array<const char*, 4> kModes{"ISO Style", "MT CAN", "New Module", "Global"};
        std::string state = status.state < 7 ? kWork[status.state] : "unknown";
        if (status.state >= 100 && status.state < 106) state = std::string("Error! ") + kErrors[status.state - 100];
        std::array<char, 32> address{};
        std::snprintf(address.data(), address.size(), "%x", static_cast<unsigned>(status.address));
        const std::array<std::string, 6> lines{
            "Upload state:",
            std::string("    mode     ") + (status.mode < 4 ? kModes[status.mode] : "unknown"),
            "    state    " + state,
            "    progress " + std::to_string(status.progress) + "%",
            std::string("    adr      ") + address.data(),
            "    serial   " + (status.serial < 536870911 ? std::to_string(status.serial) : "---")};
        return lines[number] + "\x1b[0K";
    }
};

}  // namespace fuzz
