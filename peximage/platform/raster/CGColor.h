#pragma once

namespace pex {

/// A colour in sRGB, channels 0–1, straight alpha.
struct CGColor {
    double red = 0;   ///< 0–1.
    double green = 0; ///< 0–1.
    double blue = 0;  ///< 0–1.
    double alpha = 1; ///< 0 transparent, 1 opaque.

    friend constexpr bool operator==(const CGColor&, const CGColor&) = default;
};

} // namespace pex
