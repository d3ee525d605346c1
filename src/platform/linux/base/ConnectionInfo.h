#pragma once
/// The payload of `CmdConnectionInfo`, by which a server application says who it is.

#include <cstdint>
#include <optional>
#include <span>

#include "platform/linux/base/ServerConnectionEntry.h"

/// Reads a payload: process id (u32, little-endian), then three texts, each a length byte and so many bytes without
/// terminator: application name, version, version label. A text that the payload does not hold whole is empty, and so
/// is what follows it. The description comes from the known applications. Nothing at all for fewer than 4 bytes.
std::optional<ServerConnectionEntry> parseConnectionInfo(std::span<const std::uint8_t> payload);
