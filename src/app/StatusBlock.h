#pragma once
/// The status block on the terminal: its text, and painting it in place.

#include <array>
#include <iosfwd>
#include <string>

#include "Hardware/UploadTypes.h"

namespace CANFlasher {

/// Number of lines of the block.
inline constexpr int kStatusLines = 6;

/// The six lines of the block, each with the sequence that clears the rest of its line and without a line end. Pure.
std::array<std::string, kStatusLines> statusLines(const TStatus& status);

/// Paints the block on `out`, over the one painted before. `firstDraw` says that there is none yet: then room for it is
/// made first, and `firstDraw` is cleared. Each line is flushed. One thread at a time.
void drawStatus(std::ostream& out, const TStatus& status, bool& firstDraw);

}  // namespace CANFlasher
