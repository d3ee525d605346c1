#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "platform/linux/base/ByteOrder.h"
#include "platform/linux/base/ProprietarySocketCommon.h"

using TPacket = ProprietarySocketCommon::TPacket;

namespace {

constexpr std::uint32_t kLengthBytes = 4;
/// A packet up to this size gets its buffer at once; the buffer of a longer one grows as its bytes arrive.
constexpr std::uint32_t kUpFrontBytes = 1U << 20U;

/// How far a step of reading has come, in bytes.
struct ReadStep {
    std::uint32_t wanted;
    std::uint32_t got = 0;
};

void reportReceiveError(ssize_t result, int error, int fd, const ReadStep& step) {
    // The missing blank before "- fd" is what log filters look for.
    std::printf("ProprietarySocketCommon::receiveChunk() reports error: %i - %i (%s)- fd: %i, Size: %lu, nRead: %lu\n",
                static_cast<int>(result), error, std::strerror(error), fd, static_cast<unsigned long>(step.wanted),
                static_cast<unsigned long>(step.got));
    std::fflush(stdout);  // who watches a pipe or a file sees why the connection ends, at once
}

/// Goes on reading to `buffer`, where the step began, until `limit` bytes of the step are there.
bool readUpTo(std::uint32_t limit, int fd, unsigned char* buffer, ReadStep& step) {
    while (step.got < limit) {
        const ssize_t result = recv(fd, buffer + step.got, limit - step.got, 0);
        if (result > 0) {
            step.got += static_cast<std::uint32_t>(result);
            continue;
        }
        if (result == 0) return false;
        const int error = errno;
        if (error == EINTR) continue;
        if (error != ECONNRESET) reportReceiveError(result, error, fd, step);
        return false;
    }
    return true;
}

void releaseData(TPacket& packet) {
    delete[] packet.data;
    packet.data = nullptr;
    packet.size = 0;
    packet.command = 0;
}

void releaseWithoutMemory(TPacket& packet) {
    releaseData(packet);
    packet.payloadOffset = 0;
}

/// Gives the packet a buffer of `capacity` bytes with the first `kept` bytes of the old one. False without memory.
bool changeBuffer(TPacket& packet, std::uint32_t capacity, std::uint32_t kept) {
    std::unique_ptr<unsigned char[]> bigger(new (std::nothrow) unsigned char[capacity]);
    if (!bigger) return false;
    if (kept != 0) std::memcpy(bigger.get(), packet.data, kept);
    delete[] packet.data;
    packet.data = bigger.release();
    return true;
}

/// Reads the rest of a packet of `packet.size` bytes behind its length field. `capacity` is the size of its buffer.
bool readBody(TPacket& packet, std::uint32_t capacity, int fd) {
    ReadStep step{packet.size - kLengthBytes};
    while (readUpTo(capacity - kLengthBytes, fd, packet.data + kLengthBytes, step)) {
        if (capacity == packet.size) return true;
        const std::uint32_t next = capacity < packet.size / 2 ? capacity * 2 : packet.size;
        if (!changeBuffer(packet, next, capacity)) {
            releaseWithoutMemory(packet);
            return false;
        }
        capacity = next;
    }
    releaseData(packet);
    return false;
}

}  // namespace

bool ProprietarySocketCommon::receiveChunk(TPacket& packet, int fd) {
    std::array<unsigned char, kLengthBytes> lengthField{};
    ReadStep step{kLengthBytes};
    if (!readUpTo(kLengthBytes, fd, lengthField.data(), step)) return false;

    const std::uint32_t length = byteorder::loadBig32(lengthField.data());
    const bool fits = packet.data != nullptr && packet.size == length && length >= kHeaderBytes;
    if (!fits) releaseData(packet);
    if (length < kHeaderBytes) return false;

    const std::uint32_t capacity = fits ? length : std::min(length, kUpFrontBytes);
    if (!fits && !changeBuffer(packet, capacity, 0)) {
        releaseWithoutMemory(packet);
        return false;
    }
    packet.size = length;
    std::memcpy(packet.data, lengthField.data(), kLengthBytes);
    if (!readBody(packet, capacity, fd)) return false;

    packet.command = byteorder::loadBig16(packet.data + 4);
    packet.payloadOffset = byteorder::loadBig16(packet.data + 6);
    return true;
}

unsigned ProprietarySocketCommon::receiveChunk(int fd, unsigned char* buffer, unsigned count) {
    ReadStep step{count};
    return readUpTo(count, fd, buffer, step) ? count : 0;
}

bool ProprietarySocketCommon::sendChunk(TPacket& packet, int fd) {
    ssize_t sent = -1;
    do {
        sent = send(fd, packet.data, packet.size, MSG_NOSIGNAL);
    } while (sent == -1 && errno == EINTR);
    return sent >= 0 && static_cast<std::uint64_t>(sent) == packet.size;
}
