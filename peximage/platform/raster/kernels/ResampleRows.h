#pragma once

#include "peximage/platform/raster/PixelLayout.h"

#include <cstddef>
#include <cstdint>

namespace pex::kernels {

/// Result rows are made in groups of `groupRows`, grey ones in groups of four times as many: where coloured
/// rows have four channels, these have four rows. The samples of a group between the two passes lie so that
/// vectors of any length hold whole rows of a pair of neighbouring pixels: for each pair of pixels, for each
/// row, for each channel, the left and the right sample, 16 bits each with `sampleFraction` fraction bits.
constexpr int groupRows = 4;
constexpr int sampleFraction = 6;
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

/// The horizontal pass: the rows of a group from their samples.
struct WeighColumns {
    const std::int16_t* samples;
    const int* firstPair;
    const std::int16_t* weights;
    int pairs;
    /// Whether columns 2i and 2i + 1 have the same first pair.
    bool inTwos;
    int shift;
    int width;
    PixelLayout layout;
    std::uint8_t* const* rows;
    int rowCount;
};
void weighColumns(const WeighColumns& job);

/// Sizes of the buffers, which begin at multiples of 64 bytes.
std::size_t samplesBytes(int width, PixelLayout layout);
std::size_t sumsBytes(std::size_t bytes);

} // namespace pex::kernels
