#include "peximage/platform/raster/kernels/JpegColour.h"
#include "peximage/platform/raster/kernels/JpegDct.h"
#include "peximage/platform/raster/kernels/JpegQuantize.h"
#include "tests/platform/raster/kernels/EveryInstructionSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <random>
#include <vector>

namespace pex::kernels {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes randomBytes(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    Bytes bytes(count);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random() >> 8); });
    return bytes;
}

TEST(JpegKernelsTest, ColoursAreConvertedWithinHalfAStepAndNothingElseIsTouched) {
    onEveryInstructionSet([] {
        for (std::size_t pixels = 1; pixels <= 70; ++pixels) {
            const Bytes rgbx = randomBytes(4 * pixels, static_cast<unsigned>(pixels));
            Bytes y(pixels + 1, 77), cb = y, cr = y;
            lumaRow(rgbx.data(), y.data(), static_cast<int>(pixels));
            chromaRow(rgbx.data(), cb.data(), cr.data(), static_cast<int>(pixels));
            for (std::size_t x = 0; x < pixels; ++x) {
                const double r = rgbx[4 * x], g = rgbx[4 * x + 1], b = rgbx[4 * x + 2];
                ASSERT_NEAR(y[x], 0.299 * r + 0.587 * g + 0.114 * b, 0.51);
                ASSERT_NEAR(cb[x], 128 - 0.168735892 * r - 0.331264108 * g + 0.5 * b, 0.51);
                ASSERT_NEAR(cr[x], 128 + 0.5 * r - 0.418687589 * g - 0.081312411 * b, 0.51);
            }
            EXPECT_EQ(y[pixels], 77);
            EXPECT_EQ(cb[pixels], 77);
            EXPECT_EQ(cr[pixels], 77);
        }
    });
}

TEST(JpegKernelsTest, ExtremeColoursDoNotOverflow) {
    onEveryInstructionSet([] {
        Bytes rgbx;
        for (int corner = 0; corner < 8; ++corner)
            for (int channel = 0; channel < 4; ++channel)
                rgbx.push_back(corner >> channel & 1 ? 255 : 0);
        Bytes y(8), cb(8), cr(8);
        lumaRow(rgbx.data(), y.data(), 8);
        chromaRow(rgbx.data(), cb.data(), cr.data(), 8);
        EXPECT_EQ(y, (Bytes{0, 76, 150, 226, 29, 105, 179, 255}));
        EXPECT_EQ(cb, (Bytes{128, 85, 44, 0, 255, 212, 171, 128}));
        EXPECT_EQ(cr, (Bytes{128, 255, 21, 149, 107, 235, 0, 128}));
    });
}

TEST(JpegKernelsTest, HalvedRowsRoundDownAndUpInTurn) {
    onEveryInstructionSet([] {
        const Bytes upper = randomBytes(256, 1), lower = randomBytes(256, 2);
        for (const int samples : {1, 16, 31, 32, 100}) {
            Bytes mean(128);
            halveRows(upper.data(), lower.data(), mean.data(), samples);
            for (std::size_t x = 0; x < static_cast<std::size_t>(samples); ++x) {
                const double exact =
                    (upper[2 * x] + upper[2 * x + 1] + lower[2 * x] + lower[2 * x + 1]) / 4.0;
                ASSERT_EQ(mean[x], x % 2 == 0 ? std::ceil(exact - 0.5) : std::floor(exact + 0.5)) << x;
            }
        }
    });
}

/// 8 times coefficient (u, v) of a block, by the definition of the transform.
double exactCoefficient(const std::uint8_t* samples, std::ptrdiff_t stride, int u, int v) {
    const auto basis = [](int position, int frequency) {
        return std::cos((2 * position + 1) * frequency * std::numbers::pi / 16) *
               (frequency == 0 ? std::numbers::sqrt2 / 2 : 1);
    };
    double sum = 0;
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            sum += (samples[y * stride + x] - 128) * basis(x, u) * basis(y, v);
    return 2 * sum;
}

TEST(JpegKernelsTest, TheTransformIsTheCosineTransformInZigzagOrder) {
    constexpr int stride = 96;
    Bytes samples = randomBytes(8 * stride, 5);
    for (std::size_t i = 0; i < samples.size() / 2; ++i) // the largest coefficients there are
        samples[i] = samples[i] < 128 ? 0 : 255;
    onEveryInstructionSet([&] {
        for (const int blocks : {1, 2, 3, 4, 9}) {
            std::vector<std::int16_t> coefficients(static_cast<std::size_t>(blocks) * 64 + 1, 99);
            forwardDct(samples.data(), stride, blocks, coefficients.data());
            for (int i = 0; i < 64 * blocks; ++i) {
                const int place = zigzag[static_cast<std::size_t>(i % 64)];
                ASSERT_NEAR(coefficients[static_cast<std::size_t>(i)],
                            exactCoefficient(samples.data() + 8 * (i / 64), stride, place % 8, place / 8), 3)
                    << i;
            }
            EXPECT_EQ(coefficients.back(), 99);
        }
    });
}

TEST(JpegKernelsTest, ZigzagGoesAsTheStandardDrawsIt) {
    const std::uint8_t start[] = {0, 1, 8, 16, 9, 2, 3, 10, 17, 24, 32}, end[] = {61, 54, 47, 55, 62, 63};
    EXPECT_TRUE(std::equal(std::begin(start), std::end(start), zigzag.begin()));
    EXPECT_TRUE(std::equal(std::begin(end), std::end(end), zigzag.end() - 6));
    Bytes places(zigzag.begin(), zigzag.end());
    std::sort(places.begin(), places.end());
    for (std::size_t i = 0; i < 64; ++i)
        EXPECT_EQ(places[i], i);
}

TEST(JpegKernelsTest, QuantisingDividesAndRoundsExactly) {
    onEveryInstructionSet([] {
        for (int entry = 1; entry <= 255; ++entry) {
            std::array<std::uint8_t, 64> table{};
            table.fill(static_cast<std::uint8_t>(entry));
            const auto quantizer = std::make_unique<Quantizer>(table);
            constexpr int reach = 10240, blocks = 2 * reach / 64;
            std::vector<std::int16_t> coefficients(2 * reach), levels(2 * reach);
            std::vector<std::uint64_t> nonzero(blocks);
            for (int i = 0; i < 2 * reach; ++i)
                coefficients[static_cast<std::size_t>(i)] = static_cast<std::int16_t>(i - reach);
            quantizeBlocks(coefficients.data(), blocks, *quantizer, levels.data(), nonzero.data());
            const int divisor = 8 * entry;
            for (std::size_t i = 0; i < coefficients.size(); ++i) {
                const int c = coefficients[i];
                const int level = (std::abs(c) + divisor / 2) / divisor * (c < 0 ? -1 : 1);
                ASSERT_EQ(levels[i], level) << c << " / " << divisor;
                ASSERT_EQ(nonzero[i / 64] >> (i % 64) & 1, level != 0 ? 1u : 0u) << c << " / " << divisor;
            }
        }
    });
}

} // namespace
} // namespace pex::kernels
