#pragma once
/// How long an upload takes on a bus, as a list of what is reported when. Pure.

#include <cstdint>
#include <vector>

#include "sim/Clock.h"
#include "sim/Status.h"

namespace sim {

/// What decides the speed of an upload.
struct Pace {
    std::uint32_t bitsPerSecond = 250'000;
    std::uint32_t blockBytes = 256;                      // answered and written to FLASH as one
    Duration writeTime = std::chrono::milliseconds(16);  // of one block
    Duration prepareTime = std::chrono::milliseconds(200);
    Duration searchTime = std::chrono::milliseconds(300);
    Duration eraseTime = std::chrono::milliseconds(900);
    Duration verifyTime = std::chrono::milliseconds(100);
};

/// Time of one block of `byteCount` bytes: frames of 8 data bytes with 29-bit identifiers (131 bits each, no stuff
/// bits), one such frame as the device's answer, and the write to FLASH.
Duration blockTime(const Pace& pace, std::uint32_t byteCount);

/// One report of an upload.
struct Frame {
    std::uint8_t state;
    std::uint8_t progress;  // percent
    Duration after;         // since the frame before

    bool operator==(const Frame&) const = default;
};

/// The reports of an undisturbed upload of `byteCount` bytes, which may be none: Preparing, Searching, Erasing,
/// Programming from 0 to 100 % (one report a block, only where the percentage changes), Done.
std::vector<Frame> undisturbedUpload(const Pace& pace, std::uint32_t byteCount);

}  // namespace sim
