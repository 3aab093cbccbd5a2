// A picture in, a file out, and the file decoded again: by our own decoder and, inside it, by the codec
// library where that one has doubts. The first bytes tell the size and the options, the others are pixels,
// over and over.
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/jpeg/encode/Encoder.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    constexpr std::size_t header = 4;
    if (count <= header) return 0;
    const int width = 1 + bytes[0] % 96, height = 1 + bytes[1] % 96;
    const bool grey = bytes[2] & 1;
    const pex::JpegOptions options{static_cast<pex::Effort>(bytes[2] / 2 % 3),
                                   static_cast<pex::Chroma>(bytes[2] / 8 % 3), (bytes[2] & 64) != 0};
    const auto row = [&](int y, std::uint8_t* scratch) -> const std::uint8_t* {
        const auto samples = static_cast<std::size_t>(width) * (grey ? 1 : 4);
        for (std::size_t i = 0; i < samples; ++i)
            scratch[i] = bytes[header + (static_cast<std::size_t>(y) * samples + i) % (count - header)];
        return scratch;
    };
    const auto encoder = pex::jpeg::Encoder::make({width, height, grey, row, {}, {}}, options);
    const auto file = encoder->encode(bytes[3] / 255.0);
    if (encoder->byteCount(bytes[3] / 255.0) != file.size()) std::abort();
    const auto source = pex::CGImageSource::make(pex::Data(file));
    const auto image = source ? source->createImage() : std::nullopt;
    if (!image || !image->pixels() || image->isIncomplete()) std::abort();
    if (image->width() != width || image->height() != height) std::abort();
    return 0;
}
