#pragma once
/// Output of threads that print at once.

#include <cstddef>
#include <initializer_list>
#include <iosfwd>
#include <string_view>

namespace threadfunc {

/// Longest text in bytes that `printWhole` hands over in one piece.
inline constexpr std::size_t kLongestWholeText = 1024;

/// Puts `pieces` together and writes them to `stream` as one, flushed, so that on a standard stream no text of another
/// thread comes in between; longer texts than `kLongestWholeText` go in several. Needs no memory but the stack. Ignores
/// the stream's width and number format. A piece without data, as a default `string_view` is one, ends the text: what
/// comes before it is written, and the stream is left with `badbit`, as by a null text. Any thread, on standard
/// streams; waits as long as the output makes it wait.
void printWhole(std::ostream& stream, std::initializer_list<std::string_view> pieces);

}  // namespace threadfunc
