#pragma once

#include <cstdint>
#include <limits>

/// Arithmetic on time stamps that come from outside: it stops at the ends of the range instead of
/// overflowing.
namespace base {

[[nodiscard]] constexpr std::int64_t addSaturated(std::int64_t a, std::int64_t b) noexcept {
    using Limits = std::numeric_limits<std::int64_t>;
    if (b > 0 && a > Limits::max() - b) {
        return Limits::max();
    }
    if (b < 0 && a < Limits::min() - b) {
        return Limits::min();
    }
    return a + b;
}

[[nodiscard]] constexpr std::int64_t subtractSaturated(std::int64_t a, std::int64_t b) noexcept {
    using Limits = std::numeric_limits<std::int64_t>;
    if (b < 0 && a > Limits::max() + b) {
        return Limits::max();
    }
    if (b > 0 && a < Limits::min() + b) {
        return Limits::min();
    }
    return a - b;
}

/// Truncates toward zero; out of range gives the nearest end, not-a-number gives 0.
[[nodiscard]] constexpr std::int64_t toInt64Saturated(double value) noexcept {
    using Limits = std::numeric_limits<std::int64_t>;
    constexpr double kTwoPow63 = 9223372036854775808.0;
    if (value != value) { // NOLINT(misc-redundant-expression): only not-a-number differs from itself
        return 0;
    }
    if (value >= kTwoPow63) {
        return Limits::max();
    }
    if (value < -kTwoPow63) {
        return Limits::min();
    }
    return static_cast<std::int64_t>(value);
}

} // namespace base
