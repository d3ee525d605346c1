#include "tests/toolsmisc/Intercept.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace intercept {

namespace {

FormattedLengths* formattedLengths = nullptr;

int answered(int length, std::size_t limit) {
    if (formattedLengths == nullptr) return length;
    formattedLengths->limits.push_back(limit);
    if (formattedLengths->results.empty()) return length;
    const int scripted = formattedLengths->results.front();
    formattedLengths->results.pop_front();
    return scripted;
}

}  // namespace

FormattedLengths::FormattedLengths(std::deque<int> lengths) : results(std::move(lengths)) { formattedLengths = this; }
FormattedLengths::~FormattedLengths() { formattedLengths = nullptr; }

}  // namespace intercept

// NOLINTBEGIN(bugprone-reserved-identifier): the linker prescribes these names.
extern "C" {

int __real_vsnprintf(char* buffer, std::size_t size, const char* format, va_list arguments);
int __wrap_vsnprintf(char* buffer, std::size_t size, const char* format, va_list arguments) {
    return intercept::answered(__real_vsnprintf(buffer, size, format, arguments), size);
}

int __real___vsnprintf_chk(char* buffer, std::size_t size, int flag, std::size_t room, const char* format,
                           va_list arguments);
int __wrap___vsnprintf_chk(char* buffer, std::size_t size, int flag, std::size_t room, const char* format,
                           va_list arguments) {
    return intercept::answered(__real___vsnprintf_chk(buffer, size, flag, room, format, arguments), size);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
