#include "fuzz/oracle/HexText.h"

#include <utility>

namespace fuzz {

namespace {

/// Pieces between line ends; behind the last line end comes an empty one.
std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines(1);
    for (const char letter : text) {
        if (letter == '\n') {
            lines.emplace_back();
        } else {
            lines.back() += letter;
        }
    }
    return lines;
}

/// The bytes of a line behind its colon; none when it is anything but pairs of hex digits.
std::vector<unsigned> bytesOf(const std::string& line) {
    const bool pairs = line.size() % 2 == 1 && line[0] == ':';
    if (!pairs || line.find_first_not_of("0123456789abcdefABCDEF", 1) != std::string::npos) return {};
    std::vector<unsigned> bytes;
    for (std::size_t i = 1; i < line.size(); i += 2)
        bytes.push_back(static_cast<unsigned>(std::strtoul(line.substr(i, 2).c_str(), nullptr, 16)));
    return bytes;
}

bool isRecord(const std::vector<unsigned>& bytes) {
    if (bytes.size() < 5 || bytes.size() != bytes[0] + 5) return false;
    unsigned sum = 0;
    for (const unsigned byte : bytes) sum += byte;
    if (sum % 256 != 0) return false;
    const unsigned type = bytes[3];
    if (type == 0) return true;
    const unsigned length = type == 1 ? 0 : type == 2 || type == 4 ? 2 : 4;
    return type <= 5 && bytes[0] == length && bytes[1] == 0 && bytes[2] == 0;
}

class Memory {
public:
    Memory(std::uint32_t lowestAllowed, std::uint32_t highestAllowed)
        : lowest(lowestAllowed), highest(highestAllowed) {}

    /// False when an address is taken or not allowed.
    bool take(const std::vector<unsigned>& record) {
        const std::uint64_t offset = record[1] * 256 + record[2];
        if (record[3] == 2) base = (record[4] * 256 + record[5]) * 16ULL;
        if (record[3] == 4) base = (record[4] * 256 + record[5]) * 65536ULL;
        if (record[3] == 2 || record[3] == 4) linear = record[3] == 4;
        for (std::uint64_t i = 0; record[3] == 0 && i < record[0]; ++i) {
            const std::uint64_t address = base + (linear ? offset + i : (offset + i) % 65536);
            if (address < lowest || address > highest || !addresses.insert(address).second) return false;
        }
        return true;
    }

    std::set<std::uint64_t> addresses;

private:
    std::uint64_t lowest, highest, base = 0;
    bool linear = false;
};

std::string twoDigits(unsigned byte) {
    constexpr const char* kDigits = "0123456789abcdef";
    return {kDigits[byte / 16 % 16], kDigits[byte % 16]};
}

}  // namespace

HexVerdict verdictOf(const std::string& text, std::uint32_t lowest, std::uint32_t highest) {
    const std::vector<std::string> lines = linesOf(text);
    Memory memory(lowest, highest);
    bool ended = false;
    for (std::uint32_t number = 1; number <= lines.size(); ++number) {
        std::string line = lines[number - 1];
        const bool last = number == lines.size();
        if (ended && !(last && line.empty())) return {number, {}};
        if (ended) break;
        if (!last && line.ends_with('\r')) line.pop_back();
        const std::vector<unsigned> record = bytesOf(line);
        if (!isRecord(record) || !memory.take(record)) return {number, {}};
        ended = record[3] == 1;
        if (!ended && last) return {number, {}};
    }
    return {0, memory.addresses};
}

std::string withRightSums(const std::string& text) {
    std::string result;
    bool first = true;
    for (const std::string& line : linesOf(text)) {
        const bool carriageReturn = line.ends_with('\r');
        std::vector<unsigned> bytes = bytesOf(line.substr(0, line.size() - (carriageReturn ? 1 : 0)));
        if (!std::exchange(first, false)) result += '\n';
        if (bytes.size() < 5 || bytes.size() > 260) {
            result += line;
            continue;
        }
        bytes.front() = static_cast<unsigned>(bytes.size() - 5);
        bytes.back() = 0;
        unsigned sum = 0;
        for (const unsigned byte : bytes) sum += byte;
        bytes.back() = (256 - sum % 256) % 256;
        result += ':';
        for (const unsigned byte : bytes) result += twoDigits(byte);
        if (carriageReturn) result += '\r';
    }
    return result;
}

bool isPlace(const std::string& text, std::uint32_t line, std::uint32_t column) {
    const std::vector<std::string> lines = linesOf(text);
    return line >= 1 && line <= lines.size() && column >= 1 && column <= lines[line - 1].size() + 1;
}

std::vector<sim::AddressRange> rangesOf(const std::set<std::uint64_t>& addresses) {
    std::vector<sim::AddressRange> ranges;
    for (const std::uint64_t address : addresses) {
        const auto byte = static_cast<std::uint32_t>(address);
        if (!ranges.empty() && std::uint64_t{ranges.back().last} + 1 == address) {
            ranges.back().last = byte;
        } else {
            ranges.push_back({byte, byte});
        }
    }
    return ranges;
}

}  // namespace fuzz
