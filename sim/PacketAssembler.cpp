#include "sim/PacketAssembler.h"

namespace sim {

namespace {

constexpr std::uint32_t kLengthBytes = 4, kShortestPacketBytes = 8;

std::uint32_t lengthField(std::span<const std::uint8_t> bytes) {
    std::uint32_t length = 0;
    for (const std::uint8_t byte : bytes.first(kLengthBytes)) length = length << 8 | byte;
    return length;
}

}  // namespace

void PacketAssembler::append(std::span<const std::uint8_t> bytes) {
    if (!broken()) pending.insert(pending.end(), bytes.begin(), bytes.end());
}

std::optional<Packet> PacketAssembler::next() {
    const auto waiting = std::span<const std::uint8_t>(pending).subspan(consumed);
    if (waiting.size() < kLengthBytes) {
        discardConsumed();
        return std::nullopt;
    }
    const std::uint32_t length = lengthField(waiting);
    if (length < kShortestPacketBytes || length > kLongestPacketBytes) {
        problem_ = "a packet of " + std::to_string(length) + " bytes; a packet has 8 to 65536";
        consumed = pending.size();
    }
    if (broken() || waiting.size() < length) {
        discardConsumed();
        return std::nullopt;
    }
    consumed += length;
    return Packet{Bytes(waiting.begin(), waiting.begin() + static_cast<std::ptrdiff_t>(length))};
}

// Once for all packets of a piece, not once a packet: a piece of many small packets costs its length, not its square.
void PacketAssembler::discardConsumed() {
    pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(consumed));
    consumed = 0;
}

}  // namespace sim
