#pragma once
/// The sockets that wait for clients, on the loopback addresses only.

#include <cstdint>
#include <optional>
#include <vector>

#include "sim/Descriptor.h"
#include "sim/Result.h"

namespace sim {

/// One socket for 127.0.0.1 and one for ::1, whichever of the two the machine has.
class Listeners {
public:
    /// Reserves `port` on both addresses without listening yet: who connects now is refused.
    static Result<Listeners> reserve(std::uint16_t port);

    /// Listens from now on. Returns why it cannot; a port may turn out to be in use only here.
    std::optional<Failure> listen();
    bool listening() const { return listening_; }

    const std::vector<Descriptor>& sockets() const { return sockets_; }

private:
    explicit Listeners(std::uint16_t number) : port(number) {}
    std::optional<Failure> reserveOn(int family);

    std::uint16_t port;
    std::vector<Descriptor> sockets_;
    bool listening_ = false;
};

}  // namespace sim
