#pragma once
/// Texts of the shell commands that start and stop the CAN server application. Pure.

#include <cstdint>
#include <string>

namespace CANFlasher {

/// Name of the server's program and process.
inline constexpr char kServerName[] = "corvane";

/// Command that starts the server at `serverPath` for the CAN interface `interface` (written as given, also when
/// negative) and the TCP port `port`. The path goes into the shell's text as it is: the shell splits it at blanks.
std::string startServerCommand(const std::string& serverPath, std::int32_t interface, std::int32_t port);

/// Command that stops the server at `serverPath`.
std::string stopServerCommand(const std::string& serverPath);

}  // namespace CANFlasher
