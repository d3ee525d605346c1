#include "Hardware/UploadNames.h"

#include <array>

namespace CANFlasher {

namespace {

struct ModeRow {
    TMode mode;
    std::string_view optionName;
    std::string_view displayName;
};

constexpr std::array kModes{
    ModeRow{ISOStyle, "ISOStyle", "ISO Style"},
    ModeRow{MTCAN, "MTCAN", "MT CAN"},
    ModeRow{NewModule, "NewModule", "New Module"},
    ModeRow{Global, "Global", "Global"},
};

constexpr std::string_view kUnknown = "unknown";

/// Screen names indexed by state; the gap between Done and the errors is "unknown".
constexpr auto kStateNames = [] {
    std::array<std::string_view, ErrHexFileFormat + 1> names{};
    names.fill(kUnknown);
    names[Locked] = "Locked";
    names[Idle] = "Idle";
    names[Preparing] = "Preparing for upload";
    names[Searching] = "Searching for device";
    names[Erasing] = "Erasing FLASH";
    names[Programming] = "Programming";
    names[Done] = "Done";
    names[ErrDeviceNotFound] = "Error! Device not found.";
    names[ErrEraseTimeout] = "Error! Timed out while waiting for FLASH erase.";
    names[ErrResponseTimeout] = "Error! Timed out while waiting for response.";
    names[ErrHexFileNotFound] = "Error! Unable to find the hex file.";
    names[ErrHexFileOpen] = "Error! Unable to open the hex file.";
    names[ErrHexFileFormat] = "Error! The hex file is incorrectly formatted.";
    return names;
}();
static_assert(kStateNames.size() == 106);

}  // namespace

std::string_view modeDisplayName(std::uint32_t mode) {
    for (const ModeRow& row : kModes)
        if (static_cast<std::uint32_t>(row.mode) == mode) return row.displayName;
    return kUnknown;
}

std::string_view modeOptionName(TMode mode) {
    for (const ModeRow& row : kModes)
        if (row.mode == mode) return row.optionName;
    return {};
}

TMode modeOfOptionName(std::string_view name) {
    for (const ModeRow& row : kModes)
        if (row.optionName == name) return row.mode;
    return ISOStyle;
}

std::string_view stateDisplayName(std::uint32_t state) {
    return state < kStateNames.size() ? kStateNames[state] : kUnknown;
}

}  // namespace CANFlasher
