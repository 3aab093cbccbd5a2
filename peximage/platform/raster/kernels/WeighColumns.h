#pragma once

#include "peximage/platform/raster/kernels/ResampleSamples.h"

#include <cstdint>

namespace pex::kernels {

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

} // namespace pex::kernels
