#pragma once

#include "peximage/platform/codecs/PngDecoder.h"
#include "peximage/platform/raster/CGColorSpace.h"

#include <cstddef>
#include <optional>

namespace pex {

/// The ICC profile in a PNG's header; absent when there is none, when it is broken or of more than
/// `maxBytes`, and when it is not for the picture's kind of colour.
std::optional<CGColorSpace> embeddedPngProfile(const PngDecoder& decoder, std::size_t maxBytes);

/// What the colours mean as decoded into `layout`: the embedded profile's, or those of the header's gamma and
/// primaries, or sRGB's.
CGColorSpace pngColorSpace(const PngDecoder& decoder, PixelLayout layout,
                           const std::optional<CGColorSpace>& profile);

} // namespace pex
