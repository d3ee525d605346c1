#include "sim/Journal.h"

#include <unistd.h>

#include <cerrno>

#include "sim/Log.h"
#include "sim/Wire.h"

namespace sim {

namespace {

std::string lineStart(Instant at, ClientId client, Mark mark) {
    const auto since = std::chrono::duration_cast<Duration>(at.time_since_epoch());
    return stampText(since.count()) + " " + std::to_string(client) + " " + static_cast<char>(mark) + " ";
}

std::string countAndBytes(std::span<const std::uint8_t> bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text = std::to_string(bytes.size()) + " ";
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text + "\n";
}

}  // namespace

std::string journalPacketLine(Instant at, ClientId client, Mark mark, std::span<const std::uint8_t> packet) {
    const auto command = static_cast<std::uint16_t>(packet[4] << 8 | packet[5]);
    return lineStart(at, client, mark) + std::to_string(command) + " " + std::string(commandName(command)) + " " +
           countAndBytes(packet);
}

std::string journalRawLine(Instant at, ClientId client, Mark mark, std::span<const std::uint8_t> bytes) {
    return lineStart(at, client, mark) + "- raw " + countAndBytes(bytes);
}

std::string journalEventLine(Instant at, ClientId client, Mark mark, std::string_view text) {
    return lineStart(at, client, mark) + printableText(text) + "\n";
}

void Journal::packet(ClientId client, Mark mark, std::span<const std::uint8_t> packet) {
    if (file.valid()) append(journalPacketLine(monotonicNow(), client, mark, packet));
}

void Journal::raw(ClientId client, Mark mark, std::span<const std::uint8_t> bytes) {
    if (file.valid()) append(journalRawLine(monotonicNow(), client, mark, bytes));
}

void Journal::event(ClientId client, Mark mark, std::string_view text) {
    if (file.valid()) append(journalEventLine(monotonicNow(), client, mark, text));
}

void Journal::append(const std::string& line) {
    ssize_t got = 0;
    do {
        got = write(file.get(), line.data(), line.size());
    } while (got < 0 && errno == EINTR);
    // Behind a line that a full disk cut, the next one would not begin on a line of its own.
    if (got != static_cast<ssize_t>(line.size())) file.reset();
}

}  // namespace sim
