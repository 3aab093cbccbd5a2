#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/foundation/NumberText.h"
#include "peximage/platform/foundation/Reason.h"
#include "tests/support/PictureFiles.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <map>

using namespace pex;
namespace helper = pex::PexImageHelper;

namespace {

Bytes fileBytes(const URL& url) { return bytesOf(Data::contentsOf(url).value_or(Data())); }

/// The search as it is described, with whole encodings for sizes and its lines in order.
struct PlainSearch {
    CGImage picture;
    double target = 0;
    std::vector<std::string> lines = {};
    std::map<double, Bytes> files = {};

    const Bytes& file(double quality) {
        Bytes& made = files[quality];
        if (made.empty()) made = bytesOf(encoded(picture, ImageFormat::jpeg, {.quality = quality}));
        return made;
    }
    double size(double quality) { return static_cast<double>(file(quality).size()); }

    double search(double a, double b) {
        lines.push_back("PexDicotomic: " + decimalText(a) + " - " + decimalText(b));
        const double fa = size(a), fb = size(b);
        if (b - a < 0.01) return distance(fa) < distance(fb) ? a : b;
        if (fa < fb && target < fa) return a;
        if (fa < fb && target > fb) return b;
        if (fa > fb && target > fa) return a;
        if (fa > fb && target < fb) return b;
        const double x1 = search(a, (a + b) / 2), x2 = search((a + b) / 2, b);
        return distance(size(x1)) < distance(size(x2)) ? x1 : x2;
    }
    double distance(double value) const { return std::abs(value - target) / target; }
};

TEST(BudgetSaver, AsksAnswersAndPrintsAsThePlainSearch) {
    // At low qualities nothing is left of this one, and all files have one size.
    const CGImage flat = makePicture(500, 400, PixelLayout::grey, [](int x, int y) {
        return Pixel{static_cast<std::uint8_t>(128 + x * y % 7)};
    });
    // The first ones are large enough for sizes that are only estimated.
    const CGImage pictures[] = {
        noise(640, 480, PixelLayout::skipLast), noise(500, 400, PixelLayout::grey),      photoLike(240, 160),
        noise(97, 131, PixelLayout::grey),      noise(64, 48, PixelLayout::skipLast, 5), flat};
    const TempFolder folder;
    for (const CGImage& picture : pictures) {
        PlainSearch plain{picture};
        const double least = plain.size(0), largest = plain.size(1);
        for (const double bytes :
             {least, least / 0.975, largest * 0.15, largest * 0.3, largest * 0.5, largest * 0.8,
              largest * 0.97, plain.size(0.75), plain.size(0.75) / 0.975 + 1, largest, largest + 1}) {
            const auto budget = static_cast<long long>(bytes);
            if (bytes < least) continue;
            SCOPED_TRACE(testing::Message() << picture.width() << " wide in " << budget);
            plain.target = static_cast<double>(budget) * 0.975;
            plain.lines.clear();
            const double quality = budget > largest ? 1 : plain.search(0, 1);

            CapturedLines captured;
            ASSERT_TRUE(
                PexImage::make(picture)->saveToJpeg({.toUrl = folder.url("a.jpg"), .maxSize = budget}));
            const auto written = fileBytes(folder.url("a.jpg"));
            EXPECT_LE(static_cast<long long>(written.size()), budget);
            if (plain.size(quality) > static_cast<double>(budget))
                continue; // the best tried that fits instead
            EXPECT_EQ(written, plain.file(quality));
            if (budget <= largest) plain.lines.push_back("quality: " + decimalText(quality));
            plain.lines.push_back("saveToJpeg (quality: " + decimalText(quality) + ")");
            EXPECT_EQ(captured.lines, plain.lines);
        }
    }
}

TEST(BudgetSaver, ShrinksByTenthsUntilTheLowestQualityFits) {
    const CapturedLines quiet;
    const auto image = PexImage::make(noise(200, 100, PixelLayout::skipLast));
    // The same by hand: the first size whose quality 0 fits.
    const long long budget = 500;
    auto smaller = image;
    while (static_cast<long long>(smaller->jpegData(0)->size()) > budget)
        smaller = smaller->resize(
            {.to = {std::trunc(smaller->size.width * 0.9), std::trunc(smaller->size.height * 0.9)}});
    ASSERT_LT(smaller->size.width, 200);

    const auto fitted = helper::jpegDataWithin(image, {.desiredSize = budget, .dpi = 300});
    ASSERT_TRUE(fitted);
    EXPECT_EQ(fitted->size, smaller->size);
    EXPECT_LE(static_cast<long long>(fitted->bytes.size()), budget);
    EXPECT_EQ(CGImageSource::make(fitted->bytes)->properties().pixelWidth, smaller->size.width);
}

TEST(BudgetSaver, ImpossibleBudgetsEndInFalseAndWriteNothing) {
    const CapturedLines quiet;
    const TempFolder folder;
    const auto image = PexImage::make(photoLike(64, 48));
    for (const long long budget : {0LL, 1LL, 200LL, -5LL, -(1LL << 62)})
        EXPECT_FALSE(image->saveToJpeg({.toUrl = folder.url("a.jpg"), .maxSize = budget}));
    EXPECT_EQ(lastReason().code, ReasonCode::budgetTooSmall);
    EXPECT_EQ(folder.count(), 0);
    for (const auto& nothing : {PexImage::make({.size = {10, 10}}), std::shared_ptr<PexImage>()}) {
        EXPECT_FALSE(helper::saveToJpeg(nothing, {.desiredSize = 10'000, .toUrl = folder.url("a.jpg")}));
        EXPECT_FALSE(helper::saveToJpeg(nothing, {.quality = 1, .url = folder.url("a.jpg")}));
        EXPECT_FALSE(helper::jpegDataWithin(nothing, {.desiredSize = 1000}));
        EXPECT_EQ(lastReason().code, ReasonCode::badArgument);
    }
}

TEST(JpegSaver, StampsTheLowSixteenBitsOfADpi) {
    const CapturedLines quiet;
    const TempFolder folder;
    const auto image = PexImage::make(photoLike(16, 16));
    const std::pair<std::optional<int>, Bytes> cases[] = {
        {300, {1, 0x01, 0x2C, 0x01, 0x2C}}, {0, {1, 0, 0, 0, 0}},
        {-1, {1, 0xFF, 0xFF, 0xFF, 0xFF}},  {70'000, {1, 0x11, 0x70, 0x11, 0x70}},
        {std::nullopt, {0, 0, 1, 0, 1}},
    };
    for (const auto& [dpi, stamp] : cases) {
        ASSERT_TRUE(image->saveToJpeg({.quality = 0.8, .dpi = dpi, .url = folder.url("a.jpg")}));
        const auto bytes = fileBytes(folder.url("a.jpg"));
        ASSERT_GT(bytes.size(), 18U);
        EXPECT_EQ(std::vector(bytes.begin() + 13, bytes.begin() + 18), stamp);
    }
}

TEST(JpegSaver, CountsMetadataInABudget) {
    const TempFolder folder;
    const URL url = folder.url("a.jpg");
    ImageMetadata metadata{.exif = Data(exifBlock({exifFractions(0x011A, {72, 1})}, {exifShort(0xA002, 9)})),
                           .xmp = Data(std::string_view(std::string(20'000, ' ')))};
    const auto image = PexImage::make(noise(300, 200, PixelLayout::skipLast));
    ASSERT_TRUE(image->saveToJpeg({.toUrl = url, .dpi = 300, .maxSize = 21'000, .metadata = metadata}));
    EXPECT_LE(fileBytes(url).size(), 21'000u);
    const ImageMetadata kept = ImageMetadata::of(url);
    EXPECT_EQ(kept.xmp, metadata.xmp);
    EXPECT_EQ(kept.exifField(ExifDirectory::image, 0x011A), PropertyDictionary::Value(300.0));
    const std::int64_t width = helper::resolution(url)->first;
    EXPECT_LT(width, 300);
    EXPECT_EQ(kept.exifField(ExifDirectory::exif, 0xA002), PropertyDictionary::Value(width));
}

TEST(JpegSaver, MakesFoldersAndReplacesFiles) {
    CapturedLines captured;
    const TempFolder folder;
    const auto image = PexImage::make(photoLike(16, 16));
    const URL url = folder.url("new/deep/a.jpg");
    EXPECT_TRUE(image->saveToJpeg({.quality = 0.5, .url = url}));
    EXPECT_TRUE(image->saveToJpeg({.quality = 0.8, .url = url}));
    EXPECT_EQ(fileBytes(url).size(), image->jpegData(0.8)->size());
    EXPECT_EQ(captured.lines.back(), "saveToJpeg (quality: 0.8)");
    // A place that cannot be written, and an image without pixels: the old file is gone by then.
    EXPECT_FALSE(image->saveToJpeg({.quality = 0.8, .url = folder.url("new/deep/a.jpg/b.jpg")}));
    EXPECT_FALSE(PexImage::make({.size = {5, 5}})->saveToJpeg({.quality = 0.8, .url = url}));
    EXPECT_FALSE(std::filesystem::exists(url.path()));
}

TEST(JpegEncoding, QualitiesOutsideTheRangeAreLimited) {
    const auto image = PexImage::make(photoLike(40, 40));
    EXPECT_LT(image->jpegData(0)->size(), image->jpegData(1)->size());
    EXPECT_EQ(*image->jpegData(-3), *image->jpegData(0));
    EXPECT_EQ(*image->jpegData(7), *image->jpegData(1));
    EXPECT_EQ(*image->jpegData(std::nan("")), *image->jpegData(0));
    EXPECT_EQ(PexImage::make({.size = {5, 5}})->jpegData(0.5), std::nullopt);
}

TEST(JpegEncoding, LaysTransparencyOverWhite) {
    const auto clear = makePicture(16, 16, PixelLayout::straightLast, Pixel{200, 0, 0, 0});
    const auto again = PexImage::make(*PexImage::make(clear)->jpegData(1), {});
    expectPixels(*again->cgImage, std::array{255, 255, 255}, 2);
}

TEST(JpegEncoding, SeesWrittenPixelsAtOnce) {
    const auto image = PexImage::make(makePicture(16, 16, PixelLayout::skipLast, Pixel{0, 0, 0, 255}));
    const auto before = image->jpegData(1);
    image->setColor(3, 4, NSColor(1, 1, 1));
    const auto after = PexImage::make(*image->jpegData(1), {});
    EXPECT_NE(*image->jpegData(1), *before);
    EXPECT_GE(pixelAt(*after->cgImage, 3, 4)[1], 240);
}

TEST(PngEncoding, RecordsTheResolutionOfPointsAndPixels) {
    const auto image = PexImage::make(NSImage::make(photoLike(100, 100), {50, 50}), {});
    EXPECT_NEAR(*CGImageSource::make(*image->pngData())->properties().dpiWidth, 144, 0.02);
    EXPECT_NEAR(*CGImageSource::make(*image->pngData({.size = CGSize{100, 100}}))->properties().dpiHeight, 72,
                0.02);
    EXPECT_EQ(PexImage::make({.size = {5, 5}})->pngData(), std::nullopt);
}

TEST(HelperImages, BlankAndFilledImagesFollowTheScreenScale) {
    const CapturedLines captured;
    onScreensOfOneAndTwo([&](double scale) {
        EXPECT_EQ(helper::createImage({100, 50})->image->size(), (CGSize{100 / scale, 50 / scale}));
        const auto filled = helper::getFillColorImage(NSColor(1, 0.5, 0, 0.5), {40, 30});
        filled->setSize();
        EXPECT_EQ(filled->size, (CGSize{40, 30}));
        EXPECT_EQ(pixelAt(*filled->cgImage, 39, 29), (Pixel{128, 64, 0, 128}));
    });
    EXPECT_EQ(captured.lines[0], "createImage (withSize: (100.0, 50.0))");
}

TEST(HelperImages, CropsArePixelsOfTheSourceAtAnyScale) {
    const auto picture = noise(40, 30, PixelLayout::skipLast);
    onScreensOfOneAndTwo([&](double scale) {
        const auto image = PexImage::make(picture);
        const auto cut = helper::crop(*image, {10, 5, 20, 10});
        ASSERT_EQ(cut->size, (CGSize{20, 10})) << scale;
        expectPixels(*cut->cgImage, [&](int x, int y) { // the rectangle's y is upward
            const Pixel p = pixelAt(picture, x + 10, y + 15);
            return Pixel{p[0], p[1], p[2], 255};
        });
        const auto middle = helper::cropToPoint(*image, {20, 15}, {20, 15});
        EXPECT_EQ(middle->size, (CGSize{20, 15}));
        const auto wide = helper::cropToPoint(*image, {20, 15}, {60, 10});
        ASSERT_EQ(wide->size, (CGSize{60, 10}));
        EXPECT_EQ(pixelAt(*wide->cgImage, 5, 5)[3], 0);
        EXPECT_EQ(pixelAt(*wide->cgImage, 30, 5)[3], 255);
    });
    EXPECT_EQ(helper::crop(*PexImage::make(picture), {0, 0, 0, 5})->cgImage.has_value(), false);
}

TEST(HelperImages, LoadAndResolution) {
    const CapturedLines quiet;
    const TempFolder folder;
    ASSERT_TRUE(PexImage::make(photoLike(33, 21))->saveToJpeg({.quality = 0.9, .url = folder.url("a.jpg")}));
    EXPECT_EQ(helper::resolution(folder.url("a.jpg")), std::pair(33, 21));
    EXPECT_EQ(helper::load(folder.url("a.jpg"))->size, (CGSize{33, 21}));
    writeFile(folder.path() / "b.jpg", "not an image");
    for (const char* bad : {"b.jpg", "missing.jpg", ""}) {
        EXPECT_EQ(helper::resolution(folder.url(bad)), std::nullopt);
        EXPECT_EQ(helper::load(folder.url(bad)), nullptr);
    }
}

} // namespace
