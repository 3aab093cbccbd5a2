#include "peximage/platform/raster/kernels/ConvertRow.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/ConvertRow.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"
#include "peximage/platform/raster/kernels/PixelLanes.h"

#ifndef PEX_ALPHA_CHANGE
#define PEX_ALPHA_CHANGE
namespace pex::kernels {

/// What becomes of the alpha byte, and of the colour with it, between two four-byte layouts.
enum class AlphaChange { keep, limit, opaque, multiply, divide };

inline AlphaChange alphaChange(PixelLayout from, PixelLayout to) {
    if (!hasAlpha(from) || !hasAlpha(to)) return AlphaChange::opaque;
    const auto isStraight = [](PixelLayout layout) {
        return layout == PixelLayout::straightLast || layout == PixelLayout::straightFirst;
    };
    if (isStraight(from)) return isStraight(to) ? AlphaChange::keep : AlphaChange::multiply;
    return isStraight(to) ? AlphaChange::divide : AlphaChange::limit;
}

/// Rec. 601 luma weights; they sum to 1 << 15.
constexpr std::int16_t redWeight = 9798, greenWeight = 19235, blueWeight = 3735;

} // namespace pex::kernels
#endif

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {

/// Rounded c * 255 / a, at most 255. The quotient comes from one division a pixel and may fall short of an
/// exact half by some 2^-15; two quotients that differ are at least 1 / 510 apart, so a little more than a
/// half added before cutting off rounds every one as the exact quotient.
HWY_INLINE Pixels unpremultiplied(Pixels rgba) {
    const Lanes d;
    const hn::Repartition<std::int32_t, Lanes> di;
    const hn::Repartition<float, Lanes> df;
    const auto byte = hn::Set(d, 0xFFu);
    const auto alpha = hn::ConvertTo(df, hn::BitCast(di, hn::ShiftRight<24>(rgba)));
    const auto visible = hn::Gt(alpha, hn::Zero(df));
    const auto factor = hn::IfThenElseZero(visible, hn::Div(hn::Set(df, 255.0f), alpha));
    const auto divided = [&](Pixels component) HWY_ATTR {
        const auto c = hn::ConvertTo(df, hn::BitCast(di, component));
        const auto rounded = hn::Add(hn::Mul(c, factor), hn::Set(df, 0.5f + 1.0f / 2048));
        return hn::BitCast(d, hn::ConvertTo(di, hn::Min(rounded, hn::Set(df, 255.0f))));
    };
    const auto red = divided(hn::And(rgba, byte));
    const auto green = divided(hn::And(hn::ShiftRight<8>(rgba), byte));
    const auto blue = divided(hn::And(hn::ShiftRight<16>(rgba), byte));
    const auto colour = hn::Or(hn::Or(red, hn::ShiftLeft<8>(green)), hn::ShiftLeft<16>(blue));
    return hn::Or(colour, hn::And(rgba, hn::Set(d, 0xFF000000u)));
}

template <AlphaChange Change>
HWY_INLINE Pixels changed(Pixels rgba) {
    if constexpr (Change == AlphaChange::limit) return withinAlpha(rgba);
    if constexpr (Change == AlphaChange::opaque) return withOpaqueAlpha(rgba);
    if constexpr (Change == AlphaChange::multiply) return premultiplied(rgba);
    if constexpr (Change == AlphaChange::divide) return unpremultiplied(rgba);
    return rgba;
}

template <AlphaChange Change, bool FromFirst, bool ToFirst>
void colourRow(const std::uint8_t* from, std::uint8_t* to, int pixels) {
    alongRow<4, 4>(from, to, pixels, [](const std::uint8_t* in, std::uint8_t* out) HWY_ATTR {
        auto rgba = loadPixels(in);
        if constexpr (FromFirst) rgba = alphaToLast(rgba);
        rgba = changed<Change>(rgba);
        if constexpr (ToFirst) rgba = alphaToFirst(rgba);
        storePixels(rgba, out);
    });
}

template <AlphaChange Change>
void colourRow(const std::uint8_t* from, bool fromFirst, std::uint8_t* to, bool toFirst, int pixels) {
    if (fromFirst && toFirst) return colourRow<Change, true, true>(from, to, pixels);
    if (fromFirst) return colourRow<Change, true, false>(from, to, pixels);
    if (toFirst) return colourRow<Change, false, true>(from, to, pixels);
    return colourRow<Change, false, false>(from, to, pixels);
}

template <bool ToFirst>
void fromGreyRow(const std::uint8_t* from, std::uint8_t* to, int pixels) {
    alongRow<1, 4>(from, to, pixels, [](const std::uint8_t* in, std::uint8_t* out) HWY_ATTR {
        const Lanes d;
        const auto grey = hn::PromoteTo(d, hn::LoadU(hn::Rebind<std::uint8_t, Lanes>(), in));
        auto rgba = hn::Or(hn::Or(grey, hn::ShiftLeft<8>(grey)), hn::ShiftLeft<16>(grey));
        rgba = withOpaqueAlpha(rgba);
        if constexpr (ToFirst) rgba = alphaToFirst(rgba);
        storePixels(rgba, out);
    });
}

template <bool FromFirst>
void toGreyRow(const std::uint8_t* from, std::uint8_t* to, int pixels) {
    alongRow<4, 1>(from, to, pixels, [](const std::uint8_t* in, std::uint8_t* out) HWY_ATTR {
        const Lanes d;
        const hn::Repartition<std::int32_t, Lanes> di;
        const auto byte = hn::Set(d, 0xFFu);
        auto rgba = loadPixels(in);
        if constexpr (FromFirst) rgba = alphaToLast(rgba);
        const auto red = hn::Mul(hn::And(rgba, byte), hn::Set(d, std::uint32_t{redWeight}));
        const auto green =
            hn::Mul(hn::And(hn::ShiftRight<8>(rgba), byte), hn::Set(d, std::uint32_t{greenWeight}));
        const auto blue =
            hn::Mul(hn::And(hn::ShiftRight<16>(rgba), byte), hn::Set(d, std::uint32_t{blueWeight}));
        const auto sum = hn::Add(hn::Add(red, green), hn::Add(blue, hn::Set(d, 1u << 14)));
        const hn::Rebind<std::uint8_t, Lanes> d8;
        hn::StoreU(hn::DemoteTo(d8, hn::BitCast(di, hn::ShiftRight<15>(sum))), d8, out);
    });
}

} // namespace

void convertDistinct(const std::uint8_t* from, PixelLayout fromLayout, std::uint8_t* to, PixelLayout toLayout,
                     int pixels) {
    const bool fromFirst = isAlphaFirst(fromLayout);
    const bool toFirst = isAlphaFirst(toLayout);
    if (fromLayout == PixelLayout::grey)
        return toFirst ? fromGreyRow<true>(from, to, pixels) : fromGreyRow<false>(from, to, pixels);
    if (toLayout == PixelLayout::grey)
        return fromFirst ? toGreyRow<true>(from, to, pixels) : toGreyRow<false>(from, to, pixels);
    switch (alphaChange(fromLayout, toLayout)) {
    case AlphaChange::keep:
        return colourRow<AlphaChange::keep>(from, fromFirst, to, toFirst, pixels);
    case AlphaChange::limit:
        return colourRow<AlphaChange::limit>(from, fromFirst, to, toFirst, pixels);
    case AlphaChange::opaque:
        return colourRow<AlphaChange::opaque>(from, fromFirst, to, toFirst, pixels);
    case AlphaChange::multiply:
        return colourRow<AlphaChange::multiply>(from, fromFirst, to, toFirst, pixels);
    case AlphaChange::divide:
        return colourRow<AlphaChange::divide>(from, fromFirst, to, toFirst, pixels);
    }
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

struct Pixel {
    int r, g, b, a;
};

Pixel readPixel(const std::uint8_t* from, PixelLayout layout) {
    if (layout == PixelLayout::grey) return {from[0], from[0], from[0], 255};
    const std::uint8_t* colour = isAlphaFirst(layout) ? from + 1 : from;
    return {colour[0], colour[1], colour[2], isAlphaFirst(layout) ? from[0] : from[3]};
}

void writePixel(Pixel pixel, std::uint8_t* to, PixelLayout layout) {
    if (layout == PixelLayout::grey) {
        const int sum = redWeight * pixel.r + greenWeight * pixel.g + blueWeight * pixel.b;
        to[0] = static_cast<std::uint8_t>((sum + (1 << 14)) >> 15);
        return;
    }
    std::uint8_t* colour = isAlphaFirst(layout) ? to + 1 : to;
    colour[0] = static_cast<std::uint8_t>(pixel.r);
    colour[1] = static_cast<std::uint8_t>(pixel.g);
    colour[2] = static_cast<std::uint8_t>(pixel.b);
    to[isAlphaFirst(layout) ? 0 : 3] = static_cast<std::uint8_t>(pixel.a);
}

Pixel changedPlain(Pixel p, AlphaChange change) {
    const auto multiplied = [&](int c) { return (2 * c * p.a + 255) / 510; };
    const auto divided = [&](int c) { return p.a == 0 ? 0 : std::min(255, (2 * c * 255 + p.a) / (2 * p.a)); };
    switch (change) {
    case AlphaChange::keep:
        return p;
    case AlphaChange::limit:
        return {std::min(p.r, p.a), std::min(p.g, p.a), std::min(p.b, p.a), p.a};
    case AlphaChange::opaque:
        return {p.r, p.g, p.b, 255};
    case AlphaChange::multiply:
        return {multiplied(p.r), multiplied(p.g), multiplied(p.b), p.a};
    case AlphaChange::divide:
        return {divided(p.r), divided(p.g), divided(p.b), p.a};
    }
    return p;
}

void convertDistinctPlain(const std::uint8_t* from, PixelLayout fromLayout, std::uint8_t* to,
                          PixelLayout toLayout, int pixels) {
    const AlphaChange change = alphaChange(fromLayout, toLayout);
    for (int x = 0; x < pixels; ++x) {
        writePixel(changedPlain(readPixel(from, fromLayout), change), to, toLayout);
        from += bytesPerPixel(fromLayout);
        to += bytesPerPixel(toLayout);
    }
}

} // namespace

void convertRow(const std::uint8_t* from, PixelLayout fromLayout, std::uint8_t* to, PixelLayout toLayout,
                int pixels) {
    if (pixels <= 0) return;
    const bool isGrey = toLayout == PixelLayout::grey;
    const bool same =
        fromLayout == toLayout && (isGrey || alphaChange(fromLayout, toLayout) == AlphaChange::keep);
    if (!same)
        PEX_PICK_KERNEL(convertDistinct, convertDistinctPlain)(from, fromLayout, to, toLayout, pixels);
    else if (from != to)
        std::memcpy(to, from, static_cast<std::size_t>(pixels) * bytesPerPixel(toLayout));
}

} // namespace pex::kernels
#endif
