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
    return PexImage::make(makePicture(width, height, layout, [&](int, int) { return color; }));
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
            for (const auto& [x, y] : {std::pair(left, top), {left + 9, top + 9}, {left + 5, top}})
                EXPECT_EQ(pixelAt(*marked->cgImage, int((x + 0.5) * scale), int((y + 0.5) * scale)), red)
                    << displayName(position);
            int painted = 0;
            for (int y = 0; y < marked->size.height; ++y)
                for (int x = 0; x < marked->size.width; ++x)
                    painted += pixelAt(*marked->cgImage, x, y) != grey;
            EXPECT_EQ(painted, 100 * scale * scale) << displayName(position);
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
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 30; ++x)
            EXPECT_GE(pixelAt(*marked->cgImage, x, y)[0], 254) << x << " " << y;
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
    for (const std::string cut : {R"("position":"Center",)", R"(,"opacity":0.5)", R"("maxScale":0.3,)"}) {
        std::string without = text;
        without.erase(without.find(cut), cut.size());
        EXPECT_FALSE(decode<PexWatermark>(without)) << without;
    }
    for (const auto& [from, to] :
         {std::pair<std::string, std::string>{"Center", "center"}, {"Original", "Any"}, {"0.05", "\"5\""}}) {
        std::string wrong = text;
        wrong.replace(wrong.find(from), from.size(), to);
        EXPECT_FALSE(decode<PexWatermark>(wrong)) << wrong;
    }
}

} // namespace
