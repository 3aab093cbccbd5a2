#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/raster/CGContext.h"
#include "tests/support/JpegFiles.h"
#include "tests/support/Pictures.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace pex;

namespace {

std::uint8_t smooth(int x, int y, int c) { return static_cast<std::uint8_t>(40 + x * 2 + y + c * 30); }

std::vector<std::uint8_t> exifWithOrientation(std::uint8_t value) {
    return {'E',  'x',  'i', 'f', 0, 0, 'M', 'M', 0, 42,    0, 0, 0, 8, 0, 1,
            0x01, 0x12, 0,   3,   0, 0, 0,   1,   0, value, 0, 0, 0, 0, 0, 0};
}

TEST(JpegReader, InkBecomesLight) {
    // Adobe's files hold inverted ink, as the codec library writes it here: 255 is none.
    const auto ink = [](int x, int, int c) {
        return static_cast<std::uint8_t>(c == 3 ? 255 - x : c == 0 ? 55 : 255);
    };
    for (const bool ycck : {false, true}) {
        Recipe recipe{.colors = JCS_CMYK, .components = 4};
        if (ycck) recipe.settings = [](auto& info) { jpeg_set_colorspace(&info, JCS_YCCK); };
        const auto image = PexImage::make(Data(makeJpeg(32, 16, recipe, ink)), {});
        ASSERT_TRUE(image);
        const Pixel pixel = pixelAt(*image->cgImage, 16, 8); // cyan 200, black 16
        EXPECT_NEAR(pixel[0], 55 * 239 / 255, 6);
        EXPECT_NEAR(pixel[1], 239, 6);
        EXPECT_NEAR(pixel[2], 239, 6);
    }
}

TEST(JpegReader, OrientationIsAppliedOnceAndNotSavedAgain) {
    const TempFolder folder;
    const auto corner = [](int x, int y, int c) {
        return static_cast<std::uint8_t>(c == 0 && x < 16 && y < 16 ? 250 : 10);
    };
    // Where the stored picture's top left corner is in the upright one of 64 × 32 or 32 × 64.
    const CGPoint corners[] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}, {0, 0}, {1, 0}, {1, 1}, {0, 1}};
    for (std::uint8_t value = 1; value <= 8; ++value) {
        const Data jpeg(makeJpeg(64, 32, {.exif = exifWithOrientation(value)}, corner));
        const auto source = CGImageSource::make(jpeg);
        EXPECT_EQ(static_cast<int>(source->properties().orientation), value);
        EXPECT_EQ(source->createImage()->width(), 64); // as stored
        const auto image = PexImage::make(jpeg, {});
        ASSERT_EQ(image->size, value < 5 ? (CGSize{64, 32}) : (CGSize{32, 64}));
        const auto saved = PexImage::make(*image->jpegData(0.9), {});
        const auto small = image->resize({.to = image->size * 0.5});
        const CGPoint where = corners[value - 1];
        for (const auto& picture : {image, saved, small}) {
            const int x = static_cast<int>(where.x * (picture->size.width - 1)),
                      y = static_cast<int>(where.y * (picture->size.height - 1));
            EXPECT_GT(pixelAt(*picture->cgImage, x, y)[0], 200) << int{value};
            EXPECT_LT(pixelAt(*picture->cgImage, static_cast<int>(picture->size.width) - 1 - x, y)[0], 60)
                << int{value};
        }
        EXPECT_EQ(static_cast<int>(CGImageSource::make(*image->jpegData(0.9))->properties().orientation), 1);
    }
    EXPECT_EQ(PexImage::make(Data(makeJpeg(64, 32, {.exif = exifWithOrientation(9)}, corner)), {})->size,
              (CGSize{64, 32}));
}

TEST(JpegReader, ResizedBeforeItsPixelsAreTouchedOrAfterItIsTheSame) {
    const auto noise = [](int x, int y, int c) {
        return static_cast<std::uint8_t>((x * 7919 + y * 104729 + c * 31) >> 3);
    };
    for (const std::uint8_t orientation : {1, 3, 5, 6, 8}) {
        for (const bool progressive : {false, true}) {
            Recipe recipe{.exif = exifWithOrientation(orientation)};
            if (progressive) recipe.settings = [](auto& info) { jpeg_simple_progression(&info); };
            const Data file(makeJpeg(200, 120, recipe, noise));
            for (const double side : {100, 66, 40, 12, 3}) {
                const auto touched = PexImage::make(file, {});
                ASSERT_TRUE(touched->cgImage->pixels());
                const auto expected = touched->resize({.withMaxSide = side}),
                           fresh = PexImage::make(file, {})->resize({.withMaxSide = side});
                ASSERT_EQ(fresh->size, expected->size);
                const PixelView is = *fresh->cgImage->pixels(), shouldBe = *expected->cgImage->pixels();
                for (int y = 0; y < is.height; ++y)
                    for (int i = 0; i < 4 * is.width; ++i)
                        ASSERT_NEAR(is.row(y)[i], shouldBe.row(y)[i], 1) << side << " in row " << y;
            }
        }
    }
}

TEST(JpegReader, ProfilesStayWithThePicture) {
    const auto icc = wideProfile(1); // linear light
    const auto image = PexImage::make(Data(makeJpeg(64, 48, {.icc = icc}, smooth)), {});
    ASSERT_TRUE(image);
    EXPECT_FALSE(image->cgImage->colorSpace().isStandard());
    for (const auto& data : {image->jpegData(0.95), image->resize({.withMaxSide = 20})->pngData(),
                             image->resize({.withMaxSide = 32})->jpegData(0.5)}) {
        const auto again = PexImage::make(*data, {});
        const auto kept = again->cgImage->colorSpace().iccProfile().bytes();
        EXPECT_TRUE(std::equal(icc.begin(), icc.end(), kept.begin(), kept.end()));
    }
    const Data grey(makeJpeg(64, 48, {.colors = JCS_GRAYSCALE, .components = 1, .icc = icc}, smooth));
    EXPECT_EQ(CGImageSource::make(grey)->properties().profileName, std::nullopt) << "it is one for colours";
    EXPECT_EQ(PexImage::make(grey, {})->cgImage->colorSpace().model(), CGColorSpace::Model::gray);
    // Drawn into a context of sRGB the numbers change with the meaning: linear 0.25 is sRGB 0.537.
    const auto flat = PexImage::make(
        Data(makeJpeg(16, 16, {.icc = icc}, [](int, int, int) { return std::uint8_t{64}; })), {});
    const auto context = CGContext::make(16, 16, PixelLayout::premultipliedLast, CGColorSpace::deviceRGB());
    context->draw(*flat->cgImage, {0, 0, 16, 16});
    EXPECT_NEAR(pixelAt(*context->makeImage(), 8, 8)[1], 137, 2);
}

TEST(JpegReader, DensityGivesPoints) {
    for (const auto& [unit, density, dpi] : {std::tuple(1, 144, 144.), {2, 100, 254.}}) {
        const auto jpeg = makeJpeg(72, 36,
                                   {.settings =
                                        [unit = unit, density = density](auto& info) {
                                            info.density_unit = static_cast<UINT8>(unit);
                                            info.X_density = info.Y_density = static_cast<UINT16>(density);
                                        }},
                                   smooth);
        EXPECT_EQ(CGImageSource::make(Data(jpeg))->properties().dpiWidth, dpi);
        EXPECT_NEAR(NSImage::make(Data(jpeg))->width(), 72 * 72 / dpi, 1e-9);
    }
    EXPECT_EQ(CGImageSource::make(Data(makeJpeg(8, 8, {}, smooth)))->properties().dpiWidth, std::nullopt);
}

} // namespace
