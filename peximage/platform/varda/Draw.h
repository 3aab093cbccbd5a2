#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/geometry/CGPoint.h"
#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/toolkit/NSImage.h"

#include <memory>
#include <optional>

namespace pex {

/// Copies images into an image: `start`, any number of `copybits`, `end`. Every thread has targets of its
/// own, and they nest: after `end` the one before is the target again.
class PEX_EXPORT Draw {
  public:
    /// Makes the image this thread's target, its bitmap size × the largest screen scale pixels. False, with
    /// the target unchanged and nothing to end, when such a bitmap cannot be had.
    static bool start(const std::shared_ptr<NSImage>& image);

    /// What `copybits` draws, and where.
    struct Copybits {
        /// The image to draw; null draws nothing.
        std::shared_ptr<NSImage> srcImage;
        /// In points of the source; the whole of it when absent.
        std::optional<CGRect> srcRect = {};
        /// In points of the target, origin at the bottom-left corner. Wins over `dstPoint`.
        std::optional<CGRect> dstRect = {};
        /// The lower left corner, in points of the target: the source is drawn at its own size in points. At
        /// the origin when absent.
        std::optional<CGPoint> dstPoint = {};
        /// 0 invisible, 1 as the image is.
        double opacity = 1;
    };
    /// Draws source over what is there, smoothly scaled, its alpha multiplied by the opacity. Nothing without
    /// a target.
    static void copybits(const Copybits& copy);

    /// Ends drawing into the target; without one it does nothing.
    static void end();
};

} // namespace pex
