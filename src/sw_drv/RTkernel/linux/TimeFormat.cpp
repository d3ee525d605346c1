#include "sw_drv/RTkernel/linux/TimeFormat.h"

#include <cstring>

namespace threadfunc {

namespace {

// The time's own pattern for dates as well: installed log readers expect the letters it leaves in a date.
const char* patternOr(const char* pattern) { return pattern != nullptr ? pattern : "h:m:s"; }

std::string twoDigits(unsigned value) {
    std::string digits = std::to_string(value);
    return digits.size() < 2 ? "0" + digits : digits;
}

std::string timeField(PackedTime t, char letter) {
    switch (letter) {
        case 'h':
            return twoDigits(t.hour);
        case 'm':
            return twoDigits(t.minute);
        case 's':
            return twoDigits(t.second);
        default:
            return {letter};
    }
}

std::string dateField(PackedDate d, char letter) {
    switch (letter) {
        case 'd':
            return twoDigits(d.day);
        case 'm':
            return twoDigits(d.month);
        case 'y':
            return twoDigits(d.year % 100U);
        case 'c':
            return twoDigits(d.year / 100U);
        default:
            return {letter};
    }
}

int copyTo(char* dst, const std::string& text) {
    std::memcpy(dst, text.c_str(), text.size() + 1);
    return 1;
}

}  // namespace

std::string timeText(PackedTime t, const char* pattern) {
    std::string text;
    for (const char* letter = patternOr(pattern); *letter != '\0'; ++letter) text += timeField(t, *letter);
    return text;
}

std::string dateText(PackedDate d, const char* pattern) {
    std::string text;
    for (const char* letter = patternOr(pattern); *letter != '\0'; ++letter) text += dateField(d, *letter);
    return text;
}

int formatTime(char* dst, PackedTime t, const char* pattern) {
    return dst == nullptr ? 0 : copyTo(dst, timeText(t, pattern));
}

int formatDate(char* dst, PackedDate d, const char* pattern) {
    return dst == nullptr ? 0 : copyTo(dst, dateText(d, pattern));
}

}  // namespace threadfunc
