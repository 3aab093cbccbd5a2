#include "tests/support/EncodedPictures.h"

#include "peximage/platform/codecs/CGImageSource.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

using namespace pex;

Bytes bytesOf(const Data& data) { return {data.bytes().begin(), data.bytes().end()}; }

std::optional<CGImage> decoded(const Bytes& file) {
    const auto source = CGImageSource::make(Data(file));
    const auto image = source ? source->createImage() : std::nullopt;
    return image && image->pixels() ? image : std::nullopt;
}

Data encoded(const CGImage& image, ImageFormat format, const CGImageDestination::Options& options) {
    const auto file = CGImageDestination::encode(image, format, options);
    if (!file) throw std::runtime_error("cannot be encoded");
    return *file;
}

Pixel straightAt(const CGImage& image, int x, int y) {
    Pixel p = pixelAt(image, x, y);
    if (!hasAlpha(image.layout())) p[3] = 255;
    if (image.layout() == PixelLayout::premultipliedLast && p[3] > 0) {
        for (std::size_t c = 0; c < 3; ++c)
            p[c] = static_cast<std::uint8_t>(std::min(255, (p[c] * 255 + p[3] / 2) / p[3]));
    }
    return p;
}

double difference(const CGImage& a, const CGImage& b) {
    double sum = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            for (std::size_t c = 0; c < 3; ++c)
                sum += std::abs(straightAt(a, x, y)[c] - straightAt(b, x, y)[c]);
        }
    }
    return sum / (3.0 * a.width() * a.height());
}
