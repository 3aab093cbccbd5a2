#include "peximage/image/PexImage.h"
#include "peximage/pixels/PexConvolution.h"
#include "tests/platform/raster/kernels/EveryInstructionSet.h"
#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"

#include <algorithm>
#include <limits>

namespace pex {
namespace {

using Image = std::shared_ptr<PexImage>;
using Lines = std::vector<std::string>;
const double infinity = std::numeric_limits<double>::infinity(), nan = std::nan("");

Pixel at(const Image& image, int x, int y) { return pixelAt(*image->cgImage, x, y); }

Image plain(PixelLayout layout, Pixel color) { return PexImage::make(makePicture(3, 3, layout, color)); }

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
    const Image first = plain(PixelLayout::premultipliedFirst, {100, 50, 20, 10});
    EXPECT_FALSE(hasAlpha(first->convolve({.kernel = same})->cgImage->layout()));
    expectPixels(*first->convolve({.kernel = same})->cgImage->cropping({1, 1, 1, 1}), std::array{50, 20, 10});
    const Image grey = plain(PixelLayout::grey, {40});
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

} // namespace
} // namespace pex
