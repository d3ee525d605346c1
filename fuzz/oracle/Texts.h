#pragma once
/// What the text functions have to answer, computed the slow way.

#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "fuzz/Fuzz.h"

namespace fuzz {

/// The characters from `first` to `last`, both included; a negative `last` counts from the second-last one.
inline std::string cut(const std::string& text, std::int64_t first, std::int64_t last) {
    const auto size = static_cast<std::int64_t>(text.size());
    if (last < 0) last += size - 1;
    std::string result;
    for (std::int64_t i = 0; i < size; ++i)
        if (i >= first && i <= last) result += text[static_cast<std::size_t>(i)];
    return result;
}

inline std::vector<std::string> fieldsOf(const std::string& text, const std::string& delimiters) {
    std::vector<std::string> fields;
    if (!text.empty()) fields.emplace_back();
    for (const char letter : text) {
        if (delimiters.find(letter) == std::string::npos) {
            fields.back() += letter;
        } else {
            fields.emplace_back();
        }
    }
    return fields;
}

inline std::string joined(const std::vector<std::string>& parts, const std::string& separator) {
    std::string result;
    for (std::size_t i = 0; i < parts.size(); ++i) result += i == 0 ? parts[i] : separator + parts[i];
    return result;
}

/// An empty prefix begins only texts of at most one character.
inline bool beginsWith(const std::string& text, const std::string& prefix) {
    if (prefix.empty()) return text.size() <= 1;
    return text.compare(0, prefix.size(), prefix) == 0;
}

inline std::string inRadix(std::int32_t value, int radix, bool upperCase) {
    if (radix < 2 || radix > 36) return {};
    std::array<char, 40> digits{};
    std::string text(digits.data(), std::to_chars(digits.begin(), digits.end(), value, radix).ptr);
    for (char& letter : text)
        if (upperCase && letter >= 'a') letter = static_cast<char>(letter - 'a' + 'A');
    return text;
}

/// What fits into the 39 bytes of a number.
template <typename... Arguments>
std::string inBuffer(const char* format, Arguments... arguments) {
    std::array<char, 39> buffer{};
    std::snprintf(buffer.data(), buffer.size(), format, arguments...);
    return buffer.data();
}

inline std::string printed(double value, int precision, int width) {
    return inBuffer("%*.*f", width, precision, value);
}

/// `value` as a float, a float's infinity where it has none.
inline float narrowed(double value) {
    constexpr double kLargest = std::numeric_limits<float>::max();
    if (std::fabs(value) > kLargest)
        return std::copysign(std::numeric_limits<float>::infinity(), value < 0 ? -1.F : 1.F);
    return static_cast<float>(value);
}

inline std::string significant(double value, int significantDigits, int decimals, unsigned maxWidth) {
    const double magnitude = std::fabs(value);
    std::string text;
    if (std::isfinite(value) && magnitude > 1 && significantDigits <= static_cast<int>(std::log10(magnitude))) {
        value += 0.49000000953674316;
        const bool fits = std::fabs(value) < 9e18;
        text = fits ? std::to_string(static_cast<long long>(value)) : inBuffer("%.0f", value);
    } else {
        const std::string format = "%1." + std::to_string(std::max(significantDigits, 1) - 1) + "e";
        const double rounded = std::strtod(inBuffer(format.c_str(), value).c_str(), nullptr);
        const std::string fixed = "%1." + std::to_string(std::max(decimals, 0)) + "f";
        text = inBuffer(decimals < 0 ? "%g" : fixed.c_str(), rounded);
    }
    if (text.size() > maxWidth && std::fabs(value) > 1) text = inBuffer("%1.0e", value);
    if (text.size() > maxWidth) text.resize(maxWidth);
    return text;
}

/// Of a text that just fills the first buffer the last character is lost.
inline std::string formatted(std::string text) {
    if (text.size() == 128) text.pop_back();
    return text;
}

}  // namespace fuzz
