#pragma once

#include <algorithm>
#include <cstdint>

namespace pex {

/// Truncated toward zero; what no integer can hold is limited to the largest ones, what is no number is 0.
constexpr std::int64_t truncated(double value) {
    constexpr double largest = 9.0e18;
    return value == value ? static_cast<std::int64_t>(std::clamp(value, -largest, largest)) : 0;
}

} // namespace pex
