#pragma once
/// Modes, states, commands and the status record of an upload, as client and server know them.

#include <cstdint>
#include <string>

namespace CANFlasher {

/// How the server reaches the device. One byte on the wire.
enum TMode : std::int32_t { ISOStyle = 0, MTCAN = 1, NewModule = 2, Global = 3 };

/// Where the upload stands. One byte on the wire; a server may send values that have no name here.
enum TState : std::uint32_t {
    Locked = 0,
    Idle = 1,
    Preparing = 2,
    Searching = 3,
    Erasing = 4,
    Programming = 5,
    Done = 6,
    ErrDeviceNotFound = 100,
    ErrEraseTimeout = 101,
    ErrResponseTimeout = 102,
    ErrHexFileNotFound = 103,
    ErrHexFileOpen = 104,
    ErrHexFileFormat = 105
};

/// Command for the client's worker thread. Other values are ignored by it.
enum TUpdCmd : std::uint32_t { UpdQuit = 0, UpdStep = 1, UpdPoll = 2, UpdDisconnect = 3 };

/// Command ids of the flasher's packets.
inline constexpr std::uint16_t CmdStatus = 1000;         ///< server to client: the upload's status
inline constexpr std::uint16_t CmdStatusRequest = 1001;  ///< client to server, no payload
inline constexpr std::uint16_t CmdStatusReset = 1002;    ///< client to server, no payload; before every CmdUpload
inline constexpr std::uint16_t CmdByte = 1003;           ///< client to server: one byte
inline constexpr std::uint16_t CmdUpload = 1004;         ///< client to server: the upload request

/// Highest device address an upload accepts. 254, the default, is outside on purpose: an address must be given.
inline constexpr std::int32_t kHighestDeviceAddress = 253;

/// The server's view of the upload. The default is what a client shows that has heard nothing.
struct TStatus {
    std::uint32_t mode = ISOStyle;       ///< a TMode, or what the server sent instead
    std::uint32_t state = Idle;          ///< a TState, or what the server sent instead
    std::uint32_t progress = 0;          ///< percent
    std::uint32_t address = 254;         ///< device address
    std::uint32_t serial = 0xFFFFFFFFU;  ///< device serial number; 0x1FFFFFFF and above: not known

    bool operator==(const TStatus&) const = default;
};

/// What the caller asked to upload.
struct UploadRequest {
    TMode mode = ISOStyle;       ///< its low byte goes on the wire
    std::int32_t address = 254;  ///< negative values pass; the low byte goes on the wire
    std::uint32_t serial = 0;    ///< device serial number
    std::string hexFile;         ///< resolved absolute path; the server opens it by this name
};

/// True for the states in which the server works on the device: Preparing to Programming.
constexpr bool isBusyState(std::uint32_t state) { return state - Preparing < 4; }

static_assert(!isBusyState(Locked) && !isBusyState(Idle) && isBusyState(Preparing) && isBusyState(Searching) &&
              isBusyState(Erasing) && isBusyState(Programming) && !isBusyState(Done));

}  // namespace CANFlasher
