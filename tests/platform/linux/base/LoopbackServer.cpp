#include "tests/platform/linux/base/LoopbackServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "tests/support/Process.h"

namespace sockettest {

namespace {

bool readable(int fd, int waitMs) {
    pollfd wanted{fd, POLLIN, 0};
    return poll(&wanted, 1, waitMs) > 0;
}

constexpr int kDeadlineMs =
    static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(testsupport::kDeadline).count());

int boundSocket(int& port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::runtime_error("no port on the loopback address");
    port = ntohs(address.sin_port);
    return fd;
}

}  // namespace

Bytes hex(const std::string& text) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < text.size();) {
        if (text[i] == ' ') {
            ++i;
            continue;
        }
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
        i += 2;
    }
    return bytes;
}

Bytes raw(const std::string& text) { return {text.begin(), text.end()}; }

Bytes operator+(const Bytes& front, const Bytes& back) {
    Bytes sum = front;
    sum.insert(sum.end(), back.begin(), back.end());
    return sum;
}

Peer::Peer(Peer&& other) noexcept : fd(std::exchange(other.fd, -1)) {}

Peer& Peer::operator=(Peer&& other) noexcept {
    std::swap(fd, other.fd);
    return *this;
}

// sendto and recvfrom, because send and recv may be replaced by a test.
bool Peer::write(const Bytes& bytes) const {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t sent = sendto(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL, nullptr, 0);
        if (sent <= 0) return false;
        done += static_cast<std::size_t>(sent);
    }
    return true;
}

Bytes Peer::read(std::size_t count) const {
    Bytes bytes(count);
    std::size_t done = 0;
    while (done < count && readable(fd, kDeadlineMs)) {
        const ssize_t got = recvfrom(fd, bytes.data() + done, count - done, 0, nullptr, nullptr);
        if (got <= 0) break;
        done += static_cast<std::size_t>(got);
    }
    bytes.resize(done);
    return bytes;
}

bool Peer::atEnd() const {
    Bytes rest(65536);
    while (readable(fd, kDeadlineMs))
        if (recvfrom(fd, rest.data(), rest.size(), 0, nullptr, nullptr) <= 0) return true;
    return false;
}

bool Peer::hasBytes() const { return readable(fd, 0); }

void Peer::shutdownWriting() const { shutdown(fd, SHUT_WR); }

void Peer::close() {
    if (fd >= 0) ::close(std::exchange(fd, -1));
}

void Peer::reset() {
    const linger hard{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    close();
}

namespace {

std::pair<int, int> streamPair() {
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) throw std::runtime_error("no socket pair");
    return {ends[0], ends[1]};
}

}  // namespace

StreamPair::StreamPair() : near(-1), far(-1) {
    const auto ends = streamPair();
    near = Peer(ends.first);
    far = Peer(ends.second);
}

LoopbackServer::LoopbackServer(int backlog, int receiveBufferBytes) : fd(-1), port_(0) {
    fd = boundSocket(port_);
    if (receiveBufferBytes > 0) setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof receiveBufferBytes);
    if (listen(fd, backlog) != 0) throw std::runtime_error("cannot listen");
}

Peer LoopbackServer::accept() const {
    return Peer(readable(fd, kDeadlineMs) ? accept4(fd, nullptr, nullptr, SOCK_CLOEXEC) : -1);
}

bool LoopbackServer::hasCaller() const { return readable(fd, 0); }

void LoopbackServer::close() {
    if (fd >= 0) ::close(std::exchange(fd, -1));
}

UnusedPort::UnusedPort() : fd(-1), port_(0) { fd = boundSocket(port_); }

void UnusedPort::listenNow() const {
    if (listen(fd, 16) != 0) throw std::runtime_error("cannot listen");
}

UnusedPort::~UnusedPort() { ::close(fd); }

}  // namespace sockettest
