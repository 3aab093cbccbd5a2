#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/raster/CGContext.h"
#include "tests/support/JpegFiles.h"
#include "tests/support/Pictures.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>
#include <lcms2.h>

#include <algorithm>

using namespace pex;

namespace {

std::uint8_t smooth(int x, int y, int c) { return static_cast<std::uint8_t>(40 + x * 2 + y + c * 30); }

std::vector<std::uint8_t> exifWithOrientation(std::uint8_t value) {
    return {'E',  'x',  'i', 'f', 0, 0, 'M', 'M', 0, 42,    0, 0, 0, 8, 0, 1,
            0x01, 0x12, 0,   3,   0, 0, 0,   1,   0, value, 0, 0, 0, 0, 0, 0};
}

/// Linear light, sRGB primaries: far from what sRGB numbers mean.
std::vector<std::uint8_t> linearProfile() {
    cmsCIExyY white;
    cmsWhitePointFromTemp(&white, 6504);
    const cmsCIExyYTRIPLE primaries{{0.64, 0.33, 1}, {0.30, 0.60, 1}, {0.15, 0.06, 1}};
    cmsToneCurve* curve = cmsBuildGamma(nullptr, 1.0);
    cmsToneCurve* curves[] = {curve, curve, curve};
    void* profile = cmsCreateRGBProfile(&white, &primaries, curves);
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    std::vector<std::uint8_t> bytes(size);
    cmsSaveProfileToMem(profile, bytes.data(), &size);
    cmsCloseProfile(profile);
    cmsFreeToneCurve(curve);
    return bytes;
}

TEST(JpegReader, ReadsEveryKindOfFile) {
    const auto sampling = [](int h, int v) {
        return [h, v](jpeg_compress_struct& info) {
            info.comp_info[0].h_samp_factor = h;
            info.comp_info[0].v_samp_factor = v;
        };
    };
    const std::pair<const char*, Recipe> kinds[] = {
        {"4:2:0", {}},
        {"4:4:4", {.settings = sampling(1, 1)}},
        {"4:2:2", {.settings = sampling(2, 1)}},
        {"4:1:1", {.settings = sampling(4, 1)}},
        {"progressive", {.settings = [](auto& info) { jpeg_simple_progression(&info); }}},
        {"restarts", {.settings = [](auto& info) { info.restart_interval = 2; }}},
        {"RGB without conversion", {.settings = [](auto& info) { jpeg_set_colorspace(&info, JCS_RGB); }}},
        {"grey", {.colors = JCS_GRAYSCALE, .components = 1}},
    };
    for (const auto& [name, recipe] : kinds) {
        const auto image = PexImage::make(Data(makeJpeg(50, 37, recipe, smooth)), {});
        ASSERT_TRUE(image) << name;
        ASSERT_EQ(image->size, (CGSize{50, 37})) << name;
        for (const auto& [x, y] : {std::pair(0, 0), {25, 18}, {49, 36}, {7, 30}}) {
            const Pixel pixel = pixelAt(*image->cgImage, x, y);
            for (int c = 0; c < recipe.components; ++c)
                EXPECT_NEAR(pixel[static_cast<std::size_t>(c)], smooth(x, y, c), 9) << name;
        }
        EXPECT_FALSE(image->cgImage->isIncomplete()) << name;
    }
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
                for (int i = 0; i < static_cast<int>(fresh->size.width * fresh->size.height); ++i) {
                    const int x = i % static_cast<int>(fresh->size.width),
                              y = i / static_cast<int>(fresh->size.width);
                    const Pixel is = pixelAt(*fresh->cgImage, x, y),
                                shouldBe = pixelAt(*expected->cgImage, x, y);
                    for (std::size_t c = 0; c < 4; ++c)
                        ASSERT_NEAR(is[c], shouldBe[c], 1) << side << " at " << x << ", " << y;
                }
            }
        }
    }
}

TEST(JpegReader, ProfilesStayWithThePicture) {
    const auto icc = linearProfile();
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

TEST(JpegReader, AFileIsReadNoFurtherThanItsHeader) {
    const TempFolder folder;
    const auto jpeg = makeJpeg(900, 700, {.exif = exifWithOrientation(6)}, [](int x, int y, int c) {
        return static_cast<std::uint8_t>((x * 7919 + y * 104729 + c * 31) >> 3);
    });
    ASSERT_TRUE(Data(jpeg).write(folder.url("a.jpg"), Data::Writing::inPlace));
    const auto source = CGImageSource::make(folder.url("a.jpg"));
    EXPECT_EQ(static_cast<int>(source->properties().orientation), 6);
    EXPECT_LE(source->bytesRead(), 8192U);
    EXPECT_GT(jpeg.size(), 100'000U);
    EXPECT_EQ(pixelAt(*source->createImage(), 5, 5),
              pixelAt(*CGImageSource::make(Data(jpeg))->createImage(), 5, 5));
}

TEST(JpegReader, CutAnywhereItOpensOrIsAbsent) {
    for (const bool progressive : {false, true}) {
        Recipe recipe;
        if (progressive) recipe.settings = [](auto& info) { jpeg_simple_progression(&info); };
        const auto jpeg = makeJpeg(40, 30, recipe, smooth);
        for (std::size_t length = 0; length < jpeg.size(); ++length) {
            const auto image =
                PexImage::make(Data({jpeg.begin(), jpeg.begin() + static_cast<std::ptrdiff_t>(length)}), {});
            if (!image) continue;
            EXPECT_EQ(image->size, (CGSize{40, 30}));
            EXPECT_EQ(image->cgImage->pixels().has_value(), image->cgImage->decodedFraction() > 0);
            EXPECT_TRUE(length + 2 >= jpeg.size() || image->cgImage->isIncomplete()) << length;
        }
    }
}

} // namespace
