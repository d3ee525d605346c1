#pragma once
/// What times and dates look like in a pattern.

#include <array>
#include <string>
#include <string_view>

#include "fuzz/Fuzz.h"
#include "sw_drv/RTkernel/linux/TimeFormat.h"

namespace fuzz {

/// `pattern` with each of `letters` replaced by the value at the same place, at least two digits of it.
template <std::size_t Count>
std::string byPattern(const char* pattern, std::string_view letters, const std::array<unsigned, Count>& values) {
    std::string text;
    for (const char letter : std::string_view(pattern)) {
        const std::size_t place = letters.find(letter);
        std::array<char, 8> field{letter};
        if (place != std::string_view::npos) std::snprintf(field.data(), field.size(), "%02u", values[place] % 100000);
        text += field.data();
    }
    return text;
}

inline std::string timeByPattern(threadfunc::PackedTime t, const char* pattern) {
    return byPattern<3>(pattern, "hms", {t.hour, t.minute, t.second});
}

inline std::string dateByPattern(threadfunc::PackedDate d, const char* pattern) {
    return byPattern<4>(pattern, "dmyc", {d.day, d.month, d.year % 100U, d.year / 100U});
}

/// Three bytes for each of `letters`, one for each other character, one for the end.
inline std::size_t roomFor(const char* pattern, std::string_view letters) {
    std::size_t room = 1;
    for (const char letter : std::string_view(pattern)) room += letters.find(letter) == std::string_view::npos ? 1 : 3;
    return room;
}

}  // namespace fuzz
