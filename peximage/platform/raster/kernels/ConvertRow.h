#pragma once

#include "peximage/platform/raster/PixelLayout.h"

#include <cstdint>

namespace pex::kernels {

/// Rewrites a row of pixels in another layout. Alpha is multiplied in or divided out with correct rounding;
/// going to a layout without alpha takes the colour as it is (premultiplied: over black), coming from one
/// sets alpha to 255. Grey from colour takes the Rec. 601 luma; colour from grey repeats it. `from` and `to`
/// may be the same row when both layouts have equal bytes a pixel.
void convertRow(const std::uint8_t* from, PixelLayout fromLayout, std::uint8_t* to, PixelLayout toLayout,
                int pixels);

} // namespace pex::kernels
