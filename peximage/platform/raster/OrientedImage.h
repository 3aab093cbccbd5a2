#pragma once

#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/raster/Orientation.h"

#include <optional>

namespace pex {

/// The image's pixels turned upright, on all cores; the image itself when it is so already. Absent when
/// memory cannot be had.
std::optional<CGImage> orientedImage(const CGImage& image, Orientation orientation);

} // namespace pex
