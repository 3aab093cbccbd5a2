#include "peximage/helpers/PexImageHelper.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "tests/support/PictureFiles.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace pex {
namespace {

constexpr ImageFormat writable[] = {ImageFormat::tiff, ImageFormat::webp, ImageFormat::heif,
                                    ImageFormat::avif};

TEST(Formats, WhatIsWrittenIsReadAgain) {
    const CGImage photo = photoLike(97, 61);
    const CGImage shapes = makePicture(64, 40, PixelLayout::straightLast, [](int x, int y) {
        return Pixel{200, 40, 90, static_cast<std::uint8_t>(x < 32 ? 255 : y < 20 ? 0 : 128)};
    });
    for (const ImageFormat format : writable) {
        SCOPED_TRACE(displayName(format));
        ASSERT_TRUE(CGImageDestination::writes(format));
        const Bytes file = bytesOf(encoded(photo, format, {.quality = 0.95}));
        const auto source = CGImageSource::make(Data(file));
        ASSERT_TRUE(source);
        EXPECT_EQ(source->properties().format, format);
        EXPECT_FALSE(source->properties().hasAlpha);
        EXPECT_EQ(source->properties().orientation, Orientation::up);
        const auto again = decoded(file);
        ASSERT_TRUE(again);
        EXPECT_EQ(again->width(), 97);
        EXPECT_FALSE(again->isIncomplete());
        EXPECT_LT(difference(*again, photo), format == ImageFormat::tiff ? 0.001 : 4);

        const auto seen = decoded(bytesOf(encoded(shapes, format, {.quality = 1})));
        ASSERT_TRUE(seen);
        EXPECT_NEAR(straightAt(*seen, 40, 30)[3], 128, 3);
        EXPECT_NEAR(straightAt(*seen, 50, 5)[3], 0, 3);
        EXPECT_NEAR(straightAt(*seen, 10, 10)[0], 200, 6);
        const auto flat = decoded(bytesOf(encoded(shapes, format, {.quality = 1, .keepsAlpha = false})));
        EXPECT_NEAR(straightAt(*flat, 50, 5)[1], 255, 6); // over white
        EXPECT_NEAR(straightAt(*flat, 40, 30)[1], 147, 6);
    }
}

TEST(Formats, OfLossOnlyWhatTheQualitySays) {
    const CGImage photo = photoLike(160, 120);
    for (const ImageFormat format : {ImageFormat::webp, ImageFormat::heif, ImageFormat::avif})
        EXPECT_LT(encoded(photo, format, {.quality = 0.2}).size(),
                  encoded(photo, format, {.quality = 0.9}).size());
    EXPECT_EQ(difference(*decoded(bytesOf(encoded(photo, ImageFormat::webp, {.quality = 1}))), photo), 0);
}

TEST(Formats, AProfileIsKeptUnlessItIsStandard) {
    const auto wide = CGColorSpace::fromICC(Data(wideProfile()));
    ASSERT_TRUE(wide);
    const auto red = [](const CGColorSpace& space) {
        return makePicture(
            32, 32, PixelLayout::skipLast,
            [](int, int) {
                return Pixel{230, 20, 30, 255};
            },
            space);
    };
    for (const ImageFormat format : writable) {
        SCOPED_TRACE(displayName(format));
        const auto kept = decoded(bytesOf(encoded(red(*wide), format, {.quality = 0.95})));
        EXPECT_EQ(kept->colorSpace().iccProfile(), wide->iccProfile());
        EXPECT_NEAR(pixelAt(*kept, 5, 5)[0], 230, 4);
        const auto plain = CGImageSource::make(encoded(red(CGColorSpace::sRGB()), format));
        EXPECT_FALSE(plain->properties().profileName);
    }
}

TEST(Formats, TiffKeepsTheResolutionAndSavesLikePng) {
    const TempFolder folder;
    const URL url = folder.url("deep/er/a.tif");
    const auto image = PexImage::make(NSImage::make(photoLike(100, 100), {50, 25}), {});
    EXPECT_TRUE(PexImageHelper::saveToTIFF(*image, url));
    const auto source = CGImageSource::make(url);
    ASSERT_TRUE(source);
    EXPECT_EQ(source->properties().dpiWidth, 144);
    EXPECT_EQ(source->properties().dpiHeight, 288);
    EXPECT_FALSE(PexImageHelper::saveToTIFF(*PexImage::make({.size = {4, 4}}), url));
    EXPECT_FALSE(CGImageSource::make(url)); // deleted before encoding
}

TEST(Formats, BrokenFilesDoNoHarm) {
    for (const ImageFormat format : writable) {
        const Bytes whole = bytesOf(encoded(photoLike(48, 32), format));
        for (std::size_t length = 0; length < whole.size(); length += 1 + whole.size() / 60)
            decoded({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)});
        unsigned state = 5;
        for (int round = 0; round < 60; ++round) {
            Bytes broken = whole;
            for (int i = 0; i < 5; ++i) {
                state = state * 1664525 + 1013904223;
                broken[(state >> 8) % broken.size()] = static_cast<std::uint8_t>(state >> 24);
            }
            decoded(broken);
        }
    }
    // Rows that came before the cut are there.
    const CGImage photo = photoLike(400, 400);
    Bytes webp = bytesOf(encoded(photo, ImageFormat::webp, {.quality = 0.9}));
    webp.resize(webp.size() / 2);
    const auto half = decoded(webp);
    ASSERT_TRUE(half);
    EXPECT_TRUE(half->isIncomplete());
    EXPECT_NEAR(pixelAt(*half, 10, 10)[0], pixelAt(photo, 10, 10)[0], 30);
}

TEST(Formats, TellHowManyPicturesAFileHas) {
    const TiffPicture page{9, 7, [](int x, int) { return std::array<std::uint16_t, 4>{std::uint16_t(x)}; }};
    const std::pair<int, Bytes> cases[] = {
        {1, bytesOf(encoded(photoLike(9, 7), ImageFormat::webp))},
        {1, heifFile(photoLike(64, 64), {})},
        {1, gifFile(9, 7, false, 1)},
        {3, gifFile(9, 7, true, 3)},
        {1, tiffFile({}, {page})},
        {2, tiffFile({}, {page, page})},
        {20, tiffFile({}, std::vector(20, page))},
        {2, bytesOf(Data(pdfFile({{}, {}})))},
    };
    for (const auto& [pages, file] : cases) {
        const auto source = CGImageSource::make(Data(file));
        ASSERT_TRUE(source);
        EXPECT_EQ(source->properties().pages, pages) << displayName(source->properties().format);
        EXPECT_TRUE(source->createImage()->pixels());
    }
}

TEST(Formats, TiffTurnsAsItsTagSays) {
    Bytes file = bytesOf(encoded(photoLike(32, 16), ImageFormat::tiff));
    const Bytes tag{0x12, 0x01, 3, 0, 1, 0, 0, 0, 1, 0}; // orientation 1, as the file is written
    const auto at = std::search(file.begin(), file.end(), tag.begin(), tag.end());
    ASSERT_NE(at, file.end());
    for (int value = 1; value <= 8; ++value) {
        at[8] = static_cast<std::uint8_t>(value);
        const auto source = CGImageSource::make(Data(file));
        ASSERT_TRUE(source);
        EXPECT_EQ(static_cast<int>(source->properties().orientation), value);
        EXPECT_EQ(source->properties().pixelWidth, 32);
        EXPECT_EQ(PexImage::make(Data(file), {})->size, value < 5 ? (CGSize{32, 16}) : (CGSize{16, 32}));
    }
}

TEST(Formats, WebPTurnsAsItsExifSays) {
    const Bytes riff = webpWithExif(bytesOf(encoded(photoLike(32, 16), ImageFormat::webp)), 32, 16,
                                    exifBlock({exifShort(0x0112, 6)}));
    const auto source = CGImageSource::make(Data(riff));
    ASSERT_TRUE(source);
    EXPECT_EQ(source->copyProperties().dictionary("TIFF").integer("Orientation"), 6);
    EXPECT_EQ(source->properties().orientation, Orientation::right);
    EXPECT_EQ(PexImage::make(Data(riff), {})->size, (CGSize{16, 32}));
}

TEST(Gif, FirstFrameWithItsTransparentColour) {
    const Bytes file = smallGif();
    const auto image = decoded(file);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), 3);
    EXPECT_EQ(pixelAt(*image, 0, 0), (Pixel{0, 0, 0, 0}));
    EXPECT_EQ(pixelAt(*image, 1, 0), (Pixel{255, 0, 0, 255}));
    EXPECT_EQ(pixelAt(*image, 2, 0)[3], 0);
    for (std::size_t length = 0; length < file.size(); ++length)
        decoded({file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length)});
}

/// Blue, green, red, unused.
const Bytes palette = [] {
    Bytes colours{0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 0};
    colours.resize(16 * 4);
    return colours;
}();
const Pixel red{255, 0, 0, 255}, green{0, 255, 0, 255}, blue{0, 0, 255, 255};

TEST(Bmp, PixelsOfEveryKindLieWhereTheyBelong) {
    const struct {
        const char* what;
        Bytes file;
    } cases[] = {
        {"24 bits, bottom row first",
         bmpFile(2, 2, 24, 0, {}, {255, 0, 0, 0, 0, 255, 0, 0, 0, 0, 255, 0, 255, 0, 0, 0})},
        {"24 bits, top row first",
         bmpFile(2, -2, 24, 0, {}, {0, 0, 255, 0, 255, 0, 0, 0, 255, 0, 0, 0, 0, 255, 0, 0})},
        {"4 bits", bmpFile(2, 2, 4, 0, palette, {0x20, 0, 0, 0, 0x01, 0, 0, 0})},
        {"runs of 4 bits", bmpFile(2, 2, 4, 2, palette, {2, 0x20, 0, 0, 2, 0x01, 0, 1})},
        {"16 bits", bmpFile(2, 2, 16, 0, {}, {0x1F, 0, 0, 0x7C, 0, 0x7C, 0xE0, 0x03})},
        {"32 bits by masks", bmpFile(2, 2, 32, 3, {0xFF, 0, 0, 0, 0, 0xFF, 0, 0, 0, 0, 0xFF, 0},
                                     {0, 0, 255, 0, 255, 0, 0, 0, 255, 0, 0, 0, 0, 255, 0, 0})},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const auto image = decoded(c.file);
        ASSERT_TRUE(image);
        EXPECT_FALSE(image->isIncomplete());
        EXPECT_EQ(straightAt(*image, 0, 0), red);
        EXPECT_EQ(straightAt(*image, 1, 0), green);
        EXPECT_EQ(straightAt(*image, 0, 1), blue);
        EXPECT_EQ(straightAt(*image, 1, 1), red);
        EXPECT_EQ(CGImageSource::make(Data(c.file))->properties().dpiWidth, 2835 * 0.0254);
        for (std::size_t length = 0; length < c.file.size(); ++length)
            decoded({c.file.begin(), c.file.begin() + static_cast<std::ptrdiff_t>(length)});
    }
}

TEST(Bmp, RunsMayJumpAndLeaveOut) {
    Bytes colours = palette;
    colours.resize(256 * 4);
    // From the bottom: two green; a jump one right and one up; three of their own; the end.
    const auto image = decoded(bmpFile(4, 3, 8, 1, colours, {2, 1, 0, 2, 0, 1, 0, 3, 2, 1, 2, 0, 0, 1}));
    ASSERT_TRUE(image);
    EXPECT_EQ(straightAt(*image, 0, 2), green);
    EXPECT_EQ(straightAt(*image, 2, 2), red); // the first colour
    EXPECT_EQ(straightAt(*image, 2, 1), blue);
    EXPECT_EQ(straightAt(*image, 3, 1), green);
    EXPECT_EQ(straightAt(*image, 0, 0), red);
}

TEST(Bmp, LyingHeadersAreRefused) {
    const Bytes pixels(64);
    for (const auto& [width, height, bits, compression] : {std::tuple{0, 2, 24, 0},
                                                           {2, 0, 24, 0},
                                                           {-2, 2, 24, 0},
                                                           {2, 2, 7, 0},
                                                           {2, 2, 24, 1},
                                                           {2, -2, 8, 1},
                                                           {100'000, 100'000, 24, 0},
                                                           {2, 2, 24, 9}})
        EXPECT_FALSE(
            decoded(bmpFile(width, height, bits, static_cast<std::uint8_t>(compression), {}, pixels)))
            << width << ' ' << height << ' ' << bits << ' ' << compression;
    EXPECT_FALSE(decoded(
        {'B', 'M', ' ', 'i', 's', ' ', 'n', 'o', ' ', 'p', 'i', 'c', 't', 'u', 'r', 'e', '!', '!', '!'}));
}

TEST(Heif, SavesWithAndWithoutAlphaAndWithinABudget) {
    const TempFolder folder;
    const auto photo = PexImage::make(photoLike(320, 240));
    const auto full = photo->heifData({.quality = 1.0, .useAlpha = true});
    ASSERT_TRUE(full);
    const auto ten = photo->heifData({.quality = 0.5, .useAlpha = false});
    EXPECT_EQ(CGImageSource::make(*ten)->properties().depth, 10);
    EXPECT_LT(difference(*decoded(bytesOf(*ten)), *photo->cgImage), 4);
    EXPECT_FALSE(PexImage::make({.size = {4, 4}})->heifData({.quality = 1}));
    const URL url = folder.url("a.heic");
    EXPECT_TRUE(photo->saveAsHEIF({.to = url, .quality = 0.5}));
    EXPECT_FALSE(photo->saveAsHEIF({.to = folder.url("no/such/folder/a.heic"), .quality = 0.5}));

    const auto large = static_cast<long long>(full->size());
    const auto size = [&] { return static_cast<long long>(Data::contentsOf(url)->size()); };
    {
        const CapturedLines printed; // fits as it is: no search
        EXPECT_TRUE(photo->saveAsHEIF({.desiredSize = large + 1, .to = url}));
        EXPECT_EQ(size(), large);
        EXPECT_TRUE(printed.lines.empty());
    }
    const CapturedLines printed;
    EXPECT_TRUE(photo->saveAsHEIF({.desiredSize = large / 3, .to = url}));
    EXPECT_LE(size(), large / 3);
    EXPECT_GT(size(), large / 5);
    EXPECT_EQ(printed.lines.back().substr(0, 9), "quality: ");
    const auto smallest = static_cast<long long>(photo->heifData({.quality = 0})->size());
    const auto tiny = photo->heifDataWithin({.desiredSize = smallest - 1});
    ASSERT_TRUE(tiny);
    EXPECT_LT(static_cast<long long>(tiny->bytes.size()), smallest);
    EXPECT_LT(tiny->size.width, 320);
}

} // namespace
} // namespace pex
