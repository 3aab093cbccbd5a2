#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/KeyedDocument.h"
#include "peximage/platform/toolkit/NSColor.h"

#include <cstdint>

namespace pex {

/// A colour of red, green, blue and opacity, each from 0 to 1. A plain value; channels may be set to
/// anything, also outside that range.
class PEX_EXPORT PexColor {
  public:
    /// The four channels as whole numbers from 0 to 255.
    struct IntRed {
        /// The four channels, 0–255.
        /// @{
        int intRed = 0;
        int green = 0;
        int blue = 0;
        int alpha = 255;
        /// @}
    };

    /// Opaque black.
    constexpr PexColor() = default;
    /// The four channels, 0–1.
    constexpr PexColor(double r, double g, double b, double a = 1) : red(r), green(g), blue(b), alpha(a) {}
    /// `PexColor({.intRed = 255, .green = 128, .blue = 0})`: each channel is its 255th part.
    constexpr explicit PexColor(const IntRed& c)
        : PexColor(c.intRed / 255.0, c.green / 255.0, c.blue / 255.0, c.alpha / 255.0) {}
    /// The same channels.
    constexpr explicit PexColor(const NSColor& c)
        : PexColor(c.redComponent(), c.greenComponent(), c.blueComponent(), c.alphaComponent()) {}

    /// The same channels.
    constexpr NSColor nsColor() const { return {red, green, blue, alpha}; }

    /// The channels, 0–1.
    /// @{
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 1;
    /// @}

    /// The channels from 0 to 255, rounded to the nearest; what lies outside counts as the nearer end, what
    /// is not a number as 0.
    /// @{
    constexpr std::uint8_t redB255() const { return b255(red); }
    constexpr std::uint8_t greenB255() const { return b255(green); }
    constexpr std::uint8_t blueB255() const { return b255(blue); }
    constexpr std::uint8_t alphaB255() const { return b255(alpha); }
    /// @}

    /// Opaque white.
    static const PexColor pureWhite;

    /// Channel by channel, exactly.
    friend constexpr bool operator==(const PexColor&, const PexColor&) = default;

    static constexpr auto documentKeys() {
        using keyed::required;
        return std::tuple(required("red", &PexColor::red), required("green", &PexColor::green),
                          required("blue", &PexColor::blue), required("alpha", &PexColor::alpha));
    }

  private:
    static constexpr std::uint8_t b255(double channel) {
        if (!(channel > 0)) return 0;
        // Rounds right below 255; lround is not constexpr.
        return channel >= 1 ? 255 : static_cast<std::uint8_t>(channel * 255 + 0.5); // NOLINT
    }
};

inline constexpr PexColor PexColor::pureWhite{1, 1, 1, 1};

} // namespace pex
