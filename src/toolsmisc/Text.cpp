#include "toolsmisc/Text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>

namespace toolsmisc {

std::string formatString(const char* format, ...) {
    if (format == nullptr) return {};
    std::size_t limit = 128;
    for (;;) {
        std::string buffer(limit + 2, '\0');
        va_list arguments;
        va_start(arguments, format);
        const int length = vsnprintf(buffer.data(), limit, format, arguments);
        va_end(arguments);
        if (length < 0) return {};
        // A length equal to the limit is taken although vsnprintf left out the last character: names of numbered
        // folders in the field were made with it.
        if (static_cast<std::size_t>(length) <= limit) return makeString(buffer.c_str(), kWholeText);
        limit = static_cast<std::size_t>(length) + 4;
    }
}

std::string makeString(const char* text, std::size_t length) {
    if (text == nullptr) return {};
    return length == kWholeText ? std::string(text) : std::string(text, length);
}

std::string subString(const std::string& text, unsigned first, int last) {
    // 64 bits hold every sum of a length and two positions.
    const auto length = static_cast<std::int64_t>(text.size());
    const std::int64_t begin = first;
    const std::int64_t end = last < 0 ? length - 1 + last : last;
    if (begin >= length || begin > end || end < 0) return {};
    return text.substr(first, static_cast<std::size_t>(std::min(end, length - 1) - begin + 1));
}

std::vector<std::string> splitString(const std::string& text, const std::string& delimiters) {
    std::vector<std::string> fields;
    if (text.empty()) return fields;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find_first_of(delimiters, start)) != std::string::npos; start = end + 1) {
        fields.push_back(text.substr(start, end - start));
    }
    fields.push_back(text.substr(start));
    return fields;
}

std::string joinStrings(const std::vector<std::string>& parts, const std::string& separator) {
    std::string joined;
    for (const std::string& part : parts) {
        if (&part != &parts.front()) joined += separator;
        joined += part;
    }
    return joined;
}

bool startsWith(const std::string& text, const std::string& prefix) {
    // The end position of an empty prefix is -1, which counts from the end: existing callers rely on the answer "no"
    // for an empty prefix of a longer text.
    return subString(text, 0, static_cast<int>(prefix.size()) - 1) == prefix;
}

}  // namespace toolsmisc
