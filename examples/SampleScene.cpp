// Draws a landscape and saves it with PexImage as a camera would: a large JPEG with colour at half size.
// It stands in for a photo wherever one is needed and none is at hand.
//
//     sample-scene OUT.jpg [WIDTH HEIGHT]

#include "peximage/peximage.h"
#include "scene/Camera.h"

#include <cstdio>
#include <cstdlib>
#include <optional>

namespace {

constexpr int largestSide = 20000;

/// The drawn picture as the library's image; absent when the memory cannot be had.
std::optional<pex::CGImage> drawScene(int width, int height) {
    const std::size_t bytesPerRow = std::size_t(width) * 4;
    const pex::PixelBuffer pixels = pex::PixelBuffer::make(bytesPerRow * std::size_t(height));
    if (!pixels) return std::nullopt;
    scene::takePhoto({.pixels = pixels.data(), .width = width, .height = height});
    return pex::CGImage::make(width, height, bytesPerRow, pex::PixelLayout::skipLast,
                              pex::CGColorSpace::sRGB(), pixels);
}

bool save(const pex::CGImage& picture, const char* path) {
    const auto image = pex::PexImage::make(picture);
    // Just below 0.9 the encoder still stores colour at half size, as cameras do.
    return image && image->saveToJpeg({.quality = 0.89, .dpi = {}, .url = pex::URL::fromPath(path)});
}

} // namespace

int main(int argc, char** argv) {
    const int width = argc == 4 ? std::atoi(argv[2]) : 4000;
    const int height = argc == 4 ? std::atoi(argv[3]) : 3000;
    const bool sizeIsFine = width > 0 && height > 0 && width <= largestSide && height <= largestSide;
    if ((argc != 2 && argc != 4) || !sizeIsFine) {
        std::fprintf(stderr, "usage: sample-scene OUT.jpg [WIDTH HEIGHT]\n");
        return 2;
    }
    pex::diagnostics::setSink({}); // what the saver says in passing is of no interest here
    const auto picture = drawScene(width, height);
    if (!picture || !save(*picture, argv[1])) {
        std::fprintf(stderr, "sample-scene: %s: cannot be written\n", argv[1]);
        return 1;
    }
    return 0;
}
