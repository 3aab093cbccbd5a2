#pragma once

#include "peximage/platform/raster/CGImage.h"

#include <optional>

namespace pex {

/// The image in another layout and colour space; the image itself when it has both already. Absent when
/// memory cannot be had or the colours cannot be converted.
std::optional<CGImage> convertedImage(const CGImage& image, PixelLayout layout,
                                      const CGColorSpace& colorSpace);

/// The same into memory of the image's size. False, with the memory's content undefined, in those cases.
bool convertPixels(const CGImage& image, MutablePixelView to, const CGColorSpace& colorSpace);

/// True when colours of the two spaces need no conversion between each other.
bool sameColours(const CGColorSpace& a, const CGColorSpace& b);

} // namespace pex
