#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/filters/CIImage.h"
#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/raster/CGImage.h"

#include <optional>

namespace pex {

/// Renders filter graphs. It has no state: one context serves any number of threads.
class PEX_EXPORT CIContext {
  public:
    /// The part of the picture inside the rectangle, in strips on all cores. A rectangle of fractional size
    /// gives the nearest whole pixel size, at least 1 × 1, mapped edge to edge. Absent when the rectangle or
    /// the picture in it is empty or not finite, when the result is larger than `ImageLimits` allow, or when
    /// memory for it cannot be had.
    std::optional<CGImage> createCGImage(const CIImage& image, const CGRect& from) const;
};

} // namespace pex
