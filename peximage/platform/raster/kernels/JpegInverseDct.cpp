#include "peximage/platform/raster/kernels/JpegInverseDct.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/JpegInverseDct.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"
#include "peximage/platform/raster/kernels/JpegBlockRows.h"

#include <algorithm>

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {

HWY_INLINE Wide operator-(const Wide& a, const Wide& b) { return {a.low - b.low, a.high - b.high}; }

/// One pass down the rows; the second pass divides what both have multiplied.
template <bool first>
HWY_INLINE Rows inversePass(const Rows& in) {
    constexpr int bits = first ? constBits - extraBits : constBits + extraBits + 3, one = 1 << constBits;
    const Pair outer(in.row[0] + in.row[4], in.row[0] - in.row[4]), inner(in.row[2], in.row[6]);
    const Wide sum = outer.times(one, 0), difference = outer.times(0, one);
    const Wide wide = inner.times(f0541 + f0765, f0541), narrow = inner.times(f0541, f0541 - f1847);
    const Wide even[4] = {sum + wide, difference + narrow, difference - narrow, sum - wide};

    const Pair z(in.row[7] + in.row[3], in.row[5] + in.row[1]);
    const Wide z3 = z.times(f1175 - f1961, f1175), z4 = z.times(f1175, f1175 - f0390);
    const Pair p71(in.row[7], in.row[1]), p53(in.row[5], in.row[3]);
    const Wide odd[4] = {p71.times(-f0899, f1501 - f0899) + z4, p53.times(-f2562, f3072 - f2562) + z3,
                         p53.times(f2053 - f2562, -f2562) + z4, p71.times(f0298 - f0899, -f0899) + z3};

    Rows out;
    for (int i = 0; i < 4; ++i) {
        out.row[i] = descale<bits>(even[i] + odd[i]);
        out.row[7 - i] = descale<bits>(even[i] - odd[i]);
    }
    return out;
}

/// Samples are counted from the middle grey on.
HWY_INLINE void storeSamples(V16 row, std::uint8_t* samples) {
    const hn::Rebind<std::uint8_t, D16> d8;
    hn::StoreU(hn::DemoteTo(d8, hn::SaturatedAdd(row, hn::Set(D16(), 128))), d8, samples);
}

/// The first coefficient of each block, in all of its lanes.
HWY_INLINE V16 firstOfEach(V16 row) {
    alignas(16) static constexpr std::uint8_t first[16] = {0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1};
    const hn::Repartition<std::uint8_t, D16> d8;
    return hn::BitCast(D16(), hn::TableLookupBytes(hn::BitCast(d8, row), hn::LoadDup128(d8, first)));
}

/// What the transform makes of blocks that have nothing but their first coefficients.
HWY_INLINE V16 flat(V16 firsts) {
    const V16 twice = hn::SaturatedAdd(firsts, firsts);
    const V16 scaled = hn::SaturatedAdd(twice, twice);
    return hn::ShiftRight<extraBits + 3>(hn::SaturatedAdd(scaled, hn::Set(D16(), 16)));
}

/// As many blocks as fit side by side.
HWY_INLINE void inverseBlocks(const std::int16_t* coefficients, const std::int16_t* steps,
                              std::uint8_t* samples, std::ptrdiff_t bytesPerRow) {
    alignas(16) static constexpr std::int16_t behindFirst[8] = {0, -1, -1, -1, -1, -1, -1, -1};
    const D16 d16;
    Rows rows;
    V16 others = hn::Zero(d16);
    for (int y = 0; y < 8; ++y) {
        rows.row[y] = hn::LoadU(d16, coefficients + 8 * blocksOfQuad * y);
        if (y > 0) others = hn::Or(others, rows.row[y]);
    }
    others = hn::Or(others, hn::And(rows.row[0], hn::LoadDup128(d16, behindFirst)));
    rows.row[0] = rows.row[0] * hn::LoadDup128(d16, steps);
    if (hn::AllTrue(d16, others == hn::Zero(d16))) {
        const V16 row = flat(firstOfEach(rows.row[0]));
        for (int y = 0; y < 8; ++y)
            storeSamples(row, samples + y * bytesPerRow);
        return;
    }
    for (int y = 1; y < 8; ++y)
        rows.row[y] = rows.row[y] * hn::LoadDup128(d16, steps + 8 * y);
    const Rows once = inversePass<true>(rows);
    const Rows twice = transpose(inversePass<false>(transpose(once)));
    for (int y = 0; y < 8; ++y)
        storeSamples(twice.row[y], samples + y * bytesPerRow);
}

} // namespace

void inverseDct(const std::int16_t* coefficients, const std::int16_t* steps, int quads, std::uint8_t* samples,
                std::ptrdiff_t bytesPerRow) {
    const int lanes = static_cast<int>(hn::Lanes(D16()));
    for (int q = 0; q < quads; ++q, coefficients += coefficientsOfQuad, samples += 8 * blocksOfQuad) {
        for (int lane = 0; lane < 8 * blocksOfQuad; lane += lanes)
            inverseBlocks(coefficients + lane, steps, samples + lane, bytesPerRow);
    }
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

int saturated(int value) { return std::clamp(value, -32768, 32767); }
/// Vectors add numbers of 16 bits.
int wrapped(int value) { return static_cast<std::int16_t>(value); }

/// One pass over eight values that lie `step` apart.
void inversePassPlain(int* v, int step, int bits) {
    const auto in = [=](int i) { return v[i * step]; };
    const int sum = wrapped(in(0) + in(4)) * (1 << constBits);
    const int difference = wrapped(in(0) - in(4)) * (1 << constBits);
    const int z1 = (in(2) + in(6)) * f0541;
    const int wide = z1 + in(2) * f0765, narrow = z1 - in(6) * f1847;
    const int even[4] = {sum + wide, difference + narrow, difference - narrow, sum - wide};

    const int s73 = wrapped(in(7) + in(3)), s51 = wrapped(in(5) + in(1)), z5 = (s73 + s51) * f1175;
    const int z3 = z5 - s73 * f1961, z4 = z5 - s51 * f0390;
    const int outer = (in(7) + in(1)) * f0899, inner = (in(5) + in(3)) * f2562;
    const int odd[4] = {in(1) * f1501 - outer + z4, in(3) * f3072 - inner + z3, in(5) * f2053 - inner + z4,
                        in(7) * f0298 - outer + z3};
    const auto descaled = [=](int value) { return saturated((value + (1 << (bits - 1))) >> bits); };
    for (int i = 0; i < 4; ++i) {
        v[i * step] = descaled(even[i] + odd[i]);
        v[(7 - i) * step] = descaled(even[i] - odd[i]);
    }
}

void inverseBlockPlain(const std::int16_t* coefficients, const std::int16_t* steps, std::uint8_t* samples,
                       std::ptrdiff_t bytesPerRow) {
    int block[64];
    for (int p = 0; p < 64; ++p)
        block[p] = static_cast<std::int16_t>(coefficients[8 * blocksOfQuad * (p / 8) + p % 8] * steps[p]);
    for (int x = 0; x < 8; ++x)
        inversePassPlain(block + x, 8, constBits - extraBits);
    for (int y = 0; y < 8; ++y)
        inversePassPlain(block + 8 * y, 1, constBits + extraBits + 3);
    for (int p = 0; p < 64; ++p)
        samples[p / 8 * bytesPerRow + p % 8] = static_cast<std::uint8_t>(std::clamp(block[p] + 128, 0, 255));
}

void inverseDctPlain(const std::int16_t* coefficients, const std::int16_t* steps, int quads,
                     std::uint8_t* samples, std::ptrdiff_t bytesPerRow) {
    for (int q = 0; q < quads; ++q, coefficients += coefficientsOfQuad, samples += 8 * blocksOfQuad) {
        for (int b = 0; b < blocksOfQuad; ++b)
            inverseBlockPlain(coefficients + 8 * b, steps, samples + 8 * b, bytesPerRow);
    }
}

} // namespace

void inverseDct(const std::int16_t* coefficients, const std::int16_t* steps, int quads, std::uint8_t* samples,
                std::ptrdiff_t bytesPerRow) {
    PEX_PICK_KERNEL(inverseDct, inverseDctPlain)(coefficients, steps, quads, samples, bytesPerRow);
}

} // namespace pex::kernels
#endif
