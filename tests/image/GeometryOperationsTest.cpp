#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/helpers/PexWatermark.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/geometry/Numbers.h"
#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <tuple>

using namespace pex;

namespace {

const double infinity = std::numeric_limits<double>::infinity();
const double nan = std::nan("");

TEST(Numbers, DivideTruncateAndConvert) {
    struct Case {
        double value;
        std::int64_t by;
        double result;
    };
    const Case cases[] = {{7, 2, 4},   {6, 2, 3},   {-7, 2, -2}, {10, 3, 4},           {9, 3, 3},
                          {0.5, 2, 0}, {7.9, 2, 4}, {5, 0, 0},   {nan, 3, 0},          {-6, 2, -3},
                          {7, -2, -2}, {1, 100, 1}, {0, 5, 0},   {-infinity, -1, 9e18}};
    for (const Case& c : cases)
        EXPECT_EQ(divided(c.value, c.by), c.result) << c.value << " by " << c.by;
    EXPECT_EQ(toInt(-2.9), -2);
    EXPECT_EQ(toInt(nan), 0);
    EXPECT_TRUE(isInt(-3) && isInt(1e300) && !isInt(0.5) && !isInt(nan) && !isInt(infinity));
}

TEST(Crop, CutsPixelsFromTheTopLeft) {
    const auto picture = noise(100, 90, PixelLayout::straightLast);
    const auto image = PexImage::make(picture);
    struct Case {
        CGRect rect;
        int x, y, width, height; // 0 wide: absent
    };
    const Case cases[] = {{{10, 20, 50, 40}, 10, 20, 50, 40},
                          {{10.5, 20.9, 1, 1}, 10, 20, 2, 2},
                          {{-30, 60, 50, 100}, 0, 60, 20, 30},
                          {{60, 50, -50, -40}, 10, 10, 50, 40},
                          {{-1e18, 5, 2e18, 1}, 0, 5, 100, 1},
                          {{0, 0, infinity, infinity}, 0, 0, 100, 90},
                          {{100, 0, 5, 5}, 0, 0, 0, 0},
                          {{0, 0, 0, 5}, 0, 0, 0, 0},
                          {{nan, 0, 5, 5}, 0, 0, 0, 0},
                          {{0, 0, nan, 5}, 0, 0, 0, 0},
                          {{-infinity, 0, infinity, 5}, 0, 0, 0, 0}};
    for (const Case& c : cases) {
        const auto cut = image->crop({.to = c.rect});
        ASSERT_EQ(cut != nullptr, c.width > 0) << c.rect.origin.x << " " << c.rect.size.width;
        EXPECT_EQ(image->crop({.toTargetRect = c.rect}) != nullptr, c.width > 0);
        if (!cut) continue;
        EXPECT_EQ(cut->size, (CGSize{double(c.width), double(c.height)}));
        EXPECT_EQ(cut->cgImage->pixels()->data, picture.pixels()->part(c.x, c.y, 1, 1).data); // shared
    }
    EXPECT_FALSE(PexImage::make({.size = {5, 5}})->crop({.to = {0, 0, 2, 2}}));
}

using Direction = PexImage::RotationDirection;

TEST(Rotate, QuarterTurnsMovePixels) {
    // Where the pixel of a result of w × h comes from.
    using From = std::pair<int, int> (*)(int x, int y, int w, int h);
    const std::tuple<Direction, bool, From> cases[] = {
        {Direction::r90Clockwhise, true, [](int x, int y, int, int h) { return std::pair(h - 1 - y, x); }},
        {Direction::r90AntiClockWise, true, [](int x, int y, int w, int) { return std::pair(y, w - 1 - x); }},
        {Direction::r180, false, [](int x, int y, int w, int h) { return std::pair(w - 1 - x, h - 1 - y); }},
        {Direction::fixHorizon, false, [](int x, int y, int, int) { return std::pair(x, y); }}};
    for (const PixelLayout layout : {PixelLayout::straightFirst, PixelLayout::grey}) {
        const auto picture = noise(301, 70, layout);
        for (const auto& [direction, swaps, from] : cases) {
            const auto turned = PexImage::make(picture)->rotate(direction);
            const int w = swaps ? 70 : 301, h = swaps ? 301 : 70;
            ASSERT_EQ(turned->size, (CGSize{double(w), double(h)}));
            EXPECT_EQ(turned->cgImage->layout(), layout);
            expectPixels(*turned->cgImage, [&, &from = from](int x, int y) {
                const auto [fromX, fromY] = from(x, y, w, h);
                return pixelAt(picture, fromX, fromY);
            });
        }
    }
    const auto image = PexImage::make(photoLike(3, 2));
    EXPECT_EQ(image->rotate(Direction::none), image);
    EXPECT_NE(image->rotate(Direction::fixHorizon), image);
    EXPECT_FALSE(PexImage::make({.size = {5, 5}})->rotate(Direction::r180));
}

TEST(Rotate, AFileIsTurnedWithoutBeingHeldTwice) {
    const auto jpeg = *PexImage::make(photoLike(120, 70))->jpegData(0.95);
    const auto lazy = PexImage::make(jpeg, {})->rotate(Direction::r90AntiClockWise);
    const auto touched = PexImage::make(jpeg, {});
    ASSERT_TRUE(touched->cgImage->pixels());
    EXPECT_TRUE(lazy->cgImage->source());
    for (const auto& [x, y] : {std::pair(0, 0), {69, 0}, {13, 101}, {69, 119}})
        EXPECT_EQ(pixelAt(*lazy->cgImage, x, y), pixelAt(*touched->cgImage, y, 69 - x));
}

TEST(Rotate, TheCanvasGrowsToHoldTheTurnedPicture) {
    const auto picture = makePicture(300, 200, PixelLayout::skipLast, Pixel{200, 100, 50, 255});
    struct Case {
        double degrees, width, height;
    };
    // 300 cos + 200 sin by 300 sin + 200 cos, rounded up.
    const Case cases[] = {{0, 300, 200},   {90, 200, 300}, {-180, 300, 200}, {270, 200, 300}, {30, 360, 324},
                          {-30, 360, 324}, {45, 354, 354}, {390, 360, 324},  {0.1, 301, 201}};
    for (const Case& c : cases) {
        // Whatever resolution a file claims, no pixel is lost.
        for (const double points : {1., 0.24}) {
            const auto sized = NSImage::make(picture, CGSize{300, 200} * points);
            const auto turned = PexImage::make(sized, {})->rotate({.degrees = c.degrees});
            EXPECT_EQ(turned->size, (CGSize{c.width, c.height})) << c.degrees;
            EXPECT_NEAR(turned->image->width(), c.width * points, 1e-9);
            double alpha = 0;
            for (int i = 0; i < c.width * c.height; ++i)
                alpha += pixelAt(*turned->cgImage, i % int(c.width), i / int(c.width))[3] / 255.;
            EXPECT_NEAR(alpha, 300 * 200, 60) << c.degrees; // its area, edges antialiased
            const int mx = static_cast<int>(c.width / 2), my = static_cast<int>(c.height / 2);
            EXPECT_EQ(pixelAt(*turned->cgImage, mx, my), (Pixel{200, 100, 50, 255}));
        }
    }
    const auto image = PexImage::make(picture);
    EXPECT_EQ(pixelAt(*image->rotate({.degrees = 30})->cgImage, 0, 0)[3], 0);
    EXPECT_EQ(image->rotate({.degrees = nan}), image);
    EXPECT_EQ(image->rotate({.degrees = infinity}), image);
    const auto blank = PexImage::make({.size = {5, 5}});
    EXPECT_EQ(blank->rotate({.degrees = 10}), blank);
}

TEST(Rotate, PositiveAnglesTurnAnticlockwise) {
    const auto picture = makePicture(40, 40, PixelLayout::skipLast, [](int x, int y) {
        return x >= 30 && std::abs(y - 20) < 5 ? Pixel{255, 0, 0, 255}
                                               : Pixel{0, 0, 255, 255}; // red at right
    });
    const auto image = PexImage::make(picture);
    for (const double degrees : {90., 80.}) {
        const auto turned = image->rotate({.degrees = degrees});
        const auto zoomed = image->rotateAndZoom(degrees);
        const int middle = static_cast<int>(turned->size.width) / 2;
        EXPECT_GT(pixelAt(*turned->cgImage, middle, 6)[0], 200) << degrees; // red on top
        EXPECT_GT(pixelAt(*zoomed->cgImage, 22, 2)[0], 200) << degrees;
    }
}

TEST(Straighten, LeavesNoEmptyCornerAndCutsNoMoreThanItMust) {
    for (const auto& [width, height] : {std::pair(60, 40), {40, 60}, {50, 50}, {200, 3}}) {
        // Distance to the nearest edge, up to 40 pixels, as brightness: an edge that shows is dark.
        const auto picture =
            makePicture(width, height, PixelLayout::skipLast, [&, w = width, h = height](int x, int y) {
                const auto shade = static_cast<std::uint8_t>(6 * std::min({x, y, w - 1 - x, h - 1 - y, 40}));
                return Pixel{shade, shade, shade, 255};
            });
        const auto image = PexImage::make(picture);
        for (const double degrees : {0., 3., -7.5, 30., 45., 89., 90., 135., 180., -360., 1000.}) {
            const auto straight = image->rotateAndZoom(degrees);
            ASSERT_EQ(straight->size, image->size);
            EXPECT_EQ(straight->cgImage->layout(), PixelLayout::skipLast) << degrees; // opaque all over
            int darkest = 255;
            for (int x = 0; x < width; ++x) {
                for (const int y : {0, height - 1})
                    darkest = std::min<int>(darkest, pixelAt(*straight->cgImage, x, y)[0]);
            }
            EXPECT_LT(darkest, 8) << degrees; // the picture's edge touches the result's
        }
    }
    const auto image = PexImage::make(noise(50, 30, PixelLayout::premultipliedLast));
    const auto same = image->rotateAndZoom(0);
    expectPixels(*same->cgImage, [&](int x, int y) { return pixelAt(*image->cgImage, x, y); });
    EXPECT_FALSE(image->rotateAndZoom(nan));
    EXPECT_FALSE(image->rotateAndZoom(infinity));
    EXPECT_FALSE(PexImage::make({.size = {5, 5}})->rotateAndZoom(1));
}

TEST(Geometry, ProfilesAndGreyStayWhereTheyCan) {
    const auto wide = *CGColorSpace::fromICC(Data(wideProfile()));
    const auto dark = *CGColorSpace::fromICC(Data(grayProfile(1.8)));
    const auto of = [](PixelLayout layout, const CGColorSpace& space) {
        const Pixel pixel{126, 30, 250, 255};
        return PexImage::make(makePicture(40, 30, layout, pixel, space));
    };
    const auto colour = of(PixelLayout::skipLast, wide), grey = of(PixelLayout::grey, dark);
    const auto standard = of(PixelLayout::skipLast, CGColorSpace::sRGB());
    const PexWatermark mark{.scale = {.policy = PexWatermark::Scale::Policy::originalSize, .maxScale = 1}};
    struct Case {
        std::shared_ptr<PexImage> made;
        CGColorSpace space;
        Pixel middle;
    };
    const std::uint8_t shade = srgbOfGrey(grayProfile(1.8), 126);
    const Pixel same{126, 30, 250, 255}, shown{shade, shade, shade, 255};
    const Case cases[] = {
        {colour->rotate({.degrees = 10.0}), wide, same},
        {colour->rotateAndZoom(10), wide, same},
        {colour->resizeWithFit({20, 20}), wide, same},
        {colour->resizeWithFill({20, 20}), wide, same},
        {PexImage::join(colour, {.with = colour}), wide, same},
        {PexImage::join(standard, {.with = colour}), CGColorSpace::sRGB(), same},
        {PexImage::join(colour, {.with = standard}), CGColorSpace::sRGB(), {}},
        {colour->watermark(standard, mark), wide, {}},
        {PexImageHelper::crop(*colour, {4, 4, 9, 9}), wide, same},
        {grey->rotateAndZoom(10), dark, {126, 126, 126, 126}},
        {grey->rotate({.degrees = 10.0}), CGColorSpace::sRGB(), shown},
        {grey->resizeWithFit({20, 20}), CGColorSpace::sRGB(), shown},
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(c.made) << &c - cases;
        const CGImage& image = *c.made->cgImage;
        EXPECT_EQ(image.colorSpace(), c.space) << &c - cases;
        const int x = image.width() / 4, y = image.height() / 2;
        EXPECT_TRUE(c.middle[3] == 0 || pixelAt(image, x, y) == c.middle) << &c - cases;
    }
    EXPECT_EQ(grey->rotateAndZoom(10)->cgImage->layout(), PixelLayout::grey);
}

TEST(Geometry, UnequalResolutionsAreTurnedAsTheyAreSeen) {
    // 40 × 30 pixels that are twice as high as wide.
    const auto seen = PexImage::make(NSImage::make(noise(40, 30, PixelLayout::skipLast), {20, 30}), {});
    EXPECT_EQ(seen->rotate({.degrees = 90.0})->size, (CGSize{60, 40}));
}

/// The sizes of the first row's tiles, then the heights of the first column's.
std::string shapeOf(const PexImage::Tiles& tiles) {
    std::string text = std::to_string(tiles.size()) + ":";
    if (tiles.empty()) return text;
    for (const auto& tile : tiles[0])
        text += ' ' + std::to_string(std::lround(tile->size.width));
    text += " /";
    for (const auto& row : tiles)
        text += ' ' + (row.empty() ? std::string("-") : std::to_string(std::lround(row[0]->size.height)));
    return text;
}

TEST(Split, GridsFollowTheFormulas) {
    const auto image = [](int width, int height) {
        return PexImage::make(noise(width, height, PixelLayout::skipLast));
    };
    EXPECT_EQ(shapeOf(image(250, 120)->split({.to = {100, 100}, .tileBorder = 0})), "2: 100 100 50 / 100 20");
    EXPECT_EQ(shapeOf(image(250, 100)->split({.to = {100, 100}, .tileBorder = 10})), "1: 100 100 90 / 100");
    EXPECT_EQ(shapeOf(image(250, 100)->split({.toWidth = {}})), "1: 250 / 100");
    EXPECT_EQ(shapeOf(image(250, 100)->split({.toWidth = 200, .tileBorder = 5})), "1: 200 60 / 100");
    EXPECT_EQ(shapeOf(image(250, 100)->split({.height = 30.5})), "4: 250 / 31 31 31 9");
    EXPECT_EQ(shapeOf(image(100, 50)->split({.rows = 4, .columns = 2})), "2: 25 25 25 25 / 25 25");
    EXPECT_EQ(shapeOf(image(100, 50)->split({.rows = 3})), "1: 34 34 32 / 50");
    EXPECT_EQ(shapeOf(image(1000, 200)->boundedSplit({.toWidth = 300, .maxWidth = true})),
              "1: 250 250 250 250 / 200");
    EXPECT_EQ(shapeOf(image(1000, 200)->boundedSplit({.toWidth = 300})), "1: 300 300 300 100 / 200");
    EXPECT_EQ(shapeOf(image(90, 200)->boundedSplit({.height = 100, .maxHeight = true})), "2: 90 / 100 100");

    const auto whole = noise(250, 100, PixelLayout::skipLast);
    const auto tiles = PexImage::make(whole)->split({.to = {100, 60}, .tileBorder = 10});
    for (std::size_t c = 0; c < 3; ++c) // rows at 0, 40, columns at 0, 80, 160
        EXPECT_EQ(tiles[1][c]->cgImage->pixels()->data, whole.pixels()->part(80 * int(c), 40, 1, 1).data);
}

TEST(Split, OddGridsEndAndStayWithinBounds) {
    const auto image = PexImage::make(noise(1000, 1100, PixelLayout::grey));
    const CGSize nothing[] = {{0, 10}, {10, 0}, {-5, 5}, {nan, 5}, {20, 20}, {19, 100}, {-infinity, 5}};
    for (const CGSize& size : nothing)
        EXPECT_TRUE(image->split({.to = size, .tileBorder = 10}).empty()) << size.width << " " << size.height;
    for (const std::int64_t count :
         {std::int64_t{0}, std::int64_t{-3}, std::numeric_limits<std::int64_t>::min()}) {
        EXPECT_TRUE(image->split({.rows = count}).empty());
        EXPECT_TRUE(image->split({.columns = count}).empty());
    }
    EXPECT_TRUE(image->split({.to = {1, 1}}).empty()); // more than the million that is allowed
    EXPECT_TRUE(image->split({.to = {1e-300, 5}}).empty());
    EXPECT_TRUE(image->split({.to = {100, 100}, .tileBorder = 49.9999999999}).empty());
    EXPECT_TRUE(image->split({.to = {100, 100}, .tileBorder = nan}).empty());
    EXPECT_EQ(image->split({.rows = 1'000'000})[0].size(), 1000);
    EXPECT_EQ(shapeOf(image->split({.to = {infinity, 1e300}})), "1: 1000 / 1100");
    for (const double bound : {0., -1., nan})
        EXPECT_TRUE(image->boundedSplit({.toWidth = bound, .maxWidth = true}).empty());

    const auto blank = PexImage::make({.size = {30, 20}}), none = PexImage::make({.size = {0, 0}});
    EXPECT_EQ(shapeOf(blank->split({.to = {10, 10}})), "2: / - -");
    EXPECT_EQ(shapeOf(none->split({.toWidth = {}})), "1: / -");
    EXPECT_TRUE(PexImage::make({.size = {infinity, 1e300}})->split({.to = {10, 10}}).empty());
}

} // namespace
