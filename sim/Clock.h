#pragma once
/// The monotonic clock of the simulated server, and the byte buffer that all its parts hand around.

#include <chrono>
#include <cstdint>
#include <vector>

namespace sim {

/// A moment on the monotonic clock: the one of CLOCK_MONOTONIC, which other processes of the machine can read too.
using Instant = std::chrono::steady_clock::time_point;
/// A length of time.
using Duration = std::chrono::microseconds;
using Bytes = std::vector<std::uint8_t>;

inline Instant monotonicNow() { return std::chrono::steady_clock::now(); }

}  // namespace sim
