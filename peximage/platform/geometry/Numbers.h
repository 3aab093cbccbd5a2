#pragma once

#include "peximage/platform/geometry/Truncated.h"

#include <cmath>
#include <cstdint>

namespace pex {

/// The platform's floating-point number. Products with integers convert the integer first, as the language
/// does anyway.
using CGFloat = double;

/// Truncated toward zero; what no integer can hold is limited to ±9e18, and what is no number is 0.
inline std::int64_t toInt(CGFloat value) { return truncated(value); }

/// The same number as a double.
constexpr CGFloat cgFloat(std::int64_t value) { return static_cast<CGFloat>(value); }

/// True when the value equals its truncation.
inline bool isInt(CGFloat value) { return std::isfinite(value) && std::trunc(value) == value; }

/// The truncated value divided by n, and 1 more where that leaves a remainder: 7 by 2 is 4, -7 by 2 is -2,
/// 0.5 by 2 is 0. By 0 it is 0.
inline CGFloat divided(CGFloat value, std::int64_t by) {
    if (by == 0) return 0;
    const std::int64_t whole = toInt(value), quotient = whole / by;
    return cgFloat(whole - quotient * by != 0 ? quotient + 1 : quotient);
}

} // namespace pex
