#pragma once

#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/geometry/CGSize.h"
#include "peximage/platform/geometry/Length.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace pex {

class PexImage;

namespace arguments {

/// Arguments of `PexImage`'s scaling, cutting and turning, found under its name ("PexImage::WithMaxSide").
struct Geometry {
    /// Stretched to exactly this size in pixels, rounded to whole ones.
    struct To {
        /// In pixels.
        CGSize to;
    };

    /// The aspect ratio is kept. The receiver itself when scaling fails.
    struct ToWidth {
        /// In pixels.
        Length toWidth;
    };

    /// The aspect ratio is kept. The receiver itself when scaling fails.
    struct ToHeight {
        /// In pixels.
        Length toHeight;
    };

    /// The longer side at most the bound, the aspect ratio kept, sides truncated to whole pixels, at least 1.
    /// An image within the bound gives a new one of the same size.
    struct WithMaxSide {
        /// The longest side allowed, in pixels.
        Length withMaxSide;
    };

    /// The shorter side at most the bound; the receiver itself when it is so already.
    struct WithMinSideBoundedTo {
        /// The longest shorter side allowed, in pixels.
        Length withMinSideBoundedTo;
    };

    /// In pixels, origin at the top-left corner, y downward.
    struct ToRect {
        /// The rectangle to keep.
        CGRect to;
    };
    /// The same.
    struct ToTargetRect {
        /// The rectangle to keep.
        CGRect toTargetRect;
    };

    /// By an angle in the bitmap's own space, where y grows upward and positive angles turn anticlockwise:
    /// `r90Clockwhise` is a quarter turn by the positive angle, which a person sees as anticlockwise.
    /// `fixHorizon` gives an equal image, `none` the receiver itself.
    enum class RotationDirection { r90Clockwhise, r90AntiClockWise, r180, fixHorizon, none };

    /// Any angle, anticlockwise. The canvas grows to hold the image, with transparent corners: as it is seen
    /// at its size in points, so that a picture whose resolution differs along its sides gets square pixels
    /// of the finer one. The profile of a colour picture stays; a grey one becomes sRGB, which has room for
    /// the corners. The receiver itself when there is no bitmap or the angle is no number.
    struct Degrees {
        /// The angle; positive ones turn anticlockwise.
        Length degrees;
    };
};

/// Arguments of `PexImage`'s splitting and joining, found under its name ("PexImage::RowsAndColumns").
struct Tiling {
    /// Rows from the top, tiles in a row from the left.
    using Tiles = std::vector<std::vector<std::shared_ptr<PexImage>>>;

    /// Tiles of a size in pixels, those at the right and the bottom edge as much as is left. An empty list
    /// when a tile is not larger than twice the border.
    struct ToTileSize {
        /// A tile's size, in pixels.
        CGSize to;
        /// In pixels: each tile overlaps its neighbours by twice as much.
        Length tileBorder = 0;
    };

    /// The same; an absent side is the image's own.
    struct ToTileSides {
        /// A tile's width, in pixels.
        std::optional<Length> toWidth = {};
        /// A tile's height, in pixels.
        std::optional<Length> height = {};
        /// In pixels: each tile overlaps its neighbours by twice as much.
        Length tileBorder = 0;
    };

    /// Tiles as wide as the width divided by `rows` and as high as the height divided by `columns`, rounded
    /// up: the first count divides the width. An absent count leaves that side whole; one below 1 gives an
    /// empty list.
    struct RowsAndColumns {
        /// Into how many parts the width is divided.
        std::optional<std::int64_t> rows = {};
        /// Into how many parts the height is divided.
        std::optional<std::int64_t> columns = {};
    };

    /// A width and a height in pixels that are each either exact or the most a tile may have; an absent one
    /// is the image's own.
    struct BoundedSplit {
        /// In pixels; exact, unless `maxWidth` is set.
        std::optional<Length> toWidth = {};
        /// The width is a maximum: as few tiles as can be, of nearly equal width.
        bool maxWidth = false;
        /// In pixels; exact, unless `maxHeight` is set.
        std::optional<Length> height = {};
        /// The height is a maximum: as few tiles as can be, of nearly equal height.
        bool maxHeight = false;
    };

    /// Where the second image goes.
    enum class JoinOrientation {
        horizontal, ///< The second image to the right of the first.
        vertical,   ///< The second image below the first.
    };
    /// Which of two touching sides is resized to the length of the other.
    enum class ScaleMode {
        max, ///< The smaller one of the touching sides is enlarged to the larger.
        min, ///< The larger one is reduced to the smaller.
    };
    /// The second image, and how the two are joined.
    struct With {
        /// The second image.
        std::shared_ptr<PexImage> with;
        /// Where it goes.
        JoinOrientation orientation = JoinOrientation::horizontal;
        /// Which of the two is resized.
        ScaleMode scaleMode = ScaleMode::min;
    };
};

} // namespace arguments
} // namespace pex
