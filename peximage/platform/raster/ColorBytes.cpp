#include "peximage/platform/raster/ColorBytes.h"

#include "peximage/platform/raster/ColorConversion.h"

#include <algorithm>
#include <cmath>

namespace pex {

std::uint8_t channelByte(double channel) {
    if (!(channel > 0)) return 0;
    return static_cast<std::uint8_t>(std::lround(std::min(channel, 1.0) * 255));
}

std::array<std::uint8_t, 4> colorBytes(const CGColor& color, const CGColorSpace& colorSpace) {
    std::array<std::uint8_t, 4> bytes{channelByte(color.red), channelByte(color.green),
                                      channelByte(color.blue), channelByte(color.alpha)};
    if (colorSpace.model() == CGColorSpace::Model::rgb && !colorSpace.isStandard()) {
        const auto conversion =
            ColorConversion::make(CGColorSpace::sRGB(), ColorConversion::Pixels::rgba, colorSpace);
        if (conversion) conversion->convertRow(bytes.data(), bytes.data(), 1);
    }
    return bytes;
}

} // namespace pex
