#include "bench/worker/WholePictures.h"

#include <cstring>

namespace bench {

Shared load(const std::string& folder, int width) {
    const auto picture = std::make_shared<Picture>(
        withChannels(readPpm(folder + "/photo-" + std::to_string(width) + ".ppm"), 4));
    for (std::size_t i = 3; i < picture->bytes.size(); i += 4)
        picture->bytes[i] = 255;
    return picture;
}

pex::CGImage imageOf(const Picture& picture) {
    const auto memory = pex::PixelBuffer::make(picture.bytes.size());
    std::memcpy(memory.data(), picture.bytes.data(), picture.bytes.size());
    return pex::CGImage::make(picture.width, picture.height, std::ptrdiff_t(picture.rowBytes()),
                              pex::PixelLayout::premultipliedLast, pex::CGColorSpace::sRGB(), memory)
        .value();
}

} // namespace bench
