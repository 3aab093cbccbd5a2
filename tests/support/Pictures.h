#pragma once

#include "peximage/platform/raster/CGImage.h"

#include <array>
#include <cstdint>
#include <functional>

using Pixel = std::array<std::uint8_t, 4>;

/// An image in memory whose pixel at (x, y), y from the top, is what the function gives: in the layout's own
/// byte order; grey takes the first byte.
pex::CGImage makePicture(int width, int height, pex::PixelLayout layout,
                         const std::function<Pixel(int x, int y)>& pixel,
                         const pex::CGColorSpace& space = pex::CGColorSpace::sRGB());

/// Four bytes of a pixel as they lie in memory (grey: its byte, repeated).
Pixel pixelAt(const pex::CGImage& image, int x, int y);

/// Opaque colours that change smoothly, with some detail: compresses like a photo.
pex::CGImage photoLike(int width, int height, unsigned seed = 1);
/// Every byte random; the same for the same seed.
pex::CGImage noise(int width, int height, pex::PixelLayout layout, unsigned seed = 1);
