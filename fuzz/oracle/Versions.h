#pragma once
/// What the version functions have to answer, by a second reading of keyword and marker.

#include <string>
#include <vector>

#include "fuzz/oracle/Texts.h"

namespace fuzz {

/// Days from 1970-01-01 to the first of a month (0 is January; any number, it carries into the year).
inline std::int64_t daysBefore(std::int64_t year, std::int64_t month) {
    year += month / 12 - (month % 12 < 0 ? 1 : 0);
    month = (month % 12 + 12) % 12;
    const std::int64_t past = year - 1;
    const auto floored = [](std::int64_t a, std::int64_t b) { return a / b - (a % b < 0 ? 1 : 0); };
    std::int64_t days = past * 365 + floored(past, 4) - floored(past, 100) + floored(past, 400) - 719162;
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    for (std::int64_t i = 0; i < month; ++i) days += i == 1 ? (leap ? 29 : 28) : 30 + (i < 7 ? (i + 1) % 2 : i % 2);
    return days;
}

/// Two or four characters as a number, each by its distance from '0'.
inline std::int64_t digitsAt(const std::string& date, std::size_t begin, std::size_t count) {
    std::int64_t value = 0;
    for (std::size_t i = begin; i < begin + count; ++i)
        value = value * 10 + (i < date.size() ? static_cast<unsigned char>(date[i]) - 48 : 0);
    return value;
}

inline std::uint64_t secondsOf(const std::string& date) {
    const std::int64_t days = daysBefore(digitsAt(date, 0, 4), digitsAt(date, 5, 2) - 1) + digitsAt(date, 8, 2) - 1;
    const std::int64_t hours = days * 24 + digitsAt(date, 11, 2);
    const std::int64_t seconds = (hours * 60 + digitsAt(date, 14, 2)) * 60 + digitsAt(date, 17, 2);
    return static_cast<std::uint64_t>(seconds) & 0xFFFFFFFF;
}

/// "tags/NAME" or "branches/NAME" behind the first "usr/local/Repository", which stands between separators.
inline std::string treeOf(const std::string& keyword) {
    const std::vector<std::string> fields = fieldsOf(keyword, "/");
    for (std::size_t i = 5; i < fields.size(); ++i) {
        if (fields[i - 5] + "/" + fields[i - 4] + "/" + fields[i - 3] != "usr/local/Repository") continue;
        if (fields[i - 2] != "tags" && fields[i - 2] != "branches") return {};
        return fields[i - 2] + "/" + fields[i - 1];
    }
    return {};
}

struct Version {
    bool tagged = false;
    std::string text;
    std::int32_t major = 0, minor = 0;
    char letter = 0;
};

inline std::int32_t leadingDecimal(const std::string& text) {
    std::size_t i = std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size());
    const bool negative = i < text.size() && text[i] == '-';
    if (negative || (i < text.size() && text[i] == '+')) ++i;
    std::int64_t value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i)
        value = std::min<std::int64_t>(value * 10 + text[i] - '0', negative ? 2147483648 : 2147483647);
    return static_cast<std::int32_t>(negative ? -value : value);
}

inline Version versionOf(const std::string& tree) {
    Version version;
    version.tagged = tree.compare(0, 5, "tags/") == 0;
    const std::vector<std::string> parts = fieldsOf(tree, "-");
    if (!version.tagged || parts.size() < 3) return version;
    for (const char letter : parts.back()) version.text += letter == '_' ? '.' : letter;
    const std::size_t point = version.text.find('.');
    if (point != std::string::npos) {
        version.major = leadingDecimal(version.text.substr(0, point));
        version.minor = leadingDecimal(version.text.substr(point + 1));
    }
    if (!version.text.empty() && version.text.back() >= 'a' && version.text.back() <= 'z')
        version.letter = version.text.back();
    return version;
}

inline std::string labelOf(const std::string& tree, const std::string& date) {
    const std::vector<std::string> fields = fieldsOf(tree, "/");
    if (fields.empty()) return "Dev-trunk " + date;
    const std::string unknown = "Dev-unknown TAG " + date;
    if (fields.size() < 2) return unknown;
    if (fields[0] == "branches") return "Dev-" + fields[1] + " " + date;
    if (fields[0] != "tags") return unknown;
    const std::vector<std::string> parts = fieldsOf(fields[1], "-");
    std::string name;
    for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
        if (i > 0 && parts[i] == "Ver") return name.empty() ? unknown : name + " " + versionOf(tree).text;
        name += i == 0 ? parts[i] : "-" + parts[i];
    }
    return unknown;
}

}  // namespace fuzz
