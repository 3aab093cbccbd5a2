#include "peximage/platform/codecs/PngColorSpace.h"

#include "peximage/platform/raster/IccProfile.h"

#include <cmath>
#include <vector>

namespace pex {
namespace {

/// Absent for a gamma so near sRGB's 1/2.2 that sRGB is what was meant.
std::optional<double> unusualGamma(const PngDecoder& decoder) {
    double gamma = 0;
    if (!png_get_gAMA(decoder.png(), decoder.info(), &gamma)) return std::nullopt;
    constexpr double tolerance = 0.05;
    if (!(gamma > 0.01 && gamma < 100) || std::abs(gamma * 2.2 - 1) < tolerance) return std::nullopt;
    return gamma;
}

bool isNear(const cmsCIExyY& a, const cmsCIExyY& b) {
    constexpr double tolerance = 0.002;
    return std::abs(a.x - b.x) < tolerance && std::abs(a.y - b.y) < tolerance;
}

/// Absent when they are sRGB's.
std::optional<RgbPrimaries> unusualPrimaries(const PngDecoder& decoder) {
    RgbPrimaries p = srgbPrimaries;
    if (!png_get_cHRM(decoder.png(), decoder.info(), &p.white.x, &p.white.y, &p.colours.Red.x,
                      &p.colours.Red.y, &p.colours.Green.x, &p.colours.Green.y, &p.colours.Blue.x,
                      &p.colours.Blue.y))
        return std::nullopt;
    const auto& [white, colours] = srgbPrimaries;
    if (isNear(p.white, white) && isNear(p.colours.Red, colours.Red) &&
        isNear(p.colours.Green, colours.Green) && isNear(p.colours.Blue, colours.Blue))
        return std::nullopt;
    return p;
}

/// The space that gAMA and cHRM describe; absent when that is sRGB or they are not there.
std::optional<CGColorSpace> describedSpace(const PngDecoder& decoder, PixelLayout layout) {
    if (png_get_valid(decoder.png(), decoder.info(), PNG_INFO_sRGB)) return std::nullopt;
    const std::optional<double> gamma = unusualGamma(decoder);
    const ToneCurve curve = gamma ? ToneCurve(cmsBuildGamma(nullptr, 1 / *gamma)) : srgbToneCurve();
    if (layout == PixelLayout::grey) {
        if (!gamma || !curve) return std::nullopt;
        return spaceOf(IccProfile(cmsCreateGrayProfile(cmsD50_xyY(), curve.get())));
    }
    const std::optional<RgbPrimaries> primaries = unusualPrimaries(decoder);
    if (!gamma && !primaries) return std::nullopt;
    return rgbSpace(primaries.value_or(srgbPrimaries), curve.get());
}

} // namespace

std::optional<CGColorSpace> embeddedPngProfile(const PngDecoder& decoder, std::size_t maxBytes) {
    png_charp name = nullptr;
    png_bytep bytes = nullptr;
    png_uint_32 size = 0;
    int compression = 0;
    if (!png_get_iCCP(decoder.png(), decoder.info(), &name, &compression, &bytes, &size)) return std::nullopt;
    if (size > maxBytes) return std::nullopt;
    const auto space = CGColorSpace::fromICC(Data(std::vector<std::uint8_t>(bytes, bytes + size)));
    const bool colour = png_get_color_type(decoder.png(), decoder.info()) & PNG_COLOR_MASK_COLOR;
    const auto model = colour ? CGColorSpace::Model::rgb : CGColorSpace::Model::gray;
    return space && space->model() == model ? space : std::nullopt;
}

CGColorSpace pngColorSpace(const PngDecoder& decoder, PixelLayout layout,
                           const std::optional<CGColorSpace>& profile) {
    const auto standard = layout == PixelLayout::grey ? CGColorSpace::deviceGray() : CGColorSpace::sRGB();
    if (!profile) return describedSpace(decoder, layout).value_or(standard);
    if (profile->model() == standard.model()) return *profile;
    return rgbSpaceForGrey(*profile).value_or(standard);
}

} // namespace pex
