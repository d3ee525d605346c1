#pragma once
/// The record of every packet, for programs. The format stands in docs/simulator.md.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "sim/Clock.h"
#include "sim/Descriptor.h"

namespace sim {

/// What a journal line is about.
enum class Mark : char { received = '<', sent = '>', connected = '+', ended = '-', refused = '!' };

/// Number of a client: 1 for the first one of the process, and so on.
using ClientId = std::uint32_t;

/// Line of a whole packet: stamp, client, mark, command id, its name, byte count, all bytes in hexadecimal. Ends with a
/// line end. Pure.
std::string journalPacketLine(Instant at, ClientId client, Mark mark, std::span<const std::uint8_t> packet);

/// Line of bytes that are no packet; command id and name are "-" and "raw". Otherwise as `journalPacketLine`. Pure.
std::string journalRawLine(Instant at, ClientId client, Mark mark, std::span<const std::uint8_t> bytes);

/// Line of an event: stamp, client, mark, text. Ends with a line end. Pure.
std::string journalEventLine(Instant at, ClientId client, Mark mark, std::string_view text);

/// Appends lines to a file, each with one write. Without a file it does nothing. After a failed write it is silent.
class Journal {
public:
    /// Takes `appendFile`, which was opened for appending, or is none.
    explicit Journal(Descriptor appendFile = Descriptor()) : file(std::move(appendFile)) {}

    void packet(ClientId client, Mark mark, std::span<const std::uint8_t> packet);
    void raw(ClientId client, Mark mark, std::span<const std::uint8_t> bytes);
    void event(ClientId client, Mark mark, std::string_view text);

private:
    void append(const std::string& line);

    Descriptor file;
};

}  // namespace sim
