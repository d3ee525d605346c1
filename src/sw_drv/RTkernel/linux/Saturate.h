#pragma once
/// Numbers from doubles that may hold anything.

#include <cmath>
#include <limits>

namespace threadfunc {

/// `value` cut towards zero and to the range of `Integer`; 0 for a NaN.
template <typename Integer>
Integer saturate(double value) {
    // The largest value itself may have no double of its own; one beyond it always has.
    const double end = std::ldexp(1.0, std::numeric_limits<Integer>::digits);
    if (std::isnan(value)) return 0;
    if (value >= end) return std::numeric_limits<Integer>::max();
    if (value < static_cast<double>(std::numeric_limits<Integer>::min())) return std::numeric_limits<Integer>::min();
    return static_cast<Integer>(value);
}

/// a + b, cut to the range of `Integer`.
template <typename Integer>
constexpr Integer saturatingSum(Integer a, Integer b) {
    Integer sum = 0;
    if (!__builtin_add_overflow(a, b, &sum)) return sum;
    return b < 0 ? std::numeric_limits<Integer>::min() : std::numeric_limits<Integer>::max();
}

}  // namespace threadfunc
