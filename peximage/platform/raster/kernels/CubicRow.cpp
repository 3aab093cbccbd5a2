#include "peximage/platform/raster/kernels/CubicRow.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/CubicRow.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"

#ifndef PEX_CUBIC_WEIGHTS
#define PEX_CUBIC_WEIGHTS
namespace pex::kernels {

constexpr int phaseBits = 10;
constexpr int weightBits = 14;
/// Sums of a column keep 6 fraction bits: with the overshoot they just fit 16 bits.
constexpr int columnShift = 8;
constexpr int rowShift = 2 * weightBits - columnShift;

/// How much the four pixels around a position count, in pairs as processors multiply them.
struct CubicWeights {
    std::int16_t of[4];

    std::int32_t pair(int first) const {
        std::int32_t both;
        std::memcpy(&both, of + first, sizeof both);
        return both;
    }
};

using CubicTable = std::array<CubicWeights, (1 << phaseBits) + 1>;

inline std::uint32_t phaseOf(std::uint32_t fraction) {
    return static_cast<std::uint32_t>((std::uint64_t{fraction} + (1U << (31 - phaseBits))) >>
                                      (32 - phaseBits));
}

} // namespace pex::kernels
#endif

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

/// Each block of 16 bytes works on one result pixel; two at once where vectors are that long.
using D8 = hn::CappedTag<std::uint8_t, 32>;
using D16 = hn::Repartition<std::int16_t, D8>;
using D32 = hn::Repartition<std::int32_t, D8>;
using V8 = hn::VFromD<D8>;
using V16 = hn::VFromD<D16>;
using V32 = hn::VFromD<D32>;
using Block8 = hn::FixedTag<std::uint8_t, 16>;
using Block32 = hn::FixedTag<std::int32_t, 4>;

constexpr int pixelsAtOnce = HWY_MIN(HWY_LANES(std::uint8_t), 32) / 16;

struct Taps {
    const std::uint8_t* pixels; // the upper left one of 16
    const CubicWeights* across;
    const CubicWeights* down;
};

/// A block for each pixel, where there are two.
template <class D, class Block>
HWY_INLINE hn::VFromD<D> blocks(D d, Block first, Block second) {
    if constexpr (pixelsAtOnce == 1)
        return first;
    else
        return hn::Combine(d, second, first);
}

HWY_INLINE V8 loadTaps(const Taps* taps, std::ptrdiff_t offset) {
    const Block8 block;
    return blocks(D8(), hn::LoadU(block, taps[0].pixels + offset),
                  hn::LoadU(block, taps[pixelsAtOnce - 1].pixels + offset));
}

HWY_INLINE V16 weightPair(std::int32_t first, std::int32_t second) {
    const Block32 block;
    return hn::BitCast(D16(), blocks(D32(), hn::Set(block, first), hn::Set(block, second)));
}

HWY_INLINE V32 addProducts(V32 sum, V16 a, V16 b) {
    auto other = hn::Zero(D32());
    const auto products = hn::ReorderWidenMulAccumulate(D32(), a, b, sum, other);
    return hn::RearrangeToOddPlusEven(products, other);
}

/// The four columns of 4 channels, weighed down two rows.
HWY_INLINE void addRows(V32 (&columns)[4], V8 upper, V8 lower, V16 weights) {
    const D8 d;
    const D16 d16;
    const auto zero = hn::Zero(d);
    const auto left = hn::InterleaveLower(d, upper, lower), right = hn::InterleaveUpper(d, upper, lower);
    const auto pairs = [&](V8 v) HWY_ATTR { return hn::BitCast(d16, v); };
    columns[0] = addProducts(columns[0], pairs(hn::InterleaveLower(d, left, zero)), weights);
    columns[1] = addProducts(columns[1], pairs(hn::InterleaveUpper(d, left, zero)), weights);
    columns[2] = addProducts(columns[2], pairs(hn::InterleaveLower(d, right, zero)), weights);
    columns[3] = addProducts(columns[3], pairs(hn::InterleaveUpper(d, right, zero)), weights);
}

/// Two sums of columns, cut to 16 bits each and side by side.
HWY_INLINE V16 besides(V32 left, V32 right) {
    const D32 d;
    const auto low = hn::And(hn::ShiftRight<columnShift>(left), hn::Set(d, 0xFFFF));
    return hn::BitCast(D16(), hn::Or(low, hn::ShiftLeft<16>(hn::ShiftRight<columnShift>(right))));
}

/// The channels of the pixels in 32 bits each.
HWY_INLINE V32 interpolated(const Taps* taps, std::ptrdiff_t row) {
    const D32 d;
    const Taps &a = taps[0], &b = taps[pixelsAtOnce - 1];
    const auto half = hn::Set(d, 1 << (columnShift - 1));
    V32 columns[4] = {half, half, half, half};
    addRows(columns, loadTaps(taps, 0), loadTaps(taps, row), weightPair(a.down->pair(0), b.down->pair(0)));
    addRows(columns, loadTaps(taps, 2 * row), loadTaps(taps, 3 * row),
            weightPair(a.down->pair(2), b.down->pair(2)));
    V32 sum = hn::Set(d, 1 << (rowShift - 1));
    sum = addProducts(sum, besides(columns[0], columns[1]), weightPair(a.across->pair(0), b.across->pair(0)));
    sum = addProducts(sum, besides(columns[2], columns[3]), weightPair(a.across->pair(2), b.across->pair(2)));
    const auto clamped = hn::Max(hn::ShiftRight<rowShift>(sum), hn::Zero(d));
    const auto alpha = hn::Min(hn::Broadcast<3>(clamped), hn::Set(d, 255));
    return hn::Min(clamped, alpha);
}

} // namespace

void cubicRowVectors(const CubicWalk& walk, const CubicTable& table, std::uint8_t* to, int pixels) {
    const std::ptrdiff_t row = walk.bytesPerRow;
    std::int64_t x = walk.x, y = walk.y;
    const auto next = [&]() HWY_ATTR {
        const Taps taps{walk.pixels + ((y >> 32) - 1) * row + ((x >> 32) - 1) * 4,
                        &table[phaseOf(static_cast<std::uint32_t>(x))],
                        &table[phaseOf(static_cast<std::uint32_t>(y))]};
        x += walk.stepX;
        y += walk.stepY;
        return taps;
    };
    const hn::Rebind<std::uint8_t, D32> narrow;
    int i = 0;
    for (; i + pixelsAtOnce <= pixels; i += pixelsAtOnce, to += 4 * pixelsAtOnce) {
        Taps taps[pixelsAtOnce];
        for (Taps& each : taps)
            each = next();
        hn::StoreU(hn::DemoteTo(narrow, interpolated(taps, row)), narrow, to);
    }
    if (i == pixels) return;
    const Taps last = next();
    const Taps taps[] = {last, last};
    std::uint8_t both[8];
    hn::StoreU(hn::DemoteTo(narrow, interpolated(taps, row)), narrow, both);
    std::memcpy(to, both, 4);
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

/// Catmull and Rom's cubic at t: half of ((3|x| - 5) x² + 2) within 1 and of (((5 - |x|)|x| - 8)|x| + 4)
/// within 2. Rounded weights sum to exactly 1, what is missing goes to the largest.
CubicWeights weightsAt(double t) {
    const auto cubic = [](double x) {
        x = std::abs(x);
        return x < 1 ? ((3 * x - 5) * x * x + 2) / 2 : (((5 - x) * x - 8) * x + 4) / 2;
    };
    constexpr int one = 1 << weightBits;
    CubicWeights weights{};
    int rest = one;
    for (int k = 0; k < 4; ++k) {
        weights.of[k] = static_cast<std::int16_t>(std::lround(cubic(t + 1 - k) * one));
        rest -= weights.of[k];
    }
    weights.of[t < 0.5 ? 1 : 2] = static_cast<std::int16_t>(weights.of[t < 0.5 ? 1 : 2] + rest);
    return weights;
}

const CubicTable& cubicTable() {
    static const CubicTable table = [] {
        CubicTable made;
        for (std::size_t i = 0; i < made.size(); ++i)
            made[i] = weightsAt(static_cast<double>(i) / (1 << phaseBits));
        return made;
    }();
    return table;
}

void cubicRowPlain(const CubicWalk& walk, const CubicTable&, std::uint8_t* to, int pixels) {
    std::int64_t x = walk.x, y = walk.y;
    for (int i = 0; i < pixels; ++i, x += walk.stepX, y += walk.stepY, to += 4) {
        const int column = static_cast<int>(x >> 32), row = static_cast<int>(y >> 32);
        const int columns[] = {column - 1, column, column + 1, column + 2};
        const int rows[] = {row - 1, row, row + 1, row + 2};
        cubicPixel(walk.pixels, walk.bytesPerRow, columns, rows, static_cast<std::uint32_t>(x),
                   static_cast<std::uint32_t>(y), to);
    }
}

} // namespace

void cubicPixel(const std::uint8_t* pixels, std::ptrdiff_t bytesPerRow, const int (&columns)[4],
                const int (&rows)[4], std::uint32_t fractionX, std::uint32_t fractionY, std::uint8_t* to) {
    const CubicWeights &across = cubicTable()[phaseOf(fractionX)], &down = cubicTable()[phaseOf(fractionY)];
    int channels[4];
    for (int c = 0; c < 4; ++c) {
        int sum = 1 << (rowShift - 1);
        for (int k = 0; k < 4; ++k) {
            int column = 1 << (columnShift - 1);
            for (int r = 0; r < 4; ++r)
                column += pixels[rows[r] * bytesPerRow + std::ptrdiff_t{4} * columns[k] + c] * down.of[r];
            sum += (column >> columnShift) * across.of[k];
        }
        channels[c] = std::clamp(sum >> rowShift, 0, 255);
    }
    for (int c = 0; c < 4; ++c)
        to[c] = static_cast<std::uint8_t>(std::min(channels[c], channels[3]));
}

void cubicRow(const CubicWalk& walk, std::uint8_t* to, int pixels) {
    PEX_PICK_KERNEL(cubicRowVectors, cubicRowPlain)(walk, cubicTable(), to, pixels);
}

} // namespace pex::kernels
#endif
