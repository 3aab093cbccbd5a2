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

using namespace jpegtest;

std::vector<std::uint8_t> ours(const Picture& picture, double quality) {
    return jpeg::Encoder::make(inputOf(picture))->encode(quality);
}

/// Where two files part, or "same".
std::string difference(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
    if (a == b) return "same";
    const auto at = std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first - a.begin();
    return "sizes " + std::to_string(a.size()) + " and " + std::to_string(b.size()) + ", first at byte " +
           std::to_string(at);
}

TEST(JpegEncoder, FilesEqualTheCodecLibrarysAtEverySmallSize) {
    for (int height = 1; height <= 40; ++height) {
        for (int width = 1; width <= 40; ++width) {
            const auto seed = static_cast<unsigned>(height * 64 + width);
            const Picture picture = noise(width, height, seed % 5 == 0, seed);
            const auto encoder = jpeg::Encoder::make(inputOf(picture));
            for (const double quality : {0.3, 0.5 + (width % 8) / 20.0, 0.9, 0.97})
                ASSERT_EQ(difference(encoder->encode(quality), reference(picture, quality)), "same")
                    << width << " x " << height << " at " << quality;
        }
    }
}

TEST(JpegEncoder, FilesEqualTheCodecLibrarysForAnyContentAndQuality) {
    const Picture pictures[] = {noise(517, 301, false, 1),  noise(130, 700, true, 2),
                                extremes(333, 222, false),  extremes(256, 250, true),
                                gradient(1030, 411, false), gradient(640, 97, true),
                                Picture(300, 200, false),   Picture(65, 3000, true),
                                mixed(1200, 801, false),    mixed(2049, 64, false)};
    const double qualities[] = {0,   0.004, 0.0101,    0.1234, 0.4999, 0.5, 0.7, 0.8125,      0.8999999,
                                0.9, 0.95,  0.9921875, 0.999,  1,      2,   -1,  std::nan("")};
    for (const auto& picture : pictures) {
        const auto encoder = jpeg::Encoder::make(inputOf(picture));
        for (const double quality : qualities)
            ASSERT_EQ(difference(encoder->encode(quality), reference(picture, quality)), "same")
                << picture.width << " x " << picture.height << " at " << quality;
    }
}

TEST(JpegEncoder, EveryInstructionSetAndThreadCountGivesTheSameFile) {
    const Picture pictures[] = {mixed(1111, 903, false), mixed(500, 333, true)};
    for (const auto& picture : pictures) {
        const auto expected = reference(picture, 0.8), expectedFull = reference(picture, 0.93);
        kernels::onEveryInstructionSet([&] {
            EXPECT_EQ(difference(ours(picture, 0.8), expected), "same");
            EXPECT_EQ(difference(ours(picture, 0.93), expectedFull), "same");
        });
        for (const int threads : {1, 2, 5}) {
            const Workers::Limit control(threads);
            EXPECT_EQ(difference(ours(picture, 0.8), expected), "same") << threads;
        }
    }
}

TEST(JpegEncoder, EmbedsTheProfileInAsManySegmentsAsItTakes) {
    for (const std::size_t bytes : {1u, 3144u, 65519u, 65520u, 200'000u}) {
        Picture picture = gradient(40, 30, false);
        for (std::size_t i = 0; i < bytes; ++i)
            picture.iccProfile.push_back(static_cast<std::uint8_t>(i * 7));
        EXPECT_EQ(difference(ours(picture, 0.7), reference(picture, 0.7)), "same") << bytes;
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
        jpeg::EncoderInput input = inputOf(picture);
        input.width = width;
        input.height = height;
        EXPECT_EQ(jpeg::Encoder::make(input), nullptr) << width << " x " << height;
    }
    const Picture widest = gradient(65500, 1, true), tallest = gradient(1, 65500, false);
    EXPECT_EQ(difference(ours(widest, 0.5), reference(widest, 0.5)), "same");
    EXPECT_EQ(difference(ours(tallest, 0.5), reference(tallest, 0.5)), "same");
}

TEST(JpegEncoder, SizesAreThoseOfTheFiles) {
    const Picture picture = mixed(700, 600, false);
    const auto encoder = jpeg::Encoder::make(inputOf(picture));
    for (const double quality : {0.0, 0.3, 0.75, 0.92, 1.0, 0.3}) {
        const auto size = static_cast<double>(reference(picture, quality).size());
        EXPECT_EQ(static_cast<double>(encoder->byteCount(quality)), size);
        EXPECT_NEAR(encoder->estimatedByteCount(quality, jpeg::Encoder::Estimate::rough), size, 0.2 * size);
        EXPECT_NEAR(encoder->estimatedByteCount(quality, jpeg::Encoder::Estimate::fine), size, 0.05 * size);
        EXPECT_FALSE(encoder->surelyReaches(quality, size + 1));
        EXPECT_TRUE(encoder->surelyReaches(quality, size / 8));
    }
}

} // namespace
} // namespace pex
