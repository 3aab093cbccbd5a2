#include "peximage/platform/raster/kernels/JpegRgb.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/JpegRgb.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"
#include "peximage/platform/raster/kernels/PairProducts.h"

#include <algorithm>

#ifndef PEX_JPEG_RGB_SHARED
#define PEX_JPEG_RGB_SHARED
namespace pex::kernels {
namespace {

/// The weights 1.402, 1.772, 0.34414 and 0.71414 with 16 fraction bits. Those that do not fit 16 signed bits
/// go as a whole number and the rest: 1 + redCr, 2 + blueCb, and -1 + greenCr for the negative last one.
constexpr int redCr = 26345, blueCb = -14942, greenCb = -22554, greenCr = 18734;

void storePixel(int r, int g, int b, std::uint8_t* rgbx) {
    rgbx[0] = static_cast<std::uint8_t>(std::clamp(r, 0, 255));
    rgbx[1] = static_cast<std::uint8_t>(std::clamp(g, 0, 255));
    rgbx[2] = static_cast<std::uint8_t>(std::clamp(b, 0, 255));
    rgbx[3] = 255;
}

void rgbFromYccPlain(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                     std::uint8_t* rgbx, int pixels) {
    constexpr int half = 32768;
    for (int x = 0; x < pixels; ++x, rgbx += 4) {
        const int b = cb[x] - 128, r = cr[x] - 128;
        storePixel(y[x] + r + ((redCr * r + half) >> 16),
                   y[x] - r + ((greenCb * b + greenCr * r + half) >> 16),
                   y[x] + 2 * b + ((blueCb * b + half) >> 16), rgbx);
    }
}

void rgbFromPlanesPlain(const std::uint8_t* r, const std::uint8_t* g, const std::uint8_t* b,
                        std::uint8_t* rgbx, int pixels) {
    for (int x = 0; x < pixels; ++x, rgbx += 4)
        storePixel(r[x], g[x], b[x], rgbx);
}

} // namespace
} // namespace pex::kernels
#endif

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {

using U16 = hn::RebindToUnsigned<D16>;
using Samples = hn::Rebind<std::uint8_t, D16>;

HWY_INLINE V16 load(const std::uint8_t* samples) {
    return hn::PromoteTo(D16(), hn::LoadU(Samples(), samples));
}

HWY_INLINE V16 clamped(V16 v) { return hn::Min(hn::Max(v, hn::Zero(D16())), hn::Set(D16(), 255)); }

/// Colours from 0 to 255, as pixels in their order.
HWY_INLINE void store(V16 r, V16 g, V16 b, std::uint8_t* rgbx) {
    const hn::Repartition<std::uint32_t, D16> d32;
    const hn::Half<U16> half;
    const auto rg = hn::BitCast(U16(), hn::Or(r, hn::ShiftLeft<8>(g)));
    const auto bx = hn::BitCast(U16(), hn::Or(b, hn::Set(D16(), -256)));
    const auto pixels = [&](auto ofRg, auto ofBx) HWY_ATTR {
        return hn::Or(hn::PromoteTo(d32, ofRg), hn::ShiftLeft<16>(hn::PromoteTo(d32, ofBx)));
    };
    auto* const to = reinterpret_cast<std::uint32_t*>(rgbx);
    hn::StoreU(pixels(hn::LowerHalf(half, rg), hn::LowerHalf(half, bx)), d32, to);
    hn::StoreU(pixels(hn::UpperHalf(half, rg), hn::UpperHalf(half, bx)), d32, to + hn::Lanes(d32));
}

/// (2 v × weight) / 2^16, rounded to the nearest whole number as if it were not cut off before.
HWY_INLINE V16 weighed(V16 v, int weight) {
    const V16 twice = hn::MulHigh(v + v, hn::Set(D16(), static_cast<std::int16_t>(weight)));
    return hn::ShiftRight<1>(twice + hn::Set(D16(), 1));
}

HWY_INLINE V16 greenShare(V16 b, V16 r) {
    const hn::Repartition<std::int32_t, D16> d32;
    const V16 weights = pairOf(greenCb, greenCr);
    const V32 half = hn::Set(d32, 32768);
    const auto share = [&](V16 pairs)
                           HWY_ATTR { return hn::ShiftRight<16>(pairProducts(pairs, weights) + half); };
    const V16 low = hn::InterleaveLower(D16(), b, r), high = hn::InterleaveUpper(D16(), b, r);
    return hn::ReorderDemote2To(D16(), share(low), share(high));
}

HWY_INLINE void yccStep(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                        std::uint8_t* rgbx) {
    const V16 grey = hn::Set(D16(), 128), luma = load(y), b = load(cb) - grey, r = load(cr) - grey;
    store(clamped(luma + r + weighed(r, redCr)), clamped(luma - r + greenShare(b, r)),
          clamped(luma + b + b + weighed(b, blueCb)), rgbx);
}

HWY_INLINE void planesStep(const std::uint8_t* r, const std::uint8_t* g, const std::uint8_t* b,
                           std::uint8_t* rgbx) {
    store(load(r), load(g), load(b), rgbx);
}

/// Whole vectors, the last of which may begin within the one before.
template <class Step, class Plain>
HWY_INLINE void byVectors(int pixels, const Step& step, const Plain& plain) {
    const int lanes = static_cast<int>(hn::Lanes(D16()));
    if (pixels < lanes) return plain();
    for (int x = 0; x < pixels; x += lanes)
        step(std::min(x, pixels - lanes));
}

} // namespace

void rgbFromYcc(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr, std::uint8_t* rgbx,
                int pixels) {
    byVectors(
        pixels, [=](int x) HWY_ATTR { yccStep(y + x, cb + x, cr + x, rgbx + 4 * x); },
        [=] { rgbFromYccPlain(y, cb, cr, rgbx, pixels); });
}

void rgbFromPlanes(const std::uint8_t* r, const std::uint8_t* g, const std::uint8_t* b, std::uint8_t* rgbx,
                   int pixels) {
    byVectors(
        pixels, [=](int x) HWY_ATTR { planesStep(r + x, g + x, b + x, rgbx + 4 * x); },
        [=] { rgbFromPlanesPlain(r, g, b, rgbx, pixels); });
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {

void rgbFromYcc(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr, std::uint8_t* rgbx,
                int pixels) {
    PEX_PICK_KERNEL(rgbFromYcc, rgbFromYccPlain)(y, cb, cr, rgbx, pixels);
}

void rgbFromPlanes(const std::uint8_t* r, const std::uint8_t* g, const std::uint8_t* b, std::uint8_t* rgbx,
                   int pixels) {
    PEX_PICK_KERNEL(rgbFromPlanes, rgbFromPlanesPlain)(r, g, b, rgbx, pixels);
}

} // namespace pex::kernels
#endif
