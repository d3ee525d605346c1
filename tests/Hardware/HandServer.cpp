#include "tests/Hardware/HandServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <thread>
#include <utility>

namespace testsupport {

namespace {

using Moment = std::chrono::steady_clock::time_point;

Moment after(std::chrono::milliseconds limit) { return std::chrono::steady_clock::now() + limit; }

bool waitReadable(int descriptor, Moment end) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd wanted{descriptor, POLLIN, 0};
        const int result = poll(&wanted, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
        if (result > 0 && (wanted.revents & POLLIN) != 0) return true;
        if (left.count() <= 0) return false;
        if (result > 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));  // not listening yet
    }
}

}  // namespace

Bytes bytes(std::initializer_list<int> numbers, std::string_view text, std::size_t zeros) {
    Bytes result;
    for (const int number : numbers) result.push_back(static_cast<std::uint8_t>(number));
    result.insert(result.end(), text.begin(), text.end());
    result.insert(result.end(), zeros, 0);
    return result;
}

Bytes statusPacket(int state, int progress) {
    return bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 0, state, progress, 0x2A, 1, 0, 0, 0});
}

HandConnection::HandConnection(HandConnection&& other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}

HandConnection& HandConnection::operator=(HandConnection&& other) noexcept {
    std::swap(descriptor, other.descriptor);
    return *this;
}

bool HandConnection::write(const Bytes& data) {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t sent = send(descriptor, data.data() + done, data.size() - done, MSG_NOSIGNAL);
        if (sent <= 0) return false;
        done += static_cast<std::size_t>(sent);
    }
    return true;
}

Bytes HandConnection::read(std::size_t count, std::chrono::milliseconds limit) {
    Bytes data(count);
    std::size_t got = 0;
    const Moment end = after(limit);
    while (got < count && waitReadable(descriptor, end)) {
        const ssize_t received = recv(descriptor, data.data() + got, count - got, 0);
        if (received <= 0) break;
        got += static_cast<std::size_t>(received);
    }
    data.resize(got);
    return data;
}

Bytes HandConnection::readPacket(std::chrono::milliseconds limit) {
    Bytes packet = read(4, limit);
    if (packet.size() < 4) return packet;
    const std::size_t length = packet[2] * 256U + packet[3];  // no packet of ours comes near 64 KiB
    const Bytes rest = read(std::max<std::size_t>(length, 4) - 4, limit);
    packet.insert(packet.end(), rest.begin(), rest.end());
    return packet;
}

bool HandConnection::endsByPeer(std::chrono::milliseconds limit) {
    std::uint8_t byte = 0;
    return waitReadable(descriptor, after(limit)) && recv(descriptor, &byte, 1, 0) <= 0;
}

bool HandConnection::endsAfterMore(std::chrono::milliseconds limit) {
    std::array<std::uint8_t, 4096> ignored{};
    for (const Moment end = after(limit); waitReadable(descriptor, end);)
        if (recv(descriptor, ignored.data(), ignored.size(), 0) <= 0) return true;
    return false;
}

bool HandConnection::isSilentFor(std::chrono::milliseconds length) { return !waitReadable(descriptor, after(length)); }

void HandConnection::close() {
    if (descriptor >= 0) ::close(std::exchange(descriptor, -1));
}

HandServer::HandServer(Start start) : descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), portNumber(0) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(descriptor, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error("no free port");
    portNumber = ntohs(address.sin_port);
    if (start == Start::listening) listen();
}

HandServer::~HandServer() { ::close(descriptor); }

void HandServer::listen() { static_cast<void>(::listen(descriptor, 8)); }

HandConnection HandServer::accept(std::chrono::milliseconds limit) {
    if (!waitReadable(descriptor, after(limit))) return HandConnection();
    const int connection = accept4(descriptor, nullptr, nullptr, SOCK_CLOEXEC);
    const timeval longest{kDeadline.count(), 0};
    setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &longest, sizeof longest);
    return HandConnection(connection);
}

bool HandServer::isLeftAloneFor(std::chrono::milliseconds length) { return !waitReadable(descriptor, after(length)); }

}  // namespace testsupport
