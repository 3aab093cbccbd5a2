#pragma once

#include "peximage/platform/codecs/CGImageDestination.h"

namespace pex {

/// A PNG of 8 bits: grey, RGB, or RGBA when a pixel is not opaque. Records the dpi that the options give, and
/// the profile when the colours are not sRGB's. Absent when the pixels or the memory cannot be had.
std::optional<Data> encodePng(const CGImage& image, const CGImageDestination::Options& options);

} // namespace pex
