#pragma once

#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/raster/Orientation.h"

#include <optional>

namespace pex {

/// The image turned and mirrored as the orientation says, in its own layout and colour space, on all cores.
/// One that is still encoded stays so: each strip then goes to its place as it is decoded. Absent when memory
/// cannot be had.
std::optional<CGImage> turnedImage(const CGImage& image, Orientation orientation);

/// Where a rectangle of the turned picture, whose size is given, lies in the one it was turned from. Pixels,
/// y downward.
CGRect rectBeforeTurning(const CGRect& turned, CGSize turnedSize, Orientation orientation);

} // namespace pex
