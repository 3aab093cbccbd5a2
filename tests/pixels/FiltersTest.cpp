#include "peximage/image/PexImage.h"
#include "peximage/pixels/PexConvolution.h"
#include "peximage/pixels/PexLut.h"
#include "peximage/pixels/Sharpening.h"
#include "peximage/platform/filters/CIContext.h"
#include "peximage/platform/filters/CIFilter.h"
#include "peximage/platform/foundation/Workers.h"
#include "tests/platform/raster/kernels/EveryInstructionSet.h"
#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <sstream>

namespace pex {
namespace {

using Image = std::shared_ptr<PexImage>;
using Lines = std::vector<std::string>;
using Color = ColorCube::Color;
const double infinity = std::numeric_limits<double>::infinity(), nan = std::nan("");

/// R G B A as the layout has them in memory, alpha last.
Pixel at(const CGImage& image, int x, int y) { return pixelAt(image, x, y); }
Pixel at(const Image& image, int x, int y) { return pixelAt(*image->cgImage, x, y); }

/// The largest difference of the colours from what the function gives, unrounded.
template <class Expected>
double worst(const CGImage& image, Expected expected) {
    double most = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const Color wanted = expected(x, y);
            for (std::size_t c = 0; c < 3; ++c)
                most = std::max(most, std::abs(at(image, x, y)[c] - wanted[c]));
        }
    }
    return most;
}

// Convolution.

int convolved(const CGImage& from, int x, int y, std::size_t c, const std::vector<std::int16_t>& kernel,
              const std::vector<std::uint8_t>& background) {
    int sum = 0;
    for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
            const int px = x + dx, py = y + dy;
            const bool inside = px >= 0 && py >= 0 && px < from.width() && py < from.height();
            sum += kernel[static_cast<std::size_t>(3 * dy + dx + 4)] *
                   (inside ? at(from, px, py)[c] : background[c]);
        }
    }
    return static_cast<int>(std::clamp(std::round(sum / 3.0), 0.0, 255.0));
}

TEST(Convolution, EqualsAPlainLoopOnEveryInstructionSet) {
    const std::vector<std::int16_t> kernels[] = {{0, 0, 0, 0, 3, 0, 0, 0, 0},
                                                 {1, 1, 1, 1, 1, 1, 1, 1, 1},
                                                 {-1, -2, -1, 0, 0, 0, 1, 2, 1},
                                                 {0, -1, 0, -1, 7, -1, 0, -1, 0},
                                                 {32767, -32768, 32767, 0, 1, 0, -32768, 32767, -32768}};
    for (const auto& [width, height] : {std::pair{1, 1}, {2, 1}, {1, 3}, {17, 5}, {70, 40}}) {
        const CGImage from = noise(width, height, PixelLayout::skipLast, 3);
        const Image image = PexImage::make(from);
        for (const auto& kernel : kernels) {
            PexConvolution how(kernel);
            how.bgColor = {10, 200, 30, 0};
            kernels::onEveryInstructionSet([&, width = width, height = height] {
                const Image result = image->convolve({.convolution = how});
                ASSERT_TRUE(result);
                for (int y = 0; y < height; ++y) {
                    for (int x = 0; x < width; ++x) {
                        for (std::size_t c = 0; c < 3; ++c)
                            ASSERT_NEAR(at(result, x, y)[c], convolved(from, x, y, c, kernel, how.bgColor), 1)
                                << x << ' ' << y;
                    }
                }
            });
        }
    }
}

TEST(Convolution, DropsTransparencyAndTurnsOtherOrdersFirst) {
    const Image first = PexImage::make(makePicture(3, 3, PixelLayout::premultipliedFirst, [](int, int) {
        return Pixel{100, 50, 20, 10};
    }));
    const Image same = first->convolve({.kernel = {0, 0, 0, 0, 3, 0, 0, 0, 0}});
    EXPECT_FALSE(hasAlpha(same->cgImage->layout()));
    EXPECT_EQ(at(same, 1, 1)[0], 50);
    EXPECT_EQ(at(same, 1, 1)[2], 10);
    const Image grey = PexImage::make(makePicture(3, 3, PixelLayout::grey, [](int, int) {
        return Pixel{40, 40, 40, 40};
    }));
    EXPECT_EQ(at(grey->convolve({.kernel = {1, 1, 1, 1, 1, 1, 1, 1, 1}}), 1, 1)[1], 120);
    EXPECT_EQ(at(grey->convolve({.kernel = {1, 1, 1, 1, 1, 1, 1, 1, 1}}), 0, 0)[1], 53); // 4 × 40 / 3
    EXPECT_FALSE(first->convolve({.kernel = {1, 2, 3}}));
    EXPECT_FALSE(PexImage::make({.size = {3, 3}})->convolve({.kernel = {0, 0, 0, 0, 3, 0, 0, 0, 0}}));
    EXPECT_EQ(PexConvolution({1, 2, 3}, {4, 5, 6}, {7, 8, 9}).kernel,
              (std::vector<std::int16_t>{1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

// Sharpening and exposure.

Color sharpened(const CGImage& from, int x, int y, double sharpness) {
    const double weights[] = {1, 4, 6, 4, 1};
    const auto luma = [&](int px, int py) {
        const Pixel p = at(from, std::clamp(px, 0, from.width() - 1), std::clamp(py, 0, from.height() - 1));
        return 0.2126 * p[0] + 0.7152 * p[1] + 0.0722 * p[2];
    };
    double blurred = 0;
    for (int dy = -2; dy <= 2; ++dy) {
        for (int dx = -2; dx <= 2; ++dx)
            blurred += weights[dy + 2] * weights[dx + 2] / 256 * luma(x + dx, y + dy);
    }
    Color result;
    for (std::size_t c = 0; c < 3; ++c)
        result[c] = std::clamp(at(from, x, y)[c] + sharpness * (luma(x, y) - blurred), 0.0, 255.0);
    return result;
}

TEST(Sharpen, EqualsAPlainLoopWhateverTheThreadsAndTheInstructionSet) {
    for (const auto& [width, height] : {std::pair{1, 1}, {5, 1}, {3, 70}, {133, 97}}) {
        const Image image = PexImage::make(noise(width, height, PixelLayout::skipLast, 8));
        for (const double sharpness : {0.0, 0.4, 2.0, -1.0}) {
            std::optional<CGImage> before;
            kernels::onEveryInstructionSet([&] {
                for (const int threads : {1, 3}) {
                    const Workers::Limit limit(threads);
                    const Image result = image->sharpen(static_cast<float>(sharpness));
                    const double most = worst(*result->cgImage, [&](int x, int y) {
                        return sharpened(*image->cgImage, x, y, sharpness);
                    });
                    EXPECT_LE(most, 0.52 + 0.5 * std::abs(sharpness));
                    if (before) {
                        EXPECT_EQ(worst(*result->cgImage,
                                        [&](int x, int y) {
                                            const Pixel p = at(*before, x, y);
                                            return Color{double(p[0]), double(p[1]), double(p[2])};
                                        }),
                                  0);
                    }
                    before = result->cgImage;
                }
            });
        }
    }
}

TEST(Sharpen, GreyOfAProfileBecomesStandardColours) {
    const auto profile = grayProfile(1.8);
    const auto grey = makePicture(
        9, 9, PixelLayout::grey, [](int, int) { return Pixel{126}; }, *CGColorSpace::fromICC(Data(profile)));
    const Image sharpened = PexImage::make(grey)->sharpen(1);
    EXPECT_TRUE(sharpened->cgImage->colorSpace().isStandard());
    EXPECT_EQ(at(sharpened, 4, 4)[1], srgbOfGrey(profile, 126));
}

TEST(Sharpen, SaysWhatFailed) {
    const CapturedLines printed;
    EXPECT_FALSE(PexImage::make({.size = {4, 4}})->sharpen(1));
    EXPECT_EQ(printed.lines, Lines{"Failed to get CGImage"});
    EXPECT_FALSE(PexImage::make(photoLike(8, 8))->sharpen(static_cast<float>(nan)));
    EXPECT_EQ(printed.lines.size(), 2u);
}

double exposed(double byte, double ev) {
    const double v = byte / 255;
    const double linear = (v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4)) * std::exp2(ev);
    const double coded = linear <= 0.0031308 ? linear * 12.92 : 1.055 * std::pow(linear, 1 / 2.4) - 0.055;
    return std::min(coded, 1.0) * 255;
}

TEST(Exposure, IsInLinearLight) {
    const CGImage from = noise(90, 70, PixelLayout::skipLast, 4);
    const Image image = PexImage::make(from), blank = PexImage::make({.size = {4, 4}});
    for (const double ev : {-3.0, -0.5, 0.0, 1.0, 2.25, 20.0}) {
        const Image result = image->exposure(ev);
        EXPECT_LE(worst(*result->cgImage,
                        [&](int x, int y) {
                            const Pixel p = at(from, x, y);
                            return Color{exposed(p[0], ev), exposed(p[1], ev), exposed(p[2], ev)};
                        }),
                  0.51)
            << ev;
        EXPECT_NE(result, image);
    }
    EXPECT_EQ(blank->exposure(1), blank);
    EXPECT_EQ(image->exposure(nan), image);
    // What is transparent keeps its alpha, and colours stay within it.
    const Image half = PexImage::make(makePicture(4, 4, PixelLayout::premultipliedLast, [](int, int) {
        return Pixel{60, 30, 10, 128};
    }));
    const Pixel lit = at(half->exposure(1), 1, 1);
    EXPECT_EQ(lit[3], 128);
    EXPECT_NEAR(lit[0], exposed(60 * 255 / 128.0, 1) * 128 / 255, 1.5);
}

// Lookup tables.

Color curved(const Color& c) { return {1 - c[0] * c[1], std::sqrt(c[1]), c[2] * c[2] * 0.5 + c[0] * 0.5}; }

std::string cubeText(int side, Color (*change)(const Color&)) {
    std::ostringstream text;
    text << "# a table\nTITLE \"t\"\nLUT_3D_SIZE " << side << "\n";
    const double last = side - 1;
    for (int b = 0; b < side; ++b) {
        for (int g = 0; g < side; ++g) {
            for (int r = 0; r < side; ++r) {
                const Color c = change({r / last, g / last, b / last});
                text << c[0] << ' ' << c[1] << ' ' << c[2] << "\n";
            }
        }
    }
    return text.str();
}

/// In the tetrahedron whose corners are reached along the axes by falling distance.
Color interpolated(const Color& at, int side, Color (*change)(const Color&)) {
    Color low, along;
    std::array<std::size_t, 3> order{0, 1, 2};
    for (std::size_t c = 0; c < 3; ++c) {
        low[c] = std::min(std::floor(at[c] * (side - 1)), side - 2.0);
        along[c] = at[c] * (side - 1) - low[c];
    }
    std::ranges::sort(order, [&](auto a, auto b) { return along[a] > along[b]; });
    const auto entry = [&](const Color& place) {
        return change({place[0] / (side - 1), place[1] / (side - 1), place[2] / (side - 1)});
    };
    Color corner = low, result = entry(low), before = result;
    for (const std::size_t axis : order) {
        corner[axis] += 1;
        const Color here = entry(corner);
        for (std::size_t c = 0; c < 3; ++c)
            result[c] += along[axis] * (here[c] - before[c]);
        before = here;
    }
    return result;
}

TEST(LookupTable, InterpolatesInTetrahedraOnEveryInstructionSet) {
    const CGImage from = noise(64, 50, PixelLayout::skipLast, 6);
    const Image image = PexImage::make(from);
    for (const int side : {2, 3, 17, 33}) {
        const auto lut = PexLut::make(Data(cubeText(side, curved)));
        ASSERT_TRUE(lut);
        kernels::onEveryInstructionSet([&] {
            const Image result = image->apply({.lut = *lut});
            EXPECT_LE(
                worst(*result->cgImage,
                      [&](int x, int y) {
                          const Pixel p = at(from, x, y);
                          Color c = interpolated({p[0] / 255.0, p[1] / 255.0, p[2] / 255.0}, side, curved);
                          for (double& v : c)
                              v = std::clamp(v, 0.0, 1.0) * 255;
                          return c;
                      }),
                0.54)
                << side;
        });
    }
}

TEST(LookupTable, IsReadFromPicturesToo) {
    constexpr int n = 4;
    const auto step = [](int i) { return static_cast<std::uint8_t>(255 - 85 * i); };
    const auto entry = [&](int r, int g, int b) { return Pixel{step(r), step(g), step(b), 255}; };
    const CGImage packed =
        makePicture(n, n * n, PixelLayout::skipLast, [&](int x, int y) { return entry(x, y % n, y / n); });
    const CGImage strip =
        makePicture(n * n, n, PixelLayout::skipLast, [&](int x, int y) { return entry(x % n, y, x / n); });
    const CGImage square = makePicture(8, 8, PixelLayout::skipLast, [&](int x, int y) {
        const int i = y * 8 + x;
        return entry(i % n, i / n % n, i / n / n);
    });
    const Image image = PexImage::make(noise(20, 20, PixelLayout::skipLast, 2));
    for (const CGImage& picture : {packed, strip, square}) {
        const auto lut = PexLut::make(*PexImage::make(picture)->pngData());
        ASSERT_TRUE(lut) << picture.width();
        const Image inverted = image->apply({.lut = *lut});
        EXPECT_LE(worst(*inverted->cgImage,
                        [&](int x, int y) {
                            const Pixel p = at(image, x, y);
                            return Color{255.0 - p[0], 255.0 - p[1], 255.0 - p[2]};
                        }),
                  0.54);
    }
}

TEST(LookupTable, IsADocumentThatWorksAgain) {
    const auto lut = PexLut::make(Data(cubeText(2, curved)));
    const std::string text = encode(*lut);
    EXPECT_EQ(text.substr(0, 9), R"({"data":")");
    const auto again = decode<PexLut>(text);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->data, lut->data);
    const Image image = PexImage::make(noise(5, 5, PixelLayout::skipLast));
    EXPECT_EQ(at(image->apply({.lut = *again}), 3, 3), at(image->apply({.lut = *lut}), 3, 3));
    const auto none = decode<PexLut>(R"({"data":"AAAA"})");
    ASSERT_TRUE(none);
    EXPECT_FALSE(image->apply({.lut = *none}));
    for (const char* broken : {"{}", R"({"data":7})", R"({"data":"%%%"})"})
        EXPECT_FALSE(decode<PexLut>(broken)) << broken;
}

TEST(LookupTable, WhatIsNoneIsRefused) {
    const std::string good = cubeText(2, curved);
    for (const std::string& text :
         {std::string(), std::string("LUT_3D_SIZE"), std::string("LUT_3D_SIZE 1\n0 0 0\n"),
          std::string("LUT_3D_SIZE 129\n"), std::string("LUT_3D_SIZE 99999999999\n"), good + "1 1 1\n",
          good.substr(0, good.size() - 8), "LUT_3D_SIZE 2\nnan 0 0\n" + good, std::string(100'000, '1')})
        EXPECT_FALSE(PexLut::make(Data(text))) << text.substr(0, 40);
    EXPECT_FALSE(PexLut::make(*PexImage::make(photoLike(7, 9))->pngData()));
    const TempFolder folder;
    const Image image = PexImage::make(photoLike(4, 4)), blank = PexImage::make({.size = {4, 4}});
    EXPECT_FALSE(image->apply({.lutAtUrl = folder.url("missing.cube")}));
    EXPECT_FALSE(blank->apply({.lut = *PexLut::make(Data(good))}));
}

// The graph.

TEST(FilterGraph, AChainGivesWhatItsStepsGive) {
    const Image image = PexImage::make(photoLike(220, 150));
    const auto lut = PexLut::make(Data(cubeText(9, curved)));
    const Image steps =
        image->resize({.to = {120, 90}})->sharpen(0.7F)->exposure(0.6)->apply({.lut = *lut})->sharpen(0.3F);
    const CIImage chain = lut->applyTo(CIImage(*image->cgImage)
                                           .resized({.to = {120, 90}})
                                           .sharpenedLuminance(0.7F)
                                           .exposureAdjusted(0.6F))
                              ->sharpenedLuminance(0.3F);
    for (const int threads : {1, 2, 5}) {
        const Workers::Limit limit(threads);
        const auto whole = CIContext().createCGImage(chain, chain.extent());
        ASSERT_TRUE(whole);
        EXPECT_LE(worst(*whole,
                        [&](int x, int y) {
                            const Pixel p = at(steps, x, y);
                            return Color{double(p[0]), double(p[1]), double(p[2])};
                        }),
                  1)
            << threads;
        const auto part = CIContext().createCGImage(chain, {20, 10, 50, 40}); // y from the bottom
        ASSERT_TRUE(part);
        EXPECT_EQ(part->width(), 50);
        EXPECT_EQ(at(*part, 0, 0), at(*whole, 20, 90 - 50));
        EXPECT_EQ(at(*part, 49, 39), at(*whole, 69, 90 - 11));
    }
}

TEST(FilterGraph, FiltersComeByNameFromOneTable) {
    const CIImage picture(photoLike(30, 20));
    for (const std::string_view name : CIFilter::names()) {
        auto filter = CIFilter::make(name);
        ASSERT_TRUE(filter);
        EXPECT_EQ(filter->name(), name);
        EXPECT_FALSE(filter->outputImage()) << name;
        filter->setValue(picture, kCIInputImageKey);
        filter->setValue(infinity, kCIInputSharpnessKey);
        filter->setValue(infinity, kCIInputEVKey);
        filter->setValue(nan, kCIInputAngleKey);
        filter->setValue(nan, kCIInputScaleKey);
        EXPECT_FALSE(filter->outputImage()) << name;
    }
    EXPECT_FALSE(CIFilter::make("CIUnheardOf"));
    auto still = CIFilter::make("CIAffineTransform");
    still->setValue(picture, kCIInputImageKey);
    still->setValue(1.0, kCIInputScaleKey);
    still->setValue(CGPoint{0, 0}, kCIInputTransformKey);
    EXPECT_EQ(still->outputImage()->extent(), picture.extent());
}

TEST(Fill, ColoursWhatShowsAndKeepsTheRestTransparent) {
    const Image image = PexImage::make(makePicture(4, 1, PixelLayout::straightLast, [](int x, int) {
        return Pixel{9, 9, 9, static_cast<std::uint8_t>(x < 2 ? 255 : 0)};
    }));
    const Image filled = image->fill(PexColor(1, 0.5, 0));
    EXPECT_EQ(at(filled, 0, 0), (Pixel{255, 255, 128, 0})); // A R G B
    EXPECT_EQ(at(filled, 3, 0)[0], 0);
    const Image none = PexImage::make({.size = {0, 0}});
    EXPECT_EQ(none->fill(PexColor()), none);
}

} // namespace
} // namespace pex
