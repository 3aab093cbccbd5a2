#include "tests/support/Pictures.h"

#include <cmath>
#include <random>
#include <stdexcept>

using namespace pex;

CGImage makePicture(int width, int height, PixelLayout layout, const std::function<Pixel(int, int)>& pixel,
                    const CGColorSpace& space) {
    const int bytes = bytesPerPixel(layout);
    const std::ptrdiff_t stride = std::ptrdiff_t{width} * bytes;
    PixelBuffer buffer =
        PixelBuffer::make(static_cast<std::size_t>(stride) * static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const Pixel value = pixel(x, y);
            for (int c = 0; c < bytes; ++c)
                buffer.data()[y * stride + x * bytes + c] = value[static_cast<std::size_t>(c)];
        }
    }
    const auto image = CGImage::make(width, height, stride, layout, space, std::move(buffer));
    if (!image) throw std::runtime_error("no picture");
    return *image;
}

Pixel pixelAt(const CGImage& image, int x, int y) {
    const auto view = image.pixels();
    if (!view) throw std::runtime_error("no pixels");
    const std::uint8_t* at = view->row(y) + std::ptrdiff_t{x} * bytesPerPixel(view->layout);
    if (view->layout == PixelLayout::grey) return {at[0], at[0], at[0], at[0]};
    return {at[0], at[1], at[2], at[3]};
}

CGImage photoLike(int width, int height, unsigned seed) {
    std::mt19937 random(seed);
    return makePicture(width, height, PixelLayout::skipLast, [&](int x, int y) {
        const double wave = 60 * std::sin(x * 0.013 + seed) + 50 * std::cos(y * 0.017) +
                            20 * std::sin(x * 0.31) * std::sin(y * 0.23);
        const auto channel = [&](double base) {
            const double value = base + wave + static_cast<double>(random() % 13);
            return static_cast<std::uint8_t>(std::fmin(std::fmax(value, 0), 255));
        };
        return Pixel{channel(120), channel(110), channel(90), 255};
    });
}

CGImage noise(int width, int height, PixelLayout layout, unsigned seed) {
    std::mt19937 random(seed);
    return makePicture(width, height, layout, [&](int, int) {
        Pixel pixel;
        for (auto& c : pixel)
            c = static_cast<std::uint8_t>(random());
        const bool premultiplied =
            layout == PixelLayout::premultipliedLast || layout == PixelLayout::premultipliedFirst;
        const std::size_t alpha = isAlphaFirst(layout) ? 0 : 3;
        for (std::size_t c = 0; premultiplied && c < pixel.size(); ++c) {
            if (c != alpha) pixel[c] = static_cast<std::uint8_t>(pixel[c] * pixel[alpha] / 255);
        }
        return pixel;
    });
}
