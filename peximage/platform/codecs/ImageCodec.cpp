#include "peximage/platform/codecs/ImageCodec.h"

#include "peximage/platform/foundation/Module.h"

#include <array>

namespace pex {
namespace {

constexpr std::array codecs{&jpegCodec, &pngCodec, &tiffCodec, &webpCodec, &heifCodec,
                            &avifCodec, &gifCodec, &bmpCodec,  &pdfCodec};

} // namespace

bool ImageCodec::isAvailable() const { return module == nullptr || hasModule(module); }

const ImageCodec* codecForBytes(std::span<const std::uint8_t> firstBytes) {
    for (const ImageCodec* codec : codecs) {
        if (codec->sniff(firstBytes)) return codec;
    }
    return nullptr;
}

const ImageCodec* codecForBytes(const CGDataProvider& bytes) {
    std::array<std::uint8_t, sniffBytes> first{};
    const std::size_t count = bytes.read(0, first);
    return codecForBytes(std::span(first).first(count));
}

const ImageCodec* codecForFormat(ImageFormat format) {
    for (const ImageCodec* codec : codecs) {
        if (codec->format == format) return codec;
    }
    return nullptr;
}

} // namespace pex
