#pragma once
/// One client's end of the wire.

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "sim/Clock.h"
#include "sim/Descriptor.h"
#include "sim/Journal.h"
#include "sim/Outbox.h"
#include "sim/PacketAssembler.h"

namespace sim {

/// A socket with its packets in both directions. No member waits.
class Connection {
public:
    /// Takes `connected`, a socket that does not block; borrows `record`.
    Connection(ClientId number, Descriptor connected, Delivery delivery, Journal& record);

    ClientId id() const { return id_; }
    int descriptor() const { return socket.get(); }

    /// Reads what has come. At the peer's end or a failure the connection closes once all is written.
    void receive(Instant now);
    /// The next whole packet that has come; none while closing. A malformed one closes the connection.
    std::optional<Packet> nextPacket(Instant now);

    /// Sends a whole packet, unless silent or closing.
    void sendPacket(std::span<const std::uint8_t> packet, Instant now);
    /// Sends bytes that are no packet, unless silent or closing.
    void sendRaw(std::span<const std::uint8_t> bytes, Instant now);
    /// While silent, nothing more goes out than what waits already.
    void setSilent(bool value) { silent = value; }

    /// Closes in the orderly way once all is written. What the client sends meanwhile is read and forgotten, because
    /// unread bytes would turn the close into a reset.
    void close(Instant now, std::string_view reason);
    /// Breaks the connection with a reset.
    void reset();

    /// Writes what is due and fits.
    void flush(Instant now);
    /// True until the client has ended its direction.
    bool wantsToRead() const { return !peerEnded; }
    /// True while bytes that are due did not fit into the socket.
    bool wantsToWrite(Instant now) { return !over_ && !outbox.ready(now).empty(); }
    /// When something is to be done by time alone, none when nothing is.
    std::optional<Instant> due(Instant now);

    /// False once closing began: then it is no client any more.
    bool open() const { return !closing; }
    /// True when nothing is left to do; the object can go.
    bool over() const { return over_; }

private:
    bool mute() const { return silent || closing; }
    void end(std::string_view reason);
    void put(std::span<const std::uint8_t> bytes, Instant now);
    void finishWriting();

    ClientId id_;
    Descriptor socket;
    Journal& journal;
    PacketAssembler assembler;
    Outbox outbox;
    bool silent = false;
    bool closing = false;
    bool writingShut = false;
    bool peerEnded = false;
    bool over_ = false;
    Instant closeBy{};  // while closing
};

}  // namespace sim
