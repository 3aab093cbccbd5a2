#pragma once

#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/raster/CGImage.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <optional>
#include <type_traits>
#include <vector>

using Bytes = std::vector<std::uint8_t>;
using Pixel = std::array<std::uint8_t, 4>;

/// An image in memory whose pixel at (x, y), y from the top, is what the function gives: in the layout's own
/// byte order; grey takes the first byte.
pex::CGImage makePicture(int width, int height, pex::PixelLayout layout,
                         const std::function<Pixel(int x, int y)>& pixel,
                         const pex::CGColorSpace& space = pex::CGColorSpace::sRGB());

/// The same of one colour.
pex::CGImage makePicture(int width, int height, pex::PixelLayout layout, Pixel color,
                         const pex::CGColorSpace& space = pex::CGColorSpace::sRGB());

/// The same as a `PexImage`.
std::shared_ptr<pex::PexImage> plain(int width, int height, Pixel color,
                                     pex::PixelLayout layout = pex::PixelLayout::premultipliedLast);

/// Four bytes of a pixel as they lie in memory (grey: its byte, repeated).
Pixel pixelAt(const pex::CGImage& image, int x, int y);

/// Expects of every pixel at (x, y) what the function gives for its first channels, or always the same list:
/// bytes, or exact numbers that it may be off by so much.
template <class Wanted>
void expectPixels(const pex::CGImage& image, Wanted wanted, double within = 0) {
    double most = 0;
    int atX = 0, atY = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const Pixel pixel = pixelAt(image, x, y);
            const auto values = [&] {
                if constexpr (std::is_invocable_v<Wanted&, int, int>)
                    return wanted(x, y);
                else
                    return wanted;
            }();
            for (std::size_t c = 0; c < values.size(); ++c) {
                const double off = std::abs(pixel[c] - static_cast<double>(values[c]));
                if (!(off <= most)) most = off, atX = x, atY = y;
            }
        }
    }
    EXPECT_LE(most, within) << "at " << atX << ' ' << atY;
}

/// Opaque colours that change smoothly, with some detail: compresses like a photo.
pex::CGImage photoLike(int width, int height, unsigned seed = 1);
/// Every byte random; the same for the same seed.
pex::CGImage noise(int width, int height, pex::PixelLayout layout, unsigned seed = 1);

Bytes bytesOf(const pex::Data& data);

/// Absent when the file is no picture or has no pixels.
std::optional<pex::CGImage> decoded(const Bytes& file);

pex::Data encoded(const pex::CGImage& image, pex::ImageFormat format,
                  const pex::CGImageDestination::Options& options = {});

/// R G B A, straight, whatever the layout.
Pixel straightAt(const pex::CGImage& image, int x, int y);

/// The mean difference of the colours.
double difference(const pex::CGImage& a, const pex::CGImage& b);

/// ICC profiles that the colour engine makes: grey of a gamma, and RGB of wide primaries, gamma 2.2 if not
/// another one.
Bytes grayProfile(double gamma);
Bytes wideProfile(double gamma = 2.2);

/// What 8-bit grey of such a profile looks like in sRGB, as the colour engine tells it for a transformation
/// of its own.
std::uint8_t srgbOfGrey(const Bytes& profile, std::uint8_t grey);

/// The largest difference between bytes of sRGB and what the colour engine makes, step by step in floating
/// point, of bytes R G B x of a profile.
double distanceFromExact(const Bytes& profile, const Bytes& rgbx, const Bytes& srgb);
