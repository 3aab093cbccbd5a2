#include "peximage/platform/toolkit/NSColor.h"

#include "peximage/platform/toolkit/NSGraphicsContext.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace pex {
namespace {

double limited(double part) { return part > 0 ? std::min(part, 1.0) : 0; }

/// How far the largest channel lies above the smallest.
double chroma(const CGColor& c) {
    return std::max({c.red, c.green, c.blue}) - std::min({c.red, c.green, c.blue});
}

} // namespace

NSColor::NSColor(const Hue& parts) {
    const double hue = limited(parts.hue), saturation = limited(parts.saturation),
                 brightness = limited(parts.brightness);
    const double sector = std::floor(hue * 6), within = hue * 6 - sector;
    const double lowest = brightness * (1 - saturation);
    const double falling = brightness * (1 - saturation * within);
    const double rising = brightness * (1 - saturation * (1 - within));
    const std::array<CGColor, 6> sectors = {{{brightness, rising, lowest, parts.alpha},
                                             {falling, brightness, lowest, parts.alpha},
                                             {lowest, brightness, rising, parts.alpha},
                                             {lowest, falling, brightness, parts.alpha},
                                             {rising, lowest, brightness, parts.alpha},
                                             {brightness, lowest, falling, parts.alpha}}};
    color_ = sectors[static_cast<std::size_t>(sector) % 6];
}

double NSColor::hueComponent() const {
    const double range = chroma(color_);
    if (!(range > 0)) return 0;
    const auto& [red, green, blue, alpha] = color_;
    double sixths = 0;
    if (red >= green && red >= blue)
        sixths = (green - blue) / range;
    else if (green >= blue)
        sixths = 2 + (blue - red) / range;
    else
        sixths = 4 + (red - green) / range;
    return (sixths < 0 ? sixths + 6 : sixths) / 6;
}

double NSColor::saturationComponent() const {
    const double brightness = brightnessComponent();
    return brightness > 0 ? chroma(color_) / brightness : 0;
}

double NSColor::brightnessComponent() const { return std::max({color_.red, color_.green, color_.blue}); }

void NSColor::drawSwatch(const CGRect& rect) const {
    const auto current = NSGraphicsContext::current();
    if (!current) return;
    current->cgContext()->saveGState();
    current->cgContext()->setFillColor(color_);
    current->cgContext()->fill(rect);
    current->cgContext()->restoreGState();
}

} // namespace pex
