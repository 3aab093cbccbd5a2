#pragma once

#include "peximage/platform/raster/CGColorSpace.h"

#include <lcms2.h>

#include <memory>
#include <optional>

namespace pex {

struct IccProfileCloser {
    void operator()(void* profile) const { cmsCloseProfile(profile); }
};
/// An ICC profile as the colour engine has it open; null when it could not be read.
using IccProfile = std::unique_ptr<void, IccProfileCloser>;

struct ToneCurveFree {
    void operator()(cmsToneCurve* curve) const { cmsFreeToneCurve(curve); }
};
using ToneCurve = std::unique_ptr<cmsToneCurve, ToneCurveFree>;

/// The transfer function of sRGB, IEC 61966-2-1.
ToneCurve srgbToneCurve();

/// A profile read from its bytes.
IccProfile openIccProfile(const Data& bytes);
/// The profile of a space, built-in ones included.
IccProfile openIccProfile(const CGColorSpace& space);

struct RgbPrimaries {
    cmsCIExyY white;
    cmsCIExyYTRIPLE colours;
};
constexpr RgbPrimaries srgbPrimaries{{0.3127, 0.3290, 1},
                                     {{0.64, 0.33, 1}, {0.30, 0.60, 1}, {0.15, 0.06, 1}}};

/// A colour space of an open profile; one of given primaries; and one whose greys look like those of a
/// grey profile. Absent when it cannot be made.
std::optional<CGColorSpace> spaceOf(const IccProfile& profile);
std::optional<CGColorSpace> rgbSpace(const RgbPrimaries& primaries, cmsToneCurve* curve);
std::optional<CGColorSpace> rgbSpaceForGrey(const CGColorSpace& grey);

} // namespace pex
