#pragma once

namespace pex {

/// A point of double-precision coordinates. Units and the direction of y are those of whoever uses it.
struct CGPoint {
    /// From the left.
    double x = 0;
    /// From the bottom or the top, as the user of the point says.
    double y = 0;

    friend constexpr bool operator==(const CGPoint&, const CGPoint&) = default;
};

/// Coordinate by coordinate.
/// @{
constexpr CGPoint operator+(CGPoint a, CGPoint b) { return {a.x + b.x, a.y + b.y}; }
constexpr CGPoint operator-(CGPoint a, CGPoint b) { return {a.x - b.x, a.y - b.y}; }
constexpr CGPoint operator*(CGPoint p, double factor) { return {p.x * factor, p.y * factor}; }
constexpr CGPoint operator/(CGPoint p, double divisor) { return {p.x / divisor, p.y / divisor}; }
/// @}

} // namespace pex
