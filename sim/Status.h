#pragma once
/// The five figures that the server reports about an upload, and the names of the states.

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace sim {

/// One report. The default is what a server shows before the first upload and after a reset.
struct Status {
    std::uint8_t mode = 0;
    std::uint8_t state = 1;
    std::uint8_t progress = 0;  // percent
    std::uint8_t address = 254;
    std::uint32_t serial = 0xFFFFFFFF;  // all bits set: unknown

    bool operator==(const Status&) const = default;
};

/// A state and its name in scenario files.
struct StateName {
    std::uint8_t number;
    std::string_view name;
};

inline constexpr std::array kStateNames{
    StateName{0, "Locked"},
    StateName{1, "Idle"},
    StateName{2, "Preparing"},
    StateName{3, "Searching"},
    StateName{4, "Erasing"},
    StateName{5, "Programming"},
    StateName{6, "Done"},
    StateName{100, "ErrDeviceNotFound"},
    StateName{101, "ErrEraseTimeout"},
    StateName{102, "ErrResponseTimeout"},
    StateName{103, "ErrHexFileNotFound"},
    StateName{104, "ErrHexFileOpen"},
    StateName{105, "ErrHexFileFormat"},
};

inline constexpr std::uint8_t kLocked = 0, kPreparing = 2, kSearching = 3, kErasing = 4, kProgramming = 5, kDone = 6;
inline constexpr std::uint8_t kErrHexFileNotFound = 103, kErrHexFileOpen = 104, kErrHexFileFormat = 105;

/// Name of a state, "unknown" for a number that has none.
constexpr std::string_view stateName(std::uint8_t state) {
    for (const StateName& row : kStateNames)
        if (row.number == state) return row.name;
    return "unknown";
}
static_assert(stateName(6) == "Done" && stateName(105) == "ErrHexFileFormat" && stateName(7) == "unknown");

}  // namespace sim
