#include "peximage/platform/raster/kernels/OrientRows.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/OrientRows.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"
#include "peximage/platform/raster/kernels/PixelLanes.h"

#ifndef PEX_TRANSPOSE
#define PEX_TRANSPOSE
namespace pex::kernels {

/// Rows a signed distance apart, so that a picture can be walked from its last row.
struct ReadRows {
    const std::uint8_t* data;
    std::ptrdiff_t stride;
    const std::uint8_t* at(int x, int y, int bytes) const {
        return data + y * stride + std::ptrdiff_t{x} * bytes;
    }
};
struct WriteRows {
    std::uint8_t* data;
    std::ptrdiff_t stride;
    std::uint8_t* at(int x, int y, int bytes) const { return data + y * stride + std::ptrdiff_t{x} * bytes; }
};

/// One pixel after the other; for what is left over beside whole blocks, and for all on plain hardware.
template <int Bytes>
void transposePlain(ReadRows from, WriteRows to, int x0, int y0, int x1, int y1) {
    for (int x = x0; x < x1; ++x) {
        for (int y = y0; y < y1; ++y)
            std::memcpy(to.at(y, x, Bytes), from.at(x, y, Bytes), Bytes);
    }
}

/// Transposes so that each line of the cache that is read or written is used whole before it may be evicted,
/// also where the rows lie a power of two apart. `block(x0, y0, x1, y1)` does at most 16 by 16 pixels; a tall
/// tile keeps the pages of the target in reach.
template <class Block>
void alongTiles(int width, int height, Block block) {
    constexpr int side = 16, tall = 64;
    for (int tile = 0; tile < height; tile += tall) {
        for (int x = 0; x < width; x += side) {
            for (int y = tile; y < std::min(height, tile + tall); y += side)
                block(x, y, std::min(width, x + side), std::min(height, y + side));
        }
    }
}

} // namespace pex::kernels
#endif

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {

HWY_INLINE void transpose4x4(ReadRows from, WriteRows to, int x, int y) {
    const hn::FixedTag<std::uint32_t, 4> d;
    const hn::FixedTag<std::uint64_t, 2> d64;
    const hn::FixedTag<std::uint8_t, 16> d8;
    const auto load = [&](int row) HWY_ATTR { return hn::BitCast(d, hn::LoadU(d8, from.at(x, y + row, 4))); };
    const auto r0 = load(0), r1 = load(1), r2 = load(2), r3 = load(3);
    const auto left01 = hn::BitCast(d64, hn::InterleaveLower(d, r0, r1));
    const auto left23 = hn::BitCast(d64, hn::InterleaveLower(d, r2, r3));
    const auto right01 = hn::BitCast(d64, hn::InterleaveUpper(d, r0, r1));
    const auto right23 = hn::BitCast(d64, hn::InterleaveUpper(d, r2, r3));
    hn::StoreU(hn::BitCast(d8, hn::InterleaveLower(d64, left01, left23)), d8, to.at(y, x, 4));
    hn::StoreU(hn::BitCast(d8, hn::InterleaveUpper(d64, left01, left23)), d8, to.at(y, x + 1, 4));
    hn::StoreU(hn::BitCast(d8, hn::InterleaveLower(d64, right01, right23)), d8, to.at(y, x + 2, 4));
    hn::StoreU(hn::BitCast(d8, hn::InterleaveUpper(d64, right01, right23)), d8, to.at(y, x + 3, 4));
}

} // namespace

void transposeColour(ReadRows from, WriteRows to, int width, int height) {
    alongTiles(width, height, [&](int x0, int y0, int x1, int y1) HWY_ATTR {
        const int x4 = x0 + (x1 - x0) / 4 * 4, y4 = y0 + (y1 - y0) / 4 * 4;
        for (int x = x0; x < x4; x += 4) {
            for (int y = y0; y < y4; y += 4)
                transpose4x4(from, to, x, y);
        }
        transposePlain<4>(from, to, x4, y0, x1, y4);
        transposePlain<4>(from, to, x0, y4, x1, y1);
    });
}

void mirrorColourRow(const std::uint8_t* from, std::uint8_t* to, int pixels) {
    const Lanes d;
    const int lanes = static_cast<int>(hn::Lanes(d));
    int x = 0;
    for (; x + lanes <= pixels; x += lanes)
        storePixels(hn::Reverse(d, loadPixels(from + std::size_t{4} * x)),
                    to + std::size_t{4} * (pixels - x - lanes));
    for (; x < pixels; ++x)
        std::memcpy(to + std::size_t{4} * (pixels - 1 - x), from + std::size_t{4} * x, 4);
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

void transposeColourPlain(ReadRows from, WriteRows to, int width, int height) {
    alongTiles(width, height,
               [&](int x0, int y0, int x1, int y1) { transposePlain<4>(from, to, x0, y0, x1, y1); });
}

void transposeGrey(ReadRows from, WriteRows to, int width, int height) {
    alongTiles(width, height,
               [&](int x0, int y0, int x1, int y1) { transposePlain<1>(from, to, x0, y0, x1, y1); });
}

void mirrorColourRowPlain(const std::uint8_t* from, std::uint8_t* to, int pixels) {
    for (int x = 0; x < pixels; ++x)
        std::memcpy(to + std::size_t{4} * (pixels - 1 - x), from + std::size_t{4} * x, 4);
}

void mirrorGreyRow(const std::uint8_t* from, std::uint8_t* to, int pixels) {
    std::reverse_copy(from, from + pixels, to);
}

/// The orientations that leave rows being rows.
void placeRows(PixelView rows, int firstRow, bool mirrored, bool upsideDown, MutablePixelView upright) {
    const bool grey = rows.layout == PixelLayout::grey;
    const auto mirror = grey ? mirrorGreyRow : PEX_PICK_KERNEL(mirrorColourRow, mirrorColourRowPlain);
    for (int y = 0; y < rows.height; ++y) {
        const int place = firstRow + y;
        std::uint8_t* to = upright.row(upsideDown ? upright.height - 1 - place : place);
        if (mirrored)
            mirror(rows.row(y), to, rows.width);
        else
            std::memcpy(to, rows.row(y), static_cast<std::size_t>(bytesPerPixel(rows.layout)) * rows.width);
    }
}

/// The orientations by which rows become columns: a transposition, of the rows from the last one up and to
/// the target's rows from the last one up where the orientation wants it.
void placeColumns(PixelView rows, int firstRow, bool fromRight, bool upsideDown, MutablePixelView upright) {
    const bool grey = rows.layout == PixelLayout::grey;
    ReadRows from{rows.data, rows.bytesPerRow};
    if (fromRight) from = {rows.row(rows.height - 1), -rows.bytesPerRow};
    WriteRows to{upright.data, upright.bytesPerRow};
    if (upsideDown) to = {upright.row(upright.height - 1), -upright.bytesPerRow};
    const int column = fromRight ? upright.width - firstRow - rows.height : firstRow;
    to.data += std::ptrdiff_t{column} * bytesPerPixel(rows.layout);
    const auto transpose = grey ? transposeGrey : PEX_PICK_KERNEL(transposeColour, transposeColourPlain);
    transpose(from, to, rows.width, rows.height);
}

} // namespace

void orientRows(PixelView rows, int firstRow, Orientation orientation, MutablePixelView upright) {
    if (rows.width <= 0 || rows.height <= 0) return;
    switch (orientation) {
    case Orientation::up:
        return placeRows(rows, firstRow, false, false, upright);
    case Orientation::upMirrored:
        return placeRows(rows, firstRow, true, false, upright);
    case Orientation::down:
        return placeRows(rows, firstRow, true, true, upright);
    case Orientation::downMirrored:
        return placeRows(rows, firstRow, false, true, upright);
    case Orientation::leftMirrored:
        return placeColumns(rows, firstRow, false, false, upright);
    case Orientation::right:
        return placeColumns(rows, firstRow, true, false, upright);
    case Orientation::rightMirrored:
        return placeColumns(rows, firstRow, true, true, upright);
    case Orientation::left:
        return placeColumns(rows, firstRow, false, true, upright);
    }
}

} // namespace pex::kernels
#endif
