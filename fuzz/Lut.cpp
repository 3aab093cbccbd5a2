#include "peximage/image/PexImage.h"
#include "peximage/pixels/PexLut.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/raster/kernels/InstructionSet.h"

#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr int width = 51, height = 3;

/// Opaque, half transparent and transparent colours from all over the cube, premultiplied.
pex::CGImage picture() {
    const auto buffer = pex::PixelBuffer::make(std::size_t{width} * height * 4);
    for (int i = 0; i < width * height; ++i) {
        const int alpha = i / width == 0 ? 255 : i / width == 1 ? i * 97 % 256 : 0;
        const int channels[] = {i % width * 5, i * 67 % 256, 255 - i % width * 5};
        for (int c = 0; c < 3; ++c)
            buffer.data()[4 * i + c] = static_cast<std::uint8_t>(channels[c] * alpha / 255);
        buffer.data()[4 * i + 3] = static_cast<std::uint8_t>(alpha);
    }
    return pex::CGImage::make(width, height, width * 4, pex::PixelLayout::premultipliedLast,
                              pex::CGColorSpace::sRGB(), buffer)
        .value();
}

/// The picture's bytes with its colours looked up: alpha stays, and colours lie within it.
std::vector<std::uint8_t> lookedUp(const pex::PexLut& table, const pex::CGImage& from) {
    const auto image = pex::PexImage::make(from)->apply({.lut = table});
    if (!image || image->cgImage->layout() != from.layout()) std::abort();
    const pex::PixelView result = *image->cgImage->pixels(), source = *from.pixels();
    std::vector<std::uint8_t> bytes;
    for (int y = 0; y < height; ++y) {
        bytes.insert(bytes.end(), result.row(y), result.row(y) + std::ptrdiff_t{width} * 4);
        for (int x = 0; x < width; ++x) {
            const std::uint8_t *pixel = result.row(y) + 4 * x, alpha = source.row(y)[4 * x + 3];
            if (pixel[3] != alpha || pixel[0] > alpha || pixel[1] > alpha || pixel[2] > alpha) std::abort();
        }
    }
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    pex::ImageLimits limits;
    limits.maxPixels = 300'000;
    limits.maxMetadataBytes = 100'000;
    pex::ImageLimits::setCurrent(limits);
    const auto table = pex::PexLut::make(pex::Data(std::vector<std::uint8_t>(bytes, bytes + count)));
    if (!table) return 0;
    static const pex::CGImage from = picture();
    const auto usual = pex::kernels::instructionSet();
    const auto result = lookedUp(*table, from);
    pex::kernels::setInstructionSet(pex::kernels::InstructionSet::scalar);
    if (lookedUp(*table, from) != result) std::abort();
    pex::kernels::setInstructionSet(usual);

    const auto again = pex::decode<pex::PexLut>(pex::encode(*table));
    if (!again || !again->filter || lookedUp(*again, from) != result) std::abort();
    return 0;
}
