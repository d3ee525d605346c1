#pragma once
/// From a path in an upload request to what it programs, or to the state that says why not.

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>

#include "sim/HexReader.h"
#include "sim/Result.h"

namespace sim {

/// Largest text file that is read: 16 MiB hold about 6 MiB of firmware.
inline constexpr std::size_t kLargestFileBytes = std::size_t{16} * 1024 * 1024;

/// Why a file was not taken: the state to report and a line for the log.
struct HexFileProblem {
    std::uint8_t state = 0;
    std::string text;
};

/// Reads and checks the file at `path`. Never waits for a pipe or a device: what is not a regular file, or larger than
/// `kLargestFileBytes`, counts as one that cannot be opened.
std::variant<HexImage, HexFileProblem> loadHexFile(const std::string& path, AddressRange allowed);

/// The whole content of a regular file of at most `limitBytes`. The failure's status is the `errno` of a failed call,
/// 0 when the file is of the wrong kind or size; its text says what went wrong, without the path.
Result<std::string> readRegularFile(const std::string& path, std::size_t limitBytes);

}  // namespace sim
