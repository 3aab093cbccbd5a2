#pragma once

#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/raster/Interpolation.h"
#include "peximage/platform/raster/PixelSource.h"

#include <optional>

namespace pex {

/// The image at another size, mapped edge to edge. It is resampled on premultiplied pixels, in its own colour
/// space; straight alpha comes out premultiplied. An image that is still encoded is decoded reduced and by
/// rows where its format can, so that only the result is ever held. The image itself when it has that size
/// already. Absent when memory for the result cannot be had, or `pixels()` would be.
std::optional<CGImage> scaledImage(const CGImage& image, PixelSize size, Interpolation interpolation);

/// A part of the image at another size: what `scaledImage` to `whole`, which may be of any size, would show
/// in `part` (whole pixels inside it, y downward). Only the part is ever made.
std::optional<CGImage> scaledPart(const CGImage& image, CGSize whole, const CGRect& part,
                                  Interpolation interpolation);

} // namespace pex
