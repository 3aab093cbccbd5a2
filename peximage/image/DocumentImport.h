#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/filters/CIImage.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/raster/CGImage.h"

#include <optional>

namespace pex {

/// Illustration files, which are PDF documents inside, and whatever else the library reads as an image: its
/// first image or page, one pixel a point. The pages of documents are loaded by `PexImage`.

struct AiUrl {
    URL aiUrl;
    /// Scales both sides; drawn anew at the size that gives, where the file holds no pixels.
    std::optional<double> scaleFactor = {};
};

/// Absent when the file is no image; one that cannot be scaled comes in its own size.
PEX_EXPORT std::optional<CGImage> loadCGImage(const AiUrl& file);

/// As a picture for the filter graph. With a scale factor the sides are those of the desktop image in points,
/// scaled and truncated, and a failure is told in one printed line.
PEX_EXPORT std::optional<CIImage> loadCIImage(const AiUrl& file);

} // namespace pex
