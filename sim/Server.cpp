#include "sim/Server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace sim {

namespace {

constexpr Duration kAcceptPause = std::chrono::milliseconds(100);
constexpr std::size_t kMostClients = 500;

/// Milliseconds for poll(): rounded up, so that what is due is due when it returns; -1 without a moment.
int pollTimeout(std::optional<Instant> due, Instant now) {
    if (!due) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*due - now).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, 3'600'000));
}

}  // namespace

Server::Server(Listeners reserved, Scenario played, const Log& lines, Journal& journal, int stop)
    : listeners(std::move(reserved)),
      scenario(std::move(played)),
      log(lines),
      stopDescriptor(stop),
      clients(scenario.settings.delivery, journal),
      service(scenario, clients, log, journal),
      idleSince(monotonicNow()) {
    if (!listeners.listening() && !scenario.settings.refuseConnections)
        listenAt = idleSince + scenario.settings.listenDelay;
}

int Server::run() {
    for (Instant now = monotonicNow(); !over(now); now = monotonicNow()) turn(now);
    clients.flush(monotonicNow());
    return exitStatus.value_or(0);
}

bool Server::over(Instant now) {
    if (!exitStatus) exitStatus = service.exitStatus();
    const std::optional<Duration>& idle = scenario.settings.idle;
    if (!exitStatus && idle && clients.openCount() == 0 && now >= idleSince + *idle) {
        log.line("no client for the idle time, ends");
        exitStatus = 0;
    }
    return exitStatus.has_value();
}

void Server::turn(Instant now) {
    noteClients(now);
    listenWhenDue(now);
    service.advance(now);
    clients.flush(now);
    for (const ClientId id : clients.removeOver()) service.forget(id);
    if (!exitStatus && !service.exitStatus()) wait(now);
}

// Called before anything can end a connection: idle time counts from the last moment with a client.
void Server::noteClients(Instant now) {
    if (clients.openCount() != 0) idleSince = now;
}

void Server::listenWhenDue(Instant now) {
    if (!listenAt || now < *listenAt) return;
    listenAt.reset();
    const std::optional<Failure> failure = listeners.listen();
    log.line(failure ? failure->text : "listens now");
    if (failure) exitStatus = failure->status;
}

void Server::wait(Instant now) {
    std::vector<pollfd> events = watched(now);
    const int count = poll(events.data(), events.size(), pollTimeout(due(now), now));
    if (count > 0) serve(events);
}

std::optional<Instant> Server::due(Instant now) {
    std::optional<Instant> next;
    const auto consider = [&next](std::optional<Instant> moment) {
        if (moment && (!next || *moment < *next)) next = moment;
    };
    consider(service.due());
    consider(clients.due(now));
    consider(listenAt);
    if (now < acceptAgain) consider(acceptAgain);
    if (scenario.settings.idle && clients.openCount() == 0) consider(idleSince + *scenario.settings.idle);
    return next;
}

// The order that serve() relies on: the stop descriptor, the listeners, then the clients as they stand in `clients`.
std::vector<pollfd> Server::watched(Instant now) {
    const bool room = accepting(now) && clients.all().size() < kMostClients;
    std::vector<pollfd> events{{stopDescriptor, POLLIN, 0}};
    for (const Descriptor& socket : listeners.sockets()) events.push_back({room ? socket.get() : -1, POLLIN, 0});
    for (Connection& connection : clients.all()) {
        const int read = connection.wantsToRead() ? POLLIN : 0;
        const int write = connection.wantsToWrite(now) ? POLLOUT : 0;
        events.push_back({connection.descriptor(), static_cast<short>(read | write), 0});
    }
    return events;
}

void Server::serve(const std::vector<pollfd>& events) {
    const Instant now = monotonicNow();
    noteClients(now);
    if (events[0].revents != 0) {
        log.line("told to end");
        exitStatus = 0;
        return;
    }
    std::size_t index = 1 + listeners.sockets().size();
    for (Connection& connection : clients.all())
        if ((events[index++].revents & ~POLLOUT) != 0) receiveFrom(connection, now);
    for (index = 1; index <= listeners.sockets().size(); ++index)
        if (events[index].revents != 0) acceptFrom(events[index].fd, now);
}

void Server::acceptFrom(int listener, Instant now) {
    Descriptor socket(accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket.valid()) {
        const int code = errno;
        if (code != EMFILE && code != ENFILE && code != ENOBUFS && code != ENOMEM) return;
        log.line("cannot accept a client now: " + std::generic_category().message(code));
        acceptAgain = now + kAcceptPause;
        return;
    }
    const int on = 1;  // pieces of a packet that are written apart travel apart
    setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    service.welcome(clients.add(std::move(socket)), now);
}

void Server::receiveFrom(Connection& connection, Instant now) {
    connection.receive(now);
    while (const std::optional<Packet> packet = connection.nextPacket(now))
        service.handle(connection.id(), *packet, now);
}

}  // namespace sim
