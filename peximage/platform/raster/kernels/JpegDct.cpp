#include "peximage/platform/raster/kernels/JpegDct.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/JpegDct.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"
#include "peximage/platform/raster/kernels/JpegBlockRows.h"

#include <algorithm>
#include <cstring>

#ifndef PEX_JPEG_DCT_SHARED
#define PEX_JPEG_DCT_SHARED
namespace pex::kernels {
namespace {

/// Byte shuffles that gather eight coefficients in zigzag order: [which eight][from which row of the block].
struct ZigzagShuffles {
    alignas(16) std::uint8_t bytes[8][8][16];
    int firstRow[8], lastRow[8];
};

constexpr ZigzagShuffles zigzagShuffles = [] {
    ZigzagShuffles s{};
    for (int o = 0; o < 8; ++o) {
        s.firstRow[o] = 7;
        for (int r = 0; r < 8; ++r) {
            for (int i = 0; i < 8; ++i) {
                const int from = zigzag[static_cast<std::size_t>(8 * o + i)];
                const bool here = from / 8 == r;
                if (here && r < s.firstRow[o]) s.firstRow[o] = r;
                if (here && r > s.lastRow[o]) s.lastRow[o] = r;
                s.bytes[o][r][2 * i] = static_cast<std::uint8_t>(here ? from % 8 * 2 : 128);
                s.bytes[o][r][2 * i + 1] = static_cast<std::uint8_t>(here ? from % 8 * 2 + 1 : 128);
            }
        }
    }
    return s;
}();

} // namespace
} // namespace pex::kernels
#endif

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {

using D8 = hn::Rebind<std::uint8_t, D16>;

HWY_INLINE Rows load(const std::uint8_t* samples, std::ptrdiff_t bytesPerRow) {
    Rows rows;
    for (int y = 0; y < 8; ++y)
        rows.row[y] = hn::PromoteTo(D16(), hn::LoadU(D8(), samples + y * bytesPerRow)) - hn::Set(D16(), 128);
    return rows;
}

/// One pass down the rows; the second pass divides what the first has multiplied.
template <bool first>
HWY_INLINE Rows pass(const Rows& in) {
    constexpr int bits = first ? constBits - extraBits : constBits + extraBits;
    const V16 t0 = in.row[0] + in.row[7], t7 = in.row[0] - in.row[7];
    const V16 t1 = in.row[1] + in.row[6], t6 = in.row[1] - in.row[6];
    const V16 t2 = in.row[2] + in.row[5], t5 = in.row[2] - in.row[5];
    const V16 t3 = in.row[3] + in.row[4], t4 = in.row[3] - in.row[4];
    const V16 t10 = t0 + t3, t13 = t0 - t3, t11 = t1 + t2, t12 = t1 - t2;

    Rows out;
    if constexpr (first) {
        out.row[0] = hn::ShiftLeft<extraBits>(t10 + t11);
        out.row[4] = hn::ShiftLeft<extraBits>(t10 - t11);
    } else {
        const V16 half = hn::Set(D16(), 1 << (extraBits - 1));
        out.row[0] = hn::ShiftRight<extraBits>(t10 + t11 + half);
        out.row[4] = hn::ShiftRight<extraBits>(t10 - t11 + half);
    }
    const Pair even(t12, t13);
    out.row[2] = descale<bits>(even.times(f0541, f0541 + f0765));
    out.row[6] = descale<bits>(even.times(f0541 - f1847, f0541));

    const Pair z(t4 + t6, t5 + t7), outer(t4, t7), inner(t5, t6);
    const Wide z3 = z.times(f1175 - f1961, f1175), z4 = z.times(f1175, f1175 - f0390);
    out.row[7] = descale<bits>(outer.times(f0298 - f0899, -f0899) + z3);
    out.row[5] = descale<bits>(inner.times(f2053 - f2562, -f2562) + z4);
    out.row[3] = descale<bits>(inner.times(-f2562, f3072 - f2562) + z3);
    out.row[1] = descale<bits>(outer.times(-f0899, f1501 - f0899) + z4);
    return out;
}

HWY_INLINE V16 zigzagEight(const Rows& rows, int o) {
    const hn::Repartition<std::uint8_t, D16> d8;
    V16 eight = hn::Zero(D16());
    for (int r = zigzagShuffles.firstRow[o]; r <= zigzagShuffles.lastRow[o]; ++r) {
        const auto shuffle = hn::LoadDup128(d8, zigzagShuffles.bytes[o][r]);
        const auto bytes = hn::TableLookupBytesOr0(hn::BitCast(d8, rows.row[r]), shuffle);
        eight = hn::Or(eight, hn::BitCast(D16(), bytes));
    }
    return eight;
}

} // namespace

void forwardDct(const std::uint8_t* samples, std::ptrdiff_t bytesPerRow, int blocks,
                std::int16_t* coefficients) {
    const int atOnce = static_cast<int>(hn::Lanes(D16())) / 8;
    alignas(HWY_MAX_BYTES) std::int16_t eights[8][HWY_MAX_BYTES / 2];
    for (int b = 0; b < blocks; b += atOnce) {
        const Rows once = pass<true>(transpose(load(samples + 8 * b, bytesPerRow)));
        const Rows rows = pass<false>(transpose(once));
        for (int o = 0; o < 8; ++o)
            hn::Store(zigzagEight(rows, o), D16(), eights[o]);
        for (int i = 0; i < std::min(atOnce, blocks - b); ++i)
            for (int o = 0; o < 8; ++o)
                std::memcpy(coefficients + 64 * (b + i) + 8 * o, eights[o] + 8 * i, 16);
    }
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

int descalePlain(int value, int bits) { return (value + (1 << (bits - 1))) >> bits; }

/// One pass over eight values that lie `step` apart.
void passPlain(int* v, int step, bool first) {
    const int bits = first ? constBits - extraBits : constBits + extraBits;
    int s[4], t[4];
    for (int i = 0; i < 4; ++i) {
        s[i] = v[i * step] + v[(7 - i) * step];
        t[i] = v[i * step] - v[(7 - i) * step];
    }
    const int t10 = s[0] + s[3], t13 = s[0] - s[3], t11 = s[1] + s[2], t12 = s[1] - s[2];
    v[0] = first ? (t10 + t11) * (1 << extraBits) : descalePlain(t10 + t11, extraBits);
    v[4 * step] = first ? (t10 - t11) * (1 << extraBits) : descalePlain(t10 - t11, extraBits);
    const int z1 = (t12 + t13) * f0541;
    v[2 * step] = descalePlain(z1 + t13 * f0765, bits);
    v[6 * step] = descalePlain(z1 - t12 * f1847, bits);

    const int z5 = (t[3] + t[1] + t[2] + t[0]) * f1175;
    const int z3 = z5 - (t[3] + t[1]) * f1961, z4 = z5 - (t[2] + t[0]) * f0390;
    const int outer = (t[3] + t[0]) * f0899, inner = (t[2] + t[1]) * f2562;
    v[7 * step] = descalePlain(t[3] * f0298 - outer + z3, bits);
    v[5 * step] = descalePlain(t[2] * f2053 - inner + z4, bits);
    v[3 * step] = descalePlain(t[1] * f3072 - inner + z3, bits);
    v[1 * step] = descalePlain(t[0] * f1501 - outer + z4, bits);
}

void forwardDctPlain(const std::uint8_t* samples, std::ptrdiff_t bytesPerRow, int blocks,
                     std::int16_t* coefficients) {
    for (int b = 0; b < blocks; ++b, samples += 8, coefficients += 64) {
        int block[64];
        for (int i = 0; i < 64; ++i)
            block[i] = samples[i / 8 * bytesPerRow + i % 8] - 128;
        for (int y = 0; y < 8; ++y)
            passPlain(block + 8 * y, 1, true);
        for (int x = 0; x < 8; ++x)
            passPlain(block + x, 8, false);
        for (std::size_t k = 0; k < 64; ++k)
            coefficients[k] = static_cast<std::int16_t>(block[zigzag[k]]);
    }
}

} // namespace

void forwardDct(const std::uint8_t* samples, std::ptrdiff_t bytesPerRow, int blocks,
                std::int16_t* coefficients) {
    PEX_PICK_KERNEL(forwardDct, forwardDctPlain)(samples, bytesPerRow, blocks, coefficients);
}

} // namespace pex::kernels
#endif
