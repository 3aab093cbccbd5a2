#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/raster/Orientation.h"

#include <optional>

namespace pex {

/// What is done to the picture of a JPEG as it is seen, whatever orientation the file names.
struct LosslessChange {
    /// The part that stays, in whole pixels, y downward; what lies outside of the picture does not count.
    /// Absent: all of it.
    std::optional<CGRect> part = {};
    /// How that part is turned or mirrored.
    Orientation turn = Orientation::up;
    /// Whether the result is progressive even if the file is not.
    bool progressive = false;
};

/// The file with that change made in the coefficients of its picture, which are neither decoded nor encoded
/// anew: nothing is lost. The result is stored upright. It keeps what the file says of itself, with the sizes
/// corrected and without thumbnails.
///
/// Absent, for the reason `badArgument`, where the change would have to cut through a block of coefficients:
/// the part begins, as the result shows it, at a multiple of the blocks' size (8 or 16 pixels, as the file
/// has it); and absent for what is no sound JPEG (`notAnImage`, `damaged`), or exceeds one of `ImageLimits`.
/// Safe from any thread.
PEX_EXPORT std::optional<Data> changedWithoutLoss(const Data& jpeg, const LosslessChange& change);

} // namespace pex
