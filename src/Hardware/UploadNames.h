#pragma once
/// Names of modes and states: on the command line and on the screen.

#include <cstdint>
#include <string_view>

#include "Hardware/UploadTypes.h"

namespace CANFlasher {

/// Screen name of a mode ("ISO Style"); "unknown" for every value that is no TMode.
std::string_view modeDisplayName(std::uint32_t mode);

/// Command-line name of a mode ("ISOStyle"); empty for every value that is no TMode.
std::string_view modeOptionName(TMode mode);

/// Mode of a command-line name, compared exactly. Every other text silently means ISOStyle.
TMode modeOfOptionName(std::string_view name);

/// Screen name of a state ("Preparing for upload"); "unknown" for every value that is no TState.
std::string_view stateDisplayName(std::uint32_t state);

}  // namespace CANFlasher
