#pragma once

#include "peximage/platform/raster/Orientation.h"

#include <cstdint>
#include <optional>
#include <span>

namespace pex {

/// The orientation that an EXIF block tells of its picture: a TIFF header with its directories, with or
/// without the "Exif" signature of JPEG's APP1 before it. Absent when the block is broken or does not say.
std::optional<Orientation> exifOrientation(std::span<const std::uint8_t> exif);

} // namespace pex
