#include "peximage/platform/raster/IccProfile.h"

#include <utility>
#include <vector>

namespace pex {
namespace {

/// Keeps the colour engine from printing errors: a broken profile gives an absent result.
void silenceEngine() {
    static const bool done = [] {
        cmsSetLogErrorHandler([](cmsContext, cmsUInt32Number, const char*) {});
        return true;
    }();
    (void)done;
}

} // namespace

ToneCurve srgbToneCurve() {
    const cmsFloat64Number parameters[] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
    return ToneCurve(cmsBuildParametricToneCurve(nullptr, 4, parameters));
}

IccProfile openIccProfile(const Data& bytes) {
    silenceEngine();
    return IccProfile(cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size())));
}

IccProfile openIccProfile(const CGColorSpace& space) {
    if (!space.iccProfile().empty()) return openIccProfile(space.iccProfile());
    silenceEngine();
    if (space.model() == CGColorSpace::Model::gray)
        return IccProfile(cmsCreateGrayProfile(cmsD50_xyY(), srgbToneCurve().get()));
    return IccProfile(cmsCreate_sRGBProfile());
}

std::optional<CGColorSpace> spaceOf(const IccProfile& profile) {
    cmsUInt32Number size = 0;
    if (!profile || !cmsSaveProfileToMem(profile.get(), nullptr, &size) || size == 0) return std::nullopt;
    std::vector<std::uint8_t> bytes(size);
    if (!cmsSaveProfileToMem(profile.get(), bytes.data(), &size)) return std::nullopt;
    return CGColorSpace::fromICC(Data(std::move(bytes)));
}

std::optional<CGColorSpace> rgbSpace(const RgbPrimaries& primaries, cmsToneCurve* curve) {
    if (!curve) return std::nullopt;
    cmsToneCurve* const curves[] = {curve, curve, curve};
    return spaceOf(IccProfile(cmsCreateRGBProfile(&primaries.white, &primaries.colours, curves)));
}

std::optional<CGColorSpace> rgbSpaceForGrey(const CGColorSpace& grey) {
    const IccProfile profile = openIccProfile(grey);
    if (!profile) return std::nullopt;
    const auto* curve = static_cast<const cmsToneCurve*>(cmsReadTag(profile.get(), cmsSigGrayTRCTag));
    if (!curve) return std::nullopt;
    return rgbSpace(srgbPrimaries, ToneCurve(cmsDupToneCurve(curve)).get());
}

} // namespace pex
