#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/raster/CGColor.h"

namespace pex {

/// The platform's colour: sRGB, channels 0–1, straight alpha. A value.
class PEX_EXPORT NSColor {
  public:
    constexpr NSColor() = default;
    constexpr NSColor(double red, double green, double blue, double alpha = 1)
        : color_{red, green, blue, alpha} {}

    constexpr double redComponent() const { return color_.red; }
    constexpr double greenComponent() const { return color_.green; }
    constexpr double blueComponent() const { return color_.blue; }
    constexpr double alphaComponent() const { return color_.alpha; }
    constexpr const CGColor& cgColor() const { return color_; }

    /// Fills the rectangle, in user space, of this thread's current `NSGraphicsContext`; nothing without one.
    void drawSwatch(const CGRect& rect) const;

    friend constexpr bool operator==(const NSColor&, const NSColor&) = default;

  private:
    CGColor color_;
};

} // namespace pex
