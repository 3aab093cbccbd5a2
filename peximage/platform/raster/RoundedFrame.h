#pragma once

#include "peximage/platform/raster/CGColor.h"
#include "peximage/platform/raster/PixelView.h"

namespace pex {

/// Cuts a picture to a rectangle with round corners and lays a border along the inside of its edge, both
/// antialiased. Lengths in pixels; a radius is limited to half the shorter side. The pixels are R G B A,
/// premultiplied.
void frameRounded(const MutablePixelView& pixels, double radius, double borderWidth, const CGColor& border);

} // namespace pex
