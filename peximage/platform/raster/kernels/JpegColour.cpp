#include "peximage/platform/raster/kernels/JpegColour.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/JpegColour.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"
#include "peximage/platform/raster/kernels/PairProducts.h"

#include <algorithm>
#include <cstring>

#ifndef PEX_JPEG_COLOUR_SHARED
#define PEX_JPEG_COLOUR_SHARED
namespace pex::kernels {
namespace {

inline int contrastOf(const std::uint8_t* upper, const std::uint8_t* lower) {
    const auto [least, most] = std::minmax({upper[0], upper[1], lower[0], lower[1]});
    return most - least;
}

} // namespace
} // namespace pex::kernels
#endif

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {

using D32 = hn::ScalableTag<std::int32_t>;
using Bytes = hn::Rebind<std::uint8_t, D32>;

/// The pixels of a vector as pairs of 16 bits: (R, G) and (G, B).
struct PixelPairs {
    V16 rg, gb;

    explicit PixelPairs(const std::uint8_t* rgbx) {
        alignas(16) static constexpr std::uint8_t pickRg[16] = {0, 128, 1, 128, 4,  128, 5,  128,
                                                                8, 128, 9, 128, 12, 128, 13, 128};
        alignas(16) static constexpr std::uint8_t pickGb[16] = {1, 128, 2,  128, 5,  128, 6,  128,
                                                                9, 128, 10, 128, 13, 128, 14, 128};
        const hn::Repartition<std::uint8_t, D32> d8;
        const D16 d16;
        const auto pixels = hn::LoadU(d8, rgbx);
        rg = hn::BitCast(d16, hn::TableLookupBytesOr0(pixels, hn::LoadDup128(d8, pickRg)));
        gb = hn::BitCast(d16, hn::TableLookupBytesOr0(pixels, hn::LoadDup128(d8, pickGb)));
    }
};

/// Green's weight in Y does not fit 16 signed bits, so each pair takes a share of it.
void lumaStep(const std::uint8_t* rgbx, std::uint8_t* y) {
    const D32 d32;
    const PixelPairs p(rgbx);
    const auto sum = pairProducts(p.rg, pairOf(19595, 22086)) + pairProducts(p.gb, pairOf(16384, 7471));
    hn::StoreU(hn::DemoteTo(Bytes(), hn::ShiftRight<16>(sum + hn::Set(d32, 32768))), Bytes(), y);
}

/// The weight one half is 32768, which only fits 16 signed bits when negative: the sums are subtracted.
void chromaStep(const std::uint8_t* rgbx, std::uint8_t* cb, std::uint8_t* cr) {
    const PixelPairs p(rgbx);
    const auto zero = hn::Set(D32(), (128 << 16) + 32767);
    const auto b = pairProducts(p.rg, pairOf(11059, 21709)) + pairProducts(p.gb, pairOf(0, -32768));
    const auto r = pairProducts(p.rg, pairOf(-32768, 27439)) + pairProducts(p.gb, pairOf(0, 5329));
    hn::StoreU(hn::DemoteTo(Bytes(), hn::ShiftRight<16>(zero - b)), Bytes(), cb);
    hn::StoreU(hn::DemoteTo(Bytes(), hn::ShiftRight<16>(zero - r)), Bytes(), cr);
}

} // namespace

void lumaRow(const std::uint8_t* rgbx, std::uint8_t* y, int pixels) {
    const int step = static_cast<int>(hn::Lanes(D32()));
    int x = 0;
    for (; x + step <= pixels; x += step)
        lumaStep(rgbx + 4 * x, y + x);
    if (x == pixels) return;
    std::uint8_t in[HWY_MAX_BYTES] = {}, out[HWY_MAX_BYTES];
    std::memcpy(in, rgbx + 4 * x, static_cast<std::size_t>(4 * (pixels - x)));
    lumaStep(in, out);
    std::memcpy(y + x, out, static_cast<std::size_t>(pixels - x));
}

void chromaRow(const std::uint8_t* rgbx, std::uint8_t* cb, std::uint8_t* cr, int pixels) {
    const int step = static_cast<int>(hn::Lanes(D32()));
    int x = 0;
    for (; x + step <= pixels; x += step)
        chromaStep(rgbx + 4 * x, cb + x, cr + x);
    if (x == pixels) return;
    std::uint8_t in[HWY_MAX_BYTES] = {}, outB[HWY_MAX_BYTES], outR[HWY_MAX_BYTES];
    std::memcpy(in, rgbx + 4 * x, static_cast<std::size_t>(4 * (pixels - x)));
    chromaStep(in, outB, outR);
    std::memcpy(cb + x, outB, static_cast<std::size_t>(pixels - x));
    std::memcpy(cr + x, outR, static_cast<std::size_t>(pixels - x));
}

void halveRows(const std::uint8_t* upper, const std::uint8_t* lower, std::uint8_t* mean, int samples) {
    const hn::ScalableTag<std::uint16_t> d16;
    const hn::Repartition<std::uint8_t, decltype(d16)> d8;
    const hn::Repartition<std::uint32_t, decltype(d16)> d32;
    const int step = static_cast<int>(hn::Lanes(d16));
    const auto bias = hn::BitCast(d16, hn::Set(d32, 0x00020001));
    const auto low = hn::Set(d16, 0xFF);
    for (int x = 0; x < samples; x += step) {
        const auto a = hn::BitCast(d16, hn::LoadU(d8, upper + 2 * x));
        const auto b = hn::BitCast(d16, hn::LoadU(d8, lower + 2 * x));
        const auto sum = hn::And(a, low) + hn::ShiftRight<8>(a) + hn::And(b, low) + hn::ShiftRight<8>(b);
        const hn::Rebind<std::uint8_t, decltype(d16)> out;
        const auto quarter = hn::BitCast(D16(), hn::ShiftRight<2>(sum + bias));
        hn::StoreU(hn::DemoteTo(out, quarter), out, mean + x);
    }
}

int countContrasts(const std::uint8_t* upper, const std::uint8_t* lower, int cells, int range) {
    const hn::ScalableTag<std::uint16_t> d16;
    const hn::Repartition<std::uint8_t, decltype(d16)> d8;
    const int step = static_cast<int>(hn::Lanes(d16));
    const auto limit = hn::Set(d16, static_cast<std::uint16_t>(range - 1)), low = hn::Set(d16, 0xFF);
    int count = 0, x = 0;
    for (; x + step <= cells; x += step) {
        const auto a = hn::LoadU(d8, upper + 2 * x), b = hn::LoadU(d8, lower + 2 * x);
        const auto most = hn::BitCast(d16, hn::Max(a, b)), least = hn::BitCast(d16, hn::Min(a, b));
        const auto contrast = hn::Max(hn::And(most, low), hn::ShiftRight<8>(most)) -
                              hn::Min(hn::And(least, low), hn::ShiftRight<8>(least));
        count += static_cast<int>(hn::CountTrue(d16, hn::Gt(contrast, limit)));
    }
    for (; x < cells; ++x)
        count += contrastOf(upper + 2 * x, lower + 2 * x) >= range;
    return count;
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

void lumaRowPlain(const std::uint8_t* rgbx, std::uint8_t* y, int pixels) {
    for (int x = 0; x < pixels; ++x, rgbx += 4)
        y[x] = static_cast<std::uint8_t>((19595 * rgbx[0] + 38470 * rgbx[1] + 7471 * rgbx[2] + 32768) >> 16);
}

void chromaRowPlain(const std::uint8_t* rgbx, std::uint8_t* cb, std::uint8_t* cr, int pixels) {
    constexpr int zero = (128 << 16) + 32767;
    for (int x = 0; x < pixels; ++x, rgbx += 4) {
        const int r = rgbx[0], g = rgbx[1], b = rgbx[2];
        cb[x] = static_cast<std::uint8_t>((32768 * b - 11059 * r - 21709 * g + zero) >> 16);
        cr[x] = static_cast<std::uint8_t>((32768 * r - 27439 * g - 5329 * b + zero) >> 16);
    }
}

void halveRowsPlain(const std::uint8_t* upper, const std::uint8_t* lower, std::uint8_t* mean, int samples) {
    for (int x = 0; x < samples; ++x) {
        const int sum = upper[2 * x] + upper[2 * x + 1] + lower[2 * x] + lower[2 * x + 1];
        mean[x] = static_cast<std::uint8_t>((sum + 1 + (x & 1)) >> 2);
    }
}

int countContrastsPlain(const std::uint8_t* upper, const std::uint8_t* lower, int cells, int range) {
    int count = 0;
    for (int x = 0; x < cells; ++x)
        count += contrastOf(upper + 2 * x, lower + 2 * x) >= range;
    return count;
}

} // namespace

void lumaRow(const std::uint8_t* rgbx, std::uint8_t* y, int pixels) {
    PEX_PICK_KERNEL(lumaRow, lumaRowPlain)(rgbx, y, pixels);
}

void chromaRow(const std::uint8_t* rgbx, std::uint8_t* cb, std::uint8_t* cr, int pixels) {
    PEX_PICK_KERNEL(chromaRow, chromaRowPlain)(rgbx, cb, cr, pixels);
}

void halveRows(const std::uint8_t* upper, const std::uint8_t* lower, std::uint8_t* mean, int samples) {
    PEX_PICK_KERNEL(halveRows, halveRowsPlain)(upper, lower, mean, samples);
}

int countContrasts(const std::uint8_t* upper, const std::uint8_t* lower, int cells, int range) {
    return PEX_PICK_KERNEL(countContrasts, countContrastsPlain)(upper, lower, cells, range);
}

} // namespace pex::kernels
#endif
