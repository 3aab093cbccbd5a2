#pragma once

#include "peximage/platform/raster/CGColor.h"

namespace pex {

/// How a view's content is framed: cut to a rectangle with round corners, with a border along the inside of
/// its edge, over the content. Lengths in points. A value.
struct CALayer {
    double cornerRadius = 0;
    double borderWidth = 0;
    CGColor borderColor{};

    friend bool operator==(const CALayer&, const CALayer&) = default;
};

} // namespace pex
