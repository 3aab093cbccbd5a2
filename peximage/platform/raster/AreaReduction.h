#pragma once

#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/raster/PixelSource.h"

#include <optional>

namespace pex {

/// The image in a size no larger than its own, every pixel the mean of the area below it: unlike a filter
/// that keeps edges crisp, it leaves the mean of the whole picture as it is, but for rounding. Alpha is
/// multiplied in. Absent for a larger or impossible size, and without memory.
std::optional<CGImage> areaReduced(const CGImage& image, PixelSize size);

} // namespace pex
