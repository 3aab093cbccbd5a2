// Our decoder of whole pictures against the codec library's: it hands the file over, or gives the same
// pixels.

#include "peximage/platform/codecs/jpeg/decode/LibraryDecoder.h"
#include "peximage/platform/codecs/jpeg/decode/RowDecoder.h"

#include <cstdlib>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Decoded {
    Bytes pixels;
    int rows = 0;
};

constexpr std::uint64_t mostPixels = 1'000'000;

int bytesOfPixel(const jpeg_decompress_struct& info) {
    return info.jpeg_color_space == JCS_GRAYSCALE ? 1 : 4;
}

Decoded decodeByOurs(const jpeg_decompress_struct& info, const pex::Data& file) {
    const auto decoder = pex::jpeg::RowDecoder::make(info, file);
    if (!decoder) return {};
    const int width = static_cast<int>(info.image_width), height = static_cast<int>(info.image_height);
    const std::ptrdiff_t stride = std::ptrdiff_t{width} * bytesOfPixel(info);
    Decoded decoded{Bytes(static_cast<std::size_t>(stride * height))};
    decoded.rows = decoder->read({decoded.pixels.data(), width, height, stride,
                                  stride == width ? pex::PixelLayout::grey : pex::PixelLayout::skipLast});
    return decoded;
}

Bytes decodeByLibrary(pex::jpeg::LibraryDecoder& decoder) {
    const jpeg_decompress_struct& info = decoder.info();
    const std::size_t stride = std::size_t{info.image_width} * static_cast<std::size_t>(bytesOfPixel(info));
    Bytes pixels(stride * info.image_height);
    if (!decoder.start(stride == info.image_width ? JCS_GRAYSCALE : JCS_EXT_RGBX)) return {};
    for (unsigned y = 0; y < info.image_height; ++y) {
        JSAMPROW row = pixels.data() + y * stride;
        if (!decoder.readRows(&row, 1)) break;
    }
    return pixels;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    const pex::Data file(Bytes(bytes, bytes + count));
    pex::jpeg::LibraryDecoder decoder{pex::CGDataProvider(file)};
    if (!decoder.readHeader(1000) || decoder.isDamaged()) return 0;
    const jpeg_decompress_struct& info = decoder.info();
    if (info.image_width * std::uint64_t{info.image_height} > mostPixels) return 0;
    const Decoded ours = decodeByOurs(info, file);
    if (ours.rows < static_cast<int>(info.image_height)) return 0;
    // The library may complain of what follows the last block, which changes nothing.
    if (ours.pixels != decodeByLibrary(decoder)) std::abort();
    return 0;
}
