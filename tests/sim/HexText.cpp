#include "tests/sim/HexText.h"

namespace simtest {

std::vector<std::uint8_t> bytes(std::string_view text) {
    std::vector<std::uint8_t> data;
    std::string pair;
    for (const char letter : text) {
        if (letter != ' ') pair += letter;
        if (pair.size() < 2) continue;
        data.push_back(static_cast<std::uint8_t>(std::stoi(pair, nullptr, 16)));
        pair.clear();
    }
    return data;
}

std::string hex(std::span<const std::uint8_t> data) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : data) {
        if (!text.empty()) text += ' ';
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

}  // namespace simtest
