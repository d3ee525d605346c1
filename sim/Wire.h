#pragma once
/// The server's own bytes: packets and payloads as they stand in docs/protocol.md. Pure.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "sim/Clock.h"
#include "sim/Status.h"

namespace sim {

inline constexpr std::uint16_t CmdPing = 1, CmdConnectionInfo = 2;
inline constexpr std::uint16_t CmdStatus = 1000, CmdStatusRequest = 1001, CmdStatusReset = 1002, CmdByte = 1003,
                               CmdUpload = 1004;

/// Bytes before the payload of an ordinary packet.
inline constexpr std::uint16_t kHeaderBytes = 8;
/// What stands between header and payload when the payload offset is larger.
inline constexpr std::uint8_t kFiller = 0xEE;

/// Name of a command, "unknown" for an id that has none.
std::string_view commandName(std::uint16_t command);

/// A whole packet. `payloadOffset` is 8 to 65535; from 8 up to it the packet holds `kFiller`.
Bytes makePacket(std::uint16_t command, std::span<const std::uint8_t> payload,
                 std::uint16_t payloadOffset = kHeaderBytes);

/// Payload of CmdStatus.
Bytes statusPayload(const Status& status);

/// Who the server says it is. Texts longer than 255 bytes are cut.
struct Identity {
    std::uint32_t processId = 0;
    std::string application = "corvane";
    std::string version = "1.0.0";
    std::string versionLabel = "corvane 1.0.0 simulated";
};

/// Payload of CmdConnectionInfo.
Bytes connectionInfoPayload(const Identity& identity);

/// What a client asks for with CmdUpload.
struct UploadRequest {
    std::uint8_t mode = 0;
    std::uint8_t address = 0;
    std::uint32_t serial = 0;
    std::string path;
};

/// Reads the payload of CmdUpload. None when it ends before the path, when the path is empty, or when
/// its one NUL is not its last byte.
std::optional<UploadRequest> parseUpload(std::span<const std::uint8_t> payload);

}  // namespace sim
