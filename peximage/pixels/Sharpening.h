#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/raster/CGImage.h"

#include <optional>

namespace pex {

/// A bitmap with its luma sharpened: see `CIImage::sharpenedLuminance`. Absent, with a diagnostic line, for a
/// sharpness that is not finite and for lack of memory.
PEX_EXPORT std::optional<CGImage> sharpen(const CGImage& image, float sharpness);

} // namespace pex
