#include "peximage/platform/codecs/CGImageDestination.h"

#include "peximage/platform/codecs/ImageCodec.h"
#include "peximage/platform/foundation/OutOfMemory.h"

namespace pex {
namespace {

/// JPEG's resolution is stamped later, by who knows it.
ImageMetadata metadataFor(const CGImage& image, ImageFormat format,
                          const CGImageDestination::Options& options) {
    const ImageMetadata upright = options.metadata.uprighted(image.width(), image.height());
    const auto x = options.dpiWidth ? options.dpiWidth : options.dpiHeight;
    const auto y = options.dpiHeight ? options.dpiHeight : options.dpiWidth;
    const bool isTold = format != ImageFormat::jpeg && x && y;
    return (isTold ? upright.withResolution(*x, *y) : upright).heldBy(format);
}

} // namespace

bool CGImageDestination::writes(ImageFormat format) {
    const ImageCodec* codec = codecForFormat(format);
    return codec && codec->encode && codec->isAvailable();
}

std::optional<Data> CGImageDestination::encode(const CGImage& image, ImageFormat format,
                                               const Options& options) {
    const ImageCodec* codec = codecForFormat(format);
    if (!codec || !codec->encode) return std::nullopt;
    return absentWithoutMemory([&] {
        if (options.metadata.empty()) return codec->encode(image, options);
        Options fitted = options;
        fitted.metadata = metadataFor(image, format, options);
        return codec->encode(image, fitted);
    });
}

} // namespace pex
