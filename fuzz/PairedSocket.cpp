#include "fuzz/PairedSocket.h"

#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <iterator>
#include <mutex>
#include <utility>

#include "platform/linux/base/ServerConnectionList.h"

namespace fuzz {

namespace {

std::atomic<PairedServer*> current{nullptr};
std::mutex arrivalsMutex;
std::vector<PairedServer::End> arrivals;  // connected and not taken over yet

}  // namespace

PairedServer::PairedServer() { current = this; }

PairedServer::~PairedServer() {
    current = nullptr;
    for (const End& end : ends())
        if (end.descriptor >= 0) ::close(end.descriptor);
}

int PairedServer::connectPair() {
    std::array<int, 2> pair{-1, -1};
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()) == 0);
    const std::lock_guard lock(arrivalsMutex);
    arrivals.push_back({pair[1], {}, {}});
    return pair[0];
}

const std::vector<PairedServer::End>& PairedServer::ends() {
    const std::lock_guard lock(arrivalsMutex);
    taken.insert(taken.end(), std::make_move_iterator(arrivals.begin()), std::make_move_iterator(arrivals.end()));
    arrivals.clear();
    return taken;
}

PairedServer::End* PairedServer::newest() {
    if (ends().empty() || taken.back().descriptor < 0) return nullptr;
    return &taken.back();
}

void PairedServer::send(Bytes bytes) {
    End* const end = newest();
    if (end == nullptr || bytes.empty()) return;
    const ssize_t sent = sendto(end->descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT, nullptr, 0);
    if (sent > 0) end->written.insert(end->written.end(), bytes.begin(), bytes.begin() + sent);
}

void PairedServer::await() {
    End* const end = newest();
    if (end == nullptr) return;
    pollfd wanted{end->descriptor, POLLIN, 0};
    static_cast<void>(poll(&wanted, 1, 1));
}

void PairedServer::shutdownWriting() {
    if (const End* const end = newest()) shutdown(end->descriptor, SHUT_WR);
}

void PairedServer::close() {
    if (End* const end = newest()) ::close(std::exchange(end->descriptor, -1));
}

void PairedServer::readAll() {
    static_cast<void>(ends());
    std::array<std::uint8_t, 4096> buffer{};
    for (End& end : taken)
        for (ssize_t got = 1; end.descriptor >= 0 && got > 0;) {
            got = recvfrom(end.descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT, nullptr, nullptr);
            if (got > 0) end.received.insert(end.received.end(), buffer.begin(), buffer.begin() + got);
        }
}

}  // namespace fuzz

extern "C" {
int __wrap_socket(int /*domain*/, int /*type*/, int /*protocol*/) {
    fuzz::PairedServer* const server = fuzz::current;
    if (server != nullptr && !server->refuses) return server->connectPair();
    errno = EMFILE;
    return -1;
}

int __wrap_connect(int /*fd*/, const sockaddr* /*address*/, socklen_t /*length*/) { return 0; }

/// Two ends of a pair have the same name, which would look like a socket that met itself.
int __wrap_getsockname(int /*fd*/, sockaddr* /*address*/, socklen_t* /*length*/) { return -1; }

// void threadfunc::sleep(int)
void __wrap__ZN10threadfunc5sleepEi(int /*msec*/) { sched_yield(); }

// void recordServerConnection(const ServerConnectionEntry&): the list of the process must not grow without end.
void __real__Z22recordServerConnectionRK21ServerConnectionEntry(const ServerConnectionEntry&);
void __wrap__Z22recordServerConnectionRK21ServerConnectionEntry(const ServerConnectionEntry& entry) {
    if (entry.processId >= 0 && entry.processId < 16) __real__Z22recordServerConnectionRK21ServerConnectionEntry(entry);
}
}
