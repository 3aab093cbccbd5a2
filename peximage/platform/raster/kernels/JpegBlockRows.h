// Once for every instruction set: see Dispatch.h, which has to come first. What the cosine transforms of both
// directions need.
#ifndef PEX_JPEG_TRANSFORM_NUMBERS
#define PEX_JPEG_TRANSFORM_NUMBERS
namespace pex::kernels {

/// Multipliers of the transform, times 2^13 (names tell the decimals).
inline constexpr int f0298 = 2446, f0390 = 3196, f0541 = 4433, f0765 = 6270, f0899 = 7373, f1175 = 9633,
                     f1501 = 12299, f1847 = 15137, f1961 = 16069, f2053 = 16819, f2562 = 20995, f3072 = 25172;
/// The first pass keeps two more bits than its result needs, the second rounds them away.
inline constexpr int constBits = 13, extraBits = 2;

} // namespace pex::kernels
#endif

#include "peximage/platform/raster/kernels/PairProducts.h"

#if defined(PEX_JPEG_BLOCK_ROWS_H) == defined(HWY_TARGET_TOGGLE)
#ifdef PEX_JPEG_BLOCK_ROWS_H
#undef PEX_JPEG_BLOCK_ROWS_H
#else
#define PEX_JPEG_BLOCK_ROWS_H
#endif

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {

/// Eight rows of as many blocks as fit side by side, one block in each 128 bits.
struct Rows {
    HWY_INLINE Rows() {} // an implicit one is not compiled for the instruction set, which gcc minds on ARM

    V16 row[8];
};

/// Interleaves lanes of type `T` of rows `Apart` from each other: one of the three steps of a transposition.
template <class T>
HWY_INLINE void zip(V16 a, V16 b, V16& low, V16& high) {
    const hn::Repartition<T, D16> d;
    low = hn::BitCast(D16(), hn::InterleaveLower(d, hn::BitCast(d, a), hn::BitCast(d, b)));
    high = hn::BitCast(D16(), hn::InterleaveUpper(d, hn::BitCast(d, a), hn::BitCast(d, b)));
}

HWY_INLINE Rows transpose(const Rows& in) {
    Rows a, b, out;
    for (int i = 0; i < 4; ++i)
        zip<std::int16_t>(in.row[2 * i], in.row[2 * i + 1], a.row[2 * i], a.row[2 * i + 1]);
    for (int half = 0; half < 8; half += 4)
        for (int i = 0; i < 2; ++i)
            zip<std::int32_t>(a.row[half + i], a.row[half + 2 + i], b.row[half + 2 * i],
                              b.row[half + 2 * i + 1]);
    for (int i = 0; i < 4; ++i)
        zip<std::int64_t>(b.row[i], b.row[4 + i], out.row[2 * i], out.row[2 * i + 1]);
    return out;
}

/// A sum of products in 32 bits, in two halves of the lanes.
struct Wide {
    V32 low, high;

    HWY_INLINE Wide operator+(const Wide& o) const { return {low + o.low, high + o.high}; }
};

/// Two rows, their lanes interleaved for products of pairs.
struct Pair {
    V16 low, high;

    HWY_INLINE Pair(V16 a, V16 b) { zip<std::int16_t>(a, b, low, high); }
    HWY_INLINE Wide times(int first, int second) const {
        const V16 factors = pairOf(static_cast<std::int16_t>(first), static_cast<std::int16_t>(second));
        return {pairProducts(low, factors), pairProducts(high, factors)};
    }
};

template <int bits>
HWY_INLINE V16 descale(const Wide& sum) {
    const hn::Repartition<std::int32_t, D16> d32;
    const V32 half = hn::Set(d32, 1 << (bits - 1));
    return hn::ReorderDemote2To(D16(), hn::ShiftRight<bits>(sum.low + half),
                                hn::ShiftRight<bits>(sum.high + half));
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif
#endif
