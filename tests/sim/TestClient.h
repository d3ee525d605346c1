#pragma once
/// A client of the simulated server that writes and reads bytes by hand, and a port to meet at.

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sim/Descriptor.h"

namespace simtest {

/// A port that was free on both loopback addresses a moment ago.
std::uint16_t freePort();

/// CmdPing and its answer, as hex text.
inline constexpr char kPing[] = "00 00 00 09 00 01 00 08 00";

/// True when the machine has the address ::1.
bool hasIpv6();

/// One connection. Everything that is read has a generous deadline.
class TestClient {
public:
    enum class Family { ipv4, ipv6 };

    /// Connects to the loopback address; `connected()` says whether it worked.
    explicit TestClient(std::uint16_t port, Family family = Family::ipv4);

    bool connected() const { return socket.valid(); }
    /// Writes the bytes that `hexText` stands for.
    void send(std::string_view hexText) const;
    void sendBytes(const std::vector<std::uint8_t>& data) const;

    /// The next `count` bytes as hex text, fewer when the connection ends before.
    std::string receive(std::size_t count) const;
    /// The next whole packet as hex text, empty when the connection ends before.
    std::string receivePacket() const;
    /// True when nothing comes for `time`.
    bool quietFor(std::chrono::milliseconds time) const;
    /// How the connection ended: "closed", "reset", or "open" when it did not. Skips what comes before the end.
    std::string ending() const;
    /// Ends the own direction.
    void closeWriting() const;
    void close() { socket.reset(); }

private:
    std::vector<std::uint8_t> receiveBytes(std::size_t count) const;

    sim::Descriptor socket;
};

}  // namespace simtest
