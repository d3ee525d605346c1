// Times and dates laid out by any pattern, against the C library's printing, into buffers of just the promised size.
// Input: the bytes of a time, those of a date, the rest is the pattern.
#include <memory>

#include "fuzz/Fuzz.h"
#include "fuzz/oracle/Pattern.h"

using namespace threadfunc;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const PackedTime time{input.byte(), input.byte(), input.byte()};
    const PackedDate date{input.byte(), input.byte(), input.number<std::uint16_t>(), 0};
    const std::string text = input.rest();
    const char* const pattern = text.c_str();  // up to its first zero byte
    const std::string wantedTime = fuzz::timeByPattern(time, pattern), wantedDate = fuzz::dateByPattern(date, pattern);
    fuzz::check(timeText(time, pattern) == wantedTime && dateText(date, pattern) == wantedDate);

    const auto timeBuffer = std::make_unique<char[]>(fuzz::roomFor(pattern, "hms"));
    fuzz::check(formatTime(timeBuffer.get(), time, pattern) == 1 && timeBuffer.get() == wantedTime);
    const auto dateBuffer = std::make_unique<char[]>(fuzz::roomFor(pattern, "dmyc"));
    fuzz::check(formatDate(dateBuffer.get(), date, pattern) == 1 && dateBuffer.get() == wantedDate);
    fuzz::check(timeText(time, nullptr) == fuzz::timeByPattern(time, "h:m:s"));
    fuzz::check(dateText(date, nullptr) == fuzz::dateByPattern(date, "h:m:s"));
    return 0;
}
