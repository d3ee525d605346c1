#pragma once
/// From a stream of bytes to packets. Pure; nothing that a peer sends is believed before it was measured.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "sim/Clock.h"

namespace sim {

/// One whole packet as it came from the wire, at least 8 bytes.
struct Packet {
    Bytes bytes;

    std::uint16_t command() const { return static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]); }
    std::uint16_t payloadOffset() const { return static_cast<std::uint16_t>(bytes[6] << 8 | bytes[7]); }
    /// The payload begins behind the header and not behind the packet's end.
    bool payloadInside() const { return payloadOffset() >= 8 && payloadOffset() <= bytes.size(); }
    /// Only while `payloadInside()`; borrows from `bytes`.
    std::span<const std::uint8_t> payload() const { return std::span(bytes).subspan(payloadOffset()); }
};

/// Collects what a connection delivers and hands out whole packets. A length that cannot be right ends it:
/// a stream without marks has no place to start anew.
class PacketAssembler {
public:
    /// Longest packet that a client of this protocol can mean: a path with all its room, many times over.
    static constexpr std::uint32_t kLongestPacketBytes = 65536;

    /// Takes over what came, in pieces of any size.
    void append(std::span<const std::uint8_t> bytes);

    /// The next whole packet; none while it has not come whole, and for ever once `broken()`.
    std::optional<Packet> next();

    /// True once a length was below 8 or above `kLongestPacketBytes`.
    bool broken() const { return !problem_.empty(); }
    /// What was wrong, for the log; empty while not broken.
    const std::string& problem() const { return problem_; }
    /// Bytes that wait for the rest of their packet.
    std::size_t pendingBytes() const { return pending.size() - consumed; }

private:
    void discardConsumed();

    Bytes pending;
    std::size_t consumed = 0;
    std::string problem_;
};

}  // namespace sim
