#pragma once
/// The settings of a run: what the command line said, and whether the run was asked to end.

#include <cstdint>

#include "Hardware/UploadTypes.h"

namespace CANFlasher {

/// The settings record with its defaults. The texts are borrowed from argv and must outlive the record and its copies.
struct FlasherOptions {
    /// Set by the shutdown event, which dispatchEvent handles in the wait loop, and by the main flow's error exit; read
    /// by that loop. The main thread's alone: a signal handler does not touch it.
    bool quitRequested = false;
    const char* hexFile = nullptr;    ///< as typed; null: nothing to upload
    TMode mode = ISOStyle;            ///< upload mode
    std::uint32_t serialNumber = 0;   ///< serial number of the device
    std::int32_t interfaceIndex = 0;  ///< CAN interface of the server: 0 is CAN0
    /// Device address. The default is not accepted by an upload, so that a run without one ends with a message.
    std::int32_t address = 254;
    std::int32_t port = 41265;           ///< TCP port of the server, 2000 to 65535
    const char* hostName = "localhost";  ///< name or address of the server's computer
};

/// The record of this process. Filled by the option parser on the main thread before any other thread exists.
inline constinit FlasherOptions flasherOptions{};

}  // namespace CANFlasher
