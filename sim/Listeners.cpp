#include "sim/Listeners.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>

namespace sim {

namespace {

struct Address {
    sockaddr_storage storage{};
    socklen_t size = 0;
};

template <typename Native>
Address packed(const Native& native) {
    Address address;
    std::memcpy(&address.storage, &native, sizeof native);
    address.size = sizeof native;
    return address;
}

Address loopback(int family, std::uint16_t port) {
    if (family == AF_INET) {
        sockaddr_in native{};
        native.sin_family = AF_INET;
        native.sin_port = htons(port);
        native.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return packed(native);
    }
    sockaddr_in6 native{};
    native.sin6_family = AF_INET6;
    native.sin6_port = htons(port);
    native.sin6_addr = in6addr_loopback;
    return packed(native);
}

void switchOn(int socket, int level, int option) {
    const int on = 1;
    setsockopt(socket, level, option, &on, sizeof on);
}

bool addressMissing(int code) { return code == EAFNOSUPPORT || code == EADDRNOTAVAIL || code == EPROTONOSUPPORT; }

Failure listenFailure(std::uint16_t port, int code) {
    const std::string name = "port " + std::to_string(port);
    if (code == EADDRINUSE) return {1, name + " is already in use"};
    return {1, "cannot listen on " + name + ": " + std::generic_category().message(code)};
}

}  // namespace

Result<Listeners> Listeners::reserve(std::uint16_t port) {
    Listeners listeners(port);
    for (const int family : {AF_INET, AF_INET6})
        if (auto failure = listeners.reserveOn(family)) return *failure;
    if (listeners.sockets_.empty()) return listenFailure(port, EADDRNOTAVAIL);
    return listeners;
}

std::optional<Failure> Listeners::reserveOn(int family) {
    Descriptor socket(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.valid()) return addressMissing(errno) ? std::nullopt : std::optional(listenFailure(port, errno));
    // A server that ends leaves connections behind that keep its port for a minute; the next one need not wait for
    // them.
    switchOn(socket.get(), SOL_SOCKET, SO_REUSEADDR);
    if (family == AF_INET6) switchOn(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY);
    const Address address = loopback(family, port);
    if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address.storage), address.size) != 0)
        return addressMissing(errno) ? std::nullopt : std::optional(listenFailure(port, errno));
    sockets_.push_back(std::move(socket));
    return std::nullopt;
}

std::optional<Failure> Listeners::listen() {
    for (const Descriptor& socket : sockets_)
        if (::listen(socket.get(), SOMAXCONN) != 0) return listenFailure(port, errno);
    listening_ = true;
    return std::nullopt;
}

}  // namespace sim
