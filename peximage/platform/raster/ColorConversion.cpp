#include "peximage/platform/raster/ColorConversion.h"

#include "peximage/platform/raster/IccProfile.h"
#include "peximage/platform/raster/MatrixConversion.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace pex {
namespace {

cmsUInt32Number inputType(ColorConversion::Pixels pixels) {
    switch (pixels) {
    case ColorConversion::Pixels::gray:
        return TYPE_GRAY_8;
    case ColorConversion::Pixels::cmyk:
        return TYPE_CMYK_8;
    case ColorConversion::Pixels::rgba:
        break;
    }
    return TYPE_RGBA_8;
}

GreyColours coloursOfGrey(void* transform) {
    std::array<std::uint8_t, 256> levels;
    std::iota(levels.begin(), levels.end(), std::uint8_t{0});
    GreyColours colours{};
    cmsDoTransform(transform, levels.data(), colours.data(), 256);
    return colours;
}

} // namespace

std::shared_ptr<const ColorConversion> ColorConversion::make(const CGColorSpace& from, Pixels pixels,
                                                             const CGColorSpace& to) {
    const IccProfile source = openIccProfile(from), target = openIccProfile(to);
    if (!source || !target) return nullptr;
    const std::shared_ptr<ColorConversion> conversion(new ColorConversion);
    if (pixels == Pixels::rgba) conversion->matrix_ = matrixConversion(source, target);
    if (conversion->matrix_) return conversion;
    cmsUInt32Number flags = cmsFLAGS_BLACKPOINTCOMPENSATION | cmsFLAGS_NOCACHE; // no cache: shared by threads
    if (pixels == Pixels::rgba) flags |= cmsFLAGS_COPY_ALPHA;
    if (pixels == Pixels::gray) flags |= cmsFLAGS_NOOPTIMIZE; // exact, which is affordable for 256 levels
    Transform transform(cmsCreateTransform(source.get(), inputType(pixels), target.get(), TYPE_RGBA_8,
                                           INTENT_RELATIVE_COLORIMETRIC, flags));
    if (!transform) return nullptr;
    if (pixels == Pixels::gray)
        conversion->greyColours_ = coloursOfGrey(transform.get());
    else
        conversion->transform_ = std::move(transform);
    return conversion;
}

void ColorConversion::Closer::operator()(void* transform) const { cmsDeleteTransform(transform); }

void ColorConversion::convertRow(const std::uint8_t* from, std::uint8_t* to, int pixels) const {
    if (matrix_) return kernels::matrixRow(from, to, pixels, *matrix_);
    if (transform_) {
        cmsDoTransform(transform_.get(), from, to, static_cast<cmsUInt32Number>(pixels));
        return;
    }
    for (int i = 0; i < pixels; ++i, to += 4)
        std::copy_n(greyColours_[from[i]].begin(), 3, to);
}

} // namespace pex
