#pragma once
/// All clients of the server.

#include <list>
#include <optional>
#include <span>
#include <vector>

#include "sim/Clock.h"
#include "sim/Connection.h"
#include "sim/Descriptor.h"
#include "sim/Journal.h"
#include "sim/Outbox.h"

namespace sim {

/// Owns the connections. A client that is gone stays until `removeOver`, so that a round over all is never disturbed.
class Clients {
public:
    /// Borrows `record`.
    Clients(Delivery chosen, Journal& record) : delivery(std::move(chosen)), journal(record) {}

    /// Takes `socket`. Returns the new client's number.
    ClientId add(Descriptor socket);
    /// Null when there is none with that number.
    Connection* find(ClientId id);
    std::list<Connection>& all() { return connections; }
    /// Clients that are not closing.
    std::size_t openCount() const;

    /// Sends a packet to all.
    void broadcast(std::span<const std::uint8_t> packet, Instant now);
    /// Writes to all what is due.
    void flush(Instant now);
    /// When the next thing is to be done by time alone.
    std::optional<Instant> due(Instant now);
    /// Lets go those that are over. Returns their numbers.
    std::vector<ClientId> removeOver();

private:
    Delivery delivery;
    Journal& journal;
    std::list<Connection> connections;
    ClientId lastId = 0;
};

}  // namespace sim
