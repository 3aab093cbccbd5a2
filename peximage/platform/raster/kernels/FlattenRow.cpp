#include "peximage/platform/raster/kernels/FlattenRow.h"

#include "peximage/platform/raster/kernels/ConvertRow.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/FlattenRow.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"
#include "peximage/platform/raster/kernels/PixelLanes.h"

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {

/// What white lacks of the colour is what the colour's alpha lets through of that lack.
HWY_INLINE Pixels straightOverWhite(Pixels rgba) {
    const auto colour = hn::Set(Lanes(), 0x00FFFFFFu);
    return hn::Xor(premultiplied(hn::Xor(rgba, colour)), colour);
}

HWY_INLINE Pixels premultipliedOverWhite(Pixels rgba) {
    const Lanes d;
    const hn::Repartition<std::uint8_t, Lanes> bytes;
    const auto white = hn::ShiftRight<24>(hn::Xor(rgba, hn::Set(d, 0xFF000000u)));
    const auto whites = hn::Or(hn::Or(white, hn::ShiftLeft<8>(white)), hn::ShiftLeft<16>(white));
    return hn::BitCast(d, hn::SaturatedAdd(hn::BitCast(bytes, rgba), hn::BitCast(bytes, whites)));
}

template <bool Straight, bool First>
void overWhiteRow(const std::uint8_t* from, std::uint8_t* to, int pixels) {
    alongRow<4, 4>(from, to, pixels, [](const std::uint8_t* in, std::uint8_t* out) HWY_ATTR {
        auto rgba = loadPixels(in);
        if constexpr (First) rgba = alphaToLast(rgba);
        rgba = Straight ? straightOverWhite(rgba) : premultipliedOverWhite(rgba);
        storePixels(withOpaqueAlpha(rgba), out);
    });
}

} // namespace

void flattenAlpha(const std::uint8_t* from, PixelLayout layout, std::uint8_t* to, int pixels) {
    const bool first = isAlphaFirst(layout);
    if (layout == PixelLayout::straightLast || layout == PixelLayout::straightFirst)
        return first ? overWhiteRow<true, true>(from, to, pixels)
                     : overWhiteRow<true, false>(from, to, pixels);
    return first ? overWhiteRow<false, true>(from, to, pixels) : overWhiteRow<false, false>(from, to, pixels);
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

void flattenAlphaPlain(const std::uint8_t* from, PixelLayout layout, std::uint8_t* to, int pixels) {
    const bool straight = layout == PixelLayout::straightLast || layout == PixelLayout::straightFirst;
    for (int x = 0; x < pixels; ++x, from += 4, to += 4) {
        const std::uint8_t pixel[] = {from[0], from[1], from[2], from[3]};
        const std::uint8_t* colour = isAlphaFirst(layout) ? pixel + 1 : pixel;
        const int alpha = isAlphaFirst(layout) ? pixel[0] : pixel[3];
        for (int c = 0; c < 3; ++c) {
            const int over = straight ? (2 * (colour[c] * alpha + 255 * (255 - alpha)) + 255) / 510
                                      : std::min(255, colour[c] + 255 - alpha);
            to[c] = static_cast<std::uint8_t>(over);
        }
        to[3] = 255;
    }
}

} // namespace

void flattenRow(const std::uint8_t* from, PixelLayout fromLayout, std::uint8_t* toSkipLast, int pixels) {
    if (!hasAlpha(fromLayout)) return convertRow(from, fromLayout, toSkipLast, PixelLayout::skipLast, pixels);
    PEX_PICK_KERNEL(flattenAlpha, flattenAlphaPlain)(from, fromLayout, toSkipLast, pixels);
}

} // namespace pex::kernels
#endif
