#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/raster/ConvertedImage.h"
#include "tests/support/PictureFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace pex {
namespace {

using Samples = std::array<std::uint16_t, 4>;

constexpr int width = 37, height = 29; // of no whole number of tiles or strips

std::uint16_t redAt(int x, int) { return static_cast<std::uint16_t>(7 * x); }
std::uint16_t greenAt(int, int y) { return static_cast<std::uint16_t>(255 - 8 * y); }
std::uint16_t blueAt(int x, int y) { return static_cast<std::uint16_t>(2 * x + 3 * y); }

/// Red, green and blue as above, the fourth sample as told.
TiffPicture colours(std::uint16_t fourth = 0) {
    return {width, height, [fourth](int x, int y) {
                return Samples{redAt(x, y), greenAt(x, y), blueAt(x, y), fourth};
            }};
}

/// The same in 16 bits, off a multiple of 257 by less than half of it.
TiffPicture wideColours() {
    return {width, height, [](int x, int y) {
                Samples samples{redAt(x, y), greenAt(x, y), blueAt(x, y), 0};
                for (auto& sample : samples)
                    sample = static_cast<std::uint16_t>(std::min(sample * 257 + 100, 65535));
                return samples;
            }};
}

struct TiffCase {
    const char* what;
    TiffKind kind;
    TiffPicture picture = colours();
};

void expectColours(const TiffCase& c) {
    SCOPED_TRACE(c.what);
    const auto image = decoded(tiffFile(c.kind, {c.picture}));
    ASSERT_TRUE(image);
    EXPECT_FALSE(image->isIncomplete());
    ASSERT_EQ(image->width(), width);
    ASSERT_EQ(image->height(), height);
    expectPixels(*image, [](int x, int y) { return std::array{redAt(x, y), greenAt(x, y), blueAt(x, y)}; });
    EXPECT_EQ(straightAt(*image, 7, 7)[3], 255);
}

TEST(Tiff, ColoursAreTheSameHoweverTheyLie) {
    const TiffCase cases[] = {
        {"plain strips", {}},
        {"big-endian", {.mode = "wb"}},
        {"the 64-bit form", {.mode = "w8"}},
        {"PackBits", {.compression = COMPRESSION_PACKBITS}},
        {"LZW", {.compression = COMPRESSION_LZW}},
        {"Deflate", {.compression = COMPRESSION_ADOBE_DEFLATE}},
        {"tiles", {.tiled = true}},
        {"tiles of LZW", {.compression = COMPRESSION_LZW, .tiled = true}},
        {"planes", {.planar = true}},
        {"planes of tiles of Deflate", {.compression = COMPRESSION_DEFLATE, .planar = true, .tiled = true}},
        {"opaque alpha", {.samples = 4, .extraSample = EXTRASAMPLE_UNASSALPHA}, colours(255)},
        {"16 bits", {.bits = 16}, wideColours()},
        {"16 bits, big-endian, LZW",
         {.mode = "wb", .compression = COMPRESSION_LZW, .bits = 16},
         wideColours()},
        {"16 bits in planes", {.bits = 16, .planar = true}, wideColours()},
    };
    for (const TiffCase& c : cases)
        expectColours(c);
}

TEST(Tiff, JpegInsideLosesLittle) {
    for (const bool tiled : {false, true}) {
        const auto image = decoded(
            tiffFile({.compression = COMPRESSION_JPEG, .photometric = PHOTOMETRIC_YCBCR, .tiled = tiled},
                     {colours()}));
        const CGImage exact = makePicture(width, height, PixelLayout::skipLast, [](int x, int y) {
            return Pixel{static_cast<std::uint8_t>(redAt(x, y)), static_cast<std::uint8_t>(greenAt(x, y)),
                         static_cast<std::uint8_t>(blueAt(x, y)), 255};
        });
        EXPECT_LT(difference(*image, exact), 5) << tiled;
    }
}

/// Without a profile each ink takes its part of the light that black has left.
TEST(Tiff, InkTakesAwayLight) {
    for (int i = 0; i < 8; ++i) {
        const bool tiled = i % 2 == 1, planar = i / 2 % 2 == 1, wide = i / 4 == 1;
        SCOPED_TRACE(i);
        const auto ink = [](int x, int y) { return std::array{6 * x, 8 * y, 200 - 3 * x, y < 10 ? 0 : 90}; };
        const TiffPicture picture{width, height, [&](int x, int y) {
                                      Samples samples;
                                      for (std::size_t c = 0; c < 4; ++c)
                                          samples[c] =
                                              static_cast<std::uint16_t>(ink(x, y)[c] * (wide ? 257 : 1));
                                      return samples;
                                  }};
        const auto image = decoded(tiffFile({.photometric = PHOTOMETRIC_SEPARATED,
                                             .samples = 4,
                                             .bits = std::uint16_t(wide ? 16 : 8),
                                             .planar = planar,
                                             .tiled = tiled},
                                            {picture}));
        ASSERT_TRUE(image);
        expectPixels(
            *image,
            [&](int x, int y) {
                const auto [c, m, yellow, black] = ink(x, y);
                const double left = (255 - black) / 255.0;
                return std::array{(255 - c) * left, (255 - m) * left, (255 - yellow) * left};
            },
            1.01);
    }
}

TEST(Tiff, TheFirstPageIsThePicture) {
    const TiffPicture other{9, 5, [](int, int) { return Samples{1, 2, 3, 0}; }};
    const auto first = decoded(tiffFile({}, {colours(), other, other}));
    const auto small = decoded(tiffFile({.tiled = true}, {other, colours()}));
    ASSERT_TRUE(first && small);
    EXPECT_EQ(first->width(), width);
    EXPECT_EQ(small->height(), 5);
    EXPECT_EQ(straightAt(*small, 8, 4), (Pixel{1, 2, 3, 255}));
}

TEST(Tiff, AlphaIsStraightOrMultipliedAsTheFileSays) {
    const TiffPicture half{4, 4, [](int, int) { return Samples{100, 60, 20, 128}; }};
    const auto straight = decoded(tiffFile({.samples = 4, .extraSample = EXTRASAMPLE_UNASSALPHA}, {half}));
    const auto multiplied = decoded(tiffFile({.samples = 4, .extraSample = EXTRASAMPLE_ASSOCALPHA}, {half}));
    ASSERT_TRUE(straight && multiplied);
    EXPECT_NEAR(straightAt(*straight, 1, 1)[0], 100, 1);
    EXPECT_NEAR(straightAt(*multiplied, 1, 1)[0], 199, 1); // 100 × 255 / 128
    EXPECT_EQ(straightAt(*straight, 1, 1)[3], 128);
}

TEST(Tiff, GreyOfEveryDepthLiesAsItShould) {
    const auto light = [](int x, int y) { return (3 * x + 5 * y) % 256; };
    const TiffKind kinds[] = {{.bits = 8},
                              {.bits = 4},
                              {.bits = 2},
                              {.bits = 1},
                              {.bits = 16},
                              {.bits = 8, .tiled = true},
                              {.compression = COMPRESSION_CCITTFAX4, .bits = 1},
                              {.mode = "wb", .compression = COMPRESSION_LZW, .bits = 16}};
    for (const bool whiteIsNone : {false, true}) {
        for (TiffKind kind : kinds) {
            SCOPED_TRACE(testing::Message() << kind.bits << " bits, white is 0: " << whiteIsNone);
            kind.samples = 1;
            kind.photometric = whiteIsNone ? PHOTOMETRIC_MINISWHITE : PHOTOMETRIC_MINISBLACK;
            const int most = (1 << kind.bits) - 1;
            const auto level = [&](int x, int y) { return light(x, y) * most / 255; };
            const auto image =
                decoded(tiffFile(kind, {{width, 150, [&](int x, int y) {
                                             const int value = whiteIsNone ? most - level(x, y) : level(x, y);
                                             return Samples{static_cast<std::uint16_t>(value)};
                                         }}}));
            ASSERT_TRUE(image);
            EXPECT_EQ(image->layout(), PixelLayout::grey);
            EXPECT_EQ(image->colorSpace().model(), CGColorSpace::Model::gray);
            EXPECT_FALSE(image->isIncomplete());
            expectPixels(
                *image, [&](int x, int y) { return std::array{level(x, y) * 255 / most}; },
                kind.bits == 16 ? 1 : 0);
        }
    }
}

TEST(Tiff, AGreyProfileKeepsItsMeaning) {
    const Bytes profile = grayProfile(1.2);
    ASSERT_GT(srgbOfGrey(profile, 100), 140); // far from what the number would mean without it
    const TiffPicture ramp{256, 2, [](int x, int) { return Samples{static_cast<std::uint16_t>(x), 255}; }};
    const TiffKind grey{.photometric = PHOTOMETRIC_MINISBLACK, .samples = 1, .profile = profile};
    TiffKind withAlpha = grey;
    withAlpha.samples = 2, withAlpha.extraSample = EXTRASAMPLE_UNASSALPHA;
    // The colour engine's fast way from colours to colours is off by more in the dark.
    for (const auto& [kind, tolerance] : {std::pair{grey, 1}, {withAlpha, 4}}) {
        SCOPED_TRACE(kind.samples);
        const Bytes file = tiffFile(kind, {ramp});
        EXPECT_TRUE(CGImageSource::make(Data(file))->properties().profileName);
        const auto image = decoded(file);
        ASSERT_TRUE(image);
        const auto seen = convertedImage(*image, PixelLayout::skipLast, CGColorSpace::sRGB());
        ASSERT_TRUE(seen);
        for (int x = 0; x < 256; ++x)
            EXPECT_NEAR(straightAt(*seen, x, 1)[1], srgbOfGrey(profile, static_cast<std::uint8_t>(x)),
                        tolerance)
                << x;
    }
    TiffKind unfit = grey;
    unfit.profile = wideProfile(); // of colours: not for this picture
    EXPECT_FALSE(CGImageSource::make(Data(tiffFile(unfit, {ramp})))->properties().profileName);
}

TEST(Tiff, AGreyPictureThatBreaksOffShowsItsFirstRows) {
    const TiffPicture ramp{
        300, 300, [](int x, int y) { return Samples{static_cast<std::uint16_t>((x * x + y) % 256)}; }};
    Bytes file = tiffFile(
        {.compression = COMPRESSION_ADOBE_DEFLATE, .photometric = PHOTOMETRIC_MINISBLACK, .samples = 1},
        {ramp});
    std::fill_n(file.begin() + static_cast<std::ptrdiff_t>(file.size() / 2), 100, std::uint8_t{0xFF});
    const auto image = decoded(file);
    ASSERT_TRUE(image);
    EXPECT_TRUE(image->isIncomplete());
    EXPECT_EQ(pixelAt(*image, 7, 50)[0], 99);
    EXPECT_GT(image->decodedFraction(), 0.5);
    EXPECT_EQ(pixelAt(*image, 7, 299)[0], 92); // behind the damage
}

} // namespace
} // namespace pex
