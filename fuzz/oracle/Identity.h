#pragma once
/// The payload of a server's identity, read field by field at absolute offsets.

#include <memory>
#include <optional>
#include <string>

#include "fuzz/Fuzz.h"
#include "platform/linux/base/ProprietarySocketCommon.h"
#include "platform/linux/base/ServerConnectionEntry.h"
#include "sim/Wire.h"

namespace fuzz {

/// The text of `length` bytes at `offset`; empty when the payload ends before it does.
inline std::string textAt(Bytes payload, std::size_t offset, std::size_t length) {
    if (payload.size() < offset + length) return {};
    return {payload.begin() + static_cast<std::ptrdiff_t>(offset),
            payload.begin() + static_cast<std::ptrdiff_t>(offset + length)};
}

inline std::string descriptionOf(const std::string& name) {
    if (name == "ostrel") return "(FS) File Server";
    if (name == "quenbury") return "(UT) Universal Terminal";
    if (name == "pellick") return "ISOBUS Network Manager";
    if (name == "marrowin") return "(TC) Task Controller";
    if (name == "vextoner") return "(SM) Sound Manager";
    return {};
}

inline std::optional<ServerConnectionEntry> identityOf(Bytes payload) {
    const std::size_t size = payload.size();
    if (size < 4) return std::nullopt;
    ServerConnectionEntry entry;
    const std::uint32_t id = payload[0] + payload[1] * 256U + payload[2] * 65536U + payload[3] * 16777216U;
    entry.processId = static_cast<std::int32_t>(id);
    const std::size_t n1 = size > 4 ? payload[4] : 0;
    const std::size_t n2 = size >= 6 + n1 ? payload[5 + n1] : 0;
    const std::size_t n3 = size >= 7 + n1 + n2 ? payload[6 + n1 + n2] : 0;
    entry.applicationName = textAt(payload, 5, n1);
    entry.description = descriptionOf(entry.applicationName);
    entry.version = textAt(payload, 6 + n1, n2);
    entry.versionLabel = textAt(payload, 7 + n1 + n2, n3);
    return entry;
}

inline sim::Bytes writtenBySimulator(const ServerConnectionEntry& entry) {
    return sim::connectionInfoPayload(
        {static_cast<std::uint32_t>(entry.processId), entry.applicationName, entry.version, entry.versionLabel});
}

/// A packet as it came from a server, with another process id (0 to 255) in its payload.
class ReceivedPacket {
public:
    ReceivedPacket(std::uint16_t command, Bytes payload, std::int32_t processId)
        : packet(std::make_unique<ProprietarySocketCommon::TPacket>(static_cast<unsigned>(payload.size()), command)),
          pointer(packet.get()) {
        std::copy(payload.begin(), payload.end(), packet->getPayload());
        std::fill_n(packet->getPayload(), 4, std::uint8_t{0});
        packet->getPayload()[0] = static_cast<std::uint8_t>(processId);
    }

    ProprietarySocketCommon::TPacket*& handed() const { return pointer; }

private:
    std::unique_ptr<ProprietarySocketCommon::TPacket> packet;
    mutable ProprietarySocketCommon::TPacket* pointer;
};

}  // namespace fuzz
