#include "sim/HexRecord.h"

#include <array>

namespace sim {

namespace {

constexpr std::string_view kHexDigits = "0123456789ABCDEF";

HexProblem problemAt(const HexCursor& cursor, std::string expected) {
    return {cursor.line(), cursor.column(), std::move(expected), cursor.describe()};
}

/// Reads the bytes of one line and sums them up.
class LineReader {
public:
    explicit LineReader(HexCursor& at) : cursor(at) {}

    /// The next byte; 0 once something was wrong.
    std::uint8_t byte(const char* field) { return static_cast<std::uint8_t>(digit(field) << 4 | digit(field)); }

    void sumUp(std::uint8_t value) { sum = static_cast<std::uint8_t>(sum + value); }

    std::uint8_t summedByte(const char* field) {
        const std::uint8_t value = byte(field);
        sumUp(value);
        return value;
    }

    void checksum() {
        const std::uint32_t column = cursor.column();
        const auto wanted = static_cast<std::uint8_t>(0x100 - sum);
        const std::uint8_t got = byte("the checksum");
        if (!problem && got != wanted)
            problem = HexProblem{cursor.line(), column, "checksum " + hexText(wanted, 2), hexText(got, 2)};
    }

    void lineEnd() {
        if (problem || cursor.atEnd()) return;
        const bool carriageReturn = cursor.accept('\r');
        if (!cursor.accept('\n')) {
            problem = problemAt(cursor, carriageReturn ? "LF after CR" : "the end of the line");
            return;
        }
        cursor.beginLine();
    }

    std::optional<HexProblem> problem;

private:
    std::uint8_t digit(const char* field) {
        if (problem) return 0;
        const std::optional<std::uint8_t> value = cursor.hexDigit();
        if (!value) problem = problemAt(cursor, "a hex digit of " + std::string(field));
        return value.value_or(0);
    }

    HexCursor& cursor;
    std::uint8_t sum = 0;
};

}  // namespace

std::string hexText(std::uint64_t value, unsigned digits) {
    std::string text;
    for (; value != 0 || text.size() < digits; value >>= 4) text.insert(text.begin(), kHexDigits[value & 0xF]);
    return text;
}

std::string HexCursor::describe() const {
    if (atEnd()) return "the end of the file";
    const char next = text[position];
    if (next == '\n' || next == '\r') return "the end of the line";
    if (next >= ' ' && next <= '~') return std::string("'") + next + "'";
    return "byte " + hexText(static_cast<unsigned char>(next), 2);
}

bool HexCursor::accept(char wanted) {
    if (atEnd() || text[position] != wanted) return false;
    ++position;
    return true;
}

std::optional<std::uint8_t> HexCursor::hexDigit() {
    if (atEnd()) return std::nullopt;
    const char next = text[position];
    const char upper = next >= 'a' && next <= 'f' ? static_cast<char>(next - 'a' + 'A') : next;
    const std::size_t value = kHexDigits.find(upper);
    if (value == std::string_view::npos) return std::nullopt;
    ++position;
    return static_cast<std::uint8_t>(value);
}

void HexCursor::beginLine() {
    lineStart = position;
    ++line_;
}

std::optional<HexProblem> readRecord(HexCursor& cursor, HexRecord& record) {
    if (!cursor.accept(':')) return problemAt(cursor, "':' at the start of a record");
    LineReader line(cursor);
    const std::uint8_t length = line.summedByte("the length");
    const std::uint8_t addressHigh = line.summedByte("the address");
    const std::uint8_t addressLow = line.summedByte("the address");
    record.address = static_cast<std::uint16_t>(addressHigh << 8 | addressLow);
    record.type = line.summedByte("the record type");
    record.data.reserve(length);
    for (unsigned count = 0; count < length && !line.problem; ++count)
        record.data.push_back(line.summedByte("the data bytes that the length promises"));
    line.checksum();
    line.lineEnd();
    return line.problem;
}

}  // namespace sim
