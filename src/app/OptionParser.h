#pragma once
/// From the command line to the settings record.

#include <iosfwd>
#include <optional>

#include "app/FlasherOptions.h"

namespace CANFlasher {

/// Reads the options of `argv` in order into `options`; a later option overrides an earlier one, operands are ignored.
/// `-v` prints the version label on `out` at its place and goes on. Usage and complaints go to `err`.
/// Returns nothing to go on with the run, or the status with which the program has to end (0 after `-h`, 1 after `-?`,
/// an unknown option, a missing argument or a refused port); then later options were not looked at.
///
/// Numbers are read as far as they go and garbage behind them is ignored; a text without digits is 0. They are the same
/// on every platform, whatever the width of `long`: decimal values beyond signed 32 bits become the nearest 32-bit
/// value; the serial number keeps the whole unsigned range, -1 meaning 4294967295, and becomes 4294967295 beyond it; a
/// hexadecimal address beyond 32 bits becomes all ones, which is -1.
///
/// Uses getopt and its process-wide state: main thread only. May be called again.
std::optional<int> parseOptions(int argc, char* argv[], FlasherOptions& options, std::ostream& out, std::ostream& err);

}  // namespace CANFlasher
