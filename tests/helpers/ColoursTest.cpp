#include "peximage/helpers/PexImageHelperColours.h"
#include "peximage/image/PexImage.h"
#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"

#include <gtest/gtest.h>

#include <cmath>

namespace pex {
namespace {

namespace helper = PexImageHelper;
using Image = std::shared_ptr<PexImage>;
using Lines = std::vector<std::string>;

Image photo(int width, int height) { return PexImage::make(photoLike(width, height)); }

/// Four quarters: red, green; blue, half-transparent white.
Image quarters(int side) {
    return PexImage::make(makePicture(side, side, PixelLayout::premultipliedLast, [=](int x, int y) -> Pixel {
        if (y < side / 2) return x < side / 2 ? Pixel{255, 0, 0, 255} : Pixel{0, 255, 0, 255};
        return x < side / 2 ? Pixel{0, 0, 255, 255} : Pixel{128, 128, 128, 128};
    }));
}

TEST(ResizeVariants, ThirdGivesThePixelsAskedForAndTheFourthThePoints) {
    const Image image = photo(64, 48);
    onScreensOfOneAndTwo([&](double scale) {
        const CapturedLines printed;
        const Image third = helper::resizeImage_v3(*image, {30.9, 20});
        EXPECT_EQ(third->size, (CGSize{30, 20}));
        EXPECT_EQ(third->image->size(), (CGSize{30.9 / scale, 20 / scale}));
        const Image fourth = helper::resizeImage_v4(*image, {30, 20});
        EXPECT_EQ(fourth->size, (CGSize{30 * scale, 20 * scale}));
        EXPECT_EQ(fourth->image->size(), (CGSize{30, 20}));
        EXPECT_EQ(printed.lines,
                  (Lines{"resizeImage_v3", "resizeImage_v3 done", "resizeImage_v4", "resizeImage_v4 done"}));
        const Image big = quarters(40);
        EXPECT_EQ(pixelAt(*helper::resizeImage_v3(*big, {10, 10})->cgImage, 1, 8), (Pixel{0, 0, 255, 255}));
        EXPECT_EQ(pixelAt(*helper::resizeImage_v4(*big, {10, 10})->cgImage, 1, 1), (Pixel{255, 0, 0, 255}));
    });
}

TEST(ResizeVariants, SizesThatCannotBeAreToldApart) {
    const Image image = photo(10, 10);
    for (const CGSize size : {CGSize{0, 5}, {5, -1}, {1e9, 1e9}, {std::nan(""), 5}}) {
        const CapturedLines printed;
        EXPECT_FALSE(helper::resizeImage_v3(*image, size));
        EXPECT_EQ(printed.lines, (Lines{"resizeImage_v3", "resizeImage_v3 failed"}));
        const Image fourth = helper::resizeImage_v4(*image, size);
        ASSERT_TRUE(fourth);
        EXPECT_FALSE(fourth->cgImage);
    }
    EXPECT_FALSE(helper::resizeImage_v4(*PexImage::make({.size = {5, 5}}), {4, 4})->cgImage);
}

TEST(Reduction, GoesInQuartersToTheTarget) {
    const Image image = photo(1000, 600);
    const CapturedLines printed;
    EXPECT_EQ(helper::reduceImageToSize(image, {100, 100})->size, (CGSize{100, 100}));
    EXPECT_EQ(printed.lines, (Lines{"res", "res done", "res", "res done", "reduceImageToSize done",
                                    "reduceImageToSize done"}));
    for (const CGSize target : {CGSize{2000, 600}, {10, 550}, {900, 10}}) // also where one side is soon there
        EXPECT_EQ(helper::reduceImageToSize(image, target)->size, target);
    EXPECT_EQ(helper::reduceImageTo1x1Pixels(image)->size, (CGSize{1, 1}));
    for (const auto& [width, height] : {std::pair{1, 1}, {7, 7}, {8, 1}, {1, 2000}})
        EXPECT_EQ(helper::reduceImageTo1x1Pixels(photo(width, height))->size, (CGSize{1, 1}));
}

TEST(Reduction, StopsWithWhatThereIs) {
    const Image image = photo(100, 60), blank = PexImage::make({.size = {5, 5}});
    EXPECT_EQ(helper::reduceImageTo1x1Pixels(blank), blank);
    EXPECT_EQ(helper::reduceImageToSize(blank, {2, 2}), blank);
    EXPECT_EQ(helper::reduceImageToSize(image, {1e12, 2}), image);
    EXPECT_EQ(helper::reduceImageToSize(image, {0.5, -3})->size, (CGSize{6, 3})); // before a side is 0
    EXPECT_EQ(helper::reduceImageToSize(image, {std::nan(""), std::nan("")})->size, (CGSize{6, 3}));
    EXPECT_EQ(helper::getAverageColorOfImage(blank), NSColor(0, 0, 0, 0));
}

TEST(Colours, TheAverageLiesNearTheMeanOfAllPixels) {
    // A spot of light anywhere counts as much as everywhere else.
    const auto lit = [](int width, int height, int left, int top) {
        return PexImage::make(makePicture(width, height, PixelLayout::skipLast, [=](int x, int y) {
            const bool inside = x >= left && x < left + width / 3 && y >= top && y < top + height / 3;
            return inside ? Pixel{250, 240, 200, 255} : Pixel{10, 20, 60, 255};
        }));
    };
    for (const Image& image : {photo(900, 500), photo(7, 5), lit(1000, 600, 0, 0), lit(1000, 600, 333, 200),
                               lit(61, 97, 40, 0), lit(6, 3, 2, 1), lit(800, 3, 100, 1)}) {
        std::array<double, 3> sum{};
        const double count = image->size.width * image->size.height;
        for (int i = 0; i < count; ++i) {
            const int width = image->cgImage->width();
            const Pixel pixel = pixelAt(*image->cgImage, i % width, i / width);
            for (std::size_t c = 0; c < 3; ++c)
                sum[c] += pixel[c] / 255.0 / count;
        }
        const NSColor average = helper::getAverageColorOfImage(image);
        EXPECT_NEAR(average.redComponent(), sum[0], 1 / 255.0) << count;
        EXPECT_NEAR(average.greenComponent(), sum[1], 1 / 255.0) << count;
        EXPECT_NEAR(average.blueComponent(), sum[2], 1 / 255.0) << count;
    }
    EXPECT_EQ(helper::getAverageColorOfImage(quarters(1)).alphaComponent(), 128 / 255.0);
    // Of what is seen: half black, half white, in a profile whose middle is lighter.
    const auto halves = makePicture(
        64, 64, PixelLayout::grey, [](int x, int) { return x < 32 ? Pixel{0} : Pixel{255}; },
        *CGColorSpace::fromICC(Data(grayProfile(1))));
    EXPECT_NEAR(helper::getAverageColorOfImage(PexImage::make(halves)).redComponent(), 0.5, 0.005);
}

TEST(Colours, SinglePixelsAreReadFromTheTop) {
    const Image image = quarters(10);
    EXPECT_EQ(helper::getColor({.ofImage = *image, .x = 9, .y = 0}), NSColor(0, 1, 0, 1));
    EXPECT_EQ(helper::getColor({.ofImage = *image, .x = 0, .y = 9}), NSColor(0, 0, 1, 1));
    EXPECT_NEAR(helper::getColor({.ofImage = *image, .x = 9, .y = 9}).redComponent(), 128 / 255.0, 1e-12);
    for (const auto& [x, y] : {std::pair{-1, 0}, {0, -1}, {10, 0}, {0, 10}})
        EXPECT_EQ(helper::getColor({.ofImage = *image, .x = x, .y = y}), NSColor(0, 0, 0, 0));
    image->size = {2, 2}; // drawn at that size
    EXPECT_EQ(helper::getColor({.ofImage = *image, .x = 2, .y = 0}), NSColor(0, 0, 0, 0));
    EXPECT_GT(helper::getColor({.ofImage = *image, .x = 0, .y = 1}).blueComponent(), 0.8);
}

TEST(Colours, AGridGoesRowByRow) {
    const auto grid = helper::getColorList({.ofImage = *quarters(64), .reduceToSize = {4, 4}});
    ASSERT_EQ(grid.size(), 16u);
    EXPECT_GT(grid[0].redComponent(), 0.95);
    EXPECT_GT(grid[3].greenComponent(), 0.95);
    EXPECT_GT(grid[12].blueComponent(), 0.95);
    EXPECT_NEAR(grid[15].alphaComponent(), 0.5, 0.02);
    EXPECT_EQ(helper::getColorList({.ofImage = *quarters(8), .reduceToSize = {3.9, 2}}).size(), 6u);
    for (const CGSize size : {CGSize{0, 4}, {0.5, 0.5}, {-1, 1}, {1e9, 1e9}, {std::nan(""), 1}})
        EXPECT_TRUE(helper::getColorList({.ofImage = *quarters(8), .reduceToSize = size}).empty());
    EXPECT_TRUE(
        helper::getColorList({.ofImage = *PexImage::make({.size = {4, 4}}), .reduceToSize = {2, 2}}).empty());
}

TEST(Colours, ListsAreDocuments) {
    const std::vector<NSColor> colors{{0.25, 0.5, 0.75, 1}, {0, 0, 0, 0}};
    const std::string text = R"({"list":[{"red":0.25,"green":0.5,"blue":0.75,"alpha":1},)"
                             R"({"red":0,"green":0,"blue":0,"alpha":0}]})";
    EXPECT_EQ(helper::encodeColorList(colors), text);
    EXPECT_EQ(helper::decodeColorList(text), colors);
    EXPECT_EQ(helper::decodeColorList(helper::encodeColorList({})), std::vector<NSColor>{});
    for (const char* broken : {"", "[]", R"({"list":1})", R"({"list":[{"red":1}]})", "\xFF\xFE"})
        EXPECT_FALSE(helper::decodeColorList(broken)) << broken;
    EXPECT_FALSE(helper::decodeColorList(std::string(100'000, '[')));
}

TEST(Colours, DistancesAreInSinglePrecision) {
    const NSColor red(1, 0, 0), green(0, 1, 0), blue(0, 0, 1), white(1, 1, 1);
    EXPECT_EQ(helper::getTwoColorsDistance(red, green), std::sqrt(2.0F));
    EXPECT_EQ(helper::getTwoColorsDistance({0, 0, 0}, white), std::sqrt(3.0F));
    // Blue is added before green: 1 + 2^-24 is 1, and 1 + 2^-23 + 2^-24 would be rounded up.
    EXPECT_EQ(helper::getTwoColorsDistance({0, 0, 0}, {1, std::exp2(-11.5), std::exp2(-12)}),
              std::sqrt(1.0F + std::exp2(-23.0F)));
    EXPECT_EQ(helper::getColorAverage({0.1, 0.2, 0.4}), static_cast<float>((0.1 + 0.2 + 0.4) / 3));
    EXPECT_EQ(helper::getTwoColorListDistance({red, blue}, {red}), 0);
    EXPECT_EQ(helper::getTwoColorListDistance({red, blue}, {green, blue, white}), std::sqrt(2.0F) / 2);
    EXPECT_TRUE(std::isnan(helper::getTwoColorListDistance({}, {red})));
}

} // namespace
} // namespace pex
