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
    int worst = 0;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const Pixel seen = straightAt(*image, x, y);
            worst = std::max({worst, std::abs(seen[0] - redAt(x, y)), std::abs(seen[1] - greenAt(x, y)),
                              std::abs(seen[2] - blueAt(x, y)), std::abs(seen[3] - 255)});
        }
    }
    EXPECT_EQ(worst, 0);
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
    const auto ink = [](int x, int y) {
        return Samples{static_cast<std::uint16_t>(6 * x), static_cast<std::uint16_t>(8 * y),
                       static_cast<std::uint16_t>(200 - 3 * x), static_cast<std::uint16_t>(y < 10 ? 0 : 90)};
    };
    const auto wideInk = [ink](int x, int y) {
        Samples samples = ink(x, y);
        for (auto& sample : samples)
            sample = static_cast<std::uint16_t>(sample * 257);
        return samples;
    };
    TiffKind kind{.photometric = PHOTOMETRIC_SEPARATED, .samples = 4};
    for (const bool tiled : {false, true}) {
        for (const bool planar : {false, true}) {
            for (const std::uint16_t bits : {8, 16}) {
                kind.tiled = tiled, kind.planar = planar, kind.bits = bits;
                const std::string what = (tiled ? "tiles " : "strips ") +
                                         std::string(planar ? "planes " : "") + std::to_string(bits) +
                                         " bits";
                SCOPED_TRACE(what);
                TiffPicture picture{width, height, ink};
                if (bits == 16) picture.samples = wideInk;
                const auto image = decoded(tiffFile(kind, {picture}));
                ASSERT_TRUE(image);
                for (const auto& [x, y] : {std::pair{0, 0}, {5, 3}, {20, 9}, {36, 28}, {17, 16}}) {
                    const Samples samples = ink(x, y);
                    for (std::size_t c = 0; c < 3; ++c)
                        EXPECT_NEAR(straightAt(*image, x, y)[c],
                                    (255 - samples[c]) * (255 - samples[3]) / 255.0, 1.01)
                            << x << ' ' << y;
                }
            }
        }
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
    const struct {
        const char* what;
        TiffKind kind;
    } cases[] = {{"8 bits", {.bits = 8}},
                 {"4 bits", {.bits = 4}},
                 {"2 bits", {.bits = 2}},
                 {"1 bit", {.bits = 1}},
                 {"16 bits", {.bits = 16}},
                 {"tiles", {.bits = 8, .tiled = true}},
                 {"1 bit, fax", {.compression = COMPRESSION_CCITTFAX4, .bits = 1}},
                 {"LZW, big-endian", {.mode = "wb", .compression = COMPRESSION_LZW, .bits = 16}}};
    for (const bool whiteIsNone : {false, true}) {
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.what) + (whiteIsNone ? ", white is 0" : ""));
            TiffKind kind = c.kind;
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
            int worst = 0;
            for (int y = 0; y < 150; ++y) {
                for (int x = 0; x < width; ++x)
                    worst = std::max(worst, std::abs(pixelAt(*image, x, y)[0] - level(x, y) * 255 / most));
            }
            EXPECT_LE(worst, kind.bits == 16 ? 1 : 0);
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
