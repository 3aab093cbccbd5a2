#include "peximage/helpers/PexDicotomic.h"
#include "peximage/helpers/PexImageHelperGeometry.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/NumberText.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/raster/ConvertedImage.h"

#include <map>

namespace pex {
namespace {

/// The search aims a little below the budget, so that what it finds fits as a rule.
constexpr double budgetShare = 0.975;
constexpr double shrinkFactor = 0.9;

/// The filter graph's picture in sRGB; absent where there is none.
std::optional<CGImage> pictureToEncode(const PexImage& image) {
    const std::optional<CIImage> graph = image.ciImage();
    const std::optional<CGImage> picture = graph ? graph->getCGImage() : std::nullopt;
    if (!picture) return std::nullopt;
    const bool isColour = picture->colorSpace().model() == CGColorSpace::Model::rgb;
    const auto layout = isColour ? picture->layout() : PixelLayout::skipLast;
    return convertedImage(*picture, layout, CGColorSpace::sRGB());
}

std::optional<Data> encoded(const CGImage& picture, const PexImage::HeifQuality& how) {
    CGImageDestination::Options options;
    options.quality = how.quality;
    options.keepsAlpha = how.useAlpha;
    options.tenBits = !how.useAlpha;
    options.metadata = how.metadata;
    return CGImageDestination::encode(picture, ImageFormat::heif, options);
}

/// One picture at any quality, encoded once at each.
class Encodings {
  public:
    Encodings(const PexImage& image, const PexImage::HeifWithin& how)
        : picture_(pictureToEncode(image)), how_(how) {}

    CGSize size() const { return picture_ ? PexImageHelper::getSize(*picture_) : CGSize{}; }
    const std::optional<Data>& at(double quality) {
        const auto [found, isNew] = files_.try_emplace(quality);
        if (isNew && picture_) found->second = encoded(*picture_, {quality, how_.useAlpha, how_.metadata});
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
    std::optional<CGImage> picture_;
    const PexImage::HeifWithin& how_;
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
    const std::optional<CGImage> picture = pictureToEncode(*this);
    return picture ? encoded(*picture, how) : std::nullopt;
}

bool PexImage::saveAsHEIF(const ToUrlAtHeifQuality& how) const {
    const auto bytes = heifData({.quality = how.quality, .useAlpha = how.useAlpha, .metadata = how.metadata});
    return bytes && bytes->write(how.to, Data::Writing::inPlace);
}

std::optional<FittedPicture> PexImage::heifDataWithin(const HeifWithin& how) const {
    const long long budget = how.desiredSize;
    Encodings encodings(*this, how);
    const long long largest = encodings.byteCount(1);
    const bool fits = largest > 0 && largest < budget;
    const long long smallest = fits ? largest : encodings.byteCount(0);
    if (largest == 0 && smallest == 0) return std::nullopt; // nothing here can encode it
    if (!fits && smallest > budget) {
        if (const auto smaller = resize({.to = (image->size() * shrinkFactor).boundToInt()}))
            return smaller->heifDataWithin(how);
        giveReason(ReasonCode::budgetTooSmall,
                   "cannot be made as small as " + std::to_string(budget) + " bytes");
        return std::nullopt;
    }
    const double quality = fits ? 1 : searchQuality(encodings, budget);
    const std::optional<Data>& file = encodings.at(quality);
    return file ? std::optional(FittedPicture{*file, quality, encodings.size()}) : std::nullopt;
}

bool PexImage::saveAsHEIF(const DesiredHeifSize& how) const {
    const auto fitted =
        heifDataWithin({.desiredSize = how.desiredSize, .useAlpha = how.useAlpha, .metadata = how.metadata});
    return fitted && fitted->bytes.write(how.to, Data::Writing::inPlace);
}

} // namespace pex
