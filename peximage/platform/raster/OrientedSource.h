#pragma once

#include "peximage/platform/raster/Orientation.h"
#include "peximage/platform/raster/PixelSource.h"

#include <memory>
#include <optional>

namespace pex {

/// A source that turns the stored picture upright; the stored source itself when it is upright already.
/// Each strip is written straight to its upright place as it is decoded.
std::shared_ptr<const PixelSource> makeUpright(std::shared_ptr<const PixelSource> stored,
                                               Orientation orientation);

/// The stored picture and how it is turned, for callers that turn a small result instead.
struct TurnedPicture {
    std::shared_ptr<const PixelSource> stored;
    Orientation orientation;
};
/// Absent for sources that turn nothing.
std::optional<TurnedPicture> turnedPicture(const PixelSource& source);

} // namespace pex
