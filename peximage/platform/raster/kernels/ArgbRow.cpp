#include "peximage/platform/raster/kernels/ArgbRow.h"

#include <bit>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/ArgbRow.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"
#include "peximage/platform/raster/kernels/PairProducts.h"
#include "peximage/platform/raster/kernels/PixelLanes.h"

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {

/// A pixel in a 32-bit lane: alpha is its low byte.
constexpr std::uint32_t alphaBits = 0x000000FF, colourBits = 0xFFFFFF00;

HWY_INLINE Pixels everyLane(const Argb& pixel) {
    return hn::Set(Lanes(), std::bit_cast<std::uint32_t>(pixel));
}

template <class Change>
HWY_INLINE void changeRow(std::uint8_t* argb, int pixels, Change change) {
    alongRow<4, 4>(argb, argb, pixels, [&](const std::uint8_t* in, std::uint8_t* out) HWY_ATTR {
        storePixels(change(loadPixels(in)), out);
    });
}

/// The bytes of alpha and green, and of red and blue, as 16-bit lanes.
HWY_INLINE V16 alphaGreen(Pixels argb) {
    return hn::BitCast(D16(), hn::And(argb, hn::Set(Lanes(), 0x00FF00FFu)));
}
HWY_INLINE V16 redBlue(Pixels argb) {
    return hn::BitCast(D16(), hn::ShiftRight<8>(hn::BitCast(hn::RebindToUnsigned<D16>(), argb)));
}

HWY_INLINE V32 colourSum(Pixels argb) {
    return hn::Add(pairProducts(alphaGreen(argb), pairOf(0, 1)), pairProducts(redBlue(argb), pairOf(1, 1)));
}

/// Of the colour bytes; those of alpha have to be equal.
HWY_INLINE V32 squaredDistance(Pixels a, Pixels b) {
    const hn::Repartition<std::uint8_t, Lanes> bytes;
    const auto x = hn::BitCast(bytes, a), y = hn::BitCast(bytes, b);
    const auto apart = hn::BitCast(Lanes(), hn::Or(hn::SaturatedSub(x, y), hn::SaturatedSub(y, x)));
    const V16 green = alphaGreen(apart), others = redBlue(apart);
    return hn::Add(pairProducts(green, green), pairProducts(others, others));
}

template <Gate Which>
void gatePixels(std::uint8_t* argb, int pixels, int limit) {
    const Lanes d;
    const hn::RebindToSigned<Lanes> d32;
    changeRow(argb, pixels, [&](Pixels p) HWY_ATTR {
        const V32 sum = colourSum(p), bound = hn::Set(d32, limit);
        const Pixels black = hn::And(p, hn::Set(d, alphaBits));
        const Pixels white = hn::Or(p, hn::Set(d, colourBits));
        const auto below = hn::RebindMask(d, hn::Lt(sum, bound));
        if constexpr (Which == Gate::darkToBlack) return hn::IfThenElse(below, black, p);
        if constexpr (Which == Gate::toEither) return hn::IfThenElse(below, black, white);
        return hn::IfThenElse(hn::RebindMask(d, hn::Gt(sum, bound)), white, p);
    });
}

} // namespace

void overwrite(std::uint8_t* argb, int pixels, const Argb& pixel, const Argb& keep) {
    changeRow(argb, pixels, [&](Pixels p) HWY_ATTR {
        const Pixels kept = everyLane(keep);
        return hn::Or(hn::And(p, kept), hn::AndNot(kept, everyLane(pixel)));
    });
}

void fillTransparent(std::uint8_t* argb, int pixels, const Argb& pixel) {
    const Lanes d;
    changeRow(argb, pixels, [&](Pixels p) HWY_ATTR {
        const auto transparent = hn::Eq(hn::And(p, hn::Set(d, alphaBits)), hn::Zero(d));
        return hn::IfThenElse(transparent, everyLane(pixel), p);
    });
}

void gate(std::uint8_t* argb, int pixels, Gate which, int limit) {
    if (which == Gate::darkToBlack) return gatePixels<Gate::darkToBlack>(argb, pixels, limit);
    if (which == Gate::lightToWhite) return gatePixels<Gate::lightToWhite>(argb, pixels, limit);
    gatePixels<Gate::toEither>(argb, pixels, limit);
}

void key(std::uint8_t* argb, int pixels, const Argb& colour, int largestSquare) {
    const Lanes d;
    const hn::RebindToSigned<Lanes> d32;
    changeRow(argb, pixels, [&](Pixels p) HWY_ATTR {
        const Pixels opaque = hn::Set(d, alphaBits);
        const V32 square = squaredDistance(hn::Or(p, opaque), hn::Or(everyLane(colour), opaque));
        const auto far = hn::RebindMask(d, hn::Gt(square, hn::Set(d32, largestSquare)));
        return hn::IfThenElse(far, p, hn::AndNot(opaque, p));
    });
}

template <class AlphaOf>
HWY_INLINE void takeAlpha(std::uint8_t* argb, const std::uint8_t* mask, int pixels, AlphaOf alphaOf) {
    alongRow<4, 4, true>(mask, argb, pixels, [&](const std::uint8_t* in, std::uint8_t* out) HWY_ATTR {
        const Pixels alpha = alphaOf(loadPixels(in));
        storePixels(hn::Or(hn::And(loadPixels(out), hn::Set(Lanes(), colourBits)), alpha), out);
    });
}

void takeMask(std::uint8_t* argb, const std::uint8_t* mask, int pixels, MaskBy by) {
    if (by == MaskBy::alpha)
        return takeAlpha(argb, mask, pixels,
                         [](Pixels p) HWY_ATTR { return hn::And(p, hn::Set(Lanes(), alphaBits)); });
    // A third of any sum up to 765, rounded down, is exactly its product with 43691 / 2^17.
    takeAlpha(argb, mask, pixels, [](Pixels p) HWY_ATTR {
        const Pixels sum = hn::BitCast(Lanes(), colourSum(p));
        return hn::ShiftRight<17>(hn::Mul(sum, hn::Set(Lanes(), 43691u)));
    });
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

void overwritePlain(std::uint8_t* argb, int pixels, const Argb& pixel, const Argb& keep) {
    for (int x = 0; x < pixels; ++x, argb += 4) {
        for (std::size_t c = 0; c < 4; ++c)
            argb[c] = static_cast<std::uint8_t>((argb[c] & keep[c]) | (pixel[c] & ~keep[c]));
    }
}

void fillTransparentPlain(std::uint8_t* argb, int pixels, const Argb& pixel) {
    for (int x = 0; x < pixels; ++x, argb += 4) {
        if (argb[0] == 0) std::memcpy(argb, pixel.data(), 4);
    }
}

void gatePlain(std::uint8_t* argb, int pixels, Gate which, int limit) {
    for (int x = 0; x < pixels; ++x, argb += 4) {
        const int sum = argb[1] + argb[2] + argb[3];
        const bool toBlack = which != Gate::lightToWhite && sum < limit;
        const bool toWhite =
            which == Gate::toEither ? sum >= limit : which == Gate::lightToWhite && sum > limit;
        if (toBlack || toWhite) std::memset(argb + 1, toWhite ? 255 : 0, 3);
    }
}

void keyPlain(std::uint8_t* argb, int pixels, const Argb& colour, int largestSquare) {
    for (int x = 0; x < pixels; ++x, argb += 4) {
        int square = 0;
        for (std::size_t c = 1; c < 4; ++c)
            square += (argb[c] - colour[c]) * (argb[c] - colour[c]);
        if (square <= largestSquare) argb[0] = 0;
    }
}

void takeMaskPlain(std::uint8_t* argb, const std::uint8_t* mask, int pixels, MaskBy by) {
    for (int x = 0; x < pixels; ++x, argb += 4, mask += 4)
        argb[0] =
            by == MaskBy::alpha ? mask[0] : static_cast<std::uint8_t>((mask[1] + mask[2] + mask[3]) / 3);
}

} // namespace

void overwriteRow(std::uint8_t* argb, int pixels, const Argb& pixel, const Argb& keep) {
    PEX_PICK_KERNEL(overwrite, overwritePlain)(argb, pixels, pixel, keep);
}

void fillTransparentRow(std::uint8_t* argb, int pixels, const Argb& pixel) {
    PEX_PICK_KERNEL(fillTransparent, fillTransparentPlain)(argb, pixels, pixel);
}

void gateRow(std::uint8_t* argb, int pixels, Gate which, int limit) {
    PEX_PICK_KERNEL(gate, gatePlain)(argb, pixels, which, limit);
}

void maskRow(std::uint8_t* argb, const std::uint8_t* mask, int pixels, MaskBy by) {
    PEX_PICK_KERNEL(takeMask, takeMaskPlain)(argb, mask, pixels, by);
}

void keyRow(std::uint8_t* argb, int pixels, const Argb& colour, int largestSquare) {
    PEX_PICK_KERNEL(key, keyPlain)(argb, pixels, colour, largestSquare);
}

} // namespace pex::kernels
#endif
