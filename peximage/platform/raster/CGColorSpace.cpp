#include "peximage/platform/raster/CGColorSpace.h"

#include "peximage/platform/raster/ColorConversion.h"
#include "peximage/platform/raster/IccProfile.h"

#include <array>
#include <cstdlib>
#include <mutex>

namespace pex {
namespace {

/// Profiles larger than this are refused; real ones with big tables stay below 4 MB.
constexpr std::size_t maxProfileBytes = std::size_t{16} << 20;

std::string describe(void* profile) {
    std::array<char, 256> text{};
    cmsGetProfileInfoASCII(profile, cmsInfoDescription, "en", "US", text.data(), text.size());
    text.back() = '\0';
    return text.data();
}

std::optional<CGColorSpace::Model> modelOf(void* profile) {
    switch (cmsGetColorSpace(profile)) {
    case cmsSigRgbData:
        return CGColorSpace::Model::rgb;
    case cmsSigGrayData:
        return CGColorSpace::Model::gray;
    case cmsSigCmykData:
        return CGColorSpace::Model::cmyk;
    default:
        return std::nullopt;
    }
}

} // namespace

struct CGColorSpace::Profile {
    Model model = Model::rgb;
    Data icc;
    std::string name;
    mutable std::once_flag compared;
    mutable bool standard = true;
};

// Never freed: work may go on while the process ends.

CGColorSpace CGColorSpace::sRGB() {
    static const auto& profile = *new auto([] {
        auto made = std::make_shared<Profile>();
        made->name = "sRGB";
        return made;
    }());
    return CGColorSpace(profile);
}

CGColorSpace CGColorSpace::deviceGray() {
    static const auto& profile = *new auto([] {
        auto made = std::make_shared<Profile>();
        made->model = Model::gray;
        made->name = "Gray";
        return made;
    }());
    return CGColorSpace(profile);
}

std::optional<CGColorSpace> CGColorSpace::fromICC(const Data& icc) {
    if (icc.empty() || icc.size() > maxProfileBytes) return std::nullopt;
    const IccProfile open = openIccProfile(icc);
    if (!open) return std::nullopt;
    const auto model = modelOf(open.get());
    if (!model) return std::nullopt;
    auto profile = std::make_shared<Profile>();
    profile->model = *model;
    profile->icc = icc;
    profile->name = describe(open.get());
    return CGColorSpace(std::move(profile));
}

CGColorSpace::Model CGColorSpace::model() const { return profile_->model; }
const Data& CGColorSpace::iccProfile() const { return profile_->icc; }
const std::string& CGColorSpace::name() const { return profile_->name; }

bool operator==(const CGColorSpace& a, const CGColorSpace& b) {
    return a.profile_ == b.profile_ || (a.model() == b.model() && a.iccProfile() == b.iccProfile());
}

namespace {

/// Colours spread over the cube of a space, a pixel of four bytes each (grey: one).
std::vector<std::uint8_t> sampleColours(CGColorSpace::Model model) {
    std::vector<std::uint8_t> samples;
    if (model == CGColorSpace::Model::gray) {
        for (int v = 0; v < 256; v += 5)
            samples.push_back(static_cast<std::uint8_t>(v));
        return samples;
    }
    for (int r = 0; r < 256; r += 51) {
        for (int g = 0; g < 256; g += 51) {
            for (int b = 0; b < 256; b += 51) {
                for (const int c : {r, g, b, 255})
                    samples.push_back(static_cast<std::uint8_t>(c));
            }
        }
    }
    return samples;
}

bool givesStandardColours(const CGColorSpace& space) {
    const bool gray = space.model() == CGColorSpace::Model::gray;
    const auto conversion = ColorConversion::make(
        space, gray ? ColorConversion::Pixels::gray : ColorConversion::Pixels::rgba, CGColorSpace::sRGB());
    if (!conversion) return false;
    const std::vector<std::uint8_t> samples = sampleColours(space.model());
    const std::size_t pixels = gray ? samples.size() : samples.size() / 4;
    std::vector<std::uint8_t> converted(pixels * 4);
    conversion->convertRow(samples.data(), converted.data(), static_cast<int>(pixels));
    for (std::size_t i = 0; i < pixels * 4; ++i) {
        if (i % 4 == 3) continue;
        if (std::abs(converted[i] - samples[gray ? i / 4 : i]) > 1) return false;
    }
    return true;
}

} // namespace

bool CGColorSpace::isStandard() const {
    if (profile_->icc.empty()) return true;
    if (profile_->model == Model::cmyk) return false;
    std::call_once(profile_->compared, [this] { profile_->standard = givesStandardColours(*this); });
    return profile_->standard;
}

} // namespace pex
