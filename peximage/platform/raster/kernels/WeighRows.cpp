#include "peximage/platform/raster/kernels/WeighRows.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/WeighRows.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"
#include "peximage/platform/raster/kernels/PairProducts.h"

#ifndef PEX_WEIGH_ROWS
#define PEX_WEIGH_ROWS
namespace pex::kernels {

/// Asks for a row's bytes some blocks ahead, since a window's rows are more streams than processors follow by
/// themselves: for the second-level cache, as the first would lose others for them. Always inlined, since gcc
/// takes calls of such a function for calls without effect.
HWY_INLINE void prefetch(const std::uint8_t* row) {
    constexpr int bytesAhead = 512, secondLevel = 2;
    __builtin_prefetch(row + bytesAhead, 0, secondLevel);
}

inline bool begins(Sums part) { return part == Sums::wholeWindow || part == Sums::begin; }
inline bool ends(Sums part) { return part == Sums::wholeWindow || part == Sums::finish; }

/// Where the samples of one row begin among those of a pair of pixels.
inline std::size_t rowSamples(const WeighRows& job, int row) {
    return job.grey ? std::size_t{2} * (job.quarter * groupRows + row) : std::size_t{8} * row;
}

} // namespace pex::kernels
#endif

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {

using D8 = hn::ScalableTag<std::uint8_t>;
using D32 = hn::ScalableTag<std::int32_t>;
using V8 = hn::VFromD<D8>;

constexpr std::size_t blockBytes = HWY_LANES(std::uint8_t);
constexpr std::size_t words = HWY_LANES(std::int32_t);
constexpr std::size_t halves = HWY_LANES(std::int16_t);

/// The sums of one row over half a block of columns; within each 16 bytes, four columns a member.
struct RowSums {
    V32 a, b;
};

/// All rows of a group over half a block. Members rather than an array, so that they stay in registers.
struct GroupSums {
    RowSums row0, row1, row2, row3;
};

HWY_INLINE RowSums load(const std::int32_t* from) {
    const D32 d;
    return {hn::Load(d, from), hn::Load(d, from + words)};
}

HWY_INLINE void store(const RowSums& sums, std::int32_t* to) {
    const D32 d;
    hn::Store(sums.a, d, to);
    hn::Store(sums.b, d, to + words);
}

HWY_INLINE GroupSums loadGroup(const std::int32_t* from) {
    return {load(from), load(from + 2 * words), load(from + 4 * words), load(from + 6 * words)};
}

HWY_INLINE void storeGroup(const GroupSums& sums, std::int32_t* to) {
    store(sums.row0, to);
    store(sums.row1, to + 2 * words);
    store(sums.row2, to + 4 * words);
    store(sums.row3, to + 6 * words);
}

/// Loads the block of columns that begins `begin` bytes after the row; of one that is not `Whole`, as much as
/// the row has.
template <bool Whole>
HWY_INLINE V8 loadColumns(const std::uint8_t* row, std::ptrdiff_t begin, std::ptrdiff_t bytes) {
    if constexpr (Whole) return hn::LoadU(D8(), row + begin);
    HWY_ALIGN std::uint8_t columns[blockBytes] = {};
    const std::ptrdiff_t from = std::max(begin, std::ptrdiff_t{0});
    const std::ptrdiff_t end = std::min(begin + std::ptrdiff_t{blockBytes}, bytes);
    std::memcpy(columns + (from - begin), row + from, end - from);
    return hn::Load(D8(), columns);
}

template <class Products>
HWY_INLINE void add(RowSums& sums, V16 left, V16 right, std::int32_t weights) {
    const auto pair = pairOf(weights);
    sums.a = Products::addProducts(sums.a, left, pair);
    sums.b = Products::addProducts(sums.b, right, pair);
}

/// The halves of a block's columns, which lie in the lower or upper eight bytes of each 16, are weighed at
/// once where there are registers for all their sums.
enum class Half { lower, upper, both };
constexpr bool halvesAtOnce = HWY_CAP_GE512;

struct BlockSums {
    GroupSums lower, upper;
};

/// Adds one pair in the rows that `Used` says.
template <class Products, unsigned Used>
HWY_INLINE void addColumns(GroupSums& sums, V8 columns, const RowPair& pair) {
    const D8 d;
    const D16 d16;
    const auto left = hn::BitCast(d16, hn::InterleaveLower(d, columns, hn::Zero(d)));
    const auto right = hn::BitCast(d16, hn::InterleaveUpper(d, columns, hn::Zero(d)));
    if constexpr ((Used & 1) != 0) add<Products>(sums.row0, left, right, pair.weights[0]);
    if constexpr ((Used & 2) != 0) add<Products>(sums.row1, left, right, pair.weights[1]);
    if constexpr ((Used & 4) != 0) add<Products>(sums.row2, left, right, pair.weights[2]);
    if constexpr ((Used & 8) != 0) add<Products>(sums.row3, left, right, pair.weights[3]);
}

/// Adds the pairs from `pair` on that count in just the rows that `Used` says, and returns the next.
template <class Products, Half half, bool Whole, unsigned Used>
HWY_INLINE const RowPair* addRun(BlockSums& sums, const RowPair* pair, std::ptrdiff_t begin,
                                 std::ptrdiff_t bytes) {
    const D8 d;
    for (; pair->used == Used; ++pair) {
        if constexpr (Whole && half != Half::upper) {
            prefetch(pair->upper + begin);
            prefetch(pair->lower + begin);
        }
        const auto upper = loadColumns<Whole>(pair->upper, begin, bytes);
        const auto lower = loadColumns<Whole>(pair->lower, begin, bytes);
        if constexpr (half != Half::upper)
            addColumns<Products, Used>(sums.lower, hn::InterleaveLower(d, upper, lower), *pair);
        if constexpr (half != Half::lower)
            addColumns<Products, Used>(sums.upper, hn::InterleaveUpper(d, upper, lower), *pair);
    }
    return pair;
}

/// Adds all pairs, up to the one that ends the list.
template <class Products, Half half, bool Whole>
HWY_INLINE void addPairs(BlockSums& sums, const WeighRows& job, std::ptrdiff_t begin) {
    const auto bytes = static_cast<std::ptrdiff_t>(job.bytes);
    const RowPair* pair = job.pairs;
    while (pair->used != 0) {
        pair = addRun<Products, half, Whole, 1>(sums, pair, begin, bytes);
        pair = addRun<Products, half, Whole, 3>(sums, pair, begin, bytes);
        pair = addRun<Products, half, Whole, 7>(sums, pair, begin, bytes);
        pair = addRun<Products, half, Whole, 15>(sums, pair, begin, bytes);
        pair = addRun<Products, half, Whole, 14>(sums, pair, begin, bytes);
        pair = addRun<Products, half, Whole, 12>(sums, pair, begin, bytes);
        pair = addRun<Products, half, Whole, 8>(sums, pair, begin, bytes);
    }
}

/// Two sums of each member without their last `bits`, 16 or fewer, as pairs of samples: the left pixel's in
/// the low half, the right one's in the high.
HWY_INLINE V16 toPairs(V32 left, V32 right, int bits) {
    const D16 d16;
    const auto high = hn::ShiftLeftSame(right, 16 - bits);
    return hn::OddEven(hn::BitCast(d16, high), hn::BitCast(d16, hn::ShiftRightSame(left, bits)));
}

/// Writes each 16 bytes of a vector `step` samples after those before.
template <class D>
HWY_INLINE void storeLanes(D d, hn::VFromD<D> samples, std::int16_t* to, std::size_t step) {
    if constexpr (hn::MaxLanes(D()) == 8) {
        hn::Store(samples, d, to);
    } else {
        const hn::Half<D> half;
        storeLanes(half, hn::LowerHalf(half, samples), to, step);
        storeLanes(half, hn::UpperHalf(half, samples), to + hn::MaxLanes(half) / 8 * step, step);
    }
}

/// Writes one row's samples of half a block, of which each 16 bytes follow 8 others.
HWY_INLINE void storeColour(const RowSums& sums, int bits, std::int16_t* to) {
    storeLanes(D16(), toPairs(sums.a, sums.b, bits), to, 2 * pairSamples);
}

HWY_INLINE void storeGrey(const RowSums& sums, int bits, std::int16_t* to) {
    const D16 d16;
    HWY_ALIGN std::int16_t ordered[halves];
    hn::Store(hn::ReorderDemote2To(d16, hn::ShiftRightSame(sums.a, bits), hn::ShiftRightSame(sums.b, bits)),
              d16, ordered);
    for (std::size_t pair = 0; pair < words; ++pair)
        std::memcpy(to + (pair / 4 * 8 + pair % 4) * pairSamples, ordered + 2 * pair, 4);
}

HWY_INLINE void storeSamples(const RowSums& sums, const WeighRows& job, int row, std::int16_t* to) {
    const int bits = job.shift - sampleFraction;
    if (job.grey)
        storeGrey(sums, bits, to + rowSamples(job, row));
    else
        storeColour(sums, bits, to + rowSamples(job, row));
}

/// Writes the rows' samples of half a block from `column` on, or keeps the sums.
HWY_INLINE void leave(const GroupSums& sums, const WeighRows& job, std::size_t kept, std::size_t column) {
    if (!ends(job.part)) return storeGroup(sums, job.sums + kept);
    std::int16_t* const to = job.samples + column / (job.grey ? 2 : 8) * pairSamples;
    storeSamples(sums.row0, job, 0, to);
    storeSamples(sums.row1, job, 1, to);
    storeSamples(sums.row2, job, 2, to);
    storeSamples(sums.row3, job, 3, to);
}

template <class Products, Half half, bool Whole>
HWY_INLINE void weighBlock(const WeighRows& job, std::size_t at, V32 rounding) {
    const std::size_t lowerKept = at * groupRows, upperKept = lowerKept + blockBytes / 2 * groupRows;
    const RowSums empty{rounding, rounding};
    BlockSums sums{{empty, empty, empty, empty}, {empty, empty, empty, empty}};
    if (!begins(job.part)) {
        if constexpr (half != Half::upper) sums.lower = loadGroup(job.sums + lowerKept);
        if constexpr (half != Half::lower) sums.upper = loadGroup(job.sums + upperKept);
    }
    addPairs<Products, half, Whole>(sums, job,
                                    static_cast<std::ptrdiff_t>(at) - static_cast<std::ptrdiff_t>(job.lead));
    if constexpr (half != Half::upper) leave(sums.lower, job, lowerKept, at);
    if constexpr (half != Half::lower) leave(sums.upper, job, upperKept, at + 8);
}

template <class Products, bool Whole>
HWY_NOINLINE void weighBlocks(const WeighRows& given, std::size_t at, std::size_t end) {
    const WeighRows job = given; // a copy stays in registers while samples are written
    const auto rounding = hn::Set(D32(), 1 << (job.shift - sampleFraction - 1));
    for (; at < end; at += blockBytes) {
        if constexpr (halvesAtOnce) {
            weighBlock<Products, Half::both, Whole>(job, at, rounding);
        } else {
            weighBlock<Products, Half::lower, Whole>(job, at, rounding);
            weighBlock<Products, Half::upper, Whole>(job, at, rounding);
        }
    }
}

/// Blocks are whole but the last, and the first where it begins before the row.
template <class Products>
void weighRowsBy(const WeighRows& job) {
    const std::size_t first = job.begin < job.lead ? blockBytes : job.begin;
    const std::size_t last = std::max(first, job.end / blockBytes * blockBytes);
    weighBlocks<Products, false>(job, job.begin, first);
    weighBlocks<Products, true>(job, first, last);
    weighBlocks<Products, false>(job, last, job.end);
}

} // namespace

void weighRowsVector(const WeighRows& job) {
    withProducts([&](auto products) HWY_ATTR { weighRowsBy<decltype(products)>(job); });
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

std::int16_t upperWeight(std::int32_t pair) { return static_cast<std::int16_t>(pair & 0xFFFF); }
std::int16_t lowerWeight(std::int32_t pair) { return static_cast<std::int16_t>(pair >> 16); }

/// The place of a column's sample, counted with the lead.
std::size_t samplePlace(std::size_t column, int row, const WeighRows& job) {
    const std::size_t channels = job.grey ? 1 : 4, pixel = column / channels;
    return pixel / 2 * pairSamples + rowSamples(job, row) + column % channels * 2 + pixel % 2;
}

void weighRowPlain(const WeighRows& job, int row) {
    const int bits = job.shift - sampleFraction;
    const std::size_t begin = job.begin == 0 ? 0 : job.begin - job.lead;
    for (std::size_t column = begin; column < job.end - job.lead; ++column) {
        const std::size_t kept = column * groupRows + row;
        std::int32_t sum = begins(job.part) ? 1 << (bits - 1) : job.sums[kept];
        for (const RowPair* pair = job.pairs; pair->used != 0; ++pair) {
            sum += pair->upper[column] * upperWeight(pair->weights[row]);
            sum += pair->lower[column] * lowerWeight(pair->weights[row]);
        }
        if (ends(job.part))
            job.samples[samplePlace(job.lead + column, row, job)] = static_cast<std::int16_t>(sum >> bits);
        else
            job.sums[kept] = sum;
    }
}

void weighRowsPlain(const WeighRows& job) {
    for (int row = 0; row < groupRows; ++row)
        weighRowPlain(job, row);
}

constexpr std::size_t widestVector = 64;

// Whole blocks of columns are written, as wide as the widest vector.
constexpr std::size_t wholeBlocks(std::size_t bytes) {
    return (bytes + widestVector - 1) / widestVector * widestVector;
}

} // namespace

void weighRows(const WeighRows& job) { PEX_PICK_KERNEL(weighRowsVector, weighRowsPlain)(job); }

std::size_t samplesBytes(int width, PixelLayout layout) {
    const std::size_t bytesPerPair = 2 * std::size_t(bytesPerPixel(layout));
    const std::size_t bytes = (std::size_t(width) + 1) * bytesPerPixel(layout);
    return wholeBlocks(bytes) / bytesPerPair * pairSamples * sizeof(std::int16_t);
}

std::size_t sumsBytes(std::size_t bytes) { return wholeBlocks(bytes) * groupRows * sizeof(std::int32_t); }

} // namespace pex::kernels
#endif
