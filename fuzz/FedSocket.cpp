#include "fuzz/FedSocket.h"

#include <sys/socket.h>

#include <cerrno>
#include <new>

namespace fuzz {

namespace {

FedSocket* current = nullptr;

ssize_t failWith(int error) {
    errno = error;
    return -1;
}

}  // namespace

FedSocket::FedSocket(Bytes chosenPieces, Bytes chosenStream, std::size_t memoryLimit)
    : pieces(chosenPieces), stream(chosenStream), memory(memoryLimit) {
    current = this;
}

FedSocket::~FedSocket() { current = nullptr; }

std::optional<Bytes> FedSocket::nextPacket() {
    const Bytes rest = stream.subspan(packetBegin);
    if (rest.size() < 8) return std::nullopt;
    std::uint64_t length = 0;
    for (const std::uint8_t byte : rest.first(4)) length = length * 256 + byte;
    if (length < 8 || length > rest.size()) return std::nullopt;
    const Bytes packet = rest.first(static_cast<std::size_t>(length));
    packetBegin += packet.size();
    return packet;
}

ssize_t FedSocket::receive(void* buffer, std::size_t length) {
    std::size_t most = length;
    if (!pieces.empty()) {
        most = pieces.front();
        pieces = pieces.subspan(1);
        if (most == 0) return failWith(EINTR);
        failed_ = most >= 254;
        if (failed_) return failWith(most == 255 ? ECONNRESET : EIO);
    }
    const std::size_t count = std::min({most, length, stream.size() - given});
    if (count != 0) std::memcpy(buffer, stream.data() + given, count);
    given += count;
    return static_cast<ssize_t>(count);
}

ssize_t FedSocket::transmit(const void* buffer, std::size_t length) {
    const auto* const bytes = static_cast<const std::uint8_t*>(buffer);
    sent_.assign(bytes, bytes + length);
    return static_cast<ssize_t>(length);
}

bool FedSocket::mayAllocate(std::size_t size) {
    failed_ = failed_ || size > memory;
    return size <= memory;
}

}  // namespace fuzz

extern "C" {
ssize_t __wrap_recv(int fd, void* buffer, std::size_t length, int /*flags*/) {
    fuzz::check(fd == fuzz::FedSocket::kDescriptor);
    return fuzz::current->receive(buffer, length);
}

ssize_t __wrap_send(int fd, const void* buffer, std::size_t length, int flags) {
    fuzz::check(fd == fuzz::FedSocket::kDescriptor && (flags & MSG_NOSIGNAL) != 0);
    return fuzz::current->transmit(buffer, length);
}

// operator new[](std::size_t, const std::nothrow_t&), where size_t is `long` and where it is `int`.
#define FUZZ_WRAP_NEW(name)                                                                                       \
    void* __real_##name(std::size_t, const std::nothrow_t&);                                                      \
    void* __wrap_##name(std::size_t size, const std::nothrow_t& tag) {                                            \
        return fuzz::current == nullptr || fuzz::current->mayAllocate(size) ? __real_##name(size, tag) : nullptr; \
    }
#if defined(__LP64__)
FUZZ_WRAP_NEW(_ZnamRKSt9nothrow_t)
#else
FUZZ_WRAP_NEW(_ZnajRKSt9nothrow_t)
#endif
}
