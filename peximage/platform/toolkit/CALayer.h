#pragma once

#include "peximage/platform/raster/CGColor.h"

namespace pex {

/// How a view's content is framed: cut to a rectangle with round corners, with a border along the inside of
/// its edge, over the content. Lengths in points. A value.
struct CALayer {
    /// Of the round corners; 0: square ones.
    double cornerRadius = 0;
    /// 0: no border.
    double borderWidth = 0;
    /// The border's colour.
    CGColor borderColor{};

    friend bool operator==(const CALayer&, const CALayer&) = default;
};

} // namespace pex
