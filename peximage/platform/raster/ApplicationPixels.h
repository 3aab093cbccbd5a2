#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/raster/CGImage.h"

#include <cstddef>
#include <functional>
#include <optional>

namespace pex {

/// The bytes of one pixel of an application, in the order in which they lie in memory, 8 bits a component.
enum class PixelBytes { grey, rgb, bgr, rgba, bgra, argb, rgbx, bgrx };

/// How many bytes that is: 1, 3 or 4.
constexpr int byteCount(PixelBytes bytes) {
    if (bytes == PixelBytes::grey) return 1;
    return bytes == PixelBytes::rgb || bytes == PixelBytes::bgr ? 3 : 4;
}

/// Pixels in memory of the application's own: the picture of another toolkit, an array, a texture. The top
/// row first; `bytesPerRow` counts from one row's first byte to the next one's.
template <class Byte>
struct BasicApplicationPixels {
    /// The first byte of the top row.
    Byte* data = nullptr;
    /// Pixels in a row.
    int width = 0;
    /// Rows.
    int height = 0;
    /// From one row's first byte to the next one's.
    std::ptrdiff_t bytesPerRow = 0;
    /// The order of a pixel's bytes.
    PixelBytes bytes = PixelBytes::rgba;
    /// Whether colours have alpha multiplied in; no matter without alpha.
    bool isPremultiplied = false;
};

/// Pixels that may be written.
using ApplicationPixels = BasicApplicationPixels<std::uint8_t>;
/// Pixels that are only read.
using ConstApplicationPixels = BasicApplicationPixels<const std::uint8_t>;

/// Writes an image's pixels into memory of the same width and height; colours stay in the image's own space.
/// Alpha is dropped where the memory has none, grey becomes colour, and colour grey by the Rec. 601 luma.
/// False when the sizes differ, a row is too short, or the pixels cannot be had. Any thread.
PEX_EXPORT bool copyPixels(const CGImage& image, const ApplicationPixels& to);

/// An image of a copy of the pixels. Absent when a side is below 1, a row is too short, or memory cannot be
/// had.
PEX_EXPORT std::optional<CGImage> imageOfCopied(const ConstApplicationPixels& pixels,
                                                const CGColorSpace& colorSpace = CGColorSpace::sRGB());

/// An image over the application's memory itself, for grey, rgba, argb and rgbx; absent for the other orders,
/// and as `imageOfCopied`. The memory must stay as it is until `release` is called: exactly once, by
/// whichever thread drops the last image that shows it, or before this returns where the result is absent.
PEX_EXPORT std::optional<CGImage> imageOfShared(const ConstApplicationPixels& pixels,
                                                std::function<void()> release,
                                                const CGColorSpace& colorSpace = CGColorSpace::sRGB());

} // namespace pex
