#pragma once

#include "peximage/platform/raster/Orientation.h"

#include <cstdint>
#include <optional>
#include <span>

namespace pex {

/// The orientation that an EXIF block says, which may begin with "Exif\0\0" or with its TIFF header; absent
/// when it says none.
std::optional<Orientation> exifOrientation(std::span<const std::uint8_t> exif);

} // namespace pex
