#pragma once

#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/geometry/CGSize.h"

namespace pex {

/// A picture encoded to keep a byte budget.
struct FittedPicture {
    /// The whole file.
    Data bytes;
    /// 0 … 1, 1 best: the one that was found.
    double quality;
    /// In pixels; smaller than the picture's where it had to be shrunk.
    CGSize size;
};

} // namespace pex
