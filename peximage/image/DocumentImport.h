#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/filters/CIImage.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/raster/CGImage.h"

#include <optional>

namespace pex {

/// An illustration file (a PDF document inside), or any other file that the library reads as an image.
struct AiUrl {
    /// A local file.
    URL aiUrl;
    /// Scales both sides; absent: one pixel a point. Drawings are drawn anew at the scaled size.
    std::optional<double> scaleFactor = {};
};

/// The first image or page of the file. Absent when the file is no image. An image that cannot be scaled
/// comes in its own size.
PEX_EXPORT std::optional<CGImage> loadCGImage(const AiUrl& file);

/// The same as a picture for the filter graph. With a scale factor the sides are those of the desktop image
/// in points, scaled and truncated; a failure prints one line.
PEX_EXPORT std::optional<CIImage> loadCIImage(const AiUrl& file);

} // namespace pex
