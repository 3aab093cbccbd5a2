#include "peximage/helpers/PexWatermark.h"

#include "peximage/image/PexImage.h"
#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace pex;

namespace {

using Position = PexWatermark::Position;
using Scale = PexWatermark::Scale;
using Policy = Scale::Policy;

std::shared_ptr<PexImage> plain(int width, int height, Pixel color,
                                PixelLayout layout = PixelLayout::premultipliedLast) {
    return PexImage::make(makePicture(width, height, layout, color));
}

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
    for (const double scale : {0., -1., std::nan(""), 1e30, HUGE_VAL})
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
    EXPECT_FALSE(fromRawValue<Position>("topLeft"));
    for (const auto& [from, to] : {std::pair(R"("position":"Center",)", ""),
                                   {R"(,"opacity":0.5)", ""},
                                   {R"("maxScale":0.3,)", ""},
                                   {"Center", "center"},
                                   {"0.05", "\"5\""}})
        EXPECT_FALSE(decode<PexWatermark>(replaced(text, from, to))) << from;
}

} // namespace
