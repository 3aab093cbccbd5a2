#pragma once

#include "peximage/platform/raster/PixelLayout.h"

#include <cstdint>

namespace pex::kernels {

/// Rewrites a row of pixels in another layout. Alpha is multiplied in, round(c * a / 255), or divided out,
/// round(c * 255 / a) but at most 255 and nothing where a is 0; where it stays multiplied in, colour becomes
/// at most alpha. Going to a layout without alpha takes the
/// colour as it is (premultiplied: over black); the skipped byte is written as 255. Coming from a layout
/// without alpha sets alpha to 255. Grey from colour takes the Rec. 601 luma; colour from grey repeats it.
/// `from` and `to` may be the same row when both layouts have equal bytes a pixel; they must not overlap
/// otherwise.
void convertRow(const std::uint8_t* from, PixelLayout fromLayout, std::uint8_t* to, PixelLayout toLayout,
                int pixels);

} // namespace pex::kernels
