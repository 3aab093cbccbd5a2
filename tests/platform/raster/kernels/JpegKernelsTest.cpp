#include "peximage/platform/raster/kernels/JpegColour.h"
#include "peximage/platform/raster/kernels/JpegDct.h"
#include "peximage/platform/raster/kernels/JpegInverseDct.h"
#include "peximage/platform/raster/kernels/JpegQuantize.h"
#include "peximage/platform/raster/kernels/JpegRgb.h"
#include "peximage/platform/raster/kernels/JpegUpsample.h"
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

TEST(JpegKernelsTest, TheInverseTransformGivesTheSamplesBack) {
    constexpr int quads = 3, width = 32 * quads, stride = width + 5;
    Bytes samples = randomBytes(8 * stride, 6);
    std::fill_n(samples.begin(), 16, std::uint8_t{30});
    for (int y = 0; y < 8; ++y) // blocks that have nothing but their first coefficients
        std::fill_n(samples.begin() + y * stride + 32, 40, std::uint8_t{200});
    std::int16_t steps[64];
    std::vector<std::int16_t> coefficients(quads * coefficientsOfQuad);
    for (int p = 0; p < 64; ++p) {
        steps[p] = static_cast<std::int16_t>(1 + p % 3);
        for (int b = 0; b < quads * blocksOfQuad; ++b) {
            const double exact = exactCoefficient(samples.data() + 8 * b, stride, p % 8, p / 8) / 8;
            coefficients[static_cast<std::size_t>(b / 4 * coefficientsOfQuad + p / 8 * 32 + b % 4 * 8 +
                                                  p % 8)] =
                static_cast<std::int16_t>(std::lround(exact / steps[p]));
        }
    }
    onEveryInstructionSet([&] {
        Bytes back(samples.size(), 99);
        inverseDct(coefficients.data(), steps, quads, back.data(), stride);
        for (int i = 0; i < 8 * stride; ++i) {
            const auto at = static_cast<std::size_t>(i);
            ASSERT_NEAR(back[at], i % stride < width ? samples[at] : 99, i % stride < width ? 8 : 0) << i;
        }
    });
}

TEST(JpegKernelsTest, ColoursAreSpreadToThreeQuartersAndRoundedInTurn) {
    onEveryInstructionSet([] {
        for (int samples = 1; samples <= 150; samples += samples < 70 ? 1 : 79) {
            const auto count = static_cast<std::size_t>(samples);
            const Bytes near = randomBytes(count, 3), far = randomBytes(count, 4);
            Bytes across(2 * count + 1, 77), both = across, above(count + 1, 77), below = above;
            doubleAcross(near.data(), across.data(), samples);
            doubleBoth(near.data(), far.data(), both.data(), samples);
            doubleDown(near.data(), far.data(), false, above.data(), samples);
            doubleDown(near.data(), far.data(), true, below.data(), samples);
            const auto sum = [&](std::size_t x) { return 3 * near[x] + far[x]; };
            for (std::size_t i = 0; i < 2 * count; ++i) {
                const std::size_t x = i / 2;
                const bool isLeft = i % 2 == 0;
                const std::size_t next = isLeft ? (x > 0 ? x - 1 : 0) : std::min(x + 1, count - 1);
                ASSERT_EQ(across[i], (3 * near[x] + near[next] + (isLeft ? 1 : 2)) / 4) << samples;
                ASSERT_EQ(both[i], (3 * sum(x) + sum(next) + (isLeft ? 8 : 7)) / 16) << samples;
                ASSERT_EQ(above[x], (sum(x) + 1) / 4);
                ASSERT_EQ(below[x], (sum(x) + 2) / 4);
            }
            EXPECT_TRUE(across.back() == 77 && both.back() == 77 && above.back() == 77 && below.back() == 77);
        }
    });
}

TEST(JpegKernelsTest, PixelsAreMadeOfPlanes) {
    onEveryInstructionSet([] {
        for (std::size_t pixels = 1; pixels <= 70; ++pixels) {
            Bytes planes[3];
            for (unsigned c = 0; c < 3; ++c) {
                planes[c] = randomBytes(pixels, c);
                if (pixels > 8) // the corners of the colours that there are
                    for (unsigned i = 0; i < 8; ++i)
                        planes[c][i] = i >> c & 1 ? 255 : 0;
            }
            Bytes fromYcc(4 * pixels + 1, 77), fromPlanes = fromYcc;
            const auto count = static_cast<int>(pixels);
            rgbFromYcc(planes[0].data(), planes[1].data(), planes[2].data(), fromYcc.data(), count);
            rgbFromPlanes(planes[0].data(), planes[1].data(), planes[2].data(), fromPlanes.data(), count);
            for (std::size_t x = 0; x < pixels; ++x) {
                const double y = planes[0][x], b = planes[1][x] - 128.0, r = planes[2][x] - 128.0;
                const double exact[] = {y + 1.402 * r, y - 0.34414 * b - 0.71414 * r, y + 1.772 * b, 255};
                for (std::size_t c = 0; c < 4; ++c) {
                    ASSERT_NEAR(fromYcc[4 * x + c], std::clamp(exact[c], 0.0, 255.0), 0.51) << x;
                    ASSERT_EQ(fromPlanes[4 * x + c], c == 3 ? 255 : planes[c][x]) << x;
                }
            }
            EXPECT_TRUE(fromYcc.back() == 77 && fromPlanes.back() == 77);
        }
    });
}

TEST(JpegKernelsTest, QuantisingDividesAndRoundsExactly) {
    onEveryInstructionSet([] {
        for (int entry = 1; entry <= 255; ++entry) {
            std::array<std::uint8_t, 64> table{};
            table.fill(static_cast<std::uint8_t>(entry));
            const auto quantizer = std::make_unique<Quantizer>(table);
            const int divisor = 8 * entry, add = divisor / 3, first = 5 * divisor / 8, weak = divisor;
            std::fill_n(quantizer->add + 32, 32, add);
            std::fill_n(quantizer->first + 32, 32, first);
            std::fill_n(quantizer->weak + 32, 32, weak);
            constexpr int reach = 10240, blocks = 2 * reach / 64;
            std::vector<std::int16_t> coefficients(2 * reach), levels(2 * reach);
            std::vector<LevelMasks> masks(blocks);
            for (int i = 0; i < 2 * reach; ++i)
                coefficients[static_cast<std::size_t>(i)] = static_cast<std::int16_t>(i - reach);
            quantizeBlocks(coefficients.data(), blocks, *quantizer, levels.data(), masks.data());
            for (std::size_t i = 0; i < coefficients.size(); ++i) {
                const int c = coefficients[i], magnitude = std::abs(c);
                const bool ownRounding = i % 64 >= 32;
                int level = (magnitude + (ownRounding ? add : divisor / 2)) / divisor * (c < 0 ? -1 : 1);
                if (ownRounding && magnitude < first) level = 0;
                ASSERT_EQ(levels[i], level) << c << " / " << divisor;
                const auto bit = [&](std::uint64_t mask) { return (mask >> (i % 64) & 1) != 0; };
                ASSERT_EQ(bit(masks[i / 64].nonzero), level != 0) << c << " / " << divisor;
                ASSERT_EQ(bit(masks[i / 64].weak), ownRounding && level != 0 && magnitude < weak)
                    << c << " / " << divisor;
            }
        }
    });
}

TEST(JpegKernelsTest, ContrastsAreCountedInCellsOfFour) {
    onEveryInstructionSet([] {
        const Bytes upper = randomBytes(300, 1), lower = randomBytes(300, 2);
        for (const int cells : {0, 1, 15, 32, 33, 150}) {
            int expected = 0;
            for (std::size_t x = 0; x < 2 * static_cast<std::size_t>(cells); x += 2) {
                const auto [least, most] = std::minmax({upper[x], upper[x + 1], lower[x], lower[x + 1]});
                expected += most - least >= 150;
            }
            EXPECT_EQ(countContrasts(upper.data(), lower.data(), cells, 150), expected) << cells;
        }
    });
}

} // namespace
} // namespace pex::kernels
