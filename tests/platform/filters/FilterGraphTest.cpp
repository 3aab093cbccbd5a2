#include "peximage/image/PexImage.h"
#include "peximage/pixels/Sharpening.h"
#include "peximage/platform/filters/CIContext.h"
#include "peximage/platform/filters/CIFilter.h"
#include "peximage/platform/filters/ColorCube.h"
#include "peximage/platform/foundation/Workers.h"
#include "tests/platform/raster/kernels/EveryInstructionSet.h"
#include "tests/support/Pictures.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace pex {
namespace {

using Real = std::array<double, 4>;
const double nan = std::nan(""), infinity = std::numeric_limits<double>::infinity();

/// Premultiplied R G B A of a picture with alpha last or with none.
Real real(const CGImage& image, int x, int y) {
    const Pixel p = pixelAt(image, x, y);
    const double alpha = hasAlpha(image.layout()) ? p[3] : 255;
    const double share = image.layout() == PixelLayout::straightLast ? alpha / 255 : 1;
    return {p[0] * share, p[1] * share, p[2] * share, alpha};
}

/// Luma sharpening in exact numbers: what is transparent does not count.
Real sharpened(const CGImage& image, int x, int y, double sharpness) {
    const double weights[] = {1, 4, 6, 4, 1};
    const auto luma = [](const Real& p) { return 0.2126 * p[0] + 0.7152 * p[1] + 0.0722 * p[2]; };
    double sum = 0, alpha = 0;
    for (int i = 0; i < 25; ++i) {
        const int px = std::clamp(x + i % 5 - 2, 0, image.width() - 1),
                  py = std::clamp(y + i / 5 - 2, 0, image.height() - 1);
        const Real p = real(image, px, py);
        sum += p[3] == 0 ? 0 : weights[i % 5] * weights[i / 5] * luma(p);
        alpha += weights[i % 5] * weights[i / 5] * p[3];
    }
    const Real here = real(image, x, y);
    if (here[3] == 0) return {};
    Real result = here;
    for (std::size_t c = 0; c < 3; ++c)
        result[c] = std::clamp(here[c] + sharpness * (luma(here) - here[3] * sum / alpha), 0.0, here[3]);
    return result;
}

std::array<double, 3> colours(const Real& p) { return {p[0], p[1], p[2]}; }

TEST(FilterGraphSharpening, EqualsAPlainLoopOnEveryInstructionSet) {
    for (const PixelLayout layout : {PixelLayout::skipLast, PixelLayout::premultipliedLast}) {
        for (const auto& [width, height] : {std::pair{1, 1}, {2, 50}, {33, 3}, {45, 71}}) {
            for (const double sharpness : {0.0, 0.4, 2.0, -0.5}) {
                SCOPED_TRACE(testing::Message() << width << " by " << sharpness << " of " << int(layout));
                const CGImage image = noise(width, height, layout);
                kernels::onEveryInstructionSet([&] {
                    const auto result = sharpen(image, static_cast<float>(sharpness));
                    ASSERT_TRUE(result);
                    // Half a step of rounding, and the weights of luma in 256ths, half a 256th each.
                    const double within = 0.52 + std::abs(sharpness) * 0.5;
                    if (layout == PixelLayout::skipLast)
                        expectPixels(
                            *result, [&](int x, int y) { return colours(sharpened(image, x, y, sharpness)); },
                            within);
                    else
                        expectPixels(
                            *result, [&](int x, int y) { return sharpened(image, x, y, sharpness); }, within);
                });
            }
        }
    }
}

TEST(FilterGraphSharpening, OneColourHasNoFringeWhereItEnds) {
    const auto shape = makePicture(20, 20, PixelLayout::premultipliedLast, [](int x, int y) {
        const bool inside = x > 5 && x < 14 && y > 5 && y < 14;
        return inside ? Pixel{200, 120, 40, 255} : Pixel{0, 0, 0, 0};
    });
    expectPixels(*sharpen(shape, 3), [&](int x, int y) { return pixelAt(shape, x, y); });
}

TEST(FilterGraphSharpening, WhatIsKeyedOrMaskedHasNoLumaBeyondItsAlpha) {
    // Keys and masks leave the colours of what they make transparent.
    const CGImage colours = noise(40, 30, PixelLayout::skipLast, 5);
    const auto keyed = makePicture(40, 30, PixelLayout::premultipliedLast, [&](int x, int y) {
        Pixel p = pixelAt(colours, x, y);
        p[3] = (x / 3 + y / 4) % 3 == 0 ? 0 : 255;
        return p;
    });
    kernels::onEveryInstructionSet([&] {
        expectPixels(
            *sharpen(keyed, 2), [&](int x, int y) { return sharpened(keyed, x, y, 2); }, 1.52);
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

TEST(FilterGraphExposure, IsInLinearLightAndLeavesAlpha) {
    const CGImage opaque = noise(90, 70, PixelLayout::skipLast, 4),
                  image = noise(64, 64, PixelLayout::straightLast);
    for (const double ev : {-3.0, -0.5, 0.0, 1.0, 2.25, 20.0}) {
        SCOPED_TRACE(ev);
        expectPixels(
            *PexImage::make(opaque)->exposure(ev)->cgImage,
            [&](int x, int y) {
                const Pixel p = pixelAt(opaque, x, y);
                return std::array{exposed(p[0], ev), exposed(p[1], ev), exposed(p[2], ev)};
            },
            0.51);
    }
    // The source multiplied by alpha, rounded, and divided again; brightening doubles what that loses, and
    // more where colours are dark.
    expectPixels(
        *PexImage::make(image)->exposure(1)->cgImage,
        [&](int x, int y) {
            const Pixel p = pixelAt(image, x, y);
            const double share = p[3] / 255.0;
            return Real{exposed(p[0], 1) * share, exposed(p[1], 1) * share, exposed(p[2], 1) * share,
                        double(p[3])};
        },
        4);
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

void expectSame(const CGImage& a, const CGImage& b) {
    ASSERT_EQ(a.width(), b.width());
    ASSERT_EQ(a.height(), b.height());
    expectPixels(a, [&](int x, int y) { return pixelAt(b, x, y); });
}

TEST(FilterGraphRendering, AChainGivesWhatItsStepsGive) {
    const auto image = PexImage::make(photoLike(220, 150));
    const CIImage picture = CIImage(*image->cgImage).resized({.to = {120, 90}});
    // Neighbouring curves and tables are made one: none of them may be lost.
    const CIImage chain = picture.sharpenedLuminance(0.7)
                              .exposureAdjusted(0.6)
                              .exposureAdjusted(-0.4)
                              .colorCube(swapping())
                              .exposureAdjusted(0.2)
                              .sharpenedLuminance(0.3);
    const auto steps = image->resize({.to = {120, 90}})->sharpen(0.7F)->exposure(0.6)->exposure(-0.4);
    const auto looked = CIImage(*steps->cgImage).colorCube(swapping()).getCGImage();
    const auto wanted = PexImage::make(*looked)->exposure(0.2)->sharpen(0.3F);
    for (const int threads : {1, 2, 5}) {
        const Workers::Limit limit(threads);
        const auto whole = CIContext().createCGImage(chain, chain.extent());
        ASSERT_TRUE(whole);
        expectPixels(
            *whole, [&](int x, int y) { return pixelAt(*wanted->cgImage, x, y); }, 1);
        const auto part = CIContext().createCGImage(chain, {20, 10, 50, 40}); // y from the bottom
        ASSERT_TRUE(part && part->width() == 50);
        expectPixels(*part, [&](int x, int y) { return pixelAt(*whole, x + 20, y + 90 - 50); });
    }
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
            expectSame(*result, *first);
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
    expectPixels(*part->cropping({0, reach, 60, 187 - reach}),
                 [&](int x, int y) { return pixelAt(*whole, x, y + reach + cut); });
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
            expectSame(*own, *copied);
        }
        expectSame(*shared, *scaled.getCGImage());
    }
}

TEST(FilterGraphRendering, FiltersBelowTransformsAndCrops) {
    const CGImage image = photoLike(120, 90);
    const CIImage bright = CIImage(image).exposureAdjusted(0.7);
    const auto one = bright.getCGImage();
    ASSERT_TRUE(one);
    expectSame(*bright.cropped({10, 20, 50, 40}).getCGImage(),
               *CIImage(*one).cropped({10, 20, 50, 40}).getCGImage());
    expectSame(*bright.scaled(0.5, 0.5).getCGImage(), *CIImage(*one).scaled(0.5, 0.5).getCGImage());
    expectSame(*bright.straightened(0.1).getCGImage(), *CIImage(*one).straightened(0.1).getCGImage());
    EXPECT_FALSE(CIImage(image).exposureAdjusted(nan).getCGImage());
    EXPECT_FALSE(CIImage(image).cropped({200, 200, 5, 5}).sharpenedLuminance(1).getCGImage());
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

} // namespace
} // namespace pex
