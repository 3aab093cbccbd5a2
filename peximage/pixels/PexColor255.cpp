#include "peximage/pixels/PexColor255.h"

#include "peximage/platform/geometry/Truncated.h"

namespace pex {
namespace {

std::uint8_t lowByte(double component) { return static_cast<std::uint8_t>(truncated(component * 255)); }

} // namespace

PexColor255::PexColor255(const NSColor& color)
    : PexColor255(lowByte(color.redComponent()), lowByte(color.greenComponent()),
                  lowByte(color.blueComponent()), lowByte(color.alphaComponent())) {}

double PexColor255::lightness() const { return nsColor().brightnessComponent(); }

PexColor255 PexColor255::modifyLightness(double by) const {
    const NSColor color = nsColor();
    return PexColor255(NSColor({.hue = color.hueComponent(),
                                .saturation = color.saturationComponent(),
                                .brightness = color.brightnessComponent() * by,
                                .alpha = color.alphaComponent()}));
}

PexColor255 PexColor255::modifySaturation(double by) const {
    const NSColor color = nsColor();
    return PexColor255(NSColor({.hue = color.hueComponent(),
                                .saturation = color.saturationComponent() * by,
                                .brightness = color.brightnessComponent(),
                                .alpha = color.alphaComponent()}));
}

std::int64_t PexColor255::simpleDistance(const PexColor255& to) const {
    return std::int64_t{r} * to.r + std::int64_t{g} * to.g + std::int64_t{b} * to.b;
}

} // namespace pex
