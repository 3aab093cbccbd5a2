#include "peximage/platform/raster/kernels/ColorRow.h"
#include "peximage/platform/raster/kernels/ConvolveRow.h"
#include "peximage/platform/raster/kernels/SharpenRow.h"
#include "tests/platform/raster/kernels/EveryInstructionSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace pex::kernels {
namespace {

double rounded255(double v) { return std::clamp(std::floor(v + 0.5), 0.0, 255.0); }

TEST(ConvolveRow, SumsThirdsAndNothingBeyond) {
    const std::array<std::int16_t, 9> kernels[] = {
        {0, 0, 0, 0, 3, 0, 0, 0, 0},
        {1, 1, 1, 1, 1, 1, 1, 1, 1},
        {-1, 2, -3, 4, -5, 6, -7, 8, -9},
        {32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767},
        {-32768, -32768, -32768, -32768, 1, 1, 1, 1, 32767}};
    for (const auto& kernel : kernels) {
        for (int pixels = 1; pixels < 40; ++pixels) {
            const auto length = static_cast<std::size_t>(pixels + 2) * 4 + rowSlack;
            const Bytes rows[] = {randomBytes(length, 1), randomBytes(length, 2), randomBytes(length, 3)};
            Bytes wanted(static_cast<std::size_t>(pixels) * 4 + 8, 77);
            for (std::size_t i = 0; i < static_cast<std::size_t>(pixels) * 4; ++i) {
                double sum = 0;
                for (std::size_t tap = 0; tap < 9; ++tap)
                    sum += rows[tap / 3][i + tap % 3 * 4] * static_cast<double>(kernel[tap]);
                wanted[i] = static_cast<std::uint8_t>(rounded255(sum / 3));
            }
            onEveryInstructionSet([&] {
                Bytes result(wanted.size(), 77);
                convolveRow({rows[0].data(), rows[1].data(), rows[2].data()}, kernel, result.data(), pixels);
                EXPECT_EQ(result, wanted) << pixels;
            });
        }
    }
}

TEST(CurveRow, EveryByteAndAlphaStays) {
    ByteCurve curve{};
    for (std::size_t i = 0; i < 256; ++i)
        curve[i] = static_cast<std::uint8_t>(i * 7 + 3);
    for (const int pixels : {1, 3, 16, 67, 256}) {
        const Bytes from = randomBytes(static_cast<std::size_t>(pixels) * 4, 5);
        Bytes wanted = from;
        for (std::size_t i = 0; i < wanted.size(); ++i)
            if (i % 4 != 3) wanted[i] = curve[from[i]];
        onEveryInstructionSet([&] {
            Bytes result = from;
            curveRow(result.data(), pixels, curve);
            EXPECT_EQ(result, wanted);
        });
    }
}

/// Tetrahedral interpolation in doubles: from the cell's origin along its edges, the axis furthest along
/// first.
double interpolated(const std::vector<std::int16_t>& entries, std::size_t side, const std::uint8_t* rgb,
                    std::size_t channel) {
    std::array<std::pair<double, std::size_t>, 3> axes;
    std::size_t at = 0, step = 1;
    for (std::size_t c = 0; c < 3; ++c, step *= side) {
        const double place = rgb[c] * static_cast<double>(side - 1) / 255;
        const auto below = std::min(static_cast<std::size_t>(place), side - 2);
        axes[c] = {place - static_cast<double>(below), step};
        at += below * step;
    }
    std::sort(axes.rbegin(), axes.rend());
    double value = entries[at * 4 + channel] / 128.0;
    for (const auto& [along, width] : axes) {
        value += along * (entries[(at + width) * 4 + channel] - entries[at * 4 + channel]) / 128.0;
        at += width;
    }
    return value;
}

TEST(CubeRow, InterpolatesInTetrahedra) {
    std::mt19937 random(9);
    for (const std::size_t side : {2u, 3u, 17u, 33u, 128u}) {
        SCOPED_TRACE(side);
        std::vector<std::int16_t> entries((side * side * side + 1) * 4);
        for (std::size_t i = 0; i + 4 < entries.size(); ++i)
            entries[i] = i % 4 == 3 ? std::int16_t{0} : static_cast<std::int16_t>(random() % 32641);
        CubeTables cube{entries.data(), static_cast<std::uint32_t>(side), {}};
        for (auto& axis : cube.axes) {
            for (std::size_t byte = 0; byte < 256; ++byte) {
                const double at = static_cast<double>(byte * (side - 1)) / 255;
                const double below = std::min(std::floor(at), static_cast<double>(side) - 2);
                axis[byte] = static_cast<std::uint32_t>(below) << 16 |
                             static_cast<std::uint32_t>(std::lround((at - below) * 16384));
            }
        }
        Bytes from = randomBytes(4 * 3000, 4);
        for (std::size_t i = 0; i < 256; ++i) // greys, where the three are equally far along
            std::fill_n(from.begin() + static_cast<std::ptrdiff_t>(4 * i), 4, static_cast<std::uint8_t>(i));
        Bytes plain;
        onEveryInstructionSet([&] {
            Bytes result = from;
            cubeRow(result.data(), 3000, cube);
            if (plain.empty()) plain = result;
            EXPECT_TRUE(result == plain);
            for (const int pixels : {1, 2, 63, 64, 65}) { // and nothing beyond the end
                Bytes part = from;
                cubeRow(part.data(), pixels, cube);
                EXPECT_TRUE(std::equal(part.begin(), part.begin() + 4 * pixels, plain.begin()));
                EXPECT_TRUE(std::equal(part.begin() + 4 * pixels, part.end(), from.begin() + 4 * pixels));
            }
        });
        double largest = 0;
        for (std::size_t i = 0; i < from.size(); i += 4) {
            EXPECT_EQ(plain[i + 3], from[i + 3]);
            for (std::size_t c = 0; c < 3; ++c)
                largest =
                    std::max(largest, std::abs(plain[i + c] - interpolated(entries, side, &from[i], c)));
        }
        EXPECT_LE(largest, 0.52);
    }
}

TEST(SharpenRow, SameBytesOnEveryInstructionSet) {
    constexpr int pixels = 83;
    constexpr std::size_t room = pixels + 32;
    std::vector<Bytes> rows;
    for (unsigned i = 0; i < 5; ++i)
        rows.push_back(randomBytes(room * 4, i + 1));
    for (const double sharpness : {0.0, 0.4, -1.5, 7.0, 64.0}) {
        Bytes plain;
        onEveryInstructionSet([&] {
            std::vector<std::vector<std::uint16_t>> lumas(5, std::vector<std::uint16_t>(room + 32));
            std::vector<std::vector<std::uint32_t>> blurred(5, std::vector<std::uint32_t>(room));
            BlurredRows around{};
            for (std::size_t i = 0; i < 5; ++i) {
                lumaRow(rows[i].data(), pixels, lumas[i].data() + 2);
                lumas[i][0] = lumas[i][1] = lumas[i][2];
                std::fill_n(lumas[i].begin() + 2 + pixels, 2, lumas[i][1 + pixels]);
                blurRow(lumas[i].data() + 2, pixels, blurred[i].data());
                around[i] = blurred[i].data();
            }
            Bytes result = rows[2];
            sharpenRow(result.data(), pixels, lumas[2].data() + 2, around, SharpenStrength::of(sharpness));
            result.resize(pixels * 4);
            if (plain.empty()) plain = result;
            EXPECT_EQ(result, plain) << sharpness;
        });
    }
}

} // namespace
} // namespace pex::kernels
