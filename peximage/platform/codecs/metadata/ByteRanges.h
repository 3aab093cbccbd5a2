#pragma once

#include <cstddef>
#include <vector>

namespace pex {

/// Positions from `begin` up to `end`.
struct ByteRange {
    std::size_t begin, end;
};
using ByteRanges = std::vector<ByteRange>;

/// In order, touching and overlapping ones joined, empty ones left out.
ByteRanges joined(ByteRanges ranges);

/// What of the ranges lies in none of the others; joined, too.
ByteRanges without(const ByteRanges& ranges, const ByteRanges& others);

} // namespace pex
