// The text functions against texts built character by character and numbers printed by the C library.
// Input: two texts (a length and so many bytes each), four numbers, a double.
#include "toolsmisc/Text.h"
#include "fuzz/oracle/Texts.h"

using namespace toolsmisc;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string text = input.text(), other = input.text();
    const auto first = input.number<std::uint32_t>();
    const auto last = input.number<std::int32_t>();
    const auto small = input.number<std::int8_t>(), more = input.number<std::int8_t>();
    const auto value = input.number<double>();
    fuzz::check(subString(text, first, last) == fuzz::cut(text, first, last));
    fuzz::check(subString(text, first % 256, small) == fuzz::cut(text, first % 256, small));
    const auto fields = splitString(text, other);
    fuzz::check(fields == fuzz::fieldsOf(text, other));
    fuzz::check(joinStrings(fields, other) == fuzz::joined(fields, other));
    if (other.size() == 1) fuzz::check(joinStrings(fields, other) == text);
    fuzz::check(startsWith(text, other) == fuzz::beginsWith(text, other));
    fuzz::check(intToString(last, small, first % 2 == 0) == fuzz::inRadix(last, small, first % 2 == 0));
    fuzz::check(doubleToString(value, small, last % 4096) == fuzz::printed(value, small, last % 4096));
    fuzz::check(floatToString(fuzz::narrowed(value), small, 9) == fuzz::printed(fuzz::narrowed(value), small, 9));
    const unsigned width = first % 64;
    fuzz::check(formatSignificant(value, small, more, width) == fuzz::significant(value, small, more, width));
    fuzz::check(formatString("%s", text.c_str()) == fuzz::formatted(text.c_str()));
    return 0;
}
