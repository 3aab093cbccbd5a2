#pragma once

#include <cmath>

namespace pex {

/// A width and a height of double precision; pixels or points as the user of it says. May be negative or not
/// a number: operations that need a usable size check it.
struct CGSize {
    /// From left to right.
    double width = 0;
    /// From top to bottom.
    double height = 0;

    /// Both sides truncated toward zero to whole numbers (still doubles).
    CGSize boundToInt() const { return {std::trunc(width), std::trunc(height)}; }

    friend constexpr bool operator==(const CGSize&, const CGSize&) = default;
};

/// Side by side.
/// @{
constexpr CGSize operator*(CGSize s, double factor) { return {s.width * factor, s.height * factor}; }
constexpr CGSize operator/(CGSize s, double divisor) { return {s.width / divisor, s.height / divisor}; }
/// @}

} // namespace pex
