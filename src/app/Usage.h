#pragma once
/// The usage text.

#include <iosfwd>
#include <string_view>

#include "app/FlasherOptions.h"

namespace CANFlasher {

/// Writes the twenty lines of the usage text to `out`, each flushed. The last seven show `options` as they stand.
/// `program` is the name the program was called by. Leaves `out` writing decimal numbers.
void printUsage(std::ostream& out, std::string_view program, const FlasherOptions& options);

}  // namespace CANFlasher
