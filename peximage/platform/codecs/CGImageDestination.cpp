#include "peximage/platform/codecs/CGImageDestination.h"

#include "peximage/platform/codecs/ImageCodec.h"
#include "peximage/platform/foundation/OutOfMemory.h"

namespace pex {

bool CGImageDestination::writes(ImageFormat format) {
    const ImageCodec* codec = codecForFormat(format);
    return codec && codec->encode && codec->isAvailable();
}

std::optional<Data> CGImageDestination::encode(const CGImage& image, ImageFormat format,
                                               const Options& options) {
    const ImageCodec* codec = codecForFormat(format);
    if (!codec || !codec->encode) return std::nullopt;
    return absentWithoutMemory([&] { return codec->encode(image, options); });
}

} // namespace pex
