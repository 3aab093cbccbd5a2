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
/// Where the samples of a pair of pixels begin.
constexpr std::size_t pairSamples = std::size_t{8} * groupRows;

/// The size of the buffer for a group, which begins at a multiple of 64 bytes.
std::size_t samplesBytes(int width, PixelLayout layout);

} // namespace pex::kernels
