#include "peximage/platform/raster/kernels/OrientRows.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/OrientRows.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"
#include "peximage/platform/raster/kernels/PixelLanes.h"

#include <hwy/cache_control.h>

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

constexpr int tileColumns = 32, tileRows = 128;

} // namespace pex::kernels
#endif

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {

/// Four pixels of every fourth row from y on, a 128-bit block each.
template <class D>
HWY_INLINE hn::VFromD<D> everyFourthRow(D d, ReadRows from, int x, int y) {
    if constexpr (hn::MaxLanes(D()) == 4) {
        return hn::BitCast(d, hn::LoadU(hn::Repartition<std::uint8_t, D>(), from.at(x, y, 4)));
    } else {
        const hn::Half<D> half;
        constexpr int rows = static_cast<int>(hn::MaxLanes(half));
        return hn::Combine(d, everyFourthRow(half, from, x, y + rows), everyFourthRow(half, from, x, y));
    }
}

/// Four columns of as many rows as a vector has lanes.
HWY_INLINE void transposeFour(ReadRows from, WriteRows to, int x, int y) {
    const Lanes d;
    const hn::Repartition<std::uint64_t, Lanes> d64;
    const auto r0 = everyFourthRow(d, from, x, y), r1 = everyFourthRow(d, from, x, y + 1);
    const auto r2 = everyFourthRow(d, from, x, y + 2), r3 = everyFourthRow(d, from, x, y + 3);
    const auto left01 = hn::BitCast(d64, hn::InterleaveLower(d, r0, r1));
    const auto left23 = hn::BitCast(d64, hn::InterleaveLower(d, r2, r3));
    const auto right01 = hn::BitCast(d64, hn::InterleaveUpper(d, r0, r1));
    const auto right23 = hn::BitCast(d64, hn::InterleaveUpper(d, r2, r3));
    storePixels(hn::BitCast(d, hn::InterleaveLower(d64, left01, left23)), to.at(y, x, 4));
    storePixels(hn::BitCast(d, hn::InterleaveUpper(d64, left01, left23)), to.at(y, x + 1, 4));
    storePixels(hn::BitCast(d, hn::InterleaveLower(d64, right01, right23)), to.at(y, x + 2, 4));
    storePixels(hn::BitCast(d, hn::InterleaveUpper(d64, right01, right23)), to.at(y, x + 3, 4));
}

/// Transposes a tile of at most `tileColumns` by `tileRows`. Memory far apart is asked for some rows ahead,
/// and from the last ones on for the tile to the right.
HWY_INLINE void transposeTile(ReadRows from, WriteRows to, int width, int height, bool moreToTheRight) {
    constexpr int ahead = 32;
    const int lanes = static_cast<int>(hn::Lanes(Lanes()));
    const int wholeColumns = width / 4 * 4, wholeRows = height / lanes * lanes;
    for (int y = 0; y < wholeRows; y += lanes) {
        for (int row = y + ahead; row < y + ahead + lanes; ++row) {
            if (row < height) {
                for (int x = 0; x < width; x += 16)
                    hwy::Prefetch(from.at(x, row, 4));
            } else if (moreToTheRight && row - height < height) {
                for (int x = tileColumns; x < 2 * tileColumns; x += 16)
                    hwy::Prefetch(from.at(x, row - height, 4));
            }
        }
        for (int x = 0; x < wholeColumns; x += 4)
            transposeFour(from, to, x, y);
    }
    transposePlain<4>(from, to, wholeColumns, 0, width, wholeRows);
    transposePlain<4>(from, to, 0, wholeRows, width, height);
}

/// Copies a row past the caches, but for the ends that share a cache line with other pixels.
HWY_INLINE void streamRow(const std::uint8_t* from, std::uint8_t* to, std::size_t bytes) {
    const hn::ScalableTag<std::uint8_t> d;
    constexpr std::size_t line = 64;
    const std::size_t head = std::min(bytes, (line - reinterpret_cast<std::uintptr_t>(to) % line) % line);
    const std::size_t body = (bytes - head) / line * line;
    std::memcpy(to, from, head);
    for (std::size_t i = head; i < head + body; i += hn::Lanes(d))
        hn::Stream(hn::LoadU(d, from + i), d, to + i);
    std::memcpy(to + head + body, from + head + body, bytes - head - body);
}

} // namespace

void transposeColour(ReadRows from, WriteRows to, int width, int height, bool pastCaches) {
    HWY_ALIGN std::uint8_t memory[4 * tileColumns * tileRows];
    const WriteRows tile{memory, 4 * tileRows};
    for (int y = 0; y < height; y += tileRows) {
        const int rows = std::min(height - y, tileRows);
        for (int x = 0; x < width; x += tileColumns) {
            const int columns = std::min(width - x, tileColumns);
            const ReadRows corner{from.at(x, y, 4), from.stride};
            transposeTile(corner, tile, columns, rows, x + 2 * tileColumns <= width);
            const auto bytes = static_cast<std::size_t>(rows) * 4;
            for (int column = 0; column < columns; ++column) {
                if (pastCaches)
                    streamRow(tile.at(0, column, 4), to.at(y, x + column, 4), bytes);
                else
                    std::memcpy(to.at(y, x + column, 4), tile.at(0, column, 4), bytes);
            }
        }
    }
    if (pastCaches) hwy::FlushStream();
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

void transposeColourPlain(ReadRows from, WriteRows to, int width, int height, bool) {
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
    if (grey) return transposeGrey(from, to, rows.width, rows.height);
    constexpr std::ptrdiff_t cached = 4
                                      << 20; // a larger picture would push everything else out of the caches
    const bool pastCaches = upright.bytesPerRow * upright.height > cached;
    PEX_PICK_KERNEL(transposeColour, transposeColourPlain)(from, to, rows.width, rows.height, pastCaches);
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
