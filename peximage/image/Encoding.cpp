#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/image/PexImage.h"

namespace pex {

std::optional<Data> PexImage::jpegData(double quality) const {
    const auto rep = bitmapRep();
    return rep ? rep->representation(ImageFormat::jpeg, {.compressionFactor = quality}) : std::nullopt;
}

std::optional<Data> PexImage::pngData(const PngSize& options) const {
    const std::optional<CGImage> bitmap = image->cgImageForProposedRect();
    if (!bitmap) return std::nullopt;
    NSBitmapImageRep rep(*bitmap);
    rep.setSize(options.size.value_or(image->size()));
    return rep.representation(ImageFormat::png, {.metadata = options.metadata});
}

bool PexImage::saveToJpeg(const QualityToUrl& how) {
    return PexImageHelper::saveToJpeg(
        shared_from_this(),
        {.quality = how.quality, .dpi = how.dpi, .url = how.url, .metadata = how.metadata});
}

bool PexImage::saveToJpeg(const ToUrlOfMaxSize& how) {
    return PexImageHelper::saveToJpeg(
        shared_from_this(),
        {.desiredSize = how.maxSize, .dpi = how.dpi, .toUrl = how.toUrl, .metadata = how.metadata});
}

bool PexImage::saveToPNG(const URL& url) const { return PexImageHelper::saveToPNG(*this, url); }

} // namespace pex
