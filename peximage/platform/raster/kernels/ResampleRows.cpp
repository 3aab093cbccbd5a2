#include "peximage/platform/raster/kernels/ResampleRows.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/ResampleRows.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"

#include <hwy/cache_control.h>

#ifndef PEX_RESAMPLE_ROWS
#define PEX_RESAMPLE_ROWS
namespace pex::kernels {

/// Past this many fraction bits of the weights a sum of all columns could overflow: partial sums of
/// `drainPairs` pairs are then cut to it before they are added up.
constexpr int mostColumnBits = 16;
constexpr int drainPairs = 4;

/// How far ahead rows are asked for: a window's rows are more streams than processors follow by themselves.
constexpr std::size_t prefetchBytes = 512;

inline std::int32_t pairAt(const std::int16_t* weights) {
    std::int32_t pair;
    std::memcpy(&pair, weights, sizeof(pair));
    return pair;
}

/// Puts four columns of `rowCount` rows, side by side in the lanes of a vector, where they belong.
template <std::size_t Bytes>
void placeColumns(const std::uint8_t* lanes, const WeighColumns& job, int x) {
    const std::size_t left = job.width - x;
    for (int r = 0; r < job.rowCount; ++r) {
        std::uint8_t* to = job.rows[r] + Bytes * x;
        if (left >= 4)
            std::memcpy(to, lanes + 4 * Bytes * r, 4 * Bytes);
        else
            std::memcpy(to, lanes + 4 * Bytes * r, Bytes * left);
    }
}

} // namespace pex::kernels
#endif

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

using D8 = hn::ScalableTag<std::uint8_t>;
using D16 = hn::ScalableTag<std::int16_t>;
using D32 = hn::ScalableTag<std::int32_t>;
using V8 = hn::VFromD<D8>;
using V16 = hn::VFromD<D16>;
using V32 = hn::VFromD<D32>;

constexpr int rowsOfGroup = HWY_LANES(std::uint8_t) / 16;
constexpr std::size_t blockBytes = HWY_LANES(std::uint8_t);
constexpr std::size_t words = HWY_LANES(std::int32_t);

/// sum + low * low + high * high of the 16-bit halves.
HWY_INLINE V32 addProducts(V32 sum, V16 a, V16 b) {
    auto other = hn::Zero(D32());
    const auto products = hn::ReorderWidenMulAccumulate(D32(), a, b, hn::Zero(D32()), other);
    return hn::Add(sum, hn::RearrangeToOddPlusEven(products, other));
}

HWY_INLINE V16 pairOf(std::int32_t weights) { return hn::BitCast(D16(), hn::Set(D32(), weights)); }

/// The sums of one row over a block of columns; within each 16 bytes, four columns a member.
struct RowSums {
    V32 a, b, c, d;
};

HWY_INLINE RowSums load(const std::int32_t* from) {
    const D32 d;
    return {hn::Load(d, from), hn::Load(d, from + words), hn::Load(d, from + 2 * words),
            hn::Load(d, from + 3 * words)};
}

HWY_INLINE void store(const RowSums& sums, std::int32_t* to) {
    const D32 d;
    hn::Store(sums.a, d, to);
    hn::Store(sums.b, d, to + words);
    hn::Store(sums.c, d, to + 2 * words);
    hn::Store(sums.d, d, to + 3 * words);
}

/// The columns of two source rows, interleaved to pairs.
struct Columns {
    V16 a, b, c, d;
};

HWY_INLINE Columns interleaved(V8 upper, V8 lower) {
    const D8 d;
    const D16 d16;
    const auto zero = hn::Zero(d);
    const auto low = hn::InterleaveLower(d, upper, lower);
    const auto high = hn::InterleaveUpper(d, upper, lower);
    return {hn::BitCast(d16, hn::InterleaveLower(d, low, zero)),
            hn::BitCast(d16, hn::InterleaveUpper(d, low, zero)),
            hn::BitCast(d16, hn::InterleaveLower(d, high, zero)),
            hn::BitCast(d16, hn::InterleaveUpper(d, high, zero))};
}

HWY_INLINE void add(RowSums& sums, const Columns& columns, std::int32_t weights) {
    const auto pair = pairOf(weights);
    sums.a = addProducts(sums.a, columns.a, pair);
    sums.b = addProducts(sums.b, columns.b, pair);
    sums.c = addProducts(sums.c, columns.c, pair);
    sums.d = addProducts(sums.d, columns.d, pair);
}

/// Loads a block of columns, or as much of it as the row has.
HWY_INLINE V8 loadColumns(const std::uint8_t* from, std::size_t count) {
    if (HWY_LIKELY(count >= blockBytes)) return hn::LoadU(D8(), from);
    HWY_ALIGN std::uint8_t rest[blockBytes] = {};
    std::memcpy(rest, from, count);
    return hn::Load(D8(), rest);
}

/// All rows of a group over a block of columns. Members rather than an array, so that they stay in registers.
struct GroupSums {
    RowSums row0, row1, row2, row3;

    HWY_INLINE void begin(V32 value) { row0 = row1 = row2 = row3 = {value, value, value, value}; }
    HWY_INLINE void loadFrom(const std::int32_t* sums) {
        row0 = load(sums);
        if constexpr (rowsOfGroup > 1) row1 = load(sums + 4 * words);
        if constexpr (rowsOfGroup > 2) row2 = load(sums + 8 * words);
        if constexpr (rowsOfGroup > 2) row3 = load(sums + 12 * words);
    }
    HWY_INLINE void storeTo(std::int32_t* sums) const {
        store(row0, sums);
        if constexpr (rowsOfGroup > 1) store(row1, sums + 4 * words);
        if constexpr (rowsOfGroup > 2) store(row2, sums + 8 * words);
        if constexpr (rowsOfGroup > 2) store(row3, sums + 12 * words);
    }
    HWY_INLINE void add(const RowPair& pair, const Columns& columns) {
        using HWY_NAMESPACE::add;
        if (pair.used & 1) add(row0, columns, pair.weights[0]);
        if constexpr (rowsOfGroup > 1)
            if (pair.used & 2) add(row1, columns, pair.weights[1]);
        if constexpr (rowsOfGroup > 2)
            if (pair.used & 4) add(row2, columns, pair.weights[2]);
        if constexpr (rowsOfGroup > 2)
            if (pair.used & 8) add(row3, columns, pair.weights[3]);
    }
};

/// Two sums of each member to pairs of samples: the left pixel's in the low half, the right one's in the
/// high.
HWY_INLINE V16 toPairs(V32 left, V32 right, int bits) {
    const D16 d16;
    const auto high = hn::ShiftLeft<16>(hn::ShiftRightSame(right, bits));
    return hn::OddEven(hn::BitCast(d16, high), hn::BitCast(d16, hn::ShiftRightSame(left, bits)));
}

/// Writes every second pair of pixels of a block: lane by lane, the rows of the group side by side.
HWY_INLINE void storePairs(V16 row0, V16 row1, V16 row2, V16 row3, std::int16_t* to) {
    const D16 d;
    constexpr std::size_t step = 2 * HWY_LANES(std::int16_t);
    if constexpr (rowsOfGroup == 1) {
        hn::Store(row0, d, to);
    } else if constexpr (rowsOfGroup == 2) {
        hn::Store(hn::ConcatLowerLower(d, row1, row0), d, to);
        hn::Store(hn::ConcatUpperUpper(d, row1, row0), d, to + step);
    } else {
        const auto even01 = hn::OddEvenBlocks(hn::SwapAdjacentBlocks(row1), row0);
        const auto odd01 = hn::OddEvenBlocks(row1, hn::SwapAdjacentBlocks(row0));
        const auto even23 = hn::OddEvenBlocks(hn::SwapAdjacentBlocks(row3), row2);
        const auto odd23 = hn::OddEvenBlocks(row3, hn::SwapAdjacentBlocks(row2));
        hn::Store(hn::ConcatLowerLower(d, even23, even01), d, to);
        hn::Store(hn::ConcatLowerLower(d, odd23, odd01), d, to + step);
        hn::Store(hn::ConcatUpperUpper(d, even23, even01), d, to + 2 * step);
        hn::Store(hn::ConcatUpperUpper(d, odd23, odd01), d, to + 3 * step);
    }
}

HWY_INLINE void storeColour(const GroupSums& sums, int bits, std::int16_t* to) {
    const auto& [s0, s1, s2, s3] = sums;
    storePairs(toPairs(s0.a, s0.b, bits), toPairs(s1.a, s1.b, bits), toPairs(s2.a, s2.b, bits),
               toPairs(s3.a, s3.b, bits), to);
    storePairs(toPairs(s0.c, s0.d, bits), toPairs(s1.c, s1.d, bits), toPairs(s2.c, s2.d, bits),
               toPairs(s3.c, s3.d, bits), to + HWY_LANES(std::int16_t));
}

/// A grey row of a block takes one 32-bit place in each vector of a pair of pixels.
HWY_INLINE void storeGreyRow(const RowSums& sums, int bits, std::int16_t* to) {
    const D16 d16;
    HWY_ALIGN std::int16_t ordered[2 * HWY_LANES(std::int16_t)];
    const auto low =
        hn::ReorderDemote2To(d16, hn::ShiftRightSame(sums.a, bits), hn::ShiftRightSame(sums.b, bits));
    const auto high =
        hn::ReorderDemote2To(d16, hn::ShiftRightSame(sums.c, bits), hn::ShiftRightSame(sums.d, bits));
    hn::Store(low, d16, ordered);
    hn::Store(high, d16, ordered + HWY_LANES(std::int16_t));
    for (std::size_t pair = 0; pair < blockBytes / 2; ++pair) {
        // Each lane has four pairs of `low`, then four of `high`.
        const std::size_t from = pair / 8 * 4 + pair % 4 + (pair % 8 < 4 ? 0 : words);
        std::memcpy(to + pair * HWY_LANES(std::int16_t), ordered + 2 * from, 4);
    }
}

HWY_INLINE void storeGrey(const GroupSums& sums, int bits, std::int16_t* to) {
    storeGreyRow(sums.row0, bits, to);
    if constexpr (rowsOfGroup > 1) storeGreyRow(sums.row1, bits, to + 2);
    if constexpr (rowsOfGroup > 2) storeGreyRow(sums.row2, bits, to + 4);
    if constexpr (rowsOfGroup > 2) storeGreyRow(sums.row3, bits, to + 6);
}

HWY_INLINE void addPairs(GroupSums& sums, const WeighRows& job, std::size_t at) {
    const std::size_t count = job.bytes - at;
    for (int p = 0; p < job.count; ++p) {
        const RowPair& pair = job.pairs[p];
        hwy::Prefetch(pair.upper + at + prefetchBytes);
        hwy::Prefetch(pair.lower + at + prefetchBytes);
        sums.add(pair, interleaved(loadColumns(pair.upper + at, count), loadColumns(pair.lower + at, count)));
    }
}

HWY_INLINE V8 byteOrder(bool grey) {
    HWY_ALIGN static constexpr std::uint8_t colourPlaces[16] = {0, 2, 4, 6, 8, 10, 12, 14,
                                                                1, 3, 5, 7, 9, 11, 13, 15};
    HWY_ALIGN static constexpr std::uint8_t greyPlaces[16] = {0, 8,  1, 9,  2, 10, 3, 11,
                                                              4, 12, 5, 13, 6, 14, 7, 15};
    return hn::LoadDup128(D8(), grey ? greyPlaces : colourPlaces);
}

/// The sum of one column's window over all rows of the group, not yet rounded.
template <bool Drained>
struct Window {
    const std::int16_t* samples;
    const std::int16_t* weights;
    V32 sum;
    V32 part;

    HWY_INLINE void begin(const WeighColumns& job, int x, V32 half) {
        samples = job.samples + job.firstPair[x] * HWY_LANES(std::int16_t);
        weights = job.weights + std::size_t{2} * x * job.pairs;
        sum = half;
        part = hn::Zero(D32());
    }
    HWY_INLINE void add(int p) {
        const auto values = hn::Load(D16(), samples + p * HWY_LANES(std::int16_t));
        auto& into = Drained ? part : sum;
        into = addProducts(into, values, pairOf(pairAt(weights + 2 * p)));
    }
    HWY_INLINE void drain(int bits) {
        sum = hn::Add(sum, hn::ShiftRightSame(part, bits));
        part = hn::Zero(D32());
    }
};

HWY_INLINE V16 clampedPair(V32 left, V32 right, int bits) {
    const D16 d;
    const auto both =
        hn::ReorderDemote2To(d, hn::ShiftRightSame(left, bits), hn::ShiftRightSame(right, bits));
    return hn::Min(hn::Max(both, hn::Zero(d)), hn::Set(d, 255));
}

/// What follows the filter: colour at most alpha, or alpha opaque; both leave grey as it is.
struct AlphaRule {
    V8 places;
    V8 opaque;

    explicit AlphaRule(PixelLayout layout) {
        HWY_ALIGN static constexpr std::uint8_t itself[16] = {0, 1, 2,  3,  4,  5,  6,  7,
                                                              8, 9, 10, 11, 12, 13, 14, 15};
        HWY_ALIGN static constexpr std::uint8_t first[16] = {0, 0, 0, 0, 4,  4,  4,  4,
                                                             8, 8, 8, 8, 12, 12, 12, 12};
        HWY_ALIGN static constexpr std::uint8_t last[16] = {3,  3,  3,  3,  7,  7,  7,  7,
                                                            11, 11, 11, 11, 15, 15, 15, 15};
        const bool isFirst = isAlphaFirst(layout);
        places = hn::LoadDup128(D8(), !hasAlpha(layout) ? itself : isFirst ? first : last);
        const bool skips = layout == PixelLayout::skipLast || layout == PixelLayout::skipFirst;
        const std::uint32_t mask = !skips ? 0 : isFirst ? 0x000000FFu : 0xFF000000u;
        opaque = hn::BitCast(D8(), hn::Set(hn::Repartition<std::uint32_t, D8>(), mask));
    }
    HWY_INLINE V8 apply(V8 pixels) const {
        return hn::Or(hn::Min(pixels, hn::TableLookupBytes(pixels, places)), opaque);
    }
};

/// Four columns at a time: packing their sums to bytes leaves each row's four pixels side by side.
template <bool Drained>
void weighColumnsOf(const WeighColumns& job) {
    const int drainBits = Drained ? job.shift - mostColumnBits : 0;
    const int bits = sampleFraction + job.shift - drainBits;
    const auto half = hn::Set(D32(), 1 << (bits - 1));
    const bool grey = job.layout == PixelLayout::grey;
    const auto order = byteOrder(grey);
    const AlphaRule alpha(job.layout);
    for (int x = 0; x < job.width; x += 4) {
        Window<Drained> w0, w1, w2, w3;
        w0.begin(job, x, half);
        w1.begin(job, std::min(x + 1, job.width - 1), half);
        w2.begin(job, std::min(x + 2, job.width - 1), half);
        w3.begin(job, std::min(x + 3, job.width - 1), half);
        for (int p = 0; p < job.pairs;) {
            const int end = Drained ? std::min(p + drainPairs, job.pairs) : job.pairs;
            for (; p < end; ++p)
                w0.add(p), w1.add(p), w2.add(p), w3.add(p);
            if constexpr (Drained)
                w0.drain(drainBits), w1.drain(drainBits), w2.drain(drainBits), w3.drain(drainBits);
        }
        const auto low = clampedPair(w0.sum, w1.sum, bits);
        const auto high = hn::ShiftLeft<8>(clampedPair(w2.sum, w3.sum, bits));
        const auto pixels = hn::TableLookupBytes(hn::BitCast(D8(), hn::Or(low, high)), order);
        HWY_ALIGN std::uint8_t lanes[blockBytes];
        hn::Store(alpha.apply(pixels), D8(), lanes);
        if (grey)
            placeColumns<1>(lanes, job, x);
        else
            placeColumns<4>(lanes, job, x);
    }
}

} // namespace

int rowsInGroup() { return rowsOfGroup; }

void weighRowsOf(const WeighRows& job) {
    const int bits = job.shift - sampleFraction;
    const bool begins = job.part == Sums::wholeWindow || job.part == Sums::begin;
    const bool ends = job.part == Sums::wholeWindow || job.part == Sums::finish;
    const auto half = hn::Set(D32(), 1 << (bits - 1));
    std::size_t kept = 0;
    std::int16_t* samples = job.samples + 2 * job.quarter * rowsOfGroup;
    for (std::size_t at = 0; at < job.bytes; at += blockBytes, kept += 4 * words * rowsOfGroup) {
        GroupSums sums;
        sums.begin(half);
        if (!begins) sums.loadFrom(job.sums + kept);
        addPairs(sums, job, at);
        if (!ends)
            sums.storeTo(job.sums + kept);
        else if (job.grey)
            storeGrey(sums, bits, samples + at / 2 * HWY_LANES(std::int16_t));
        else
            storeColour(sums, bits, samples + at / 8 * HWY_LANES(std::int16_t));
    }
}

void weighColumnsVector(const WeighColumns& job) {
    if (job.shift > mostColumnBits)
        weighColumnsOf<true>(job);
    else
        weighColumnsOf<false>(job);
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

int rowsInGroupPlain() { return 1; }

std::int16_t upperWeight(std::int32_t pair) { return static_cast<std::int16_t>(pair & 0xFFFF); }
std::int16_t lowerWeight(std::int32_t pair) { return static_cast<std::int16_t>(pair >> 16); }

/// The place of a column's sample: pairs of pixels, channel by channel (or grey row by grey row).
std::size_t samplePlace(std::size_t column, const WeighRows& job) {
    if (job.grey) return column / 2 * 8 + 2 * job.quarter + column % 2;
    return column / 8 * 8 + column % 4 * 2 + column / 4 % 2;
}

void weighRowsPlain(const WeighRows& job) {
    const int bits = job.shift - sampleFraction;
    const bool begins = job.part == Sums::wholeWindow || job.part == Sums::begin;
    const bool ends = job.part == Sums::wholeWindow || job.part == Sums::finish;
    for (std::size_t column = 0; column < job.bytes; ++column) {
        std::int32_t sum = begins ? 1 << (bits - 1) : job.sums[column];
        for (int p = 0; p < job.count; ++p) {
            const RowPair& pair = job.pairs[p];
            sum += pair.upper[column] * upperWeight(pair.weights[0]);
            sum += pair.lower[column] * lowerWeight(pair.weights[0]);
        }
        if (ends)
            job.samples[samplePlace(column, job)] = static_cast<std::int16_t>(sum >> bits);
        else
            job.sums[column] = sum;
    }
}

/// One channel of one column, 0 to 255.
std::uint8_t weighColumn(const WeighColumns& job, int x, int channel) {
    const int drainBits = std::max(0, job.shift - mostColumnBits);
    const int bits = sampleFraction + job.shift - drainBits;
    const std::int16_t* samples = job.samples + std::size_t{8} * job.firstPair[x] + 2 * channel;
    const std::int16_t* weights = job.weights + std::size_t{2} * x * job.pairs;
    std::int64_t sum = std::int64_t{1} << (bits - 1);
    for (int p = 0; p < job.pairs; p += drainPairs) {
        std::int64_t part = 0;
        for (int k = p; k < std::min(p + drainPairs, job.pairs); ++k)
            part += samples[8 * k] * weights[2 * k] + std::int64_t{samples[8 * k + 1]} * weights[2 * k + 1];
        sum += part >> drainBits;
    }
    return static_cast<std::uint8_t>(std::clamp<std::int64_t>(sum >> bits, 0, 255));
}

void weighColumnsPlain(const WeighColumns& job) {
    const bool grey = job.layout == PixelLayout::grey;
    const int alphaPlace = isAlphaFirst(job.layout) ? 0 : 3;
    for (int x = 0; x < job.width; ++x) {
        std::uint8_t pixel[4];
        for (int c = 0; c < 4; ++c)
            pixel[c] = weighColumn(job, x, c);
        if (grey) {
            for (int r = 0; r < job.rowCount; ++r)
                job.rows[r][x] = pixel[r];
            continue;
        }
        if (!hasAlpha(job.layout)) pixel[alphaPlace] = 255;
        for (int c = 0; c < 4; ++c)
            job.rows[0][4 * std::size_t(x) + c] = std::min(pixel[c], pixel[alphaPlace]);
    }
}

constexpr std::size_t widestVector = 64;

} // namespace

int groupRows() { return PEX_PICK_KERNEL(rowsInGroup, rowsInGroupPlain)(); }

void weighRows(const WeighRows& job) { PEX_PICK_KERNEL(weighRowsOf, weighRowsPlain)(job); }

void weighColumns(const WeighColumns& job) { PEX_PICK_KERNEL(weighColumnsVector, weighColumnsPlain)(job); }

// Whole blocks of columns are written, as wide as the widest vector.
constexpr std::size_t wholeBlocks(std::size_t bytes) {
    return (bytes + widestVector - 1) / widestVector * widestVector;
}

std::size_t samplesBytes(int width, PixelLayout layout) {
    const bool grey = layout == PixelLayout::grey;
    return wholeBlocks(std::size_t(width) * bytesPerPixel(layout)) / (grey ? 2 : 8) * 16 * groupRows();
}

std::size_t sumsBytes(std::size_t bytes) { return wholeBlocks(bytes) * sizeof(std::int32_t) * groupRows(); }

} // namespace pex::kernels
#endif
