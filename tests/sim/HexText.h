#pragma once
/// Bytes as a person writes them: pairs of hex digits, blanks anywhere.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace simtest {

/// The bytes that `text` stands for.
std::vector<std::uint8_t> bytes(std::string_view text);

/// Lower-case hex digits, a blank between bytes.
std::string hex(std::span<const std::uint8_t> data);

}  // namespace simtest
