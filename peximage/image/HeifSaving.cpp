#include "peximage/helpers/PexDicotomic.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/NumberText.h"
#include "peximage/platform/raster/ConvertedImage.h"

#include <map>

namespace pex {
namespace {

/// The search aims a little below the budget, so that what it finds fits as a rule.
constexpr double budgetShare = 0.975;
constexpr double shrinkFactor = 0.9;

/// One picture at any quality, encoded once at each.
class Encodings {
  public:
    Encodings(const PexImage& image, bool useAlpha) : image_(image), useAlpha_(useAlpha) {}

    const std::optional<Data>& at(double quality) {
        const auto [found, isNew] = files_.try_emplace(quality);
        if (isNew) found->second = image_.heifData({.quality = quality, .useAlpha = useAlpha_});
        return found->second;
    }
    /// 0 when it cannot be encoded.
    long long byteCount(double quality) {
        const auto& file = at(quality);
        return file ? static_cast<long long>(file->size()) : 0;
    }
    /// The highest of the qualities tried so far that fits; 0 when none does.
    double bestWithin(long long budget) const {
        for (auto file = files_.rbegin(); file != files_.rend(); ++file) {
            if (file->second && static_cast<long long>(file->second->size()) <= budget) return file->first;
        }
        return 0;
    }

  private:
    const PexImage& image_;
    bool useAlpha_;
    std::map<double, std::optional<Data>> files_;
};

double searchQuality(Encodings& encodings, long long budget) {
    PexDicotomic search;
    search.target = static_cast<double>(budget) * budgetShare;
    search.function = PexDicotomic::memoised([&](double quality) {
        const auto bytes = static_cast<double>(encodings.byteCount(quality));
        diagnostics::print("size: " + decimalText(bytes));
        return bytes;
    });
    const double found = search.search();
    const double quality = encodings.byteCount(found) <= budget ? found : encodings.bestWithin(budget);
    diagnostics::print("quality: " + decimalText(quality));
    return quality;
}

} // namespace

std::optional<Data> PexImage::heifData(const HeifQuality& how) const {
    const std::optional<CIImage> picture = ciImage();
    if (!picture || !cgImage) return std::nullopt;
    const bool isColour = cgImage->colorSpace().model() == CGColorSpace::Model::rgb;
    const auto layout = isColour ? cgImage->layout() : PixelLayout::skipLast;
    const auto standard = convertedImage(*cgImage, layout, CGColorSpace::sRGB());
    if (!standard) return std::nullopt;
    CGImageDestination::Options options;
    options.quality = how.quality;
    options.keepsAlpha = how.useAlpha;
    options.tenBits = !how.useAlpha;
    return CGImageDestination::encode(*standard, ImageFormat::heif, options);
}

bool PexImage::saveAsHEIF(const ToUrlAtHeifQuality& how) const {
    const auto bytes = heifData({.quality = how.quality, .useAlpha = how.useAlpha});
    return bytes && bytes->write(how.to, Data::Writing::inPlace);
}

std::optional<PexImage::SavedHeif> PexImage::saveAsHEIFWithin(const DesiredHeifSize& how) const {
    const long long budget = how.desiredSize;
    Encodings encodings(*this, how.useAlpha);
    const long long largest = encodings.byteCount(1);
    const bool fits = largest > 0 && largest < budget;
    const long long smallest = fits ? largest : encodings.byteCount(0);
    if (largest == 0 && smallest == 0) return std::nullopt; // nothing here can encode it
    if (!fits && smallest > budget) {
        const auto smaller = resize({.to = (image->size() * shrinkFactor).boundToInt()});
        return smaller ? smaller->saveAsHEIFWithin(how) : std::nullopt;
    }
    const double quality = fits ? 1 : searchQuality(encodings, budget);
    const auto& file = encodings.at(quality);
    if (!file || !file->write(how.to, Data::Writing::inPlace)) return std::nullopt;
    return SavedHeif{quality, size, static_cast<long long>(file->size())};
}

bool PexImage::saveAsHEIF(const DesiredHeifSize& how) const { return saveAsHEIFWithin(how).has_value(); }

} // namespace pex
