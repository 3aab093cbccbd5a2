// Our decoders of Huffman codes against the codec library's: they hand the file over, or give the same
// pixels.

#include "peximage/platform/codecs/jpeg/decode/JpegDecompressor.h"

#include <cstdlib>
#include <vector>

namespace {

using pex::JpegDecompressor;

struct Decoded {
    std::vector<std::uint8_t> pixels;
    bool isGood = false, isForLibrary = false;
};

Decoded decode(const pex::Data& file, unsigned eighths, JpegDecompressor::Codes codes) {
    constexpr unsigned mostPixels = 1'000'000;
    Decoded decoded;
    JpegDecompressor decoder{pex::CGDataProvider(file)};
    if (!decoder.readHeader(1000)) return decoded;
    const jpeg_decompress_struct& info = decoder.info();
    if (info.jpeg_color_space == JCS_CMYK || info.jpeg_color_space == JCS_YCCK) return decoded;
    if (info.image_width * std::uint64_t{info.image_height} > mostPixels) return decoded;
    if (!decoder.start(eighths, JCS_EXT_RGBX, codes)) return decoded;
    decoded.pixels.resize(std::size_t{info.output_width} * info.output_height * 4);
    for (unsigned y = 0; y < info.output_height; ++y) {
        JSAMPROW row = decoded.pixels.data() + std::size_t{y} * info.output_width * 4;
        if (!decoder.readRows(&row, 1)) break;
    }
    decoded.isGood = !decoder.isDamaged();
    decoded.isForLibrary = decoder.isForLibrary();
    return decoded;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    const pex::Data file(std::vector<std::uint8_t>(bytes, bytes + count));
    for (const unsigned eighths : {8U, 2U}) {
        const Decoded ours = decode(file, eighths, JpegDecompressor::Codes::fast);
        if (ours.isForLibrary || !ours.isGood) continue;
        // The library may complain of what follows the last block, which changes nothing.
        if (ours.pixels != decode(file, eighths, JpegDecompressor::Codes::library).pixels) std::abort();
    }
    return 0;
}
