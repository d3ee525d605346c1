#pragma once
/// What the process knows of itself: its name and its use of memory. Safe from any thread.

#include <cstdint>
#include <string>

namespace threadfunc {

/// The process's name as the kernel has it (15 characters at most), read at the first call and kept for the life of
/// the process. Empty while "/proc/self/comm" cannot be read; the next call tries again. A reference to an empty name
/// stays empty.
const std::string& processName();

/// Resident size of the process in bytes; 0 when it cannot be read. From 4 GiB on 4294967295.
std::uint32_t currentMemoryUse();

/// Largest resident size that the process had so far, in bytes. From 4 GiB on 4294967295.
std::uint32_t peakMemoryUse();

}  // namespace threadfunc
