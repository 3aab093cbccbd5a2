#pragma once

#include "peximage/platform/raster/kernels/JpegDct.h"
#include "peximage/platform/raster/kernels/JpegInverseDct.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace pex::jpeg {

using Coefficient = std::int16_t;

/// Rows of blocks are kept in quads (see `inverseDct`). The quads that hold so many blocks:
constexpr int quadsFor(int blocks) { return (blocks + kernels::blocksOfQuad - 1) / kernels::blocksOfQuad; }
/// The first coefficient of the x-th block of a row.
template <class Value>
constexpr Value* blockAt(Value* row, int x) {
    return row + x / kernels::blocksOfQuad * kernels::coefficientsOfQuad + x % kernels::blocksOfQuad * 8;
}
/// How far from that the k-th coefficient is, in the order of the file.
inline constexpr std::array<std::uint8_t, 64> placeInQuad = [] {
    std::array<std::uint8_t, 64> places{};
    for (std::size_t k = 0; k < places.size(); ++k) {
        const int natural = kernels::zigzag[k];
        places[k] = static_cast<std::uint8_t>(natural / 8 * 8 * kernels::blocksOfQuad + natural % 8);
    }
    return places;
}();

/// The coefficients of a picture, not yet dequantised, from its top to its bottom.
class BlockSource {
  public:
    virtual ~BlockSource() = default;

    /// Makes the blocks of the rows of MCUs from `begin` up to `end` ready; those above are gone then. False
    /// when the file is damaged: it is then for the codec library alone, which knows what to make of it.
    virtual bool advance(int begin, int end) = 0;
    /// A row of blocks of a component, counted from the picture's top: whole quads. Any thread.
    virtual const Coefficient* row(std::size_t component, int y) const = 0;
};

} // namespace pex::jpeg
