#pragma once

#include "peximage/platform/raster/PixelLayout.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace pex {

/// A window on pixels that somebody else owns; rows top first. `Byte` is `std::uint8_t` or its const form.
template <class Byte>
struct BasicPixelView {
    /// The first byte of the top row.
    Byte* data = nullptr;
    /// Pixels in a row.
    int width = 0;
    /// Rows.
    int height = 0;
    /// From one row's first byte to the next one's.
    std::ptrdiff_t bytesPerRow = 0;
    /// How the bytes of a pixel lie.
    PixelLayout layout = PixelLayout::skipLast;

    /// The first byte of row y, counted from the top.
    Byte* row(int y) const { return data + y * bytesPerRow; }

    /// The part that begins at (x, y); the caller has checked that it lies inside.
    BasicPixelView part(int x, int y, int w, int h) const {
        return {row(y) + std::ptrdiff_t{x} * bytesPerPixel(layout), w, h, bytesPerRow, layout};
    }

    /// Pixels that may be written can also be read.
    operator BasicPixelView<const std::uint8_t>() const requires(!std::is_const_v<Byte>) {
        return {data, width, height, bytesPerRow, layout};
    }
};

/// Pixels that are only read.
using PixelView = BasicPixelView<const std::uint8_t>;
/// Pixels that may be written.
using MutablePixelView = BasicPixelView<std::uint8_t>;

} // namespace pex
