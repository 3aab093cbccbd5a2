#pragma once

#include <cstddef>
#include <cstdint>

namespace pex::kernels {

/// A straight walk over a picture of premultiplied pixels of four bytes, alpha last. Positions count pixels
/// from the centre of the first one, with 32 fraction bits.
struct CubicWalk {
    const std::uint8_t* pixels;
    std::ptrdiff_t bytesPerRow;
    std::int64_t x, y;
    std::int64_t stepX, stepY;
};

/// Writes what lies along the walk, interpolated by the cubic of Catmull and Rom over 4 by 4 pixels; colour
/// is limited to alpha. Of every position, the pixels from 1 before to 2 after must lie in the picture.
/// Positions are rounded to 1/1024 pixel.
void cubicRow(const CubicWalk& walk, std::uint8_t* to, int pixels);

/// One such pixel from 16 that are given, `columns` and `rows` being their places in the picture: for the
/// picture's edges, where the same pixel is taken several times. Fractions have 32 bits.
void cubicPixel(const std::uint8_t* pixels, std::ptrdiff_t bytesPerRow, const int (&columns)[4],
                const int (&rows)[4], std::uint32_t fractionX, std::uint32_t fractionY, std::uint8_t* to);

} // namespace pex::kernels
