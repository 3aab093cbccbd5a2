#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Data.h"

#include <memory>
#include <optional>
#include <string>

namespace pex {

/// What the numbers of a picture mean: a built-in space or an ICC profile. An immutable value; copies share
/// the profile. Safe to use from many threads.
class PEX_EXPORT CGColorSpace {
  public:
    /// What the numbers of a pixel stand for.
    enum class Model { rgb, gray, cmyk };

    /// The built-in space of colour.
    static CGColorSpace sRGB();
    /// Device colours are taken as sRGB.
    static CGColorSpace deviceRGB() { return sRGB(); }
    /// Grey with sRGB's tone curve.
    static CGColorSpace deviceGray();
    /// Absent when the bytes are no usable RGB, grey or CMYK profile.
    static std::optional<CGColorSpace> fromICC(const Data& icc);

    /// What the numbers of a pixel stand for.
    Model model() const;
    /// True for the built-in spaces and for profiles that give the same colours as sRGB to within 1/255:
    /// nothing needs converting or embedding then. For a grey space the tone curve is what is compared.
    bool isStandard() const;
    /// The ICC profile's bytes; empty for the built-in spaces.
    const Data& iccProfile() const;
    /// The profile's own description, such as "Display P3"; "sRGB" and "Gray" for the built-in spaces.
    const std::string& name() const;

    PEX_EXPORT friend bool operator==(const CGColorSpace& a, const CGColorSpace& b);

  private:
    struct Profile;
    explicit CGColorSpace(std::shared_ptr<const Profile> profile) : profile_(std::move(profile)) {}

    std::shared_ptr<const Profile> profile_;
};

} // namespace pex
