#include "peximage/platform/raster/kernels/ColorRow.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/ColorRow.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"
#include "peximage/platform/raster/kernels/PixelLanes.h"

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {
namespace {

/// Pixels that are looked up together.
constexpr int blockPixels = 64;

/// The four entries around each pixel's colour, and their weights in pairs of 16 bits.
struct Tetrahedra {
    alignas(64) std::uint32_t entries[4][blockPixels];
    alignas(64) std::uint32_t weights[2][blockPixels];
};

/// Lane by lane, from the places of red, green and blue on their axes.
HWY_INLINE void findTetrahedra(const std::uint32_t (&places)[3][blockPixels], std::uint32_t side,
                               Tetrahedra& found) {
    const Lanes d;
    const Pixels one = hn::Set(d, 1), row = hn::Set(d, side), plane = hn::Set(d, side * side);
    const Pixels opposite = hn::Add(one, hn::Add(row, plane)), lowHalf = hn::Set(d, 0xFFFFu);
    for (std::size_t x = 0; x < blockPixels; x += hn::Lanes(d)) {
        const Pixels red = hn::Load(d, places[0] + x), green = hn::Load(d, places[1] + x),
                     blue = hn::Load(d, places[2] + x);
        const Pixels r = hn::And(red, lowHalf), g = hn::And(green, lowHalf), b = hn::And(blue, lowHalf);
        const Pixels most = hn::Max(r, hn::Max(g, b)), least = hn::Min(r, hn::Min(g, b));
        const Pixels middle = hn::Sub(hn::Add(r, hn::Add(g, b)), hn::Add(most, least));
        const Pixels first =
            hn::IfThenElse(hn::Eq(r, most), one, hn::IfThenElse(hn::Eq(g, most), row, plane));
        const Pixels last =
            hn::IfThenElse(hn::Eq(b, least), plane, hn::IfThenElse(hn::Eq(g, least), row, one));
        const Pixels origin =
            hn::Add(hn::ShiftRight<16>(red), hn::Add(hn::Mul(hn::ShiftRight<16>(green), row),
                                                     hn::Mul(hn::ShiftRight<16>(blue), plane)));
        hn::Store(origin, d, found.entries[0] + x);
        hn::Store(hn::Add(origin, first), d, found.entries[1] + x);
        hn::Store(hn::Add(origin, hn::Sub(opposite, last)), d, found.entries[2] + x);
        hn::Store(hn::Add(origin, opposite), d, found.entries[3] + x);
        const Pixels nearest = hn::Sub(hn::Set(d, 16384), most);
        hn::Store(hn::Or(nearest, hn::ShiftLeft<16>(hn::Sub(most, middle))), d, found.weights[0] + x);
        hn::Store(hn::Or(hn::Sub(middle, least), hn::ShiftLeft<16>(least)), d, found.weights[1] + x);
    }
}

using Channels16 = hn::FixedTag<std::int16_t, 8>;
using Channels32 = hn::FixedTag<std::int32_t, 4>;

/// Two entries of four channels each, channel by channel, times their weights.
HWY_INLINE hn::Vec<Channels32> weighed(const std::int16_t* a, const std::int16_t* b, std::uint32_t weights) {
    const Channels16 d16;
    const Channels32 d32;
    const auto channels = hn::InterleaveLower(d16, hn::LoadU(d16, a), hn::LoadU(d16, b));
    const auto factors = hn::BitCast(d16, hn::Set(hn::FixedTag<std::uint32_t, 4>(), weights));
    auto other = hn::Zero(d32);
    const auto sum = hn::ReorderWidenMulAccumulate(d32, channels, factors, hn::Zero(d32), other);
    return hn::RearrangeToOddPlusEven(sum, other);
}

HWY_INLINE hn::Vec<Channels32> lookedUp(const Tetrahedra& found, const std::int16_t* entries, int x) {
    const auto entry = [&](int i) HWY_ATTR { return entries + std::size_t{4} * found.entries[i][x]; };
    const auto sum = hn::Add(weighed(entry(0), entry(1), found.weights[0][x]),
                             weighed(entry(2), entry(3), found.weights[1][x]));
    return hn::ShiftRight<21>(hn::Add(sum, hn::Set(Channels32(), 1 << 20)));
}

/// Four pixels from x on.
HWY_INLINE void writeFour(const Tetrahedra& found, const std::int16_t* entries, int x, std::uint8_t* rgba) {
    const Channels16 d16;
    const hn::FixedTag<std::uint8_t, 8> half;
    const hn::FixedTag<std::uint8_t, 16> d8;
    const auto two = [&](int at) HWY_ATTR {
        return hn::DemoteTo(
            half, hn::ReorderDemote2To(d16, lookedUp(found, entries, at), lookedUp(found, entries, at + 1)));
    };
    const auto colours = hn::Combine(d8, two(x + 2), two(x));
    const auto alpha = hn::BitCast(d8, hn::Set(hn::FixedTag<std::uint32_t, 4>(), 0xFF000000u));
    hn::StoreU(hn::Or(colours, hn::And(alpha, hn::LoadU(d8, rgba + 4 * x))), d8, rgba + 4 * x);
}

} // namespace

void cube(std::uint8_t* rgba, int pixels, const CubeTables& tables) {
    alignas(64) std::uint32_t places[3][blockPixels] = {};
    Tetrahedra found;
    for (int begin = 0; begin < pixels; begin += blockPixels) {
        const int count = std::min(blockPixels, pixels - begin);
        std::uint8_t rest[blockPixels * 4];
        std::uint8_t* block = rgba + 4 * begin;
        if (count < blockPixels)
            block = static_cast<std::uint8_t*>(std::memcpy(rest, block, std::size_t(count) * 4));
        for (int x = 0; x < count; ++x) {
            places[0][x] = tables.axes[0][block[4 * x]];
            places[1][x] = tables.axes[1][block[4 * x + 1]];
            places[2][x] = tables.axes[2][block[4 * x + 2]];
        }
        findTetrahedra(places, tables.side, found);
        for (int x = 0; x < count; x += 4)
            writeFour(found, tables.entries, x, block);
        if (block == rest) std::memcpy(rgba + 4 * begin, rest, static_cast<std::size_t>(count) * 4);
    }
}

/// Sixteen pieces of the curve, of which each byte's upper half picks one and its lower half the place in it.
void curve(std::uint8_t* rgba, int pixels, const ByteCurve& values) {
    const hn::Repartition<std::uint8_t, Lanes> d8;
    hn::Vec<decltype(d8)> pieces[16];
    for (std::size_t i = 0; i < 16; ++i)
        pieces[i] = hn::LoadDup128(d8, values.data() + 16 * i);
    alongRow<4, 4>(rgba, rgba, pixels, [&](const std::uint8_t* in, std::uint8_t* out) HWY_ATTR {
        const auto bytes = hn::LoadU(d8, in);
        const auto place = hn::And(bytes, hn::Set(d8, 15));
        const auto piece = hn::AndNot(hn::Set(d8, 15), bytes);
        auto result = hn::Zero(d8);
        for (std::size_t i = 0; i < 16; ++i) {
            const auto here = hn::Eq(piece, hn::Set(d8, static_cast<std::uint8_t>(16 * i)));
            result = hn::Or(result, hn::IfThenElseZero(here, hn::TableLookupBytes(pieces[i], place)));
        }
        const Pixels alpha = hn::And(hn::BitCast(Lanes(), bytes), hn::Set(Lanes(), 0xFF000000u));
        const Pixels colours = hn::And(hn::BitCast(Lanes(), result), hn::Set(Lanes(), 0x00FFFFFFu));
        storePixels(hn::Or(colours, alpha), out);
    });
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

void curvePlain(std::uint8_t* rgba, int pixels, const ByteCurve& curve) {
    for (int x = 0; x < pixels; ++x, rgba += 4) {
        for (int c = 0; c < 3; ++c)
            rgba[c] = curve[rgba[c]];
    }
}

/// From one corner of the cell to the opposite one along its edges, the axis furthest along first.
void cubePixel(std::uint8_t* rgba, const CubeTables& cube) {
    struct Axis {
        std::int32_t along;
        std::size_t step;
    };
    std::array<Axis, 3> axes;
    std::size_t entry = 0, step = 1;
    for (std::size_t c = 0; c < 3; ++c, step *= cube.side) {
        const std::uint32_t place = cube.axes[c][rgba[c]];
        axes[c] = {static_cast<std::int32_t>(place & 0xFFFF), step};
        entry += (place >> 16) * step;
    }
    std::ranges::stable_sort(axes, std::ranges::greater(), &Axis::along);
    std::array<std::int32_t, 3> sums{1 << 20, 1 << 20, 1 << 20};
    std::int32_t before = 16384;
    for (std::size_t corner = 0; corner < 4; ++corner) {
        const std::int32_t along = corner < 3 ? axes[corner].along : 0;
        for (std::size_t c = 0; c < 3; ++c)
            sums[c] += (before - along) * cube.entries[entry * 4 + c];
        before = along;
        if (corner < 3) entry += axes[corner].step;
    }
    for (std::size_t c = 0; c < 3; ++c)
        rgba[c] = static_cast<std::uint8_t>(sums[c] >> 21);
}

void cubePlain(std::uint8_t* rgba, int pixels, const CubeTables& cube) {
    for (int x = 0; x < pixels; ++x)
        cubePixel(rgba + 4 * x, cube);
}

} // namespace

void curveRow(std::uint8_t* rgba, int pixels, const ByteCurve& values) {
    PEX_PICK_KERNEL(curve, curvePlain)(rgba, pixels, values);
}

void cubeRow(std::uint8_t* rgba, int pixels, const CubeTables& tables) {
    PEX_PICK_KERNEL(cube, cubePlain)(rgba, pixels, tables);
}

} // namespace pex::kernels
#endif
