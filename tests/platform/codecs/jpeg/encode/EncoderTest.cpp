#include "peximage/platform/codecs/jpeg/encode/Encoder.h"

#include "peximage/platform/foundation/Workers.h"
#include "tests/platform/codecs/jpeg/encode/EncoderReference.h"
#include "tests/platform/raster/kernels/EveryInstructionSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

namespace pex {
namespace {

using namespace jpeg;
using namespace jpegtest;

using Bytes = std::vector<std::uint8_t>;

Bytes ours(const Picture& picture, double quality, const JpegOptions& options = {}) {
    return Encoder::make(inputOf(picture), options)->encode(quality);
}

constexpr JpegOptions allOptions[] = {{Effort::fast},
                                      {Effort::normal},
                                      {Effort::best, Chroma::half},
                                      {Effort::normal, Chroma::full, true},
                                      {Effort::best, Chroma::half, true}};

/// Expects that libjpeg-turbo reads the levels that the picture's own coefficients round to: the mean tones
/// to the nearest, the others less than 1.3 steps off.
void expectFaithful(const Picture& picture, const Bytes& file, const std::string& label) {
    const ReadFile read = readFile(file);
    ASSERT_EQ(read.warnings, 0) << label;
    ASSERT_EQ(std::pair(read.width, read.height), std::pair(picture.width, picture.height)) << label;
    const ReadFile exact = coefficientsOf(picture, read.across == 1 && !picture.grey);
    ASSERT_EQ(read.components.size(), exact.components.size()) << label;
    for (std::size_t c = 0; c < exact.components.size(); ++c) {
        const auto &levels = read.components[c].levels, &wanted = exact.components[c].levels;
        ASSERT_EQ(levels.size(), wanted.size()) << label;
        for (std::size_t i = 0; i < levels.size(); ++i) {
            const int step = read.components[c].table[i % 64];
            const double off = std::abs(levels[i] * step - wanted[i]);
            ASSERT_LE(off, i % 64 == 0 ? (step + 1) / 2 : 1 + 1.3 * step)
                << label << ", component " << c << ", level " << i;
        }
    }
}

TEST(JpegEncoder, FilesOfEverySmallSizeHoldThePicture) {
    for (int height = 1; height <= 40; ++height) {
        for (int width = 1; width <= 40; ++width) {
            const auto seed = static_cast<unsigned>(height * 64 + width);
            const Picture picture =
                seed % 3 == 0 ? gradient(width, height, false) : noise(width, height, seed % 5 == 0, seed);
            const JpegOptions& options = allOptions[seed % std::size(allOptions)];
            expectFaithful(picture, ours(picture, 0.2 + 0.1 * (seed % 9), options),
                           std::to_string(width) + " x " + std::to_string(height));
        }
    }
}

TEST(JpegEncoder, FilesOfAnyContentAndQualityHoldThePicture) {
    const Picture pictures[] = {noise(517, 301, false, 1), extremes(256, 250, true),
                                extremes(333, 222, false), gradient(1030, 411, false),
                                Picture(65, 3000, true),   mixed(1200, 801, false),
                                mixed(2049, 64, true)};
    const double qualities[] = {0, 0.0101, 0.4999, 0.8125, 0.9, 0.9921875, 1, 2, -1, std::nan("")};
    for (const auto& picture : pictures) {
        for (const JpegOptions& options : allOptions) {
            const auto encoder = Encoder::make(inputOf(picture), options);
            for (const double quality : qualities)
                expectFaithful(picture, encoder->encode(quality),
                               std::to_string(picture.width) + " at " + std::to_string(quality));
        }
    }
}

TEST(JpegEncoder, EveryInstructionSetAndThreadCountGivesTheSameFile) {
    const Picture pictures[] = {mixed(1111, 903, false), mixed(500, 333, true), noise(300, 200, false, 8)};
    for (const auto& picture : pictures) {
        for (const JpegOptions& options : allOptions) {
            const Bytes expected = ours(picture, 0.8, options);
            kernels::onEveryInstructionSet([&] { EXPECT_TRUE(ours(picture, 0.8, options) == expected); });
            for (const int threads : {1, 2, 5}) {
                const Workers::Limit control(threads);
                EXPECT_TRUE(ours(picture, 0.8, options) == expected) << threads;
            }
        }
    }
}

TEST(JpegEncoder, EffortSavesBytesAndProgressiveOrderChangesNoLevel) {
    const Picture picture = mixed(700, 500, false);
    const auto size = [&](const JpegOptions& options) { return ours(picture, 0.8, options).size(); };
    EXPECT_LT(size({Effort::normal}), size({Effort::fast}));
    EXPECT_LT(size({Effort::best}), size({Effort::normal}));
    const ReadFile baseline = readFile(ours(picture, 0.8)),
                   progressive = readFile(ours(picture, 0.8, {.progressive = true}));
    EXPECT_FALSE(baseline.isProgressive);
    EXPECT_TRUE(progressive.isProgressive);
    for (std::size_t c = 0; c < 3; ++c) // the same picture
        EXPECT_TRUE(progressive.components[c].levels == baseline.components[c].levels);
}

TEST(JpegEncoder, SizeAndFaithfulnessGrowWithTheQuality) {
    for (const Picture& picture :
         {mixed(500, 400, false), mixed(400, 300, true), noise(200, 150, false, 2)}) {
        const auto encoder = Encoder::make(inputOf(picture));
        Bytes last = encoder->encode(0);
        for (double quality = 0.05; quality < 1.01; quality += 0.05) {
            Bytes next = encoder->encode(quality);
            EXPECT_GT(next.size(), last.size()) << quality;
            EXPECT_LT(meanSquaredError(picture, next), 1.02 * meanSquaredError(picture, last)) << quality;
            last = std::move(next);
        }
    }
}

/// Grey, with something written on it in one colour.
Picture writtenOn(int red, int blue) {
    Picture picture = gradient(400, 300, false);
    for (std::size_t i = 0; i < picture.bytes.size(); ++i)
        picture.bytes[i] = picture.bytes[i - i % 4];
    for (int y = 100; y < 116; ++y)
        for (int x = 40; x < 200; x += 3) {
            const auto at =
                static_cast<std::size_t>(y) * picture.bytesPerRow() + 4 * static_cast<std::size_t>(x);
            picture.bytes[at] = static_cast<std::uint8_t>(red);
            picture.bytes[at + 2] = static_cast<std::uint8_t>(blue);
        }
    return picture;
}

TEST(JpegEncoder, ChromaKeepsItsSizeWhereThePictureNeedsItWhateverTheQuality) {
    const std::pair<Picture, int> cases[] = {{writtenOn(255, 0), 1},
                                             {writtenOn(0, 255), 1},
                                             {noise(64, 64, false, 1), 1},
                                             {gradient(400, 300, false), 2},
                                             {mixed(400, 300, false), 2}};
    for (const auto& [picture, doubled] : cases)
        for (const double quality : {0.1, 0.8, 0.95})
            EXPECT_EQ(readFile(ours(picture, quality)).across, doubled) << picture.width << " at " << quality;
    EXPECT_EQ(readFile(ours(writtenOn(255, 0), 0.8, {.chroma = Chroma::half})).across, 2);
    EXPECT_EQ(readFile(ours(gradient(400, 300, false), 0.8, {.chroma = Chroma::full})).across, 1);
}

TEST(JpegEncoder, EmbedsTheProfileInAsManySegmentsAsItTakes) {
    for (const std::size_t bytes : {1u, 3144u, 65519u, 65520u, 200'000u}) {
        Picture picture = gradient(40, 30, false);
        for (std::size_t i = 0; i < bytes; ++i)
            picture.iccProfile.push_back(static_cast<std::uint8_t>(i * 7));
        EXPECT_TRUE(readFile(ours(picture, 0.7)).iccProfile == picture.iccProfile) << bytes;
    }
    Picture hopeless = gradient(40, 30, false);
    hopeless.iccProfile.resize(65519 * 255 + 1);
    EXPECT_EQ(ours(hopeless, 0.7), ours(gradient(40, 30, false), 0.7));
}

TEST(JpegEncoder, BeginsWithAJfifSegmentWhoseDensityCanBeStamped) {
    const auto bytes = ours(gradient(20, 10, false), 0.8);
    EXPECT_EQ(std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + 11),
              (std::vector<std::uint8_t>{0xFF, 0xD8, 0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0}));
    EXPECT_EQ(std::vector<std::uint8_t>(bytes.begin() + 13, bytes.begin() + 18),
              (std::vector<std::uint8_t>{0, 0, 1, 0, 1}));
}

TEST(JpegEncoder, RefusesSizesThatTheFormatHasNot) {
    for (const auto& [width, height] : {std::pair{0, 5}, {5, 0}, {-1, 5}, {65501, 1}, {1, 65501}}) {
        Picture picture(1, 1, true);
        EncoderInput input = inputOf(picture);
        input.width = width;
        input.height = height;
        EXPECT_EQ(Encoder::make(input), nullptr) << width << " x " << height;
    }
    const Picture widest = gradient(65500, 1, true), tallest = gradient(1, 65500, false);
    expectFaithful(widest, ours(widest, 0.5), "widest");
    expectFaithful(tallest, ours(tallest, 0.5), "tallest");
}

TEST(JpegEncoder, SizesAreThoseOfTheFiles) {
    const Picture picture = mixed(700, 600, false);
    for (const JpegOptions& options : allOptions) {
        const auto encoder = Encoder::make(inputOf(picture), options);
        for (const double quality : {0.0, 0.3, 0.75, 0.92, 1.0, 0.3}) {
            const auto size = static_cast<double>(ours(picture, quality, options).size());
            EXPECT_EQ(static_cast<double>(encoder->byteCount(quality)), size);
            EXPECT_FALSE(encoder->surelyReaches(quality, size + 1));
            if (quality == 0 || options.progressive) continue; // little but headers, other symbols
            EXPECT_NEAR(encoder->estimatedByteCount(quality, Encoder::Estimate::rough), size, 0.25 * size);
            EXPECT_NEAR(encoder->estimatedByteCount(quality, Encoder::Estimate::fine), size, 0.1 * size);
            EXPECT_EQ(encoder->surelyReaches(quality, size / 2), options.effort != Effort::best);
        }
    }
}

} // namespace
} // namespace pex
