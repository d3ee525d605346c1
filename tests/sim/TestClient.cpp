#include "tests/sim/TestClient.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "tests/sim/HexText.h"
#include "tests/support/Process.h"

namespace simtest {

namespace {

sockaddr_in6 ipv6Loopback(std::uint16_t port) {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    address.sin6_addr = in6addr_loopback;
    return address;
}

sockaddr_in ipv4Loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

template <typename Address>
bool bindTo(const sim::Descriptor& socket, const Address& address) {
    return bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

template <typename Address>
bool connectTo(const sim::Descriptor& socket, const Address& address) {
    return connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

bool hasIpv6() {
    const sim::Descriptor socket(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return socket.valid() && bindTo(socket, ipv6Loopback(0));
}

std::uint16_t freePort() {
    for (;;) {
        const sim::Descriptor probe(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (!bindTo(probe, ipv4Loopback(0))) return 0;
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(probe.get(), reinterpret_cast<sockaddr*>(&address), &size);
        const std::uint16_t port = ntohs(address.sin_port);
        const sim::Descriptor other(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (!hasIpv6() || bindTo(other, ipv6Loopback(port))) return port;
    }
}

TestClient::TestClient(std::uint16_t port, Family family)
    : socket(::socket(family == Family::ipv4 ? AF_INET : AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const bool reached =
        family == Family::ipv4 ? connectTo(socket, ipv4Loopback(port)) : connectTo(socket, ipv6Loopback(port));
    if (!reached) socket.reset();
}

void TestClient::send(std::string_view hexText) const { sendBytes(bytes(hexText)); }

void TestClient::sendBytes(const std::vector<std::uint8_t>& data) const {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t sent = ::send(socket.get(), data.data() + done, data.size() - done, MSG_NOSIGNAL);
        if (sent <= 0) return;
        done += static_cast<std::size_t>(sent);
    }
}

bool TestClient::quietFor(std::chrono::milliseconds time) const {
    pollfd event{socket.get(), POLLIN, 0};
    return poll(&event, 1, static_cast<int>(time.count())) == 0;
}

std::vector<std::uint8_t> TestClient::receiveBytes(std::size_t count) const {
    std::vector<std::uint8_t> data(count);
    std::size_t done = 0;
    while (done < count && !quietFor(testsupport::kDeadline)) {
        const ssize_t got = recv(socket.get(), data.data() + done, count - done, 0);
        if (got <= 0) break;
        done += static_cast<std::size_t>(got);
    }
    data.resize(done);
    return data;
}

std::string TestClient::receive(std::size_t count) const { return hex(receiveBytes(count)); }

std::string TestClient::receivePacket() const {
    std::vector<std::uint8_t> packet = receiveBytes(4);
    if (packet.size() < 4) return {};
    std::size_t length = 0;
    for (const std::uint8_t byte : packet) length = length << 8 | byte;
    const std::vector<std::uint8_t> rest = receiveBytes(length - 4);
    packet.insert(packet.end(), rest.begin(), rest.end());
    return packet.size() == length ? hex(packet) : std::string();
}

std::string TestClient::ending() const {
    std::array<std::uint8_t, 4096> data;
    while (!quietFor(testsupport::kDeadline)) {
        const ssize_t got = recv(socket.get(), data.data(), data.size(), 0);
        if (got == 0) return "closed";
        if (got < 0) return errno == ECONNRESET ? "reset" : "broken";
    }
    return "open";
}

void TestClient::closeWriting() const { shutdown(socket.get(), SHUT_WR); }

}  // namespace simtest
