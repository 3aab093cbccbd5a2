#pragma once

#include "peximage/platform/raster/kernels/ResampleSamples.h"

#include <cstddef>
#include <cstdint>

namespace pex::kernels {

/// Tiles of columns begin at multiples of this.
constexpr std::size_t tileStep = 64;

/// Two source rows, and what each counts in the rows of a group.
struct RowPair {
    const std::uint8_t* upper;
    const std::uint8_t* lower;
    /// For each row of the group, the upper row's weight in the low half and the lower row's in the high.
    std::int32_t weights[groupRows];
    /// Bit r is set where row r has weights other than 0, and so are the bits before all set ones or those
    /// after them. 0 ends a list of pairs.
    unsigned used;
};

/// Where `weighRows` takes the unfinished sums from and what it does with them.
enum class Sums { wholeWindow, begin, resume, finish };

/// The vertical pass: weighs `bytes` columns of source rows into the rows of a group.
struct WeighRows {
    const RowPair* pairs;
    std::size_t bytes;
    /// How many bytes before a row's first one its first pair of pixels begins: one pixel or nothing.
    std::size_t lead;
    /// The part of the columns, counted with the lead, that is to be weighed: both ends are multiples of
    /// `tileStep`, or `end` is that of the row.
    std::size_t begin, end;
    int shift;
    /// With `begin`, `resume` and `finish` the window comes in parts, and `sums` (of `sumsBytes`) keeps what
    /// came so far.
    Sums part;
    std::int32_t* sums;
    /// Of `samplesBytes`; written by `wholeWindow` and `finish`.
    std::int16_t* samples;
    bool grey;
    /// Grey groups are made in four calls, 0 to 3; coloured ones in one, 0.
    int quarter;
};
void weighRows(const WeighRows& job);

/// The size of the buffer for sums, which begins at a multiple of 64 bytes.
std::size_t sumsBytes(std::size_t bytes);

} // namespace pex::kernels
