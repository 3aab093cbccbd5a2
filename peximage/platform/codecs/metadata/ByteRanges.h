#pragma once

#include <cstddef>
#include <vector>

namespace pex {

/// Positions from `begin` up to `end`.
struct ByteRange {
    std::size_t begin, end;
};
using ByteRanges = std::vector<ByteRange>;

/// Sorts ranges, joins touching and overlapping ones, and leaves out empty ones.
ByteRanges joined(ByteRanges ranges);

/// The parts of the ranges that lie in none of the others; sorted and joined, too.
ByteRanges without(const ByteRanges& ranges, const ByteRanges& others);

} // namespace pex
