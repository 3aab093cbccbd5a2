#pragma once

#include "peximage/platform/raster/PixelLayout.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace pex {

/// A window on pixels that somebody else owns; rows top first. `Byte` is `std::uint8_t` or its const form.
template <class Byte>
struct BasicPixelView {
    Byte* data = nullptr;
    int width = 0;
    int height = 0;
    std::ptrdiff_t bytesPerRow = 0;
    PixelLayout layout = PixelLayout::skipLast;

    Byte* row(int y) const { return data + y * bytesPerRow; }

    /// The part that begins at (x, y); the caller has checked that it lies inside.
    BasicPixelView part(int x, int y, int w, int h) const {
        return {row(y) + std::ptrdiff_t{x} * bytesPerPixel(layout), w, h, bytesPerRow, layout};
    }

    operator BasicPixelView<const std::uint8_t>() const requires(!std::is_const_v<Byte>) {
        return {data, width, height, bytesPerRow, layout};
    }
};

using PixelView = BasicPixelView<const std::uint8_t>;
using MutablePixelView = BasicPixelView<std::uint8_t>;

} // namespace pex
