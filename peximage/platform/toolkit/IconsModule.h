#pragma once

#include <cstddef>
#include <cstdint>

namespace pex {

/// What the module "icons" offers: the desktop's icons for files, and vector pictures. Any thread.
struct IconsModule {
    static constexpr int version = 1;
    static constexpr const char* name = "icons";

    /// The path of the desktop's icon for a file of this kind, for a square of `side` pixels or the nearest
    /// there is: PNG or SVG. The file need not exist; then its name tells the kind. An entry of the desktop's
    /// menu has the icon of its program. False when there is none, or its path is too long.
    bool (*iconFile)(const char* path, int side, char* icon, std::size_t capacity);

    /// Draws a vector picture as large as fits, centred, over zeroed pixels: R G B A, premultiplied, rows top
    /// first. What it refers to outside itself is not read. False when it is none, or cannot be drawn.
    bool (*drawVector)(const std::uint8_t* svg, std::size_t size, int width, int height, std::uint8_t* pixels,
                       std::ptrdiff_t bytesPerRow);
};

} // namespace pex
