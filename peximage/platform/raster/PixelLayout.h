#pragma once

namespace pex {

/// How the bytes of one pixel lie in memory, 8 bits a component. "Last" is R G B A, "first" is A R G B;
/// "skip" has a byte in alpha's place that means nothing.
enum class PixelLayout {
    premultipliedLast,
    premultipliedFirst,
    straightLast,
    straightFirst,
    skipLast,
    skipFirst,
    grey,
};

/// 1 for grey, else 4.
constexpr int bytesPerPixel(PixelLayout layout) { return layout == PixelLayout::grey ? 1 : 4; }

/// Whether a byte tells the opacity.
constexpr bool hasAlpha(PixelLayout layout) {
    return layout != PixelLayout::grey && layout != PixelLayout::skipLast && layout != PixelLayout::skipFirst;
}

/// Whether the byte of opacity, or the one in its place, comes first.
constexpr bool isAlphaFirst(PixelLayout layout) {
    return layout == PixelLayout::premultipliedFirst || layout == PixelLayout::straightFirst ||
           layout == PixelLayout::skipFirst;
}

} // namespace pex
