#include "peximage/platform/raster/kernels/WeighColumns.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/WeighColumns.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"
#include "peximage/platform/raster/kernels/PairProducts.h"

#ifndef PEX_WEIGH_COLUMNS
#define PEX_WEIGH_COLUMNS
namespace pex::kernels {

/// Past this many fraction bits of the weights a sum of all columns could overflow: partial sums of
/// `drainPairs` pairs are then cut to it before they are added up.
constexpr int mostColumnBits = 16;
constexpr int drainPairs = 4;

/// Two neighbouring weights.
inline std::int32_t pairAt(const std::int16_t* weights) {
    std::int32_t pair;
    std::memcpy(&pair, weights, sizeof(pair));
    return pair;
}

void weighColumnsPlain(const WeighColumns& job);

} // namespace pex::kernels
#endif

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {

using D8 = hn::ScalableTag<std::uint8_t>;
using D32 = hn::ScalableTag<std::int32_t>;
using V8 = hn::VFromD<D8>;

constexpr int rowsOfVector = HWY_LANES(std::uint8_t) / 16;
constexpr int vectorsOfGroup = groupRows / rowsOfVector;
constexpr std::size_t blockBytes = HWY_LANES(std::uint8_t);
constexpr std::size_t halves = HWY_LANES(std::int16_t);

/// As many rows of a group as are summed up together, in one vector or two.
constexpr int vectorsAtOnce = std::min(2, vectorsOfGroup);
struct ColumnSums {
    V32 a, b;
};

/// The sums of two neighbouring columns; for more at a time, compilers would not keep them in registers.
struct TwoColumns {
    ColumnSums left, right;
};

struct ColumnSamples {
    V16 a, b;
};

HWY_INLINE ColumnSamples loadSamples(const std::int16_t* from) {
    const D16 d;
    const auto a = hn::Load(d, from);
    if constexpr (vectorsAtOnce == 1) return {a, a};
    return {a, hn::Load(d, from + halves)};
}

template <class Products>
HWY_INLINE void addPair(ColumnSums& sums, const ColumnSamples& samples, const std::int16_t* weights) {
    const auto pair = pairOf(pairAt(weights));
    sums.a = Products::addProducts(sums.a, samples.a, pair);
    if constexpr (vectorsAtOnce > 1) sums.b = Products::addProducts(sums.b, samples.b, pair);
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

} // namespace

void weighColumnsVector(const WeighColumns& job) {
    if (job.width < 4) return weighColumnsPlain(job);
    withProducts([&](auto products) HWY_ATTR { weighColumnsBy<decltype(products)>(job); });
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

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

void weighColumns(const WeighColumns& job) { PEX_PICK_KERNEL(weighColumnsVector, weighColumnsPlain)(job); }

} // namespace pex::kernels
#endif
