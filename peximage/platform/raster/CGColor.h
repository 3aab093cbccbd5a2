#pragma once

namespace pex {

/// A colour in sRGB, channels 0–1, straight alpha.
struct CGColor {
    double red = 0, green = 0, blue = 0, alpha = 1;

    friend constexpr bool operator==(const CGColor&, const CGColor&) = default;
};

} // namespace pex
