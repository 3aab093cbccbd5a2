#include "peximage/pixels/PexContextImage.h"

#include "tests/support/Pictures.h"

#include <cmath>
#include <limits>

using namespace pex;

namespace {

using Components = PexContextImage::Components;

CGImage redAndBlue() {
    return makePicture(2, 1, PixelLayout::skipFirst, [](int x, int) {
        return x == 0 ? Pixel{7, 255, 0, 0} : Pixel{7, 0, 0, 255};
    });
}

TEST(PexContextImage, ReadsPixelsFromTheTopLeft) {
    const auto image = PexContextImage::make(redAndBlue());
    EXPECT_EQ(image->size, (CGSize{2, 1}));
    ASSERT_TRUE(image->image);
    EXPECT_EQ(image->image->size, (CGSize{2, 1}));
    EXPECT_EQ(image->getPixelColorComponents(0, 0), (Components{255, 0, 0, 255}));
    EXPECT_EQ(image->getPixelColorComponents(1, 0), (Components{0, 0, 255, 255}));
    EXPECT_EQ(image->getPixelColor(1, 0), NSColor(0, 0, 1, 1));

    const auto rows = PexContextImage::make(makePicture(1, 3, PixelLayout::skipLast, [](int, int y) {
        return Pixel{std::uint8_t(y + 1), 0, 0, 0};
    }));
    for (int y = 0; y < 3; ++y)
        EXPECT_EQ(rows->getPixelColorComponents(0, y).r, y + 1);
}

TEST(PexContextImage, ColoursAreMultipliedByAlpha) {
    const auto image =
        PexContextImage::make(makePicture(1, 1, PixelLayout::straightLast, Pixel{255, 100, 0, 128}));
    EXPECT_EQ(image->getPixelColorComponents(0, 0), (Components{128, 50, 0, 128}));
    EXPECT_EQ(image->getPixelAlpha(0, 0), 128 / 255.0);
    EXPECT_EQ(image->getPixelColor(0, 0), NSColor(128 / 255.0, 50 / 255.0, 0, 128 / 255.0));
}

/// The picture drawn over an empty context, the long way.
CGImage drawn(const CGImage& picture, int width, int height) {
    const auto context =
        CGContext::make(width, height, PixelLayout::premultipliedLast, CGColorSpace::deviceRGB());
    context->draw(picture, {0, 0, double(width), double(height)});
    return *context->makeImage();
}

TEST(PexContextImage, HoldsWhatDrawingGives) {
    using enum PixelLayout;
    for (const PixelLayout layout :
         {premultipliedLast, premultipliedFirst, straightLast, straightFirst, skipLast, skipFirst, grey}) {
        SCOPED_TRACE(int(layout));
        const CGImage picture = noise(37, 21, layout);
        for (const CGSize size : {CGSize{37, 21}, CGSize{10.9, 5.2}, CGSize{50, 40}}) {
            const auto image = PexContextImage::make(PexImage::make(picture), {.size = size});
            EXPECT_EQ(image->width, std::trunc(size.width));
            EXPECT_EQ(image->height, std::trunc(size.height));
            expectPixels(drawn(picture, int(size.width), int(size.height)), [&](int x, int y) {
                const auto [r, g, b, a] = image->getPixelColorComponents(x, y);
                return Pixel{r, g, b, a};
            });
        }
    }
}

TEST(PexContextImage, EmptyContextShowsWhatIsDrawnLater) {
    const auto image = PexContextImage::make({.size = {3, 2}});
    EXPECT_FALSE(image->image);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(image->getPixelColorComponents(i % 3, i / 3), Components{});

    ASSERT_TRUE(image->context);
    image->context->setFillColor({0, 1, 0, 1});
    image->context->fill({2, 1, 1, 1}); // its upper right pixel: y goes upward there
    EXPECT_EQ(image->getPixelColorComponents(2, 0), (Components{0, 255, 0, 255}));
    EXPECT_EQ(image->getPixelColorComponents(2, 1), Components{});

    // A picture of it stays as it is; drawing goes on in the same memory.
    const auto before = image->context->makeImage();
    image->context->fill({0, 0, 3, 2});
    EXPECT_EQ(image->getPixelColorComponents(0, 1), (Components{0, 255, 0, 255}));
    EXPECT_EQ(pixelAt(*before, 0, 1), (Pixel{0, 0, 0, 0}));

    image->size = {100, 100}; // changes neither the memory nor what is read
    EXPECT_EQ(image->getPixelColorComponents(50, 50), Components{});
    EXPECT_EQ(image->getPixelAlpha(0, 1), 1);
}

TEST(PexContextImage, OddSizesAndImagesWithoutPixels) {
    const double inf = std::numeric_limits<double>::infinity();
    for (const CGSize size : {CGSize{0, 5}, CGSize{-3, -4}, CGSize{std::nan(""), 2}, CGSize{inf, inf},
                              CGSize{1e9, 1e9}, CGSize{0.9, 10}, CGSize{3e9, 1}}) {
        const auto image = PexContextImage::make({.size = size});
        EXPECT_FALSE(image->context);
        EXPECT_EQ(image->bitmap.size(), 0u);
        EXPECT_EQ(image->getPixelAlpha(0, 0), 0);
        EXPECT_EQ(PexContextImage::make(PexImage::make(redAndBlue()), {.size = size})->bitmap.size(), 0u);
    }
    const auto blank = PexContextImage::make(PexImage::make({.notBakedNormalizedSize = {4, 3}}));
    EXPECT_EQ(blank->bitmap.size(), 48u);
    EXPECT_EQ(blank->getPixelColorComponents(3, 2), Components{});
    EXPECT_EQ(PexContextImage::make(std::shared_ptr<PexImage>())->width, 0);

    const auto image = PexContextImage::make(redAndBlue());
    for (const auto& [x, y] : {std::pair{-1, 0}, {2, 0}, {0, -1}, {0, 1}})
        EXPECT_EQ(image->getPixelColorComponents(x, y), Components{});
}

TEST(PexContextImage, VeryWideImages) {
    const int width = 200'000;
    const auto picture = makePicture(width, 1, PixelLayout::skipLast, [](int x, int) {
        return Pixel{std::uint8_t(x % 251), 0, 0, 0};
    });
    EXPECT_EQ(PexContextImage::make(picture)->getPixelColorComponents(199'999, 0).r, 199'999 % 251);
    EXPECT_EQ(pixelAt(drawn(picture, width, 1), 199'999, 0)[0], 199'999 % 251);
}

} // namespace
