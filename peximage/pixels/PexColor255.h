#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/toolkit/NSColor.h"
#include "peximage/platform/varda/PexColor.h"

#include <cstddef>
#include <cstdint>
#include <functional>

namespace pex {

/// A colour of four 8-bit channels, as bitmaps hand out and take single pixels. A plain value; nothing here
/// multiplies the colour by its opacity. Its document is an object of the four channels, all required.
class PEX_EXPORT PexColor255 {
  public:
    /// Transparent black.
    constexpr PexColor255() = default;
    /// The four channels, 0–255.
    constexpr PexColor255(std::uint8_t red, std::uint8_t green, std::uint8_t blue, std::uint8_t alpha)
        : r(red), g(green), b(blue), a(alpha) {}
    /// The colour's 0–255 accessors.
    constexpr explicit PexColor255(const PexColor& color)
        : PexColor255(color.redB255(), color.greenB255(), color.blueB255(), color.alphaB255()) {}
    /// Each component × 255, truncated to a whole number of which the low 8 bits are kept.
    explicit PexColor255(const NSColor& color);

    std::uint8_t r = 0; ///< Red, 0–255.
    std::uint8_t g = 0; ///< Green, 0–255.
    std::uint8_t b = 0; ///< Blue, 0–255.
    std::uint8_t a = 0; ///< Opacity: 0 transparent, 255 opaque.

    /// Opaque black.
    static const PexColor255 pureBlack;

    /// The 255th parts of the channels.
    /// @{
    constexpr NSColor nsColor() const { return {r / 255.0, g / 255.0, b / 255.0, a / 255.0}; }
    constexpr PexColor pexColor() const { return PexColor(r / 255.0, g / 255.0, b / 255.0, a / 255.0); }
    /// @}

    /// The brightness of the hue–saturation–brightness model: the largest channel of 0–1.
    double lightness() const;
    /// The colour with its brightness times the factor, limited to 0–1. It goes through `NSColor` and back,
    /// so a channel may end one lower than it began.
    PexColor255 modifyLightness(double by) const;
    /// The same with the saturation.
    PexColor255 modifySaturation(double by) const;

    /// The product of the colour channels, r·r + g·g + b·b of the two colours: 0 to 195075, larger the more
    /// alike two bright colours are.
    std::int64_t simpleDistance(const PexColor255& to) const;

    friend constexpr bool operator==(const PexColor255&, const PexColor255&) = default;

    static constexpr auto documentKeys() {
        using keyed::required;
        return std::tuple(required("r", &PexColor255::r), required("g", &PexColor255::g),
                          required("b", &PexColor255::b), required("a", &PexColor255::a));
    }
};

inline constexpr PexColor255 PexColor255::pureBlack{0, 0, 0, 255};

} // namespace pex

template <>
struct std::hash<pex::PexColor255> {
    std::size_t operator()(const pex::PexColor255& color) const noexcept {
        const std::uint32_t channels = (std::uint32_t{color.r} << 24) | (std::uint32_t{color.g} << 16) |
                                       (std::uint32_t{color.b} << 8) | color.a;
        return std::hash<std::uint32_t>()(channels);
    }
};
