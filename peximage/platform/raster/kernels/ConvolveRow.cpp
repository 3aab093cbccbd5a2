#include "peximage/platform/raster/kernels/ConvolveRow.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/ConvolveRow.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"
#include "peximage/platform/raster/kernels/PairProducts.h"
#include "peximage/platform/raster/kernels/PixelLanes.h"

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {

/// The sums of every other byte, low and high halves of each block.
struct HalfSums {
    V32 low, high;
};

HWY_INLINE void addPair(HalfSums& sums, V16 a, V16 b, V16 weights) {
    sums.low = hn::Add(sums.low, pairProducts(hn::InterleaveLower(D16(), a, b), weights));
    sums.high = hn::Add(sums.high, pairProducts(hn::InterleaveUpper(D16(), a, b), weights));
}

/// Rounded thirds from 0 to 255: floor((x + 1) / 3), and x / 3 is x × 21846 / 65536 for numbers this small.
HWY_INLINE Pixels thirds(const HalfSums& sums) {
    const D16 d16;
    const V16 sum = hn::ReorderDemote2To(d16, sums.low, sums.high);
    const V16 limited = hn::Min(hn::Max(sum, hn::Zero(d16)), hn::Set(d16, 765));
    const hn::Repartition<std::uint16_t, D16> unsigned16;
    const auto next = hn::BitCast(unsigned16, hn::Add(limited, hn::Set(d16, 1)));
    return hn::BitCast(Lanes(), hn::MulHigh(next, hn::Set(unsigned16, 21846)));
}

HWY_INLINE V16 asPairs(Pixels bytes) { return hn::BitCast(D16(), bytes); }

} // namespace

void convolve(const std::array<const std::uint8_t*, 3>& rows, const std::array<std::int16_t, 9>& weights,
              std::uint8_t* to, int pixels) {
    const hn::Repartition<std::int32_t, D16> d32;
    const V16 pairs[] = {pairOf(weights[0], weights[1]), pairOf(weights[2], weights[3]),
                         pairOf(weights[4], weights[5]), pairOf(weights[6], weights[7]),
                         pairOf(weights[8], 0)};
    const auto lanes = static_cast<int>(hn::Lanes(Lanes()));
    for (int x = 0; x < pixels; x += lanes) {
        const auto tap = [&](int i) HWY_ATTR { return loadPixels(rows[i / 3] + 4 * (x + i % 3)); };
        HalfSums even{hn::Zero(d32), hn::Zero(d32)}, odd = even;
        for (int i = 0; i < 4; ++i) {
            const Pixels a = tap(2 * i), b = tap(2 * i + 1);
            addPair(even, asPairs(evenBytes(a)), asPairs(evenBytes(b)), pairs[i]);
            addPair(odd, asPairs(oddBytes(a)), asPairs(oddBytes(b)), pairs[i]);
        }
        const Pixels last = tap(8);
        addPair(even, asPairs(evenBytes(last)), hn::Zero(D16()), pairs[4]);
        addPair(odd, asPairs(oddBytes(last)), hn::Zero(D16()), pairs[4]);
        const Pixels result = joinedBytes(thirds(even), thirds(odd));
        if (x + lanes <= pixels) {
            storePixels(result, to + 4 * x);
            continue;
        }
        std::uint8_t rest[HWY_MAX_BYTES];
        storePixels(result, rest);
        std::memcpy(to + 4 * x, rest, static_cast<std::size_t>(pixels - x) * 4);
    }
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

void convolvePlain(const std::array<const std::uint8_t*, 3>& rows, const std::array<std::int16_t, 9>& weights,
                   std::uint8_t* to, int pixels) {
    for (int i = 0; i < pixels * 4; ++i) {
        int sum = 0;
        for (int tap = 0; tap < 9; ++tap)
            sum += rows[static_cast<std::size_t>(tap / 3)][i + tap % 3 * 4] *
                   weights[static_cast<std::size_t>(tap)];
        to[i] = static_cast<std::uint8_t>((std::clamp(sum, 0, 765) + 1) / 3);
    }
}

} // namespace

void convolveRow(const std::array<const std::uint8_t*, 3>& rows, const std::array<std::int16_t, 9>& weights,
                 std::uint8_t* to, int pixels) {
    PEX_PICK_KERNEL(convolve, convolvePlain)(rows, weights, to, pixels);
}

} // namespace pex::kernels
#endif
