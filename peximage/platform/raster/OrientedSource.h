#pragma once

#include "peximage/platform/raster/Orientation.h"
#include "peximage/platform/raster/PixelSource.h"

#include <memory>
#include <optional>

namespace pex {

/// The stored picture turned upright; the source itself when it is so already. Each strip goes straight to
/// its upright place as it is decoded.
std::shared_ptr<const PixelSource> makeUpright(std::shared_ptr<const PixelSource> stored,
                                               Orientation orientation);

/// What such a source turns: small results can be turned instead of it.
struct TurnedPicture {
    std::shared_ptr<const PixelSource> stored;
    Orientation orientation;
};
/// Absent for sources that turn nothing.
std::optional<TurnedPicture> turnedPicture(const PixelSource& source);

} // namespace pex
