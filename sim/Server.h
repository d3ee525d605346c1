#pragma once
/// The loop of the server: one thread, one poll, no locks.

#include <poll.h>

#include <optional>
#include <vector>

#include "sim/Clients.h"
#include "sim/Listeners.h"
#include "sim/Service.h"

namespace sim {

/// Serves clients until it is told to stop.
class Server {
public:
    /// Takes `reserved` and `played`, borrows the rest. Serving ends when `stop` is readable.
    Server(Listeners reserved, Scenario played, const Log& lines, Journal& journal, int stop);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Waits for events and serves them until the end. Returns the exit status: 0, or what a scenario or a port that
    /// turned out to be in use says.
    int run();

private:
    bool over(Instant now);
    void turn(Instant now);
    void listenWhenDue(Instant now);
    void noteClients(Instant now);
    void wait(Instant now);
    std::optional<Instant> due(Instant now);
    bool accepting(Instant now) const { return listeners.listening() && now >= acceptAgain; }
    std::vector<pollfd> watched(Instant now);
    void serve(const std::vector<pollfd>& events);
    void acceptFrom(int listener, Instant now);
    void receiveFrom(Connection& connection, Instant now);

    Listeners listeners;
    Scenario scenario;
    const Log& log;
    int stopDescriptor;
    Clients clients;
    Service service;
    std::optional<Instant> listenAt;  // none: listens already, or never does
    Instant acceptAgain{};            // after a lack of descriptors
    Instant idleSince;
    std::optional<int> exitStatus;
};

}  // namespace sim
