#include "tests/support/Profiles.h"

#include <lcms2.h>

#include <algorithm>
#include <cmath>

namespace {

std::vector<std::uint8_t> saved(cmsHPROFILE profile) {
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    std::vector<std::uint8_t> bytes(size);
    cmsSaveProfileToMem(profile, bytes.data(), &size);
    cmsCloseProfile(profile);
    return bytes;
}

} // namespace

std::vector<std::uint8_t> grayProfile(double gamma) {
    cmsToneCurve* curve = cmsBuildGamma(nullptr, gamma);
    auto bytes = saved(cmsCreateGrayProfile(cmsD50_xyY(), curve));
    cmsFreeToneCurve(curve);
    return bytes;
}

std::vector<std::uint8_t> wideProfile(double gamma) {
    const cmsCIExyY white{0.3127, 0.3290, 1};
    const cmsCIExyYTRIPLE primaries{{0.68, 0.32, 1}, {0.265, 0.69, 1}, {0.15, 0.06, 1}};
    cmsToneCurve* curve = cmsBuildGamma(nullptr, gamma);
    cmsToneCurve* const curves[] = {curve, curve, curve};
    auto bytes = saved(cmsCreateRGBProfile(&white, &primaries, curves));
    cmsFreeToneCurve(curve);
    return bytes;
}

std::uint8_t srgbOfGrey(const std::vector<std::uint8_t>& profile, std::uint8_t grey) {
    const cmsHPROFILE from =
        cmsOpenProfileFromMem(profile.data(), static_cast<cmsUInt32Number>(profile.size()));
    const cmsHPROFILE to = cmsCreate_sRGBProfile();
    const cmsHTRANSFORM transform = cmsCreateTransform(from, TYPE_GRAY_8, to, TYPE_RGB_8,
                                                       INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOOPTIMIZE);
    std::uint8_t rgb[3] = {};
    cmsDoTransform(transform, &grey, rgb, 1);
    cmsDeleteTransform(transform);
    cmsCloseProfile(from);
    cmsCloseProfile(to);
    return rgb[1];
}

double distanceFromExact(const std::vector<std::uint8_t>& profile, const std::vector<std::uint8_t>& rgbx,
                         const std::vector<std::uint8_t>& srgb) {
    const cmsHPROFILE from =
        cmsOpenProfileFromMem(profile.data(), static_cast<cmsUInt32Number>(profile.size()));
    const cmsHPROFILE to = cmsCreate_sRGBProfile();
    const cmsHTRANSFORM transform = cmsCreateTransform(from, TYPE_RGB_DBL, to, TYPE_RGB_DBL,
                                                       INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOOPTIMIZE);
    double largest = 0;
    for (std::size_t i = 0; i < rgbx.size(); i += 4) {
        const double in[] = {rgbx[i] / 255.0, rgbx[i + 1] / 255.0, rgbx[i + 2] / 255.0};
        double out[3] = {};
        cmsDoTransform(transform, in, out, 1);
        for (std::size_t c = 0; c < 3; ++c)
            largest = std::max(largest, std::abs(std::clamp(out[c], 0.0, 1.0) * 255 - srgb[i + c]));
    }
    cmsDeleteTransform(transform);
    cmsCloseProfile(from);
    cmsCloseProfile(to);
    return largest;
}
