#pragma once
/// The flasher's packets and their payloads. The makers answer null when there is no memory for a packet.
/// Fields inside these payloads are little-endian although the packet's
/// header is big-endian: servers in the field read them so. Byte tables: docs/protocol.md.

#include <cstdint>
#include <optional>

#include "Hardware/UploadTypes.h"
#include "platform/linux/base/PacketQueue.h"

namespace CANFlasher {

/// The status in the payload of a CmdStatus; nothing when it has fewer than 8 bytes. Bytes behind the eighth are
/// ignored.
std::optional<TStatus> parseStatus(const ProprietarySocketCommon::TPacket& packet);

/// A packet without payload: CmdStatusRequest or CmdStatusReset.
PacketPtr makeCommand(std::uint16_t command);

/// A CmdByte that carries `value`.
PacketPtr makeCommandByte(std::uint8_t value);

/// A CmdUpload: the low bytes of mode and address, serial number, path with its terminating zero.
PacketPtr makeUpload(const UploadRequest& request);

}  // namespace CANFlasher
