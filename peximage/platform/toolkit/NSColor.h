#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/raster/CGColor.h"

namespace pex {

/// The platform's colour: sRGB, channels 0–1, straight alpha. A value.
class PEX_EXPORT NSColor {
  public:
    /// A hue around the colour circle (0 and 1 red, 1/3 green, 2/3 blue), a saturation and a brightness.
    struct Hue {
        double hue = 0;        ///< 0–1 around the circle.
        double saturation = 0; ///< 0 grey, 1 pure.
        double brightness = 0; ///< 0 black, 1 as bright as it can be.
        double alpha = 1;      ///< 0 transparent, 1 opaque.
    };

    constexpr NSColor() = default;
    /// Channels 0–1; what lies outside stays as it is.
    constexpr NSColor(double red, double green, double blue, double alpha = 1)
        : color_{red, green, blue, alpha} {}
    /// `NSColor({.hue = 0.5, .saturation = 1, .brightness = 1})`, by the standard hexagonal model. What lies
    /// outside 0–1 is limited to it first.
    explicit NSColor(const Hue& parts);

    /// The channels, 0–1.
    /// @{
    constexpr double redComponent() const { return color_.red; }
    constexpr double greenComponent() const { return color_.green; }
    constexpr double blueComponent() const { return color_.blue; }
    constexpr double alphaComponent() const { return color_.alpha; }
    /// @}

    /// The colour in the hexagonal model of hue, saturation and brightness, for channels of 0–1. A grey has
    /// hue 0, and black has saturation 0, too.
    /// @{
    double hueComponent() const;
    double saturationComponent() const;
    double brightnessComponent() const;
    /// @}

    /// The same colour as a plain struct.
    constexpr const CGColor& cgColor() const { return color_; }

    /// Fills the rectangle, in user space, of this thread's current `NSGraphicsContext`; nothing without one.
    void drawSwatch(const CGRect& rect) const;

    friend constexpr bool operator==(const NSColor&, const NSColor&) = default;

  private:
    CGColor color_;
};

} // namespace pex
