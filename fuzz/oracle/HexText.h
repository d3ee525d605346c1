#pragma once
/// Intel HEX text, read a second time, line by line and byte by byte.

#include <set>
#include <string>
#include <vector>

#include "fuzz/Fuzz.h"
#include "sim/HexReader.h"

namespace fuzz {

struct HexVerdict {
    std::uint32_t wrongLine = 0;        ///< of the first fault; 0: none
    std::set<std::uint64_t> addresses;  ///< of all data bytes
};

HexVerdict verdictOf(const std::string& text, std::uint32_t lowest, std::uint32_t highest);

/// The text with length and checksum put right in each line that has room for them.
std::string withRightSums(const std::string& text);

/// Whether the text has such a line, and the line such a column or ends right before it.
bool isPlace(const std::string& text, std::uint32_t line, std::uint32_t column);

std::vector<sim::AddressRange> rangesOf(const std::set<std::uint64_t>& addresses);

}  // namespace fuzz
