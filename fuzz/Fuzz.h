#pragma once
/// What the fuzz targets share: taking an input apart, and the check that ends the process when it fails.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>

/// Each target defines this one function. Called over and over in one process, with other bytes each time; what one
/// call leaves behind must not change the verdict of the next. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

using Bytes = std::span<const std::uint8_t>;

/// Ends the process, which saves the input, unless `holds`.
inline void check(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    if (holds) return;
    std::fprintf(stderr, "%s:%d: the check failed\n", file, line);
    std::abort();
}

/// An input, taken apart from front to back. What is asked for behind its end is zero or empty.
class Input {
public:
    /// Borrows the bytes.
    Input(const std::uint8_t* data, std::size_t size) : left(data, size) {}

    bool empty() const { return left.empty(); }
    std::uint8_t byte() { return number<std::uint8_t>(); }

    /// A number, least significant byte first.
    template <typename Number>
    Number number() {
        const Bytes source = bytes(sizeof(Number));
        Number value{};
        if (!source.empty()) std::memcpy(&value, source.data(), source.size());
        return value;
    }

    /// The next `count` bytes, or all that are left.
    Bytes bytes(std::size_t count) {
        const Bytes taken = left.first(std::min(count, left.size()));
        left = left.subspan(taken.size());
        return taken;
    }

    /// A text of as many bytes as the next byte says, or all that are left.
    std::string text() {
        const Bytes taken = bytes(byte());
        return {taken.begin(), taken.end()};
    }

    /// All that is left.
    std::string rest() {
        const Bytes taken = bytes(left.size());
        return {taken.begin(), taken.end()};
    }

private:
    Bytes left;
};

}  // namespace fuzz
