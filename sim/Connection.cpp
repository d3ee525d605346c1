#include "sim/Connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace sim {

namespace {

/// How long a client may take for its own end of a close.
constexpr Duration kCloseTime = std::chrono::seconds(5);
/// Bytes that may wait for a client that does not read.
constexpr std::size_t kMostWaitingBytes = std::size_t{8} * 1024 * 1024;

bool isTemporary(int code) { return code == EAGAIN || code == EWOULDBLOCK || code == EINTR; }

}  // namespace

Connection::Connection(ClientId number, Descriptor connected, Delivery delivery, Journal& record)
    : id_(number), socket(std::move(connected)), journal(record), outbox(std::move(delivery)) {
    journal.event(id_, Mark::connected, "connected");
}

void Connection::receive(Instant now) {
    std::array<std::uint8_t, 16384> buffer;
    const ssize_t got = recv(socket.get(), buffer.data(), buffer.size(), 0);
    if (got < 0 && isTemporary(errno)) return;
    if (got < 0) return end("the connection broke");
    if (got == 0) {
        peerEnded = true;
        return close(now, "the client closed the connection");
    }
    // The flasher's next small packet waits for the acknowledgement of this one, which the system would put off by 40
    // ms; the option lasts for one acknowledgement.
    const int on = 1;
    setsockopt(socket.get(), IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
    if (!closing) assembler.append(std::span(buffer).first(static_cast<std::size_t>(got)));
}

std::optional<Packet> Connection::nextPacket(Instant now) {
    if (closing) return std::nullopt;
    std::optional<Packet> packet = assembler.next();
    if (assembler.broken()) {
        journal.event(id_, Mark::refused, assembler.problem());
        close(now, assembler.problem());
    }
    return packet;
}

void Connection::sendPacket(std::span<const std::uint8_t> packet, Instant now) {
    if (mute()) return;
    journal.packet(id_, Mark::sent, packet);
    put(packet, now);
}

void Connection::sendRaw(std::span<const std::uint8_t> bytes, Instant now) {
    if (mute()) return;
    journal.raw(id_, Mark::sent, bytes);
    put(bytes, now);
}

void Connection::put(std::span<const std::uint8_t> bytes, Instant now) {
    outbox.put(bytes, now);
    if (outbox.size() > kMostWaitingBytes) end("the client does not read");
}

void Connection::close(Instant now, std::string_view reason) {
    if (closing) return;
    closing = true;
    closeBy = now + kCloseTime;
    journal.event(id_, Mark::ended, reason);
    outbox.releaseGathered();
}

void Connection::reset() {
    const linger atOnce{1, 0};
    setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    end("reset by the server");
}

void Connection::end(std::string_view reason) {
    if (!closing) journal.event(id_, Mark::ended, reason);
    closing = true;
    over_ = true;
    socket.reset();
}

void Connection::flush(Instant now) {
    while (!over_) {
        const std::span<const std::uint8_t> bytes = outbox.ready(now);
        if (bytes.empty()) break;
        const ssize_t sent = send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && !isTemporary(errno)) return end("the connection broke");
        if (sent < 0) break;
        outbox.written(static_cast<std::size_t>(sent), now);
    }
    if (closing && !over_) finishWriting();
    if (closing && now >= closeBy) end("");
}

void Connection::finishWriting() {
    if (!outbox.empty()) return;
    if (!writingShut) shutdown(socket.get(), SHUT_WR);
    writingShut = true;
    if (peerEnded) end("");
}

std::optional<Instant> Connection::due(Instant now) {
    if (over_) return now;
    std::optional<Instant> next = outbox.ready(now).empty() ? outbox.due() : std::nullopt;
    if (closing) next = next ? std::min(*next, closeBy) : closeBy;
    return next;
}

}  // namespace sim
