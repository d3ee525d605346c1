#pragma once
/// One line of an Intel HEX file: from characters to a record. Pure.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "sim/Clock.h"
#include "sim/HexReader.h"

namespace sim {

inline constexpr std::uint8_t kDataRecord = 0, kEndRecord = 1, kSegmentAddressRecord = 2, kStartSegmentRecord = 3,
                              kLinearAddressRecord = 4, kStartLinearRecord = 5;

/// A record whose checksum was right; its type is not looked at yet.
struct HexRecord {
    std::uint16_t address = 0;
    std::uint8_t type = 0;
    Bytes data;

    /// The first two data bytes as a number, high byte first; only for records that have them.
    std::uint16_t word() const { return static_cast<std::uint16_t>(data[0] << 8 | data[1]); }
};

/// `value` in upper-case hexadecimal with at least `digits` digits.
std::string hexText(std::uint64_t value, unsigned digits);

/// Where a reader stands in the text.
class HexCursor {
public:
    /// Borrows `content`.
    explicit HexCursor(std::string_view content) : text(content) {}

    bool atEnd() const { return position == text.size(); }
    std::uint32_t line() const { return line_; }
    std::uint32_t column() const { return static_cast<std::uint32_t>(position - lineStart) + 1; }
    std::string_view rest() const { return text.substr(position); }

    /// What stands here, in words for a message.
    std::string describe() const;
    /// Steps over `wanted`, or stays and returns false.
    bool accept(char wanted);
    /// Steps over a hex digit and returns its value, or stays.
    std::optional<std::uint8_t> hexDigit();
    /// Steps to the next line; only right behind a LF.
    void beginLine();

private:
    std::string_view text;
    std::size_t position = 0;
    std::size_t lineStart = 0;
    std::uint32_t line_ = 1;
};

/// Reads one whole line with its end. Returns what is wrong with it, none when `record` is filled.
std::optional<HexProblem> readRecord(HexCursor& cursor, HexRecord& record);

}  // namespace sim
