#pragma once
/// Numbers to text, and text cut, split and joined. The functions hold no state: any thread may call any of them at any
/// time, each returns at once with a new text. Decimal points are those of the process's locale, "." unless it is set.

#include <cstddef>
#include <string>
#include <vector>

namespace toolsmisc {

/// `value` in `radix` (2 to 36) with lower or upper case digits, "-" in front of a negative value, "0" for zero. Every
/// `int` has its text, the most negative one too. Empty for any other radix.
[[nodiscard]] std::string intToString(int value, int radix, bool upperCase);

/// `value` as printf's "%*.*f" prints it: `precision` decimals (6 when negative), padded with blanks on the left to
/// `width` characters, on the right when `width` is negative. Never more than 38 characters: the rest is cut off
/// silently, however large `precision` and `width` are.
[[nodiscard]] std::string floatToString(float value, int precision, int width);

/// As `floatToString`, for a double.
[[nodiscard]] std::string doubleToString(double value, int precision, int width);

/// A measured value for a display of `maxWidth` characters: rounded to `significantDigits` digits, then printed with
/// `decimals` decimals, or by printf's "%g" when `decimals` is negative. A value whose integer part alone has more
/// digits than wanted is printed as that whole number (after 0.49 is added), whatever its size. A text that is too long
/// is printed anew as "1e+08" when the value is above 1.0 or below -1.0, and cut to `maxWidth` in any case.
///
/// Each step works on at most 38 characters, so more than 31 significant digits can lose the value's exponent.
/// Fewer than one significant digit count as one. Infinities and not-a-number give "inf", "-inf", "nan".
[[nodiscard]] std::string formatSignificant(double value, int significantDigits, int decimals, unsigned maxWidth);

/// What printf would print, of any length up to the first zero byte. Empty when printf reports an error (a wide
/// character that the locale cannot show, for instance) and for a null format. A text of exactly 128 characters comes
/// back without its last one.
[[nodiscard, gnu::format(printf, 1, 2)]] std::string formatString(const char* format, ...);

/// Length for `makeString` that stands for "up to the terminating zero".
inline constexpr std::size_t kWholeText = static_cast<std::size_t>(-1);

/// The first `length` characters of `text`, zero bytes included; `text` must have that many. With `kWholeText` the
/// whole zero-terminated text. Empty for a null `text`.
[[nodiscard]] std::string makeString(const char* text, std::size_t length);

/// The characters from position `first` to position `last`, both inclusive, cut at the end of `text`. A negative `last`
/// counts from the end: -1 names the second-last position, so the last character is out of its reach. Empty when
/// nothing lies between the two.
[[nodiscard]] std::string subString(const std::string& text, unsigned first, int last);

/// The fields between any of the characters in `delimiters`; empty fields count, also before a leading and behind a
/// trailing delimiter. An empty text has no fields. Without delimiters the whole text is the one field.
[[nodiscard]] std::vector<std::string> splitString(const std::string& text, const std::string& delimiters);

/// The parts with `separator` between them. Empty for no parts.
[[nodiscard]] std::string joinStrings(const std::vector<std::string>& parts, const std::string& separator);

/// Whether `text` begins with `prefix`. An empty prefix begins only texts of at most one character.
[[nodiscard]] bool startsWith(const std::string& text, const std::string& prefix);

}  // namespace toolsmisc
