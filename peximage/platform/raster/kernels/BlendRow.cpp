#include "peximage/platform/raster/kernels/BlendRow.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/BlendRow.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"
#include "peximage/platform/raster/kernels/PixelLanes.h"

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {

/// The same factor for both 16-bit lanes of every pixel.
HWY_INLINE Pixels factorOf(int value) {
    return hn::Set(Lanes(), static_cast<std::uint32_t>(value) * 0x10001u);
}

template <bool Faded>
void overRow(const std::uint8_t* from, std::uint8_t* to, int pixels, int opacity) {
    alongRow<4, 4, true>(from, to, pixels, [&](const std::uint8_t* in, std::uint8_t* out) HWY_ATTR {
        const Pixels above = withinAlpha(loadPixels(in)), below = loadPixels(out);
        Pixels redBlue = evenBytes(above), greenAlpha = oddBytes(above);
        if constexpr (Faded) {
            redBlue = timesOver255(redBlue, factorOf(opacity));
            greenAlpha = timesOver255(greenAlpha, factorOf(opacity));
        }
        const Pixels alpha = hn::ShiftRight<16>(greenAlpha);
        const Pixels rest = hn::Sub(factorOf(255), hn::Or(alpha, hn::ShiftLeft<16>(alpha)));
        const Pixels shining =
            joinedBytes(timesOver255(evenBytes(below), rest), timesOver255(oddBytes(below), rest));
        const hn::Repartition<std::uint8_t, Lanes> bytes;
        const auto sum = hn::SaturatedAdd(hn::BitCast(bytes, joinedBytes(redBlue, greenAlpha)),
                                          hn::BitCast(bytes, shining));
        storePixels(hn::BitCast(Lanes(), sum), out);
    });
}

} // namespace

void blendOver(const std::uint8_t* from, std::uint8_t* to, int pixels, int opacity) {
    if (opacity == 255) return overRow<false>(from, to, pixels, opacity);
    overRow<true>(from, to, pixels, opacity);
}

void fade(const std::uint8_t* from, std::uint8_t* to, int pixels, int opacity) {
    alongRow<4, 4>(from, to, pixels, [&](const std::uint8_t* in, std::uint8_t* out) HWY_ATTR {
        const Pixels p = withinAlpha(loadPixels(in)), factor = factorOf(opacity);
        storePixels(joinedBytes(timesOver255(evenBytes(p), factor), timesOver255(oddBytes(p), factor)), out);
    });
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

/// Rounded x / 255 for 0 ≤ x ≤ 255 × 255.
constexpr int divideBy255(int x) { return (x + 128 + ((x + 128) >> 8)) >> 8; }

void blendOverPlain(const std::uint8_t* from, std::uint8_t* to, int pixels, int opacity) {
    for (int i = 0; i < pixels; ++i, from += 4, to += 4) {
        const int rest = 255 - divideBy255(from[3] * opacity);
        for (int c = 0; c < 4; ++c) {
            const int above = divideBy255(std::min(from[c], from[3]) * opacity);
            const int sum = above + divideBy255(to[c] * rest);
            to[c] = static_cast<std::uint8_t>(std::min(sum, 255));
        }
    }
}

void fadePlain(const std::uint8_t* from, std::uint8_t* to, int pixels, int opacity) {
    for (int i = 0; i < pixels; ++i, from += 4, to += 4) {
        for (int c = 0; c < 4; ++c)
            to[c] = static_cast<std::uint8_t>(divideBy255(std::min(from[c], from[3]) * opacity));
    }
}

} // namespace

void blendRowOver(const std::uint8_t* from, std::uint8_t* to, int pixels, int opacity) {
    PEX_PICK_KERNEL(blendOver, blendOverPlain)(from, to, pixels, opacity);
}

void blendRowCopy(const std::uint8_t* from, std::uint8_t* to, int pixels, int opacity) {
    PEX_PICK_KERNEL(fade, fadePlain)(from, to, pixels, opacity);
}

} // namespace pex::kernels
#endif
