#include "Hardware/UploadPackets.h"

#include <algorithm>
#include <array>
#include <span>
#include <vector>

#include "platform/linux/base/ByteOrder.h"

namespace CANFlasher {

namespace {

using Packet = ProprietarySocketCommon::TPacket;

constexpr std::uint32_t kStatusBytes = 8;
constexpr std::uint32_t kUploadFixedBytes = 6;  // before the path

PacketPtr makePacket(std::uint16_t command, std::span<const std::uint8_t> payload) {
    const auto payloadBytes = static_cast<std::uint32_t>(payload.size());
    auto packet = std::make_unique<Packet>(payloadBytes, command);
    if (!packet->hasPayload(payloadBytes)) return nullptr;
    std::copy(payload.begin(), payload.end(), packet->getPayload());
    return packet;
}

std::uint8_t lowByte(std::int32_t value) {
    return static_cast<std::uint8_t>(static_cast<std::uint32_t>(value) & 0xFFU);
}

}  // namespace

std::optional<TStatus> parseStatus(const Packet& packet) {
    if (!packet.hasPayload(kStatusBytes)) return std::nullopt;
    const std::uint8_t* const payload = packet.getPayload();
    return TStatus{payload[0], payload[1], payload[2], payload[3], byteorder::loadLittle32(payload + 4)};
}

PacketPtr makeCommand(std::uint16_t command) { return makePacket(command, {}); }

PacketPtr makeCommandByte(std::uint8_t value) { return makePacket(CmdByte, std::array{value}); }

PacketPtr makeUpload(const UploadRequest& request) {
    std::vector<std::uint8_t> payload(kUploadFixedBytes);
    payload[0] = lowByte(request.mode);
    payload[1] = lowByte(request.address);
    byteorder::storeLittle32(&payload[2], request.serial);
    payload.insert(payload.end(), request.hexFile.begin(), request.hexFile.end());
    payload.push_back(0);
    return makePacket(CmdUpload, payload);
}

}  // namespace CANFlasher
