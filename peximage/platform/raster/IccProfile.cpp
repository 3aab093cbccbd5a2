#include "peximage/platform/raster/IccProfile.h"

namespace pex {
namespace {

/// What is wrong with a broken profile is told by an absent result, not by lines on standard error.
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

} // namespace pex
