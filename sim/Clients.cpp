#include "sim/Clients.h"

#include <algorithm>

namespace sim {

ClientId Clients::add(Descriptor socket) {
    connections.emplace_back(++lastId, std::move(socket), delivery, journal);
    return lastId;
}

Connection* Clients::find(ClientId id) {
    const auto match = std::find_if(connections.begin(), connections.end(),
                                    [&](const Connection& connection) { return connection.id() == id; });
    return match == connections.end() ? nullptr : &*match;
}

std::size_t Clients::openCount() const {
    return static_cast<std::size_t>(std::count_if(connections.begin(), connections.end(),
                                                  [](const Connection& connection) { return connection.open(); }));
}

void Clients::broadcast(std::span<const std::uint8_t> packet, Instant now) {
    for (Connection& connection : connections) connection.sendPacket(packet, now);
}

void Clients::flush(Instant now) {
    for (Connection& connection : connections) connection.flush(now);
}

std::optional<Instant> Clients::due(Instant now) {
    std::optional<Instant> next;
    for (Connection& connection : connections) {
        const std::optional<Instant> own = connection.due(now);
        if (own && (!next || *own < *next)) next = own;
    }
    return next;
}

std::vector<ClientId> Clients::removeOver() {
    std::vector<ClientId> gone;
    for (const Connection& connection : connections)
        if (connection.over()) gone.push_back(connection.id());
    std::erase_if(connections, [](const Connection& connection) { return connection.over(); });
    return gone;
}

}  // namespace sim
