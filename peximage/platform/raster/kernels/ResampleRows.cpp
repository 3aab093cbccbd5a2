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
constexpr std::size_t prefetchBytes = 256;

inline std::int32_t pairAt(const std::int16_t* weights) {
    std::int32_t pair;
    std::memcpy(&pair, weights, sizeof(pair));
    return pair;
}

inline bool begins(Sums part) { return part == Sums::wholeWindow || part == Sums::begin; }
inline bool ends(Sums part) { return part == Sums::wholeWindow || part == Sums::finish; }

/// Where the samples of a pair of pixels begin, and those of one row among them.
constexpr std::size_t pairSamples = 8 * groupRows;
inline std::size_t rowSamples(const WeighRows& job, int row) {
    return job.grey ? std::size_t{2} * (job.quarter * groupRows + row) : std::size_t{8} * row;
}

void weighColumnsPlain(const WeighColumns& job);

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

constexpr int rowsOfVector = HWY_LANES(std::uint8_t) / 16;
constexpr int vectorsOfGroup = groupRows / rowsOfVector;
constexpr std::size_t blockBytes = HWY_LANES(std::uint8_t);
constexpr std::size_t words = HWY_LANES(std::int32_t);
constexpr std::size_t halves = HWY_LANES(std::int16_t);

/// sum + low * low + high * high of the 16-bit halves.
struct TwoSteps {
    static HWY_INLINE V32 addProducts(V32 sum, V16 a, V16 b) {
        auto other = hn::Zero(D32());
        const auto products = hn::ReorderWidenMulAccumulate(D32(), a, b, hn::Zero(D32()), other);
        return hn::Add(sum, hn::RearrangeToOddPlusEven(products, other));
    }
};

#if HWY_TARGET == HWY_AVX3
/// The same by an instruction that processors with AVX-512 may have and compilers do not count to it.
struct OneStep {
    static HWY_INLINE V32 addProducts(V32 sum, V16 a, V16 b) {
        asm("vpdpwssd %2, %1, %0" : "+v"(sum.raw) : "v"(a.raw), "v"(b.raw));
        return sum;
    }
};
#endif

HWY_INLINE V16 pairOf(std::int32_t weights) { return hn::BitCast(D16(), hn::Set(D32(), weights)); }

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
            hwy::Prefetch(pair->upper + begin + prefetchBytes);
            hwy::Prefetch(pair->lower + begin + prefetchBytes);
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

/// As many rows of a group as are summed up together, in one vector or two.
constexpr int vectorsAtOnce = std::min(2, vectorsOfGroup);
struct ColumnSums {
    V32 a, b;
};

/// The sums of two neighbouring columns; for more at a time, compilers would not keep them in registers.
struct TwoColumns {
    ColumnSums left, right;
};

HWY_INLINE ColumnSums loadSamples(const std::int16_t* samples) {
    const D16 d;
    const auto a = hn::BitCast(D32(), hn::Load(d, samples));
    if constexpr (vectorsAtOnce == 1) return {a, a};
    return {a, hn::BitCast(D32(), hn::Load(d, samples + halves))};
}

template <class Products>
HWY_INLINE void addPair(ColumnSums& sums, const ColumnSums& samples, const std::int16_t* weights) {
    const D16 d;
    const auto pair = pairOf(pairAt(weights));
    sums.a = Products::addProducts(sums.a, hn::BitCast(d, samples.a), pair);
    if constexpr (vectorsAtOnce > 1) sums.b = Products::addProducts(sums.b, hn::BitCast(d, samples.b), pair);
}

/// Adds `count` pairs of the windows of the columns x and x + 1, from the pair `begin` of each on. `InTwos`:
/// both take the same samples.
template <class Products, bool InTwos>
HWY_INLINE void addPairs(TwoColumns& sums, const WeighColumns& job, int x, int vector, int begin, int count) {
    const std::int16_t* const samples = job.samples + vector * halves + begin * pairSamples;
    const std::int16_t* left = samples + job.firstPair[x] * pairSamples;
    const std::int16_t* right = samples + job.firstPair[x + 1] * pairSamples;
    const std::size_t step = std::size_t{2} * job.pairs;
    const std::int16_t* weights = job.weights + x * step + 2 * begin;
    for (int k = 0; k < count; ++k, left += pairSamples, right += pairSamples, weights += 2) {
        const auto window = loadSamples(left);
        addPair<Products>(sums.left, window, weights);
        addPair<Products>(sums.right, InTwos ? window : loadSamples(right), weights + step);
    }
}

HWY_INLINE void addShifted(ColumnSums& sums, const ColumnSums& part, int bits) {
    sums.a = hn::Add(sums.a, hn::ShiftRightSame(part.a, bits));
    sums.b = hn::Add(sums.b, hn::ShiftRightSame(part.b, bits));
}

/// The sums of the columns x and x + 1, not yet rounded.
template <class Products, bool InTwos, bool Drained>
HWY_INLINE TwoColumns weighTwo(const WeighColumns& job, int x, int vector, V32 half) {
    TwoColumns sums{{half, half}, {half, half}};
    if constexpr (!Drained) {
        addPairs<Products, InTwos>(sums, job, x, vector, 0, job.pairs);
    } else {
        const int bits = job.shift - mostColumnBits;
        const auto none = hn::Zero(D32());
        for (int p = 0; p < job.pairs; p += drainPairs) {
            TwoColumns part{{none, none}, {none, none}};
            addPairs<Products, InTwos>(part, job, x, vector, p, std::min(drainPairs, job.pairs - p));
            addShifted(sums.left, part.left, bits);
            addShifted(sums.right, part.right, bits);
        }
    }
    return sums;
}

/// Within each 16 bytes those of a and then those of b, limited to 0 to 255.
HWY_INLINE V8 packBytes(V16 a, V16 b) {
#if HWY_TARGET == HWY_SSE4
    return V8{_mm_packus_epi16(a.raw, b.raw)};
#elif HWY_TARGET == HWY_AVX2
    return V8{_mm256_packus_epi16(a.raw, b.raw)};
#elif HWY_TARGET == HWY_AVX3
    return V8{_mm512_packus_epi16(a.raw, b.raw)};
#else
    const hn::Half<D8> half;
    return hn::Combine(D8(), hn::DemoteTo(half, b), hn::DemoteTo(half, a));
#endif
}

HWY_INLINE V16 roundedPair(V32 left, V32 right, int bits) {
    return hn::ReorderDemote2To(D16(), hn::ShiftRightSame(left, bits), hn::ShiftRightSame(right, bits));
}

/// What follows the filter: colour at most alpha, or alpha opaque.
class AlphaRule {
  public:
    explicit AlphaRule(PixelLayout layout) : limits_(hasAlpha(layout)) {
        HWY_ALIGN static constexpr std::uint8_t first[16] = {0, 0, 0, 0, 4,  4,  4,  4,
                                                             8, 8, 8, 8, 12, 12, 12, 12};
        HWY_ALIGN static constexpr std::uint8_t last[16] = {3,  3,  3,  3,  7,  7,  7,  7,
                                                            11, 11, 11, 11, 15, 15, 15, 15};
        places_ = hn::LoadDup128(D8(), isAlphaFirst(layout) ? first : last);
        const std::uint32_t alpha = isAlphaFirst(layout) ? 0x000000FFu : 0xFF000000u;
        opaque_ = hn::BitCast(D8(), hn::Set(hn::Repartition<std::uint32_t, D8>(), alpha));
    }
    HWY_INLINE V8 apply(V8 pixels) const {
        return limits_ ? hn::Min(pixels, hn::TableLookupBytes(pixels, places_)) : hn::Or(pixels, opaque_);
    }

  private:
    bool limits_;
    V8 places_;
    V8 opaque_;
};

/// Writes the four columns from `x` on of the rows from `row` on, which lie in the lanes of a vector.
template <class D>
HWY_INLINE void placeColumns(D d, hn::VFromD<D> pixels, const WeighColumns& job, int x, int row) {
    if constexpr (hn::MaxLanes(D()) == 16) {
        if (row < job.rowCount) hn::StoreU(pixels, d, job.rows[row] + 4 * std::size_t(x));
    } else {
        const hn::Half<D> half;
        placeColumns(half, hn::LowerHalf(half, pixels), job, x, row);
        placeColumns(half, hn::UpperHalf(half, pixels), job, x, row + int(hn::MaxLanes(half) / 16));
    }
}

/// Each four bytes hold one column of four rows.
HWY_INLINE void placeGrey(V8 pixels, const WeighColumns& job, int x, int row) {
    HWY_ALIGN static constexpr std::uint8_t rowsFirst[16] = {0, 4, 8,  12, 1, 5, 9,  13,
                                                             2, 6, 10, 14, 3, 7, 11, 15};
    HWY_ALIGN std::uint8_t columns[blockBytes];
    hn::Store(hn::TableLookupBytes(pixels, hn::LoadDup128(D8(), rowsFirst)), D8(), columns);
    const int end = std::min(row + 4 * rowsOfVector, job.rowCount);
    for (const std::uint8_t* from = columns; row < end; ++row, from += 4)
        std::memcpy(job.rows[row] + x, from, 4);
}

/// What becomes of the sums of four columns.
class ColumnWriter {
  public:
    ColumnWriter(const WeighColumns& job, int bits)
        : job_(job), bits_(bits), grey_(job.layout == PixelLayout::grey), alpha_(job.layout) {}

    /// Packing leaves each row's four pixels side by side.
    HWY_INLINE void write(V32 first, V32 second, V32 third, V32 fourth, int x, int vector) const {
        const auto pixels = packBytes(roundedPair(first, second, bits_), roundedPair(third, fourth, bits_));
        if (grey_)
            placeGrey(pixels, job_, x, 4 * vector * rowsOfVector);
        else
            placeColumns(D8(), alpha_.apply(pixels), job_, x, vector * rowsOfVector);
    }

  private:
    const WeighColumns& job_;
    int bits_;
    bool grey_;
    AlphaRule alpha_;
};

template <class Products, bool InTwos, bool Drained>
HWY_INLINE void weighColumnsAt(const WeighColumns& job, int x, const ColumnWriter& writer, V32 half) {
    for (int v = 0; v < vectorsOfGroup; v += vectorsAtOnce) {
        const auto first = weighTwo<Products, InTwos, Drained>(job, x, v, half);
        const auto second = weighTwo<Products, InTwos, Drained>(job, x + 2, v, half);
        writer.write(first.left.a, first.right.a, second.left.a, second.right.a, x, v);
        if constexpr (vectorsAtOnce > 1)
            writer.write(first.left.b, first.right.b, second.left.b, second.right.b, x, v + 1);
    }
}

template <class Products, bool InTwos, bool Drained>
void weighColumnsOf(const WeighColumns& given) {
    const WeighColumns job = given; // a copy stays in registers while rows are written
    const int bits = sampleFraction + (Drained ? mostColumnBits : job.shift);
    const auto half = hn::Set(D32(), 1 << (bits - 1));
    const ColumnWriter writer(job, bits);
    const int whole = job.width / 4 * 4;
    for (int x = 0; x < whole; x += 4)
        weighColumnsAt<Products, InTwos, Drained>(job, x, writer, half);
    // The last four may have been made in part already.
    if (whole < job.width) weighColumnsAt<Products, false, Drained>(job, job.width - 4, writer, half);
}

template <class Products>
void weighColumnsBy(const WeighColumns& job) {
    const bool drained = job.shift > mostColumnBits;
    if (job.inTwos)
        drained ? weighColumnsOf<Products, true, true>(job) : weighColumnsOf<Products, true, false>(job);
    else
        drained ? weighColumnsOf<Products, false, true>(job) : weighColumnsOf<Products, false, false>(job);
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
#if HWY_TARGET == HWY_AVX3
    if (instructionSet() == InstructionSet::avx512Vnni) return weighRowsBy<OneStep>(job);
#endif
    weighRowsBy<TwoSteps>(job);
}

void weighColumnsVector(const WeighColumns& job) {
    if (job.width < 4) return weighColumnsPlain(job);
#if HWY_TARGET == HWY_AVX3
    if (instructionSet() == InstructionSet::avx512Vnni) return weighColumnsBy<OneStep>(job);
#endif
    weighColumnsBy<TwoSteps>(job);
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

/// One sample of one column, 0 to 255; `place` is its place in a pair of pixels.
std::uint8_t weighColumn(const WeighColumns& job, int x, int place) {
    const int drainBits = std::max(0, job.shift - mostColumnBits);
    const int bits = sampleFraction + job.shift - drainBits;
    const std::int16_t* samples = job.samples + job.firstPair[x] * pairSamples + 2 * place;
    const std::int16_t* weights = job.weights + std::size_t{2} * x * job.pairs;
    std::int64_t sum = std::int64_t{1} << (bits - 1);
    for (int p = 0; p < job.pairs; p += drainPairs) {
        std::int64_t part = 0;
        for (int k = p; k < std::min(p + drainPairs, job.pairs); ++k) {
            const std::int16_t* pair = samples + k * pairSamples;
            part += pair[0] * weights[2 * k] + std::int64_t{pair[1]} * weights[2 * k + 1];
        }
        sum += part >> drainBits;
    }
    return static_cast<std::uint8_t>(std::clamp<std::int64_t>(sum >> bits, 0, 255));
}

constexpr std::size_t widestVector = 64;

// Whole blocks of columns are written, as wide as the widest vector.
constexpr std::size_t wholeBlocks(std::size_t bytes) {
    return (bytes + widestVector - 1) / widestVector * widestVector;
}

} // namespace

void weighColumnsPlain(const WeighColumns& job) {
    const bool grey = job.layout == PixelLayout::grey;
    const int alphaPlace = isAlphaFirst(job.layout) ? 0 : 3;
    for (int row = 0; row < job.rowCount; ++row) {
        for (int x = 0; x < job.width; ++x) {
            if (grey) {
                job.rows[row][x] = weighColumn(job, x, row);
                continue;
            }
            std::uint8_t pixel[4];
            for (int c = 0; c < 4; ++c)
                pixel[c] = weighColumn(job, x, 4 * row + c);
            if (!hasAlpha(job.layout)) pixel[alphaPlace] = 255;
            for (int c = 0; c < 4; ++c)
                job.rows[row][4 * std::size_t(x) + c] = std::min(pixel[c], pixel[alphaPlace]);
        }
    }
}

void weighRows(const WeighRows& job) { PEX_PICK_KERNEL(weighRowsVector, weighRowsPlain)(job); }

void weighColumns(const WeighColumns& job) { PEX_PICK_KERNEL(weighColumnsVector, weighColumnsPlain)(job); }

std::size_t samplesBytes(int width, PixelLayout layout) {
    const std::size_t bytesPerPair = 2 * std::size_t(bytesPerPixel(layout));
    const std::size_t bytes = (std::size_t(width) + 1) * bytesPerPixel(layout);
    return wholeBlocks(bytes) / bytesPerPair * pairSamples * sizeof(std::int16_t);
}

std::size_t sumsBytes(std::size_t bytes) { return wholeBlocks(bytes) * groupRows * sizeof(std::int32_t); }

} // namespace pex::kernels
#endif
