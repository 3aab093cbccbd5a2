#include "peximage/image/PexImage.h"
#include "peximage/pixels/Sharpening.h"
#include "peximage/platform/filters/ColorCube.h"
#include "peximage/platform/foundation/Workers.h"
#include "tests/platform/raster/kernels/EveryInstructionSet.h"
#include "tests/support/Pictures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace pex {
namespace {

constexpr double notNumber = std::numeric_limits<double>::quiet_NaN();
constexpr double infinite = std::numeric_limits<double>::infinity();

/// The largest difference of any byte to what `wanted(x, y, channel)` gives, in doubles.
template <class Wanted>
double largestError(const CGImage& image, Wanted wanted, int channels = 4) {
    double largest = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const Pixel pixel = pixelAt(image, x, y);
            for (int c = 0; c < channels; ++c)
                largest = std::max(largest, std::abs(pixel[std::size_t(c)] - double(wanted(x, y, c))));
        }
    }
    return largest;
}

/// Premultiplied R G B A as double, whatever the layout.
std::array<double, 4> premultiplied(const CGImage& image, int x, int y) {
    const Pixel p = pixelAt(image, x, y);
    if (image.layout() == PixelLayout::grey) return {1.0 * p[0], 1.0 * p[0], 1.0 * p[0], 255};
    const std::size_t first = isAlphaFirst(image.layout()) ? 1 : 0;
    const double alpha = hasAlpha(image.layout()) ? p[first == 1 ? 0 : 3] : 255;
    const bool straight =
        image.layout() == PixelLayout::straightLast || image.layout() == PixelLayout::straightFirst;
    std::array<double, 4> result{};
    for (std::size_t c = 0; c < 3; ++c)
        result[c] = straight ? p[first + c] * alpha / 255 : p[first + c];
    result[3] = alpha;
    return result;
}

/// Luma sharpening in doubles: what is transparent does not count.
template <class At>
double sharpened(At at, int width, int height, int x, int y, int c, double sharpness) {
    const double weights[] = {1, 4, 6, 4, 1};
    const auto luma = [](const std::array<double, 4>& p) {
        return 0.2126 * p[0] + 0.7152 * p[1] + 0.0722 * p[2];
    };
    double sum = 0, alpha = 0;
    for (int i = 0; i < 25; ++i) {
        const auto p = at(std::clamp(x + i % 5 - 2, 0, width - 1), std::clamp(y + i / 5 - 2, 0, height - 1));
        sum += weights[i % 5] * weights[i / 5] * luma(p);
        alpha += weights[i % 5] * weights[i / 5] * p[3];
    }
    const auto p = at(x, y);
    if (c == 3 || p[3] == 0) return p[std::size_t(c)];
    return std::clamp(p[std::size_t(c)] + sharpness * (luma(p) - p[3] * sum / alpha), 0.0, p[3]);
}

TEST(FilterGraphSharpening, AgainstAPlainLoop) {
    for (const PixelLayout layout : {PixelLayout::skipLast, PixelLayout::premultipliedLast}) {
        for (const auto& [width, height] : {std::pair{1, 1}, {2, 50}, {33, 3}, {45, 71}}) {
            for (const double sharpness : {0.0, 0.4, 2.0, -0.5}) {
                const CGImage image = noise(width, height, layout);
                const auto result = sharpen(image, static_cast<float>(sharpness));
                ASSERT_TRUE(result);
                const auto wanted = [&, w = width, h = height](int x, int y, int c) {
                    return sharpened([&](int i, int j) { return premultiplied(image, i, j); }, w, h, x, y, c,
                                     sharpness);
                };
                // Half a step of rounding, and the weights of luma in 256ths, half a 256th each.
                EXPECT_LE(largestError(*result, wanted, layout == PixelLayout::skipLast ? 3 : 4),
                          0.52 + std::abs(sharpness) * 0.5)
                    << width << 'x' << height << " by " << sharpness;
            }
        }
    }
}

TEST(FilterGraphSharpening, OneColourHasNoFringeWhereItEnds) {
    const auto shape = makePicture(20, 20, PixelLayout::premultipliedLast, [](int x, int y) {
        const bool inside = x > 5 && x < 14 && y > 5 && y < 14;
        return inside ? Pixel{200, 120, 40, 255} : Pixel{0, 0, 0, 0};
    });
    const auto result = sharpen(shape, 3);
    ASSERT_TRUE(result);
    EXPECT_EQ(
        largestError(*result, [&](int x, int y, int c) { return pixelAt(shape, x, y)[std::size_t(c)]; }), 0);
}

TEST(FilterGraphSharpening, WhatIsKeyedOrMaskedHasNoLumaBeyondItsAlpha) {
    // Keys and masks leave the colours of what they make transparent.
    const CGImage colours = noise(40, 30, PixelLayout::skipLast, 5);
    const auto keyed = makePicture(40, 30, PixelLayout::premultipliedLast, [&](int x, int y) {
        Pixel p = pixelAt(colours, x, y);
        p[3] = (x / 3 + y / 4) % 3 == 0 ? 0 : 255;
        return p;
    });
    const auto seen = [&](int x, int y) {
        const auto p = premultiplied(keyed, x, y);
        return p[3] == 0 ? std::array<double, 4>{} : p;
    };
    kernels::onEveryInstructionSet([&] {
        const auto result = sharpen(keyed, 2);
        ASSERT_TRUE(result);
        const auto wanted = [&](int x, int y, int c) {
            const Pixel p = pixelAt(keyed, x, y);
            return p[3] == 0 ? 0 : sharpened(seen, 40, 30, x, y, c, 2);
        };
        EXPECT_LE(largestError(*result, wanted), 1.52);

        const auto faint = makePicture(40, 30, PixelLayout::premultipliedLast, [](int x, int) {
            return x % 2 == 0 ? Pixel{255, 255, 255, 1} : Pixel{255, 255, 255, 0};
        });
        EXPECT_EQ(pixelAt(*sharpen(faint, 64), 20, 20), (Pixel{1, 1, 1, 1}));
    });
}

double exposed(double c, double ev) {
    const double v = c / 255;
    const double light =
        std::min((v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4)) * std::exp2(ev), 1.0);
    return 255 * (light <= 0.0031308 ? light * 12.92 : 1.055 * std::pow(light, 1 / 2.4) - 0.055);
}

TEST(FilterGraphExposure, WorksOnColoursWithoutTheirAlpha) {
    const auto image = noise(64, 64, PixelLayout::straightLast);
    const auto result = PexImage::make(image)->exposure(1);
    const auto wanted = [&](int x, int y, int c) {
        const Pixel p = pixelAt(image, x, y);
        return c == 3 ? double(p[3]) : exposed(p[std::size_t(c)], 1) * p[3] / 255;
    };
    // The source multiplied by alpha, rounded, and divided again; brightening doubles what that loses, and
    // more where colours are dark.
    EXPECT_LE(largestError(*result->cgImage, wanted), 4);
    const auto opaque = makePicture(9, 9, PixelLayout::premultipliedLast, [](int x, int y) {
        return Pixel{std::uint8_t(x), 100, std::uint8_t(y), 255};
    });
    EXPECT_LE(largestError(*PexImage::make(opaque)->exposure(1)->cgImage,
                           [&](int x, int y, int c) {
                               return c == 3 ? 255 : exposed(c == 0 ? x : c == 1 ? 100 : y, 1);
                           }),
              0.5001);
}

TEST(FilterGraphExposure, GivesTheReceiverWhereItCannot) {
    const auto blank = PexImage::make({.size = {4, 4}});
    EXPECT_EQ(blank->exposure(1), blank);
    const auto image = PexImage::make(photoLike(4, 4));
    for (const double ev : {notNumber, infinite, -infinite, 1e300})
        EXPECT_EQ(image->exposure(ev), image);
}

std::shared_ptr<const ColorCube> swapping() {
    // Red and blue change places, green is turned around.
    std::vector<ColorCube::Color> entries;
    for (int i = 0; i < 27; ++i)
        entries.push_back({i / 9 / 2.0, 1 - i / 3 % 3 / 2.0, i % 3 / 2.0});
    return ColorCube::make(3, entries);
}

CIImage film(const CIImage& image) {
    return image.sharpenedLuminance(0.8).exposureAdjusted(0.5).colorCube(swapping()).sharpenedLuminance(0.3);
}

CIImage chain(const CIImage& image) { return film(image.scaled(0.7, 0.7)); }

bool samePixels(const CGImage& a, const CGImage& b) {
    return a.width() == b.width() && a.height() == b.height() &&
           largestError(a, [&](int x, int y, int c) { return double(pixelAt(b, x, y)[std::size_t(c)]); }) ==
               0;
}

TEST(FilterGraphRendering, ThreadsAndInstructionSetsMakeNoDifference) {
    const CGImage image = noise(150, 333, PixelLayout::premultipliedLast);
    std::optional<CGImage> first;
    kernels::onEveryInstructionSet([&] {
        for (const int threads : {1, 2, 5}) {
            const Workers::Limit limit(threads);
            const auto result = chain(CIImage(image)).getCGImage();
            ASSERT_TRUE(result);
            if (!first) first = result;
            EXPECT_TRUE(samePixels(*result, *first)) << threads;
        }
    });
}

TEST(FilterGraphRendering, StripsMakeNoDifference) {
    // The same rows lie elsewhere in their strips when the picture is cut; those that sharpening reaches from
    // the cut differ.
    const CGImage image = noise(60, 200, PixelLayout::skipLast);
    const auto whole = chain(CIImage(image).scaled(1 / 0.7, 1 / 0.7)).getCGImage();
    constexpr int cut = 13, reach = 4;
    const auto part =
        chain(CIImage(*image.cropping({0, cut, 60, 187})).scaled(1 / 0.7, 1 / 0.7)).getCGImage();
    ASSERT_TRUE(whole && part);
    for (int y = reach; y < part->height(); ++y)
        for (int x = 0; x < 60; ++x)
            ASSERT_EQ(pixelAt(*part, x, y), pixelAt(*whole, x, y + cut)) << x << ' ' << y;
}

/// Filters that reach far into the strips beside theirs.
CIImage farReaching(const CIImage& image) {
    CIImage result = image.exposureAdjusted(0.2);
    for (int i = 0; i < 7; ++i)
        result = result.sharpenedLuminance(0.3).exposureAdjusted(-0.02);
    return result;
}

TEST(FilterGraphRendering, APictureThatNobodyElseHasIsFilteredInItsOwnMemory) {
    using enum PixelLayout;
    for (const PixelLayout layout :
         {skipLast, skipFirst, premultipliedLast, premultipliedFirst, straightLast, grey}) {
        const CIImage scaled = CIImage(noise(31, 150, layout)).scaled(2, 4.1);
        const auto shared = scaled.getCGImage();
        ASSERT_TRUE(shared);
        for (const auto filters : {film, farReaching}) {
            // The one works in place; the other must leave the picture, which the test has, as it is.
            const auto own = filters(scaled).getCGImage(), copied = filters(CIImage(*shared)).getCGImage();
            ASSERT_TRUE(own && copied);
            EXPECT_EQ(own->layout(), copied->layout());
            EXPECT_TRUE(samePixels(*own, *copied)) << int(layout);
        }
        EXPECT_TRUE(samePixels(*shared, *scaled.getCGImage()));
    }
}

TEST(FilterGraphRendering, FiltersBelowTransformsAndCrops) {
    const CGImage image = photoLike(120, 90);
    const CIImage bright = CIImage(image).exposureAdjusted(0.7);
    const auto one = bright.getCGImage();
    ASSERT_TRUE(one);
    EXPECT_TRUE(samePixels(*bright.cropped({10, 20, 50, 40}).getCGImage(),
                           *CIImage(*one).cropped({10, 20, 50, 40}).getCGImage()));
    EXPECT_TRUE(
        samePixels(*bright.scaled(0.5, 0.5).getCGImage(), *CIImage(*one).scaled(0.5, 0.5).getCGImage()));
    EXPECT_TRUE(
        samePixels(*bright.straightened(0.1).getCGImage(), *CIImage(*one).straightened(0.1).getCGImage()));
    EXPECT_FALSE(CIImage(image).exposureAdjusted(notNumber).getCGImage());
    EXPECT_FALSE(CIImage(image).cropped({200, 200, 5, 5}).sharpenedLuminance(1).getCGImage());
}

} // namespace
} // namespace pex
