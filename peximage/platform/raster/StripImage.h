#pragma once

#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/raster/PixelSource.h"

#include <functional>
#include <optional>

namespace pex {

/// Makes a picture by `fill(strip, firstRow)` for strips of its rows, on all cores; every byte of a strip has
/// to be written. Absent, with a reason, when memory runs out, in `fill` too, or the work is stopped.
std::optional<CGImage> imageOfStrips(PixelSize size, PixelLayout layout, const CGColorSpace& colorSpace,
                                     const std::function<void(MutablePixelView strip, int firstRow)>& fill);

} // namespace pex
