#include "peximage/budget/PexDicotomic.h"
#include "peximage/helpers/PexImageHelperGeometry.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/toolkit/NSScreen.h"
#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TempFolder.h"

#include <cmath>
#include <limits>
#include <map>

namespace pex {
namespace {

namespace helper = PexImageHelper;

void expectNear(const CGRect& got, const CGRect& want) {
    EXPECT_NEAR(got.origin.x, want.origin.x, 1e-9);
    EXPECT_NEAR(got.origin.y, want.origin.y, 1e-9);
    EXPECT_NEAR(got.size.width, want.size.width, 1e-9);
    EXPECT_NEAR(got.size.height, want.size.height, 1e-9);
}

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
    const CGRect bounds{50, 50, 100, 100};
    const CGRect normalized = helper::getNormalizedTo1Rect(bounds, {60, 70, 20, 10});
    expectNear(normalized, {0.1, 0.2, 0.2, 0.1});
    expectNear(helper::getDenormalizedRect(bounds, normalized), {60, 70, 20, 10});
    // The inner rectangle's stored origin counts, the bounds' standardised one.
    expectNear(helper::getNormalizedTo1Rect({150, 150, -100, -100}, {60, 70, -20, 10}), {0.1, 0.2, 0.2, 0.1});
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
    const CGPoint even = helper::getCenterOfGravity({{0, 0, 10, 10}, {10, 0, 10, 10}});
    EXPECT_EQ(even, (CGPoint{10, 5}));
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

TEST(Dicotomic, FindsTheNearestPointOfSteadyFunctions) {
    const CapturedLines quiet;
    const std::function<double(double)> functions[] = {
        [](double q) { return 1000 * std::exp(3 * q); },
        [](double q) { return 5000 - 4000 * q * q; },
        [](double q) { return q < 0.5 ? 100 : 200 + q; },
    };
    for (const auto& f : functions) {
        for (double target = 50; target < 25000; target *= 1.37) {
            PexDicotomic search;
            search.target = target;
            search.function = f;
            const double found = search.search();
            EXPECT_EQ(std::abs(f(found) - target), std::abs(f(nearestGridPoint(f, target)) - target))
                << target;
        }
    }
}

TEST(Dicotomic, PrintsEveryIntervalItLooksAt) {
    CapturedLines captured;
    PexDicotomic search{
        .low = 0, .high = 1, .target = 0.3, .intervalTolerance = 0.3, .function = [](double q) { return q; }};
    EXPECT_EQ(search.search(), 0.25);
    const std::vector<std::string> expected{
        "PexDicotomic: 0.0 - 1.0",  "PexDicotomic: 0.0 - 0.5", "PexDicotomic: 0.0 - 0.25",
        "PexDicotomic: 0.25 - 0.5", "PexDicotomic: 0.5 - 1.0",
    };
    EXPECT_EQ(captured.lines, expected);
}

TEST(Dicotomic, MemoisedAsksOnceForEachArgument) {
    const CapturedLines quiet;
    std::map<double, int> calls;
    PexDicotomic search;
    search.target = 2000;
    search.function = PexDicotomic::memoised([&](double q) {
        ++calls[q];
        return 1000 * std::exp(3 * q);
    });
    search.search();
    EXPECT_LE(calls.size(), 11U);
    for (const auto& [argument, count] : calls)
        EXPECT_EQ(count, 1) << argument;
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

} // namespace
} // namespace pex
