#include "peximage/budget/BudgetSearch.h"
#include "peximage/image/PexImage.h"
#include "peximage/image/arguments/Destination.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/raster/ConvertedImage.h"

namespace pex {
namespace {

/// The filter graph's picture in sRGB; absent where there is none.
std::optional<CGImage> pictureToEncode(const PexImage& image) {
    const std::optional<CIImage> graph = image.ciImage();
    const std::optional<CGImage> picture = graph ? graph->getCGImage() : std::nullopt;
    if (!picture) return std::nullopt;
    const bool isColour = picture->colorSpace().model() == CGColorSpace::Model::rgb;
    const auto layout = isColour ? picture->layout() : PixelLayout::skipLast;
    return convertedImage(*picture, layout, CGColorSpace::sRGB());
}

CGImageDestination::Options optionsOf(bool useAlpha, const ImageMetadata& metadata) {
    CGImageDestination::Options options;
    options.keepsAlpha = useAlpha;
    options.tenBits = !useAlpha;
    options.metadata = metadata;
    return options;
}

std::unique_ptr<RepeatedEncoding> encodingOf(const PexImage& image, const PexImage::HeifWithin& how) {
    const std::optional<CGImage> picture = pictureToEncode(image);
    if (!picture) return nullptr;
    return CGImageDestination::repeated(*picture, ImageFormat::heif, optionsOf(how.useAlpha, how.metadata));
}

} // namespace

std::optional<Data> PexImage::heifData(const HeifQuality& how) const {
    return absentWithoutMemory([&]() -> std::optional<Data> {
        const std::optional<CGImage> picture = pictureToEncode(*this);
        if (!picture) return std::nullopt;
        auto options = optionsOf(how.useAlpha, how.metadata);
        options.quality = how.quality;
        return CGImageDestination::encode(*picture, ImageFormat::heif, options);
    });
}

bool PexImage::saveAsHEIF(const ToUrlAtHeifQuality& how) const {
    const auto bytes = heifData({.quality = how.quality, .useAlpha = how.useAlpha, .metadata = how.metadata});
    const URL* const url = destinationOf(how);
    return url && bytes && bytes->write(*url, Data::Writing::inPlace);
}

std::optional<FittedPicture> PexImage::heifDataWithin(const HeifWithin& how) const {
    std::shared_ptr<const PexImage> current;
    const BudgetSearch search{.budget = how.desiredSize, .printsSizes = true};
    const auto found = search.run([&]() -> std::unique_ptr<RepeatedEncoding> {
        const auto points = current ? current->image->size() * budgetShrinkFactor : CGSize{};
        current = current ? current->resize({.to = points.boundToInt()}) : shared_from_this();
        return current ? encodingOf(*current, how) : nullptr;
    });
    auto bytes = found ? found->encoding->encode(found->quality) : std::nullopt;
    if (!bytes) return std::nullopt;
    return FittedPicture{std::move(*bytes), found->quality, found->encoding->size()};
}

bool PexImage::saveAsHEIF(const DesiredHeifSize& how) const {
    const auto fitted =
        heifDataWithin({.desiredSize = how.desiredSize, .useAlpha = how.useAlpha, .metadata = how.metadata});
    const URL* const url = destinationOf(how);
    return url && fitted && fitted->bytes.write(*url, Data::Writing::inPlace);
}

} // namespace pex
