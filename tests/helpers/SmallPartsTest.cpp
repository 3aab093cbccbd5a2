#include "peximage/budget/PexDicotomic.h"
#include "peximage/helpers/PexImageHelperColours.h"
#include "peximage/helpers/PexImageHelperGeometry.h"
#include "peximage/helpers/PexWatermark.h"
#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TempFolder.h"

#include <cmath>
#include <limits>
#include <map>

namespace pex {
namespace {

namespace helper = PexImageHelper;
using Image = std::shared_ptr<PexImage>;
using Lines = std::vector<std::string>;

TEST(Geometry, ReadableRatioIsInLowestTermsOfTruncatedSides) {
    const std::pair<CGSize, const char*> cases[] = {
        {{1920, 1080}, "16:9"}, {{1000, 1000}, "1:1"}, {{1999.9, 1000}, "1999:1000"}, {{0, 5}, "0:1"},
        {{0, 0}, "0:0"},        {{-4, 2}, "-2:1"},     {{std::nan(""), 2}, "0:1"},
    };
    for (const auto& [size, text] : cases)
        EXPECT_EQ(helper::getReadableRatio(size), text);
    EXPECT_FALSE(helper::getReadableRatio(CGSize{std::numeric_limits<double>::infinity(), 1}).empty());
}

TEST(Geometry, ReadableSizesComeFromSizesImagesAndFiles) {
    EXPECT_EQ(helper::getReadableImageSize(CGSize{640.7, 480.2}), "640x480");
    const auto image = PexImage::make(photoLike(40, 30));
    EXPECT_EQ(helper::getReadableImageSize(*image), "40x30");
    EXPECT_EQ(helper::getReadableRatio(*image), "4:3");

    const TempFolder folder;
    ASSERT_TRUE(image->saveToPNG(folder.url("a.png")));
    EXPECT_EQ(helper::getReadableImageSize(folder.url("a.png")), "40x30");
    EXPECT_EQ(helper::getReadableRatio(folder.url("a.png")), "4:3");
    EXPECT_EQ(helper::getReadableImageSize(folder.url("missing.png")), "");
    EXPECT_EQ(helper::getReadableRatio(folder.url("missing.png")), "");
}

TEST(Geometry, CroppingSizeKeepsARatioThatIsThereAlready) {
    EXPECT_EQ(helper::getCroppingSize({0, 0, 400, 100}, 2, 2), (CGSize{100, 50}));
    EXPECT_EQ(helper::getCroppingSize({0, 0, 200, 400}, 1, 2), (CGSize{100, 100}));
    EXPECT_EQ(helper::getCroppingSize({0, 0, 300, 300}, 1, 2), (CGSize{300, 300}));
    EXPECT_EQ(helper::getCroppingSize({0, 0, -300, -300}, 1, 2), (CGSize{-300, -300}));
}

TEST(Geometry, NormalizedRectanglesComeBack) {
    // In numbers that have no rounding. The inner rectangle's stored origin counts, the bounds' standardised
    // one.
    const CGRect bounds{50, 50, 128, 128}, normalized{0.125, 0.25, 0.5, 0.0625};
    EXPECT_EQ(helper::getNormalizedTo1Rect(bounds, {66, 82, 64, 8}), normalized);
    EXPECT_EQ(helper::getDenormalizedRect(bounds, normalized), (CGRect{66, 82, 64, 8}));
    EXPECT_EQ(helper::getNormalizedTo1Rect({178, 178, -128, -128}, {66, 82, -64, 8}), normalized);
}

TEST(Geometry, BoundingAlignsWhatIsTooLargeToTheFarEdge) {
    const CGRect bounds{0, 0, 100, 100};
    EXPECT_EQ(helper::boundRect(bounds, {-10, 5, 20, 20}), (CGRect{0, 5, 20, 20}));
    EXPECT_EQ(helper::boundRect(bounds, {90, 5, 20, 20}), (CGRect{80, 5, 20, 20}));
    EXPECT_EQ(helper::boundRect(bounds, {10, 10, 150, 20}), (CGRect{-50, 10, 150, 20}));
    EXPECT_EQ(helper::boundPoint({0, 50}, bounds, {20, 20}), (CGPoint{10, 50}));
    EXPECT_EQ(helper::boundPoint({99, 99}, bounds, {20, 40}), (CGPoint{90, 80}));
    EXPECT_EQ(helper::boundPoint({0, 0}, bounds, {300, 0}), (CGPoint{-50, 0}));
}

TEST(Geometry, CentresAndPlaces) {
    EXPECT_EQ(helper::getCenter({10, 20, -4, 8}), (CGPoint{8, 24}));
    EXPECT_EQ(helper::getRect({10, 10}, {4, 6}), (CGRect{8, 7, 4, 6}));
    const CGPoint weighted = helper::getCenterOfGravity({{0, 0, 2, 2}, {10, 0, 1, 1}});
    EXPECT_NEAR(weighted.x, 2.9, 1e-12);
    EXPECT_NEAR(weighted.y, 0.9, 1e-12);
    EXPECT_TRUE(std::isnan(helper::getCenterOfGravity({}).x));
    EXPECT_TRUE(std::isnan(helper::getCenterOfGravity({{1, 1, 0, 5}}).y));
}

TEST(Geometry, RetinaScaleIsTheLargestOfTheScreens) {
    EXPECT_EQ(helper::bakingScaleFactor(), 1);
    EXPECT_EQ(helper::getActualSizeWithoutRetina({30, 20}), (CGSize{30, 20}));
    NSScreen::setScreens({{1}, {2}, {std::nan("")}, {0.5}});
    EXPECT_EQ(helper::bakingScaleFactor(), 2);
    EXPECT_EQ(helper::getActualSizeWithoutRetina({30, 20}), (CGSize{15, 10}));
    EXPECT_EQ(helper::getActualPointWithoutRetina({30, 20}), (CGPoint{15, 10}));
    NSScreen::setScreens({{0.5}});
    EXPECT_EQ(helper::bakingScaleFactor(), 1);
    NSScreen::setScreens({});
}

TEST(Geometry, RepresentationRectangleIsInPoints) {
    const auto image = PexImage::make(NSImage::make(photoLike(200, 100), {100, 25}), {});
    EXPECT_EQ(helper::getRepresentedSize(*image), (CGSize{100, 25}));
    EXPECT_EQ(helper::getActualRectWithRepresentation(*image, {20, 40, 60, 80}), (CGRect{10, 10, 30, 20}));
}

/// The nearest of the points 0, 1/128 … 1, looked at one by one.
double nearestGridPoint(const std::function<double(double)>& f, double target) {
    double best = 0;
    for (int i = 0; i <= 128; ++i) {
        if (std::abs(f(i / 128.) - target) < std::abs(f(best) - target)) best = i / 128.;
    }
    return best;
}

TEST(Dicotomic, FindsTheNearestPointOfSteadyFunctionsAskedOnce) {
    const CapturedLines quiet;
    const std::function<double(double)> functions[] = {
        [](double q) { return 1000 * std::exp(3 * q); },
        [](double q) { return 5000 - 4000 * q * q; },
        [](double q) { return q < 0.5 ? 100 : 200 + q; },
    };
    for (const auto& f : functions) {
        for (double target = 50; target < 25000; target *= 1.37) {
            std::map<double, int> calls;
            PexDicotomic search;
            search.target = target;
            search.function = PexDicotomic::memoised([&](double q) { return ++calls[q], f(q); });
            const double found = search.search();
            for (const auto& [argument, count] : calls)
                EXPECT_EQ(count, 1) << argument;
            EXPECT_EQ(std::abs(f(found) - target), std::abs(f(nearestGridPoint(f, target)) - target))
                << target;
        }
    }
}

TEST(Dicotomic, EndsForOddRecords) {
    const CapturedLines quiet;
    const auto constant = [](double) { return 1.; };
    EXPECT_GE((PexDicotomic{.target = 3, .function = constant}.search()), 0);
    EXPECT_EQ((PexDicotomic{.target = 3}.search()), 0);
    EXPECT_TRUE(std::isfinite(PexDicotomic{.target = std::nan(""), .function = constant}.search()));
    EXPECT_NEAR((PexDicotomic{.target = 0.3, .intervalTolerance = 0, .function = [](double q) { return q; }}
                     .search()),
                0.3, 1e-12);
}

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

using Position = PexWatermark::Position;
using Scale = PexWatermark::Scale;
using Policy = Scale::Policy;

const Pixel grey{90, 90, 90, 255}, red{255, 0, 0, 255};

TEST(PexWatermark, SizesFollowThePolicies) {
    struct Case {
        Scale scale;
        int width, height;
        CGSize size;
    };
    const Case cases[] = {
        {{.policy = Policy::originalSize, .maxScale = 0.5}, 200, 100, {200, 100}},
        {{.policy = Policy::originalSize, .maxScale = 0.5}, 800, 200, {500, 125}},
        {{.policy = Policy::originalSize, .maxScale = 0.5}, 100, 1600, {25, 400}},
        {{.policy = Policy::largestSideScale, .scale = 0.25, .minScale = 9}, 200, 100, {250, 125}},
        {{.policy = Policy::largestSideScale, .scale = 2}, 100, 100, {1600, 1600}}};
    const auto base = PexImage::make({.size = {1000, 800}});
    for (const Case& c : cases) {
        const auto mark = PexImage::make({.size = {double(c.width), double(c.height)}});
        EXPECT_EQ(c.scale.scaleOf(*mark, *base), c.size);
    }
}

TEST(PexWatermark, NinePositionsWithoutMargin) {
    const std::pair<int, int> corners[] = {{0, 0},   {15, 0}, {30, 0},  {0, 10}, {15, 10},
                                           {30, 10}, {0, 20}, {15, 20}, {30, 20}};
    const auto base = plain(40, 30, grey), mark = plain(10, 10, red);
    onScreensOfOneAndTwo([&](double scale) {
        for (const Position position : allCases<Position>()) {
            const auto marked = base->watermark(mark, {.position = position});
            ASSERT_EQ(marked->size, (CGSize{40 * scale, 30 * scale}));
            const auto [left, top] = corners[static_cast<int>(position)];
            expectPixels(*marked->cgImage, [&, left = left * scale, top = top * scale](int x, int y) {
                const bool inside = x >= left && x < left + 10 * scale && y >= top && y < top + 10 * scale;
                return inside ? red : grey;
            });
        }
    });
}

TEST(PexWatermark, OpacityAndTransparencyCompose) {
    const auto base = plain(20, 20, grey);
    const auto centre = [&](const std::shared_ptr<PexImage>& mark, double opacity) {
        return pixelAt(*base->watermark(mark, {.position = Position::center, .opacity = opacity})->cgImage,
                       10, 10);
    };
    EXPECT_EQ(centre(plain(8, 8, red), 0), grey);
    EXPECT_EQ(centre(plain(8, 8, red), 1), red);
    EXPECT_EQ(centre(plain(8, 8, red), 0.5), (Pixel{173, 45, 45, 255})); // 128 + 90 * 127 / 255
    // What hides below alpha 0 does not show at the edges of a mark that is resized.
    const auto fringed = PexImage::make(makePicture(40, 40, PixelLayout::straightLast, [](int x, int) {
        return x < 20 ? Pixel{255, 255, 255, 255} : Pixel{0, 0, 0, 0};
    }));
    const auto white = plain(30, 30, {255, 255, 255, 255});
    const auto marked =
        white->watermark(fringed, {.scale = {.policy = Policy::largestSideScale, .scale = 0.77}});
    expectPixels(*marked->cgImage, std::array{255, 255, 255}, 1);
}

TEST(PexWatermark, AMarkLargerThanTheImageIsCut) {
    const auto base = plain(20, 10, grey);
    const auto mark = PexImage::make(makePicture(100, 50, PixelLayout::skipLast, [](int x, int) {
        return x < 50 ? Pixel{255, 0, 0, 255} : Pixel{0, 0, 255, 255};
    }));
    const auto marked = base->watermark(
        mark, {.position = Position::center, .scale = {.policy = Policy::largestSideScale, .scale = 3}});
    EXPECT_EQ(marked->size, (CGSize{20, 10}));
    EXPECT_EQ(pixelAt(*marked->cgImage, 2, 9), red);
    EXPECT_EQ(pixelAt(*marked->cgImage, 18, 0), (Pixel{0, 0, 255, 255}));
}

TEST(PexWatermark, ImpossibleSizesAreAbsent) {
    const auto base = plain(20, 10, grey), mark = plain(5, 5, red);
    for (const double scale : {0., -1., std::nan(""), HUGE_VAL})
        EXPECT_FALSE(base->watermark(mark, {.scale = {.policy = Policy::largestSideScale, .scale = scale}}))
            << scale;
    EXPECT_FALSE(base->watermark(PexImage::make({.size = {0, 0}}), {}));
    EXPECT_FALSE(PexImage::make({.size = {0, 0}})->watermark(mark, {}));
}

TEST(PexWatermark, DocumentsAreStrict) {
    const std::string text = R"({"position":"Center","scale":{"policy":"Original Size","scale":0.2,)"
                             R"("maxScale":0.3,"minScale":0.05},"opacity":0.5})";
    const auto read = decode<PexWatermark>(text);
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, (PexWatermark{Position::center, {Policy::originalSize, 0.2, 0.3, 0.05}, 0.5}));
    EXPECT_EQ(encode(*read), text);
    EXPECT_EQ(fromRawValue<Position>("Top Left"), Position::topLeft);
    for (const auto& [from, to] : {std::pair(R"("position":"Center",)", ""),
                                   {R"(,"opacity":0.5)", ""},
                                   {R"("maxScale":0.3,)", ""},
                                   {"Center", "center"}})
        EXPECT_FALSE(decode<PexWatermark>(replaced(text, from, to))) << from;
}

} // namespace
} // namespace pex
