#pragma once

#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/varda/PexColor.h"

#include <cstdint>
#include <memory>
#include <tuple>
#include <vector>

namespace pex {

class PexConvolution;
class PexImage;
class PexLut;

namespace arguments {

/// Arguments of `PexImage`'s work on colours and transparency, found under its name ("PexImage::KeyColor").
struct Pixels {
    /// A colour to be made transparent, and how far from it colours still count as it. A value that
    /// applications keep in their documents.
    struct KeyColor {
        /// The colour that becomes transparent.
        PexColor color{};
        /// In units of the 8-bit channels, √(Δr² + Δg² + Δb²): below 1 only the very colour counts.
        double tolerance = 0;

        friend bool operator==(const KeyColor&, const KeyColor&) = default;

        static constexpr auto documentKeys() {
            using keyed::required;
            return std::tuple(required("color", &KeyColor::color),
                              required("tolerance", &KeyColor::tolerance));
        }
    };

    /// Opacity from the mask's brightness, the mean of its channels: white is opaque. The mask is stretched
    /// to the platform image's size in points, which for a file that states a resolution is not its size in
    /// pixels: where it is smaller, the two meet at the lower left and the rest is transparent. An image made
    /// from `cgImage` has as many points as pixels. The receiver itself when that is impossible.
    struct BitmapMask {
        /// The mask; white is opaque.
        CGImage mask;
    };

    /// The mask's own opacity, the mask stretched to the image. The receiver itself when the mask has no
    /// pixels.
    struct ImageMask {
        /// The mask, whose alpha counts.
        std::shared_ptr<PexImage> mask;
    };

    /// A kernel of nine weights with a background of four bytes; fewer of either give null.
    struct Convolution {
        /// Kernel and background; looked at during the call only.
        const PexConvolution& convolution;
    };
    /// The weights alone, on a transparent black background.
    struct Kernel {
        /// Nine weights, row by row from the top; looked at during the call only.
        const std::vector<std::int16_t>& kernel;
    };

    /// Colours, as sRGB, looked up in a table; the result is sRGB.
    struct Lut {
        /// The table; looked at during the call only.
        const PexLut& lut;
    };
    /// The same; null when the file is no table.
    struct LutAtUrl {
        /// A lookup table's file.
        URL lutAtUrl;
    };
};

} // namespace arguments
} // namespace pex
