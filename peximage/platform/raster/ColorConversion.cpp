#include "peximage/platform/raster/ColorConversion.h"

#include "peximage/platform/raster/IccProfile.h"

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

} // namespace

std::shared_ptr<const ColorConversion> ColorConversion::make(const CGColorSpace& from, Pixels pixels,
                                                             const CGColorSpace& to) {
    const IccProfile source = openIccProfile(from), target = openIccProfile(to);
    if (!source || !target) return nullptr;
    cmsUInt32Number flags = cmsFLAGS_BLACKPOINTCOMPENSATION | cmsFLAGS_NOCACHE; // no cache: shared by threads
    if (pixels == Pixels::rgba) flags |= cmsFLAGS_COPY_ALPHA;
    void* transform = cmsCreateTransform(source.get(), inputType(pixels), target.get(), TYPE_RGBA_8,
                                         INTENT_RELATIVE_COLORIMETRIC, flags);
    if (!transform) return nullptr;
    const std::shared_ptr<ColorConversion> conversion(new ColorConversion);
    conversion->transform_ = transform;
    return conversion;
}

ColorConversion::~ColorConversion() {
    if (transform_) cmsDeleteTransform(transform_);
}

void ColorConversion::convertRow(const std::uint8_t* from, std::uint8_t* to, int pixels) const {
    cmsDoTransform(transform_, from, to, static_cast<cmsUInt32Number>(pixels));
}

} // namespace pex
