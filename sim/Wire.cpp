#include "sim/Wire.h"

#include <algorithm>
#include <array>

namespace sim {

namespace {

struct CommandRow {
    std::uint16_t id;
    std::string_view name;
};
constexpr std::array kCommands{
    CommandRow{CmdPing, "CmdPing"},
    CommandRow{CmdConnectionInfo, "CmdConnectionInfo"},
    CommandRow{CmdStatus, "CmdStatus"},
    CommandRow{CmdStatusRequest, "CmdStatusRequest"},
    CommandRow{CmdStatusReset, "CmdStatusReset"},
    CommandRow{CmdByte, "CmdByte"},
    CommandRow{CmdUpload, "CmdUpload"},
};

constexpr std::size_t kUploadPathAt = 6;

// Header fields travel with the high byte first, numbers inside payloads with the low byte first.
void appendHighFirst(Bytes& out, std::uint32_t value, unsigned byteCount) {
    for (unsigned left = byteCount; left > 0; --left)
        out.push_back(static_cast<std::uint8_t>(value >> (8 * (left - 1)) & 0xFF));
}

void appendLowFirst(Bytes& out, std::uint32_t value) {
    for (unsigned shift = 0; shift < 32; shift += 8) out.push_back(static_cast<std::uint8_t>(value >> shift & 0xFF));
}

void appendText(Bytes& out, std::string_view text) {
    const std::string_view kept = text.substr(0, 255);
    out.push_back(static_cast<std::uint8_t>(kept.size()));
    out.insert(out.end(), kept.begin(), kept.end());
}

}  // namespace

std::string_view commandName(std::uint16_t command) {
    for (const CommandRow& row : kCommands)
        if (row.id == command) return row.name;
    return "unknown";
}

Bytes makePacket(std::uint16_t command, std::span<const std::uint8_t> payload, std::uint16_t payloadOffset) {
    Bytes packet;
    packet.reserve(payloadOffset + payload.size());
    appendHighFirst(packet, static_cast<std::uint32_t>(payloadOffset + payload.size()), 4);
    appendHighFirst(packet, command, 2);
    appendHighFirst(packet, payloadOffset, 2);
    packet.resize(payloadOffset, kFiller);
    packet.insert(packet.end(), payload.begin(), payload.end());
    return packet;
}

Bytes statusPayload(const Status& status) {
    Bytes payload{status.mode, status.state, status.progress, status.address};
    appendLowFirst(payload, status.serial);
    return payload;
}

Bytes connectionInfoPayload(const Identity& identity) {
    Bytes payload;
    appendLowFirst(payload, identity.processId);
    appendText(payload, identity.application);
    appendText(payload, identity.version);
    appendText(payload, identity.versionLabel);
    return payload;
}

std::optional<UploadRequest> parseUpload(std::span<const std::uint8_t> payload) {
    if (payload.size() < kUploadPathAt + 2) return std::nullopt;  // a path is one byte at least, and its NUL
    const auto text = payload.subspan(kUploadPathAt);
    if (std::find(text.begin(), text.end(), 0) != text.end() - 1) return std::nullopt;
    UploadRequest request;
    request.mode = payload[0];
    request.address = payload[1];
    for (unsigned index = 0; index < 4; ++index)
        request.serial |= static_cast<std::uint32_t>(payload[2 + index]) << (8 * index);
    request.path.assign(text.begin(), text.end() - 1);
    return request;
}

}  // namespace sim
