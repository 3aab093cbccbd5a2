#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/raster/Orientation.h"

#include <optional>

namespace pex {

/// The image turned and mirrored as the orientation says, in its own layout and colour space, on all
/// cores. An encoded image stays encoded and is turned strip by strip when it is decoded. Absent when
/// memory cannot be had. Safe from any thread.
PEX_EXPORT std::optional<CGImage> turnedImage(const CGImage& image, Orientation orientation);

/// The rectangle of the original picture that becomes `turned` in the turned picture, which is
/// `turnedSize` large. Pixels, y downward.
PEX_EXPORT CGRect rectBeforeTurning(const CGRect& turned, CGSize turnedSize, Orientation orientation);

} // namespace pex
