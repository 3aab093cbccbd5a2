#pragma once

#include "peximage/platform/raster/CGImage.h"

#include <cstdint>
#include <optional>

namespace pex {

/// What drawing the picture, stretched, over nothing gives: width × height premultiplied pixels of the
/// layout, in device RGB, rows without padding. All zero without a picture or when it cannot be decoded.
/// Empty when a side is below 1, the size passes `ImageLimits`, the memory cannot be had, or
/// the work is stopped.
PixelBuffer drawnPixels(const std::optional<CGImage>& picture, std::int64_t width, std::int64_t height,
                        PixelLayout layout);

/// The same without a picture: all zero.
PixelBuffer blankPixels(std::int64_t width, std::int64_t height);

} // namespace pex
