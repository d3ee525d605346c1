#pragma once
/// What waits to be written to one client, and in which pieces. Pure: the clock and the socket stand outside.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <vector>

#include "sim/Clock.h"

namespace sim {

/// How packets are laid out in writes. The default writes whatever is there at once.
struct Delivery {
    std::vector<std::uint32_t> cuts;                          // offsets in each packet where a piece ends, rising
    Duration cutPause = std::chrono::milliseconds(10);        // between the pieces of a packet
    std::uint32_t gather = 1;                                 // so many packets go out in one write
    Duration gatherWithin = std::chrono::milliseconds(1000);  // a packet waits no longer than this for others
};

/// The pieces in their order. A caller writes what `ready` shows and says with `written` how much of it went out.
class Outbox {
public:
    explicit Outbox(Delivery chosen) : delivery(std::move(chosen)) {}

    /// Adds a packet.
    void put(std::span<const std::uint8_t> packet, Instant now);
    /// What may go out at `now`; empty when nothing is due. Borrowed until the next call of a changing member.
    std::span<const std::uint8_t> ready(Instant now);
    /// The first `byteCount` bytes of `ready` went out.
    void written(std::size_t byteCount, Instant now);
    /// Gathered packets need not wait for others any more.
    void releaseGathered();

    /// When something that waits now will be ready by time alone; none when nothing waits for a time.
    std::optional<Instant> due() const;
    bool empty() const { return pieces.empty() && gathered.empty(); }
    /// Bytes that wait, ready or not.
    std::size_t size() const { return waitingBytes; }

private:
    struct Piece {
        Bytes bytes;
        bool pauseBefore;
    };

    void putCut(std::span<const std::uint8_t> packet);
    void putWhole(std::span<const std::uint8_t> packet);

    Delivery delivery;
    std::deque<Piece> pieces;
    std::size_t frontWritten = 0;  // bytes of the first piece that are out already
    Instant notBefore{};           // of the first piece
    Bytes gathered;
    std::uint32_t gatheredCount = 0;
    Instant gatheredSince{};
    std::size_t waitingBytes = 0;
};

}  // namespace sim
