#include "peximage/platform/raster/CGContext.h"

#include "tests/support/Pictures.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace pex;

namespace {

std::shared_ptr<CGContext> context(int width, int height,
                                   PixelLayout layout = PixelLayout::premultipliedLast) {
    return CGContext::make(width, height, layout, CGColorSpace::deviceRGB());
}

TEST(CGContext, OriginIsAtTheBottomLeft) {
    const auto c = context(4, 3);
    c->setFillColor({1, 0, 0, 1});
    c->fill({0, 0, 1, 1});
    c->translateBy(3, 2);
    c->setFillColor({0, 0, 1, 1});
    c->fill({0, 0, 1, 1});
    const CGImage image = *c->makeImage();
    EXPECT_EQ(pixelAt(image, 0, 2), (Pixel{255, 0, 0, 255}));
    EXPECT_EQ(pixelAt(image, 3, 0), (Pixel{0, 0, 255, 255}));
    EXPECT_EQ(pixelAt(image, 0, 0), (Pixel{0, 0, 0, 0}));
}

TEST(CGContext, BlendsSourceOverAndCopiesInEveryLayout) {
    const auto half = makePicture(1, 1, PixelLayout::straightLast, Pixel{200, 100, 0, 128});
    struct Case {
        PixelLayout layout;
        Pixel over, copied;
    };
    // Over (0, 0, 255) at alpha 1: 200·128/255 + 0, 100·128/255, 255·127/255.
    const Case cases[] = {
        {PixelLayout::premultipliedLast, {100, 50, 127, 255}, {100, 50, 0, 128}},
        {PixelLayout::premultipliedFirst, {255, 100, 50, 127}, {128, 100, 50, 0}},
        {PixelLayout::straightLast, {100, 50, 127, 255}, {199, 100, 0, 128}},
        {PixelLayout::skipLast, {100, 50, 127, 255}, {100, 50, 0, 255}},
    };
    for (const Case& expected : cases) {
        const auto c = context(1, 1, expected.layout);
        c->setFillColor({0, 0, 1, 1});
        c->fill({0, 0, 1, 1});
        c->draw(half, {0, 0, 1, 1});
        EXPECT_EQ(pixelAt(*c->makeImage(), 0, 0), expected.over) << static_cast<int>(expected.layout);
        c->setBlendMode(CGBlendMode::copy);
        c->draw(half, {0, 0, 1, 1});
        EXPECT_EQ(pixelAt(*c->makeImage(), 0, 0), expected.copied) << static_cast<int>(expected.layout);
    }
}

TEST(CGContext, OpacityMultipliesWhatIsDrawn) {
    const auto white = makePicture(1, 1, PixelLayout::skipLast, Pixel{255, 255, 255, 0});
    const std::pair<double, int> cases[] = {{0, 0},  {0.5, 128}, {1, 255},
                                            {-1, 0}, {9, 255},   {std::nan(""), 0}};
    for (const auto& [alpha, value] : cases) {
        const auto c = context(1, 1);
        c->setAlpha(alpha);
        c->draw(white, {0, 0, 1, 1});
        const auto byte = static_cast<std::uint8_t>(value);
        EXPECT_EQ(pixelAt(*c->makeImage(), 0, 0), (Pixel{byte, byte, byte, byte})) << alpha;
    }
}

TEST(CGContext, DrawsWhatIsVisibleInEveryOrientation) {
    const auto picture = noise(6, 5, PixelLayout::skipLast);
    for (const double a : {1, -1}) {
        for (const double d : {1, -1}) {
            for (const bool swaps : {false, true}) {
                SCOPED_TRACE(testing::Message() << a << ' ' << d << ' ' << swaps);
                const CGAffineTransform turn =
                    swaps ? CGAffineTransform{0, a, d, 0, 2, 1} : CGAffineTransform{a, 0, 0, d, 2, 1};
                const auto c = context(5, 4);
                c->saveGState();
                c->concat(turn);
                c->draw(picture, {-3, -1, 6, 5});
                c->restoreGState();
                expectPixels(*c->makeImage(), [&](int x, int y) {
                    const CGPoint at = turn.inverted()->apply(CGPoint{x + 0.5, 3.5 - y});
                    const int px = int(std::floor(at.x + 3)), py = 4 - int(std::floor(at.y + 1));
                    if (px < 0 || py < 0 || px >= 6 || py >= 5) return Pixel{};
                    const Pixel p = pixelAt(picture, px, py);
                    return Pixel{p[0], p[1], p[2], 255};
                });
            }
        }
    }
}

TEST(CGContext, ImagesHandedOutDoNotChange) {
    const auto c = context(1, 1);
    const CGImage before = *c->makeImage();
    c->setFillColor({1, 1, 1, 1});
    c->fill({0, 0, 1, 1});
    EXPECT_EQ(pixelAt(before, 0, 0), (Pixel{0, 0, 0, 0}));
    EXPECT_EQ(pixelAt(*c->makeImage(), 0, 0), (Pixel{255, 255, 255, 255}));
}

TEST(CGContext, OddRectanglesDrawNothingOrTheVisiblePart) {
    const double inf = std::numeric_limits<double>::infinity(), nan = std::nan("");
    const auto picture = photoLike(4, 4);
    const auto c = context(3, 3);
    for (const CGRect& rect : {CGRect{0, 0, 0, 5},
                               {nan, 0, 5, 5},
                               {0, 0, inf, 5},
                               {100, 100, 5, 5},
                               {0, 0, nan, nan},
                               {-1e18, 0, 10, 10}}) {
        c->draw(picture, rect);
        c->fill(rect);
    }
    expectPixels(*c->makeImage(), Pixel{});
    c->setFillColor({1, 1, 1, 1});
    c->fill({1.1, 1.1, 0.2, 0.2}); // a pixel at least
    EXPECT_EQ(pixelAt(*c->makeImage(), 1, 2)[3], 255);
    c->draw(picture, {-5e8, -5e8, 1e9, 1e9}); // larger than anything that could be held
    c->fill({-1e15, -1e15, 2e15, 2e15});
    EXPECT_EQ(pixelAt(*c->makeImage(), 2, 1)[3], 255);
    EXPECT_FALSE(context(0, 5));
    EXPECT_FALSE(context(5, -1));
    EXPECT_FALSE(context(1 << 30, 1 << 30));
}

} // namespace
