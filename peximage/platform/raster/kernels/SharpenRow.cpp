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

HWY_INLINE Pixels addedToBytes(Pixels bytes, Pixels deltas, Pixels most) {
    const D16 d16;
    const V16 sum = hn::Add(hn::BitCast(d16, bytes), hn::BitCast(d16, deltas));
    return hn::BitCast(Lanes(), hn::Min(hn::Max(sum, hn::Zero(d16)), hn::BitCast(d16, most)));
}

HWY_INLINE Pixels blurredAt(const BlurredRows& rows, int x) {
    const auto load = [&](std::size_t row) HWY_ATTR { return hn::LoadU(Lanes(), rows[row] + x); };
    return weighedFive(load(0), load(1), load(2), load(3), load(4));
}

/// What is to be added to colours, in the lower half of each lane.
struct Change {
    explicit Change(const SharpenStrength& strength)
        : factor(hn::Set(Signed(), strength.factor)),
          half(hn::Set(Signed(), 1 << (strength.shift + 6))),
          shift(strength.shift + 7) {}

    /// `above` is 65536 times luma.
    HWY_INLINE Pixels of(hn::Vec<Signed> above) const {
        const Signed d32;
        const auto part = hn::Mul(hn::ShiftRight<9>(hn::Add(above, hn::Set(d32, 256))), factor);
        const auto delta = hn::ShiftRightSame(hn::Add(part, half), shift);
        const auto limited = hn::Min(hn::Max(delta, hn::Set(d32, -255)), hn::Set(d32, 255));
        return hn::And(hn::BitCast(Lanes(), limited), hn::Set(Lanes(), 0xFFFFu));
    }

    hn::Vec<Signed> factor, half;
    int shift;
};

/// `most` is the limit of a colour, in both halves of each lane.
HWY_INLINE Pixels changed(Pixels rgba, Pixels change, Pixels most) {
    const Pixels both = hn::Or(change, hn::ShiftLeft<16>(change));
    return joinedBytes(addedToBytes(evenBytes(rgba), both, most), addedToBytes(oddBytes(rgba), change, most));
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

void alpha(const std::uint8_t* rgba, int pixels, std::uint16_t* to, std::uint16_t* luma) {
    const auto lanes = static_cast<int>(hn::Lanes(Lanes()));
    for (int x = 0; x < pixels; x += lanes) {
        const Pixels alphas = hn::ShiftLeft<8>(hn::ShiftRight<24>(loadPixels(rgba + 4 * x)));
        const auto samples = hn::DemoteTo(Halves(), hn::BitCast(Signed(), alphas));
        hn::StoreU(samples, Halves(), to + x);
        hn::StoreU(hn::Min(hn::LoadU(Halves(), luma + x), samples), Halves(), luma + x);
    }
}

void sharpen(std::uint8_t* rgba, int pixels, const std::uint16_t* luma, const BlurredRows& blurred,
             const SharpenStrength& strength) {
    const Change change(strength);
    const Pixels most = hn::Set(Lanes(), 0xFF00FFu);
    const auto lanes = static_cast<int>(hn::Lanes(Lanes()));
    for (int x = 0; x < pixels; x += lanes) {
        const Pixels above = hn::Sub(hn::ShiftLeft<8>(promoted(luma + x)), blurredAt(blurred, x));
        const Pixels p = loadPixels(rgba + 4 * x);
        storePixels(changed(p, change.of(hn::BitCast(Signed(), above)), most), rgba + 4 * x);
    }
}

void sharpenAlpha(std::uint8_t* rgba, int pixels, const std::uint16_t* luma, const BlurredRows& blurredLuma,
                  const BlurredRows& blurredAlpha, const SharpenStrength& strength) {
    const Lanes d;
    const hn::RebindToFloat<Lanes> floats;
    const auto asFloats = [&](Pixels p) HWY_ATTR { return hn::ConvertTo(floats, hn::BitCast(Signed(), p)); };
    const Change change(strength);
    const auto lanes = static_cast<int>(hn::Lanes(d));
    for (int x = 0; x < pixels; x += lanes) {
        const Pixels p = loadPixels(rgba + 4 * x), alphas = hn::ShiftRight<24>(p);
        const Pixels weight = hn::Max(blurredAt(blurredAlpha, x), hn::Set(d, 1));
        const auto share = hn::Div(asFloats(blurredAt(blurredLuma, x)), asFloats(weight));
        const auto around = hn::NearestInt(hn::Mul(asFloats(hn::ShiftLeft<16>(alphas)), share));
        const auto own = hn::BitCast(Signed(), hn::ShiftLeft<8>(promoted(luma + x)));
        const Pixels most = hn::Or(alphas, hn::ShiftLeft<16>(alphas));
        const Pixels result = changed(p, change.of(hn::Sub(own, around)), most);
        storePixels(hn::IfThenElse(hn::Eq(alphas, hn::Zero(d)), p, result), rgba + 4 * x);
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
int change(std::int32_t difference, const SharpenStrength& strength) {
    const std::int32_t inParts = (difference + 256) >> 9;
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
        const std::int32_t above = luma[x] * 256 - static_cast<std::int32_t>(blurredAt(blurred, x));
        addToColours(rgba + 4 * x, change(above, strength), 255);
    }
}

void alphaPlain(const std::uint8_t* rgba, int pixels, std::uint16_t* alpha, std::uint16_t* luma) {
    for (int x = 0; x < pixels; ++x) {
        alpha[x] = static_cast<std::uint16_t>(rgba[4 * x + 3] << 8);
        luma[x] = std::min(luma[x], alpha[x]);
    }
}

/// The sums are below 2^24, so that they are exact as single floats, and so is what the vectors make of them.
void sharpenAlphaPlain(std::uint8_t* rgba, int pixels, const std::uint16_t* luma,
                       const BlurredRows& blurredLuma, const BlurredRows& blurredAlpha,
                       const SharpenStrength& strength) {
    for (int x = 0; x < pixels; ++x, rgba += 4) {
        if (rgba[3] == 0) continue;
        const auto sum = static_cast<float>(blurredAt(blurredLuma, x));
        const auto weight = static_cast<float>(blurredAt(blurredAlpha, x)); // at least the pixel's own part
        const auto around = std::lrint(static_cast<float>(rgba[3] << 16) * (sum / weight));
        const std::int32_t above = luma[x] * 256 - static_cast<std::int32_t>(around);
        addToColours(rgba, change(above, strength), rgba[3]);
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

void alphaRow(const std::uint8_t* rgba, int pixels, std::uint16_t* alphas, std::uint16_t* luma) {
    PEX_PICK_KERNEL(alpha, alphaPlain)(rgba, pixels, alphas, luma);
}

void sharpenAlphaRow(std::uint8_t* rgba, int pixels, const std::uint16_t* luma,
                     const BlurredRows& blurredLuma, const BlurredRows& blurredAlpha,
                     const SharpenStrength& strength) {
    PEX_PICK_KERNEL(sharpenAlpha, sharpenAlphaPlain)(rgba, pixels, luma, blurredLuma, blurredAlpha, strength);
}

} // namespace pex::kernels
#endif
