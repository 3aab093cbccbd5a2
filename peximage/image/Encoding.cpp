#include "peximage/image/PexImage.h"
#include "peximage/platform/foundation/OutOfMemory.h"

namespace pex {

std::optional<Data> PexImage::jpegData(double quality) const {
    return absentWithoutMemory([&] {
        const auto rep = bitmapRep();
        return rep ? rep->representation(ImageFormat::jpeg, {.compressionFactor = quality}) : std::nullopt;
    });
}

std::optional<Data> PexImage::pngData(const PngSize& options) const {
    return absentWithoutMemory([&]() -> std::optional<Data> {
        const std::optional<CGImage> bitmap = image->cgImageForProposedRect();
        if (!bitmap) return std::nullopt;
        NSBitmapImageRep rep(*bitmap);
        rep.setSize(options.size.value_or(image->size()));
        return rep.representation(ImageFormat::png, {.metadata = options.metadata});
    });
}

} // namespace pex
