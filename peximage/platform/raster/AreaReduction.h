#pragma once

#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/raster/PixelSource.h"

#include <optional>

namespace pex {

/// The image reduced to a size; every pixel is the mean of the area that it covers. Unlike a filter that
/// keeps edges crisp, this keeps the mean of the whole picture, but for rounding. Alpha is multiplied in.
/// Absent for a larger or impossible size, and without memory.
std::optional<CGImage> areaReduced(const CGImage& image, PixelSize size);

} // namespace pex
