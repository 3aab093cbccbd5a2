#pragma once

#include "peximage/platform/raster/CGColorSpace.h"

#include <lcms2.h>

#include <memory>

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

} // namespace pex
