#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "toolsmisc/Text.h"

namespace toolsmisc {

namespace {

constexpr std::size_t kNumberBytes = 39;

// Displays were laid out with this value, a little above 0.49: a double whose lower 32 bits were left out.
constexpr double kWholeNumberAddend = 0.49000000953674316;
static_assert(std::bit_cast<std::uint64_t>(kWholeNumberAddend) == 0x3FDF5C2900000000);

// Beyond these a double has only zeros: more of them would cost memory and change nothing in 38 characters.
constexpr int kMostDecimals = 1074;
constexpr int kMostDigits = 767;
constexpr int kLongestFixed = 1 + 309 + 1 + kMostDecimals;

/// What printf prints, cut to 38 characters.
[[gnu::format(printf, 1, 2)]] std::string printNumber(const char* format, ...) {
    std::array<char, kNumberBytes> buffer{};
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(buffer.data(), buffer.size(), format, arguments);
    va_end(arguments);
    return length < 0 ? "" : buffer.data();
}

/// Whether the integer part of `value` has more digits than wanted.
bool integerPartSuffices(double value, int significantDigits) {
    const double magnitude = std::fabs(value);
    if (!std::isfinite(value) || magnitude <= 1.0) return false;
    return significantDigits <= static_cast<int>(std::log10(magnitude));
}

/// `value` truncated, as a whole number of any size; never "-0".
std::string wholeText(double value) {
    const double whole = std::trunc(value);
    return printNumber("%.0f", whole == 0.0 ? 0.0 : whole);
}

std::string roundedText(double value, int significantDigits, int decimals) {
    const int digits = std::clamp(significantDigits, 1, kMostDigits);
    const double rounded = std::strtod(printNumber("%1.*e", digits - 1, value).c_str(), nullptr);
    if (decimals < 0) return printNumber("%g", rounded);
    return printNumber("%1.*f", std::min(decimals, kMostDecimals), rounded);
}

}  // namespace

std::string intToString(int value, int radix, bool upperCase) {
    if (radix < 2 || radix > 36) return {};
    if (value == 0) return "0";
    const char* const digits =
        upperCase ? "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ" : "0123456789abcdefghijklmnopqrstuvwxyz";
    const auto base = static_cast<unsigned>(radix);
    // Unsigned, since the magnitude of the most negative value is no int.
    unsigned magnitude = value < 0 ? 0U - static_cast<unsigned>(value) : static_cast<unsigned>(value);
    std::string text;
    for (; magnitude != 0; magnitude /= base) text.insert(text.begin(), digits[magnitude % base]);
    return value < 0 ? "-" + text : text;
}

std::string floatToString(float value, int precision, int width) {
    return doubleToString(static_cast<double>(value), precision, width);
}

std::string doubleToString(double value, int precision, int width) {
    // Decimals that are certainly zero are not printed but still take their room from the width.
    const std::int64_t leftOut =
        std::isfinite(value) ? std::max<std::int64_t>(0, std::int64_t{precision} - kMostDecimals) : 0;
    const std::int64_t field = width > 0 ? std::max<std::int64_t>(0, width - leftOut) : width;
    constexpr std::int64_t kAllVisible{kNumberBytes};
    return printNumber("%*.*f", static_cast<int>(std::clamp(field, -kAllVisible, kLongestFixed + kAllVisible)),
                       std::min(precision, kMostDecimals), value);
}

std::string formatSignificant(double value, int significantDigits, int decimals, unsigned maxWidth) {
    std::string text;
    if (integerPartSuffices(value, significantDigits)) {
        value += kWholeNumberAddend;
        text = wholeText(value);
    } else {
        text = roundedText(value, significantDigits, decimals);
    }
    if (text.size() > maxWidth && std::fabs(value) > 1.0) text = printNumber("%1.0e", value);
    return text.substr(0, maxWidth);
}

}  // namespace toolsmisc
