#pragma once
/// Strict reader of Intel HEX files, 8, 16 and 32 bits (Intel, revision A of 1988). Pure.

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace sim {

/// Addresses from `first` to `last`, both included.
struct AddressRange {
    std::uint32_t first = 0;
    std::uint32_t last = 0xFFFFFFFF;

    bool operator==(const AddressRange&) const = default;
};

/// What a well-formed file programs.
struct HexImage {
    std::vector<AddressRange> ranges;  // rising, neighbours joined
    std::uint64_t byteCount = 0;
};

/// The first thing that is wrong with a file. Lines and columns count from 1.
struct HexProblem {
    std::uint32_t line = 1;
    std::uint32_t column = 1;
    std::string expected;
    std::string got;
};

/// Reads `text`. Lines end with LF or CR LF, the last one may end with the file; hex digits of either case. Exactly one
/// end record, which is the last line. No address twice and none outside `allowed`.
/// Data behind a segment address (record type 02), or before any base address, stays within its 64 KiB: it goes on at
/// the segment's start, as the format says. Behind a linear address (04) it runs on.
std::variant<HexImage, HexProblem> readHex(std::string_view text, AddressRange allowed = {});

}  // namespace sim
