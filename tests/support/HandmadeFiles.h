#pragma once

#include <cstdint>
#include <vector>

/// Files put together byte by byte, as their formats' documents tell.

/// 2 × 2 pixels on a canvas of 3 × 2: two colours, red and a transparent one.
std::vector<std::uint8_t> smallGif();

/// Frames of greys that grow by one a row and begin again after a hundred.
std::vector<std::uint8_t> gifFile(int width, int height, bool interlaced, int frames);

/// A BMP of the longer header, at 2835 pixels a metre.
std::vector<std::uint8_t> bmpFile(int width, int height, int bits, std::uint8_t compression,
                                  const std::vector<std::uint8_t>& tables,
                                  const std::vector<std::uint8_t>& pixels);

/// A plain WebP file of this size in its extended form, with an EXIF block.
std::vector<std::uint8_t> webpWithExif(const std::vector<std::uint8_t>& plain, int width, int height,
                                       const std::vector<std::uint8_t>& block);
