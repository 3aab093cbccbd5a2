#pragma once

#include "peximage/platform/codecs/jpeg/encode/EncoderInput.h"
#include "peximage/platform/raster/PixelBuffer.h"

#include <cstddef>
#include <cstdint>

namespace pex::jpeg {

/// The transformed blocks of one component, row by row, each 64 coefficients (times 8) in zigzag order.
struct CoefficientPlane {
    int blocksWide = 0, blocksHigh = 0;
    PixelBuffer memory;

    std::size_t bytes() const {
        return static_cast<std::size_t>(blocksWide) * static_cast<std::size_t>(blocksHigh) * 64 *
               sizeof(std::int16_t);
    }
    explicit operator bool() const { return static_cast<bool>(memory); }
    std::int16_t* block(int x, int y) const {
        return reinterpret_cast<std::int16_t*>(memory.data()) +
               64 * (static_cast<std::ptrdiff_t>(y) * blocksWide + x);
    }
};

/// Luma, and two chroma planes unless the picture is grey.
struct Coefficients {
    CoefficientPlane luma, cb, cr;
};

/// Transforms a picture, with chroma at half its width and height. The luma of a colour picture is filled up
/// to an even number of blocks both ways with blocks that cost next to nothing to code. Uses all cores.
/// Planes without memory: there was none.
Coefficients transform(const EncoderInput& input);

/// The chroma of the same picture at its full size; luma stays empty.
Coefficients transformFullChroma(const EncoderInput& input);

} // namespace pex::jpeg
