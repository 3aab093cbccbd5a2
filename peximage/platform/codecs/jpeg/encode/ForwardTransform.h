#pragma once

#include "peximage/platform/codecs/jpeg/encode/EncoderInput.h"
#include "peximage/platform/raster/PixelBuffer.h"

#include <cstddef>
#include <cstdint>
#include <functional>

namespace pex::jpeg {

/// The transformed blocks of one component, row by row, each 64 coefficients (times 8) in zigzag order.
struct TransformedPlane {
    int blocksWide = 0, blocksHigh = 0;
    /// Without those that only fill up the last units.
    int realWide = 0, realHigh = 0;
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

/// Chroma has as many samples as luma, or one for 2 x 2 pixels.
enum class ChromaSize { full, half };

/// Luma, and two chroma planes unless the picture is grey.
struct TransformedPicture {
    TransformedPlane luma, cb, cr;
    ChromaSize chroma = ChromaSize::half;
};

/// Transforms a picture, on all cores, strip by strip where its rows come so. With half chroma its luma is
/// filled up to an even number of blocks both ways with blocks that cost next to nothing to code. `accepts`
/// is asked about each strip when its rows are ready. Planes without memory: a strip was refused or could not
/// be had, or there was no memory.
TransformedPicture transform(const EncoderInput& input, ChromaSize chroma,
                             const std::function<bool(int top, int end)>& accepts);

} // namespace pex::jpeg
