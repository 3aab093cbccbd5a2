#include "peximage/platform/raster/kernels/SharpenRow.h"

#include <algorithm>
#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/SharpenRow.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"
#include "peximage/platform/raster/kernels/PairProducts.h"
#include "peximage/platform/raster/kernels/PixelLanes.h"

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {

using Signed = hn::RebindToSigned<Lanes>;
using Halves = hn::Rebind<std::uint16_t, Lanes>;

HWY_INLINE Pixels promoted(const std::uint16_t* samples) {
    return hn::PromoteTo(Lanes(), hn::LoadU(Halves(), samples));
}

HWY_INLINE Pixels weighedFive(Pixels a, Pixels b, Pixels c, Pixels d, Pixels e) {
    const Pixels sides = hn::ShiftLeft<2>(hn::Add(hn::Add(b, d), c));
    return hn::Add(hn::Add(hn::Add(a, e), sides), hn::Add(c, c));
}

HWY_INLINE Pixels addedToBytes(Pixels bytes, Pixels deltas) {
    const D16 d16;
    const V16 sum = hn::Add(hn::BitCast(d16, bytes), hn::BitCast(d16, deltas));
    return hn::BitCast(Lanes(), hn::Min(hn::Max(sum, hn::Zero(d16)), hn::Set(d16, 255)));
}

} // namespace

void luma(const std::uint8_t* rgba, int pixels, std::uint16_t* to) {
    const V16 redBlue = pairOf(54, 19), green = pairOf(183, 0);
    const auto lanes = static_cast<int>(hn::Lanes(Lanes()));
    for (int x = 0; x < pixels; x += lanes) {
        const Pixels p = loadPixels(rgba + 4 * x);
        const auto sum = hn::Add(pairProducts(hn::BitCast(D16(), evenBytes(p)), redBlue),
                                 pairProducts(hn::BitCast(D16(), oddBytes(p)), green));
        hn::StoreU(hn::DemoteTo(Halves(), sum), Halves(), to + x);
    }
}

void blur(const std::uint16_t* samples, int count, std::uint32_t* to) {
    const auto lanes = static_cast<int>(hn::Lanes(Lanes()));
    for (int x = 0; x < count; x += lanes) {
        const std::uint16_t* at = samples + x;
        hn::StoreU(
            weighedFive(promoted(at - 2), promoted(at - 1), promoted(at), promoted(at + 1), promoted(at + 2)),
            Lanes(), to + x);
    }
}

void sharpen(std::uint8_t* rgba, int pixels, const std::uint16_t* luma, const BlurredRows& blurred,
             const SharpenStrength& strength) {
    const Lanes d;
    const Signed d32;
    const auto factor = hn::Set(d32, strength.factor);
    const auto half = hn::Set(d32, 1 << (strength.shift + 6));
    const auto lanes = static_cast<int>(hn::Lanes(d));
    for (int x = 0; x < pixels; x += lanes) {
        const auto load = [&](std::size_t row) HWY_ATTR { return hn::LoadU(d, blurred[row] + x); };
        const Pixels around = weighedFive(load(0), load(1), load(2), load(3), load(4));
        const auto above = hn::BitCast(d32, hn::Sub(hn::ShiftLeft<8>(promoted(luma + x)), around));
        const auto part = hn::Mul(hn::ShiftRight<9>(hn::Add(above, hn::Set(d32, 256))), factor);
        const auto delta = hn::ShiftRightSame(hn::Add(part, half), strength.shift + 7);
        const auto limited = hn::Min(hn::Max(delta, hn::Set(d32, -255)), hn::Set(d32, 255));
        const Pixels low = hn::And(hn::BitCast(d, limited), hn::Set(d, 0xFFFFu));
        const Pixels p = loadPixels(rgba + 4 * x);
        const Pixels both = hn::Or(low, hn::ShiftLeft<16>(low));
        storePixels(joinedBytes(addedToBytes(evenBytes(p), both), addedToBytes(oddBytes(p), low)),
                    rgba + 4 * x);
    }
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

template <class T>
std::uint32_t weighedFive(const T& at) {
    return at(0) + 4 * at(1) + 6 * at(2) + 4 * at(3) + at(4);
}

/// `difference` is 65536 times luma.
int change(std::int64_t difference, const SharpenStrength& strength) {
    const auto inParts = static_cast<std::int32_t>((difference + 256) >> 9);
    const std::int32_t half = 1 << (strength.shift + 6);
    return std::clamp((inParts * strength.factor + half) >> (strength.shift + 7), -255, 255);
}

void addToColours(std::uint8_t* pixel, int delta, int most) {
    for (int c = 0; c < 3; ++c)
        pixel[c] = static_cast<std::uint8_t>(std::clamp(pixel[c] + delta, 0, most));
}

std::uint32_t blurredAt(const BlurredRows& rows, int x) {
    return weighedFive([&](std::size_t row) { return rows[row][x]; });
}

void lumaPlain(const std::uint8_t* rgba, int pixels, std::uint16_t* luma) {
    for (int x = 0; x < pixels; ++x, rgba += 4)
        luma[x] = static_cast<std::uint16_t>(54 * rgba[0] + 183 * rgba[1] + 19 * rgba[2]);
}

void blurPlain(const std::uint16_t* samples, int count, std::uint32_t* blurred) {
    for (int x = 0; x < count; ++x)
        blurred[x] = weighedFive([&](int i) { return std::uint32_t{samples[x - 2 + i]}; });
}

void sharpenPlain(std::uint8_t* rgba, int pixels, const std::uint16_t* luma, const BlurredRows& blurred,
                  const SharpenStrength& strength) {
    for (int x = 0; x < pixels; ++x) {
        const std::int64_t above = std::int64_t{luma[x]} * 256 - blurredAt(blurred, x);
        addToColours(rgba + 4 * x, change(above, strength), 255);
    }
}

} // namespace

SharpenStrength SharpenStrength::of(double sharpness) {
    constexpr double limit = 64;
    const double limited = std::clamp(sharpness, -limit, limit);
    int shift = 15;
    while (shift > 0 && std::abs(limited) * (1 << shift) > 65000)
        --shift;
    return {static_cast<std::int32_t>(std::lround(limited * (1 << shift))), shift};
}

void lumaRow(const std::uint8_t* rgba, int pixels, std::uint16_t* luma) {
    PEX_PICK_KERNEL(luma, lumaPlain)(rgba, pixels, luma);
}

void blurRow(const std::uint16_t* samples, int count, std::uint32_t* blurred) {
    PEX_PICK_KERNEL(blur, blurPlain)(samples, count, blurred);
}

void sharpenRow(std::uint8_t* rgba, int pixels, const std::uint16_t* luma, const BlurredRows& blurredLuma,
                const SharpenStrength& strength) {
    PEX_PICK_KERNEL(sharpen, sharpenPlain)(rgba, pixels, luma, blurredLuma, strength);
}

void sharpenAlphaRow(std::uint8_t* rgba, int pixels, const std::uint16_t* luma,
                     const BlurredRows& blurredLuma, const BlurredRows& blurredAlpha,
                     const SharpenStrength& strength) {
    for (int x = 0; x < pixels; ++x, rgba += 4) {
        const std::uint64_t alpha = rgba[3];
        if (alpha == 0) continue;
        const std::uint64_t weight = blurredAt(blurredAlpha, x); // at least the pixel's own part
        const std::uint64_t around = (alpha * 65536 * blurredAt(blurredLuma, x) + weight / 2) / weight;
        const std::int64_t above = std::int64_t{luma[x]} * 256 - static_cast<std::int64_t>(around);
        addToColours(rgba, change(above, strength), rgba[3]);
    }
}

} // namespace pex::kernels
#endif
