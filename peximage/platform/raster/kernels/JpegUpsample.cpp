#include "peximage/platform/raster/kernels/JpegUpsample.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/JpegUpsample.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"

#include <algorithm>

#ifndef PEX_JPEG_UPSAMPLE_SHARED
#define PEX_JPEG_UPSAMPLE_SHARED
namespace pex::kernels {
namespace {

/// Of two sums of a row's samples that stand side by side, the new samples left and right of the middle one:
/// three quarters, a quarter, and what rounds them.
struct Doubling {
    int shift, left, right;
};
constexpr Doubling ofOne{2, 1, 2}, ofFour{4, 8, 7}; // sums of a sample, and of four times its value

/// The same, sample by sample, for those from `begin` up to `end` of a row of `samples` sums.
template <const Doubling& how, class Sum>
void doublePart(const Sum& sum, int begin, int end, int samples, std::uint8_t* to) {
    for (int x = begin; x < end; ++x) {
        const int here = 3 * sum(x), before = sum(std::max(x - 1, 0)),
                  behind = sum(std::min(x + 1, samples - 1));
        to[2 * x] = static_cast<std::uint8_t>((here + before + how.left) >> how.shift);
        to[2 * x + 1] = static_cast<std::uint8_t>((here + behind + how.right) >> how.shift);
    }
}

auto sumsOf(const std::uint8_t* row) {
    return [row](int x) { return int{row[x]}; };
}
auto sumsOf(const std::uint8_t* near, const std::uint8_t* far) {
    return [near, far](int x) { return 3 * near[x] + far[x]; };
}

} // namespace
} // namespace pex::kernels
#endif

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;
using D16 = hn::ScalableTag<std::uint16_t>;
using V16 = hn::Vec<D16>;
using Samples = hn::Rebind<std::uint8_t, D16>;

HWY_INLINE V16 load(const std::uint8_t* samples) {
    return hn::PromoteTo(D16(), hn::LoadU(Samples(), samples));
}

HWY_INLINE V16 threefold(V16 v) { return v + v + v; }

template <const Doubling& how, class Sums>
HWY_INLINE void doubleStep(const Sums& sums, int x, std::uint8_t* to) {
    const D16 d16;
    const V16 here = threefold(sums(x));
    const V16 left = hn::ShiftRight<how.shift>(here + sums(x - 1) + hn::Set(d16, how.left));
    const V16 right = hn::ShiftRight<how.shift>(here + sums(x + 1) + hn::Set(d16, how.right));
    const hn::Repartition<std::uint8_t, D16> d8;
    hn::StoreU(hn::BitCast(d8, hn::Or(left, hn::ShiftLeft<8>(right))), d8, to + 2 * x);
}

/// Whole vectors, the last of which may begin within the one before; the ends are left to plain code.
template <const Doubling& how, class Sums, class Sum>
HWY_INLINE void doubleRow(const Sums& sums, const Sum& sum, std::uint8_t* to, int samples) {
    const int step = static_cast<int>(hn::Lanes(D16()));
    if (samples < step + 2) return doublePart<how>(sum, 0, samples, samples, to);
    doublePart<how>(sum, 0, 1, samples, to);
    for (int x = 1; x < samples - 1; x += step)
        doubleStep<how>(sums, std::min(x, samples - 1 - step), to);
    doublePart<how>(sum, samples - 1, samples, samples, to);
}

} // namespace

void doubleAcross(const std::uint8_t* row, std::uint8_t* to, int samples) {
    const auto sums = [row](int x) HWY_ATTR { return load(row + x); };
    doubleRow<ofOne>(sums, sumsOf(row), to, samples);
}

void doubleBoth(const std::uint8_t* near, const std::uint8_t* far, std::uint8_t* to, int samples) {
    const auto sums = [near, far](int x) HWY_ATTR { return threefold(load(near + x)) + load(far + x); };
    doubleRow<ofFour>(sums, sumsOf(near, far), to, samples);
}

void doubleDown(const std::uint8_t* near, const std::uint8_t* far, bool below, std::uint8_t* to,
                int samples) {
    const int step = static_cast<int>(hn::Lanes(D16()));
    const int round = below ? 2 : 1;
    int x = 0;
    for (; x + step <= samples; x += step) {
        const V16 sum =
            threefold(load(near + x)) + load(far + x) + hn::Set(D16(), static_cast<std::uint16_t>(round));
        const hn::RebindToSigned<D16> d16;
        hn::StoreU(hn::DemoteTo(Samples(), hn::BitCast(d16, hn::ShiftRight<2>(sum))), Samples(), to + x);
    }
    for (; x < samples; ++x)
        to[x] = static_cast<std::uint8_t>((3 * near[x] + far[x] + round) >> 2);
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

void doubleAcrossPlain(const std::uint8_t* row, std::uint8_t* to, int samples) {
    doublePart<ofOne>(sumsOf(row), 0, samples, samples, to);
}

void doubleBothPlain(const std::uint8_t* near, const std::uint8_t* far, std::uint8_t* to, int samples) {
    doublePart<ofFour>(sumsOf(near, far), 0, samples, samples, to);
}

void doubleDownPlain(const std::uint8_t* near, const std::uint8_t* far, bool below, std::uint8_t* to,
                     int samples) {
    for (int x = 0; x < samples; ++x)
        to[x] = static_cast<std::uint8_t>((3 * near[x] + far[x] + (below ? 2 : 1)) >> 2);
}

} // namespace

void doubleAcross(const std::uint8_t* row, std::uint8_t* to, int samples) {
    PEX_PICK_KERNEL(doubleAcross, doubleAcrossPlain)(row, to, samples);
}

void doubleBoth(const std::uint8_t* near, const std::uint8_t* far, std::uint8_t* to, int samples) {
    PEX_PICK_KERNEL(doubleBoth, doubleBothPlain)(near, far, to, samples);
}

void doubleDown(const std::uint8_t* near, const std::uint8_t* far, bool below, std::uint8_t* to,
                int samples) {
    PEX_PICK_KERNEL(doubleDown, doubleDownPlain)(near, far, below, to, samples);
}

void repeatAcross(const std::uint8_t* row, std::uint8_t* to, int samples, int times) {
    for (int x = 0; x < samples; ++x)
        to = std::fill_n(to, times, row[x]);
}

} // namespace pex::kernels
#endif
