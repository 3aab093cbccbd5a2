#include "peximage/canvas/PexCanvas.h"
#include "peximage/helpers/PexWatermark.h"
#include "peximage/pixels/PexConvolution.h"
#include "peximage/platform/raster/ConvertedImage.h"
#include "tests/platform/raster/kernels/EveryInstructionSet.h"
#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"

#include <algorithm>
#include <functional>
#include <limits>

namespace pex {
namespace {

using Image = std::shared_ptr<PexImage>;
using Lines = std::vector<std::string>;
const double infinity = std::numeric_limits<double>::infinity(), nan = std::nan("");

Pixel at(const Image& image, int x, int y) { return pixelAt(*image->cgImage, x, y); }

TEST(Convolution, EqualsAPlainLoopOnEveryInstructionSet) {
    const std::vector<std::int16_t> kernels[] = {{0, 0, 0, 0, 3, 0, 0, 0, 0},
                                                 {-1, -2, -1, 0, 0, 0, 1, 2, 1},
                                                 {0, -1, 0, -1, 7, -1, 0, -1, 0},
                                                 {32767, -32768, 32767, 0, 1, 0, -32768, 32767, -32768}};
    for (const auto& [width, height] : {std::pair{1, 1}, {2, 1}, {1, 3}, {17, 5}, {70, 40}}) {
        const CGImage from = noise(width, height, PixelLayout::skipLast, 3);
        for (const auto& kernel : kernels) {
            PexConvolution how(kernel);
            how.bgColor = {10, 200, 30, 0};
            const auto convolved = [&](int x, int y) {
                std::array<double, 3> sums{};
                for (int i = 0; i < 9; ++i) {
                    const int px = x + i % 3 - 1, py = y + i / 3 - 1;
                    const bool inside = px >= 0 && py >= 0 && px < from.width() && py < from.height();
                    for (std::size_t c = 0; c < 3; ++c)
                        sums[c] += kernel[std::size_t(i)] / 3.0 *
                                   (inside ? pixelAt(from, px, py)[c] : how.bgColor[c]);
                }
                for (double& sum : sums)
                    sum = std::clamp(sum, 0.0, 255.0);
                return sums;
            };
            kernels::onEveryInstructionSet([&] {
                const Image result = PexImage::make(from)->convolve({.convolution = how});
                ASSERT_TRUE(result);
                expectPixels(*result->cgImage, convolved, 1);
            });
        }
    }
}

TEST(Convolution, DropsTransparencyAndTurnsOtherOrdersFirst) {
    const std::vector<std::int16_t> same{0, 0, 0, 0, 3, 0, 0, 0, 0}, all(9, 1);
    const Image first = plain(3, 3, {100, 50, 20, 10}, PixelLayout::premultipliedFirst);
    EXPECT_FALSE(hasAlpha(first->convolve({.kernel = same})->cgImage->layout()));
    expectPixels(*first->convolve({.kernel = same})->cgImage->cropping({1, 1, 1, 1}), std::array{50, 20, 10});
    const Image grey = plain(3, 3, {40}, PixelLayout::grey);
    EXPECT_EQ(at(grey->convolve({.kernel = all}), 1, 1)[1], 120);
    EXPECT_EQ(at(grey->convolve({.kernel = all}), 0, 0)[1], 53); // 4 × 40 / 3
    EXPECT_FALSE(first->convolve({.kernel = {1, 2, 3}}));
    EXPECT_FALSE(PexImage::make({.size = {3, 3}})->convolve({.kernel = same}));
    EXPECT_EQ(PexConvolution({1, 2, 3}, {4, 5, 6}, {7, 8, 9}).kernel,
              (std::vector<std::int16_t>{1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

TEST(Sharpen, GreyOfAProfileBecomesStandardColours) {
    const auto profile = grayProfile(1.8);
    const auto grey = makePicture(9, 9, PixelLayout::grey, Pixel{126}, *CGColorSpace::fromICC(Data(profile)));
    const Image sharpened = PexImage::make(grey)->sharpen(1);
    EXPECT_TRUE(sharpened->cgImage->colorSpace().isStandard());
    EXPECT_EQ(at(sharpened, 4, 4)[1], srgbOfGrey(profile, 126));
}

TEST(Filters, SayWhatFailedOrGiveTheReceiver) {
    const CapturedLines printed;
    const Image image = PexImage::make(photoLike(8, 8)), blank = PexImage::make({.size = {4, 4}}),
                none = PexImage::make({.size = {0, 0}});
    EXPECT_FALSE(blank->sharpen(1));
    EXPECT_EQ(printed.lines, Lines{"Failed to get CGImage"});
    EXPECT_FALSE(image->sharpen(static_cast<float>(nan)));
    EXPECT_EQ(printed.lines.size(), 2u);
    EXPECT_EQ(blank->exposure(1), blank);
    EXPECT_EQ(none->fill(PexColor()), none);
    for (const double ev : {nan, infinity, -infinity, 1e300})
        EXPECT_EQ(image->exposure(ev), image);
    EXPECT_NE(image->exposure(0), image);
}

TEST(Fill, ColoursWhatShowsAndKeepsTheRestTransparent) {
    const Image image = PexImage::make(makePicture(4, 1, PixelLayout::straightLast, [](int x, int) {
        return Pixel{9, 9, 9, static_cast<std::uint8_t>(x < 2 ? 255 : 0)};
    }));
    const Image filled = image->fill(PexColor(1, 0.5, 0));
    EXPECT_EQ(at(filled, 0, 0), (Pixel{255, 255, 128, 0})); // A R G B
    EXPECT_EQ(at(filled, 3, 0)[0], 0);
}

constexpr auto layout = PixelLayout::premultipliedLast;

/// R G B A of the image's A R G B.
Pixel rgba(const Image& image, int x, int y) {
    const Pixel p = pixelAt(*image->cgImage, x, y);
    return {p[1], p[2], p[3], p[0]};
}

TEST(Keying, MakesPixelsTransparentWithinTheTolerance) {
    const PexColor key({.intRed = 100, .green = 128, .blue = 90, .alpha = 255});
    const auto colours = noise(123, 45, PixelLayout::skipLast, 3);
    const Image keyed = PexImage::make(colours)->key({key, 60});
    expectPixels(*keyed->cgImage, [&](int x, int y) {
        const Pixel p = pixelAt(colours, x, y);
        const bool near = std::hypot(p[0] - 100.0, p[1] - 128.0, p[2] - 90.0) <= 60;
        return Pixel{std::uint8_t(near ? 0 : 255), p[0], p[1], p[2]};
    });
    EXPECT_EQ(PexImage::make({.size = {4, 4}})->key({key, 1})->size, (CGSize{4, 4}));
    EXPECT_FALSE(PexImage::make({.size = {0, 4}})->key({key, 1}));
}

TEST(Keying, TheKeyColourIsADocumentOfTwoKeys) {
    const PexImage::KeyColor key{PexColor(0.25, 0.5, 0.75), 12.5};
    const std::string text = encode(key);
    EXPECT_EQ(text, R"({"color":{"red":0.25,"green":0.5,"blue":0.75,"alpha":1},"tolerance":12.5})");
    EXPECT_EQ(decode<PexImage::KeyColor>(text), key);
    for (const char* broken : {R"({"tolerance":1})", R"({"color":{"red":0,"green":0,"blue":0,"alpha":1}})"})
        EXPECT_FALSE(decode<PexImage::KeyColor>(broken)) << broken;
}

TEST(Masks, BrightnessOfABitmapBecomesOpacityOnEveryInstructionSet) {
    const auto colours = noise(77, 31, PixelLayout::skipLast, 1),
               mask = noise(77, 31, PixelLayout::skipLast, 2);
    const Image image = PexImage::make(colours);
    kernels::onEveryInstructionSet([&] {
        const Image result = image->apply({.mask = mask});
        expectPixels(*result->cgImage, [&](int x, int y) {
            const Pixel p = pixelAt(colours, x, y), m = pixelAt(mask, x, y);
            return Pixel{std::uint8_t((m[0] + m[1] + m[2]) / 3), p[0], p[1], p[2]};
        });
    });
    const Image red = plain(40, 30, {255, 0, 0, 255});
    for (const std::uint8_t grey : {0, 128, 255}) { // masks are stretched
        const Image result = red->apply({.mask = *plain(7, 9, {grey, grey, grey, 255})->cgImage});
        EXPECT_EQ(rgba(result, 20, 20), (Pixel{255, 0, 0, grey}));
        EXPECT_EQ(rgba(result, 39, 29), (Pixel{255, 0, 0, grey}));
    }
}

TEST(Masks, OpacityOfAnImageBecomesOpacityWhateverItsColour) {
    const Image image = PexImage::make(noise(50, 40, PixelLayout::skipLast, 4));
    kernels::onEveryInstructionSet([&] {
        for (const std::uint8_t alpha : {0, 77, 255}) {
            const Image mask = plain(25, 80, {std::uint8_t(alpha / 2), 0, alpha, alpha});
            const Image result = image->apply({.mask = mask});
            for (const auto& [x, y] : {std::pair{0, 0}, {49, 0}, {25, 20}, {0, 39}, {49, 39}}) {
                const Pixel p = pixelAt(*image->cgImage, x, y);
                EXPECT_EQ(rgba(result, x, y), (Pixel{p[0], p[1], p[2], alpha}));
            }
        }
    });
}

TEST(Masks, OneThatIsSmallerInPointsLiesAtTheLowerLeft) {
    // As many points as half its pixels: the bitmap mask gets the size in points.
    const CGImage pixels = *plain(20, 10, {9, 8, 7, 255})->cgImage;
    const Image image = PexImage::make(NSImage::make(pixels, {10, 5}), {});
    const Image result = image->apply({.mask = *plain(5, 5, {255, 255, 255, 255})->cgImage});
    EXPECT_EQ(rgba(result, 0, 9), (Pixel{9, 8, 7, 255}));
    EXPECT_EQ(rgba(result, 9, 5), (Pixel{9, 8, 7, 255}));
    EXPECT_EQ(rgba(result, 10, 9), (Pixel{9, 8, 7, 0}));
    EXPECT_EQ(rgba(result, 0, 4), (Pixel{9, 8, 7, 0}));
    const Image larger = PexImage::make(NSImage::make(pixels, {40, 30}), {});
    EXPECT_EQ(rgba(larger->apply({.mask = *plain(5, 5, {1, 1, 1, 255})->cgImage}), 19, 0),
              (Pixel{9, 8, 7, 1}));
}

TEST(Masks, ColoursAboveTheirAlphaDoNotShineThrough) {
    // Whatever is made of a keyed, masked or filled image, it is the same as when it was saved in between.
    const Image image = PexImage::make(noise(40, 30, PixelLayout::premultipliedLast, 6));
    const Image base = PexImage::make(noise(60, 50, PixelLayout::skipLast, 7));
    const Image mask = PexImage::make(noise(40, 30, PixelLayout::premultipliedLast, 8));
    const Image edited[] = {image->key({PexColor(0, 0, 0), 250}), image->apply({.mask = mask}),
                            image->apply({.mask = *mask->cgImage}), image->fill(PexColor(1, 0.5, 0.2))};
    const PexWatermark settings{
        .scale = {.policy = PexWatermark::Scale::Policy::originalSize, .maxScale = 1}};
    const std::function<Image(const Image&)> uses[] = {
        [&](const Image& mark) { return base->watermark(mark, settings); },
        [&](const Image& part) { return PexImage::join(part, {.with = base}); },
        [](const Image& one) { return PexCanvas::fit(one, 1); },
        [](const Image& one) {
            return one->resizeWithFit(CGSize{33, 33});
        },
        [](const Image& one) { return one->resize({.toWidth = 17}); },
        [](const Image& one) { return one->rotate({.degrees = 30.0}); },
        [](const Image& one) { return one->rotateAndZoom(30); },
        [](const Image& one) { return one->sharpen(1); },
        [](const Image& one) { return one->exposure(1); },
    };
    kernels::onEveryInstructionSet([&] {
        for (const Image& one : edited) {
            const Image saved = PexImage::make(*one->pngData(), {});
            for (std::size_t use = 0; use < std::size(uses); ++use) {
                // Through straight alpha in the file, colours may come back one step off.
                SCOPED_TRACE(testing::Message() << &one - edited << ' ' << use);
                const auto a = uses[use](one)->cgImage, b = uses[use](saved)->cgImage;
                const CGImage x = *convertedImage(*a, layout, a->colorSpace()),
                              y = *convertedImage(*b, layout, b->colorSpace());
                expectPixels(
                    x, [&](int px, int py) { return pixelAt(y, px, py); }, use < 3 ? 1 : 3);
            }
        }
    });
}

TEST(Masks, TheReceiverComesBackWhenAMaskIsOfNoUse) {
    const Image image = plain(4, 4, {1, 2, 3, 255}), blank = PexImage::make({.size = {4, 4}});
    EXPECT_EQ(image->apply({.mask = blank}), image);
    EXPECT_EQ(image->apply({.mask = Image()}), image);
    const Image empty = PexImage::make({.size = {0, 0}});
    EXPECT_EQ(empty->apply({.mask = image}), empty);
    EXPECT_EQ(empty->apply({.mask = *image->cgImage}), empty);
    const Image endless = PexImage::make(NSImage::make(*image->cgImage, {1e300, std::nan("")}), {});
    EXPECT_EQ(endless->apply({.mask = *image->cgImage}), endless);
}

} // namespace
} // namespace pex
