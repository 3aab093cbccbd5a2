// Vectors of whole pixels, one 32-bit lane each, for kernels that work on pixels one by one. Included by
// kernel files once per instruction set, after Dispatch.h; hence no ordinary include guard.
#if defined(PEX_PIXEL_LANES) == defined(HWY_TARGET_TOGGLE)
#ifdef PEX_PIXEL_LANES
#undef PEX_PIXEL_LANES
#else
#define PEX_PIXEL_LANES
#endif

#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using Lanes = hn::ScalableTag<std::uint32_t>;
using Pixels = hn::VFromD<Lanes>;

HWY_INLINE Pixels loadPixels(const std::uint8_t* from) {
    return hn::BitCast(Lanes(), hn::LoadU(hn::Repartition<std::uint8_t, Lanes>(), from));
}

HWY_INLINE void storePixels(Pixels pixels, std::uint8_t* to) {
    const hn::Repartition<std::uint8_t, Lanes> bytes;
    hn::StoreU(hn::BitCast(bytes, pixels), bytes, to);
}

/// A R G B in memory becomes R G B A, and back.
HWY_INLINE Pixels alphaToLast(Pixels argb) { return hn::RotateRight<8>(argb); }
HWY_INLINE Pixels alphaToFirst(Pixels rgba) { return hn::RotateRight<24>(rgba); }

HWY_INLINE Pixels withOpaqueAlpha(Pixels rgba) { return hn::Or(rgba, hn::Set(Lanes(), 0xFF000000u)); }

/// The colour of premultiplied R G B A at most its alpha.
HWY_INLINE Pixels withinAlpha(Pixels rgba) {
    const hn::Repartition<std::uint8_t, Lanes> bytes;
    const Pixels alpha = hn::ShiftRight<24>(rgba), pair = hn::Or(alpha, hn::ShiftLeft<8>(alpha));
    const Pixels everywhere = hn::Or(pair, hn::ShiftLeft<16>(pair));
    return hn::BitCast(Lanes(), hn::Min(hn::BitCast(bytes, rgba), hn::BitCast(bytes, everywhere)));
}

/// Every other byte, in 16-bit lanes: of R G B A red and blue, and green and alpha.
HWY_INLINE Pixels evenBytes(Pixels p) { return hn::And(p, hn::Set(Lanes(), 0x00FF00FFu)); }
HWY_INLINE Pixels oddBytes(Pixels p) { return evenBytes(hn::ShiftRight<8>(p)); }
HWY_INLINE Pixels joinedBytes(Pixels even, Pixels odd) { return hn::Or(even, hn::ShiftLeft<8>(odd)); }

/// Rounded x * f / 255 of bytes in 16-bit lanes: with t = x * f + 128 the quotient is exactly
/// t * 257 / 65536.
HWY_INLINE Pixels timesOver255(Pixels bytes, Pixels factors) {
    const hn::Repartition<std::uint16_t, Lanes> d16;
    const auto product = hn::Mul(hn::BitCast(d16, bytes), hn::BitCast(d16, factors));
    return hn::BitCast(Lanes(), hn::MulHigh(hn::Add(product, hn::Set(d16, 128)), hn::Set(d16, 257)));
}

/// Rounded c * a / 255 for the colour of R G B A; alpha stays.
HWY_INLINE Pixels premultiplied(Pixels rgba) {
    const auto alpha = hn::ShiftRight<24>(rgba);
    const auto redBlue = timesOver255(evenBytes(rgba), hn::Or(alpha, hn::ShiftLeft<16>(alpha)));
    const auto greenAlpha = timesOver255(oddBytes(rgba), hn::Or(alpha, hn::Set(Lanes(), 0xFF0000u)));
    return joinedBytes(redBlue, greenAlpha);
}

/// Calls `step(from, to)` for every full vector of pixels of a row, and for the rest through a copy, so that
/// nothing outside the row is touched. A source pixel has `FromBytes` bytes, a target pixel `ToBytes`; a step
/// that reads the target, too, says so.
template <std::size_t FromBytes, std::size_t ToBytes, bool ReadsTarget = false, class Step>
HWY_INLINE void alongRow(const std::uint8_t* from, std::uint8_t* to, int pixels, Step step) {
    const std::size_t lanes = hn::Lanes(Lanes());
    const auto count = static_cast<std::size_t>(pixels);
    std::size_t x = 0;
    for (; x + lanes <= count; x += lanes)
        step(from + x * FromBytes, to + x * ToBytes);
    if (x == count) return;
    std::uint8_t rest[HWY_MAX_BYTES] = {};
    std::uint8_t result[HWY_MAX_BYTES] = {};
    std::memcpy(rest, from + x * FromBytes, (count - x) * FromBytes);
    if constexpr (ReadsTarget) std::memcpy(result, to + x * ToBytes, (count - x) * ToBytes);
    step(rest, result);
    std::memcpy(to + x * ToBytes, result, (count - x) * ToBytes);
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif
#endif
