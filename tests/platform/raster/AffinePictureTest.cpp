#include "peximage/platform/raster/AffinePicture.h"

#include "peximage/platform/filters/CIContext.h"
#include "peximage/platform/raster/CGContext.h"
#include "peximage/platform/raster/kernels/CubicRow.h"
#include "tests/platform/raster/kernels/EveryInstructionSet.h"
#include "tests/support/Pictures.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace pex;

namespace {

double cubic(double x) {
    x = std::abs(x);
    if (x >= 2) return 0;
    return x < 1 ? 1.5 * x * x * x - 2.5 * x * x + 1 : -0.5 * x * x * x + 2.5 * x * x - 4 * x + 2;
}

/// The picture at a position in exact arithmetic, its edge pixels repeated outside.
std::array<double, 4> interpolated(const CGImage& picture, double x, double y) {
    std::array<double, 4> sum{};
    for (int j = int(std::floor(y - 0.5)) - 1, k = 0; k < 4; ++j, ++k) {
        for (int i = int(std::floor(x - 0.5)) - 1, l = 0; l < 4; ++i, ++l) {
            const Pixel p = pixelAt(picture, std::clamp(i, 0, picture.width() - 1),
                                    std::clamp(j, 0, picture.height() - 1));
            for (std::size_t c = 0; c < 4; ++c)
                sum[c] += p[c] * cubic(x - 0.5 - i) * cubic(y - 0.5 - j);
        }
    }
    sum[3] = std::clamp(sum[3], 0., 255.);
    for (double& c : sum)
        c = std::clamp(c, 0., sum[3]);
    return sum;
}

struct Errors {
    double largest = 0, mean = 0;
};

/// Against exact arithmetic, over all pixels whose footprint lies inside the picture.
Errors errorsOf(const CGImage& picture, const CGAffineTransform& toPlane, int side) {
    const auto affine = AffinePicture::make(picture, toPlane, CGColorSpace::sRGB(), Interpolation::smooth);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(side) * side * 4, 77);
    affine->sample(0, 0, {bytes.data(), side, side, side * 4, PixelLayout::premultipliedLast});
    const auto back = *toPlane.inverted();
    Errors errors;
    int count = 0;
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) {
            const CGPoint at = back.apply(CGPoint{x + 0.5, y + 0.5});
            const double inside = std::min({at.x, at.y, picture.width() - at.x, picture.height() - at.y});
            const std::uint8_t* got = &bytes[static_cast<std::size_t>(y * side + x) * 4];
            EXPECT_EQ(inside < -1.5 ? got[3] : 0, 0) << x << " " << y;
            if (inside < 1) continue;
            const auto exact = interpolated(picture, at.x, at.y);
            for (std::size_t c = 0; c < 4; ++c, ++count) {
                errors.largest = std::max(errors.largest, std::abs(got[c] - exact[c]));
                errors.mean += std::abs(got[c] - exact[c]);
            }
        }
    }
    EXPECT_GT(count, 4000);
    errors.mean /= count;
    return errors;
}

CGAffineTransform about(double x, double y, const CGAffineTransform& transform, double toX, double toY) {
    return CGAffineTransform::translation(-x, -y).then(transform).then(
        CGAffineTransform::translation(toX, toY));
}

TEST(AffinePicture, LiesWithinOneStepOfExactArithmetic) {
    const CGAffineTransform turns[] = {
        CGAffineTransform::rotationByDegrees(30),
        CGAffineTransform::rotationByDegrees(-97.3),
        CGAffineTransform::rotationByDegrees(45).then(CGAffineTransform::scale(3, 2.5)),
        {1.2, 0.3, -0.5, 1.1, 0, 0},
        {-1, 0.02, 0.01, 1, 0, 0}};
    kernels::onEveryInstructionSet([&] {
        for (const CGAffineTransform& turn : turns) {
            for (const auto& picture : {noise(97, 83, PixelLayout::premultipliedLast), photoLike(97, 83)}) {
                const Errors errors = errorsOf(picture, about(48.5, 41.5, turn, 60.2, 59.7), 120);
                EXPECT_LT(errors.largest, 1.0);
                EXPECT_LT(errors.mean, 0.27); // rounding to bytes alone is 0.25
            }
        }
    });
}

TEST(AffinePicture, KernelsAgreeToTheByte) {
    const auto picture = noise(64, 64, PixelLayout::premultipliedLast);
    const PixelView pixels = *picture.pixels();
    for (const int count : {1, 2, 3, 40, 41}) {
        const kernels::CubicWalk walk{pixels.data,        pixels.bytesPerRow, (5LL << 32) + 12345,
                                      (50LL << 32) - 999, 4'111'222'333,      -3'777'888'999};
        std::vector<std::uint8_t> expected;
        kernels::onEveryInstructionSet([&] { // plain code comes first
            std::vector<std::uint8_t> row(static_cast<std::size_t>(count) * 4 + 8, 0xEE);
            kernels::cubicRow(walk, row.data(), count);
            if (expected.empty()) expected = row;
            EXPECT_EQ(row, expected) << count;
            EXPECT_EQ(row[static_cast<std::size_t>(count) * 4], 0xEE); // nothing behind its end
        });
    }
}

TEST(AffinePicture, ReducesWithoutAliases) {
    const auto board = makePicture(400, 400, PixelLayout::skipLast, [](int x, int y) {
        const auto shade = static_cast<std::uint8_t>((x + y) % 2 ? 255 : 0);
        return Pixel{shade, shade, shade, 255};
    });
    const auto context = CGContext::make(60, 60, PixelLayout::premultipliedLast, CGColorSpace::sRGB());
    context->translateBy(30, 30);
    context->rotateBy(0.4);
    context->draw(board, {-50, -50, 100, 100});
    expectPixels(*context->makeImage(), std::array{127}, 4);
}

TEST(AffinePicture, DegenerateMapsDrawNothing) {
    const auto picture = photoLike(20, 20);
    const double nan = std::nan("");
    const auto context = CGContext::make(10, 10, PixelLayout::premultipliedLast, CGColorSpace::sRGB());
    for (const CGAffineTransform& map : {CGAffineTransform{1, 1, 1, 1, 0, 0},
                                         {nan, 1, 1, 0, 0, 0},
                                         {1, 2, 3, 4, nan, 0},

                                         {1e-200, 1e-200, -1e-200, 1e-200, 5, 5},
                                         {1, 1, 1, 1 + 1e-15, 0, 0}}) {
        context->saveGState();
        context->concat(map);
        context->draw(picture, {0, 0, 5, 5});
        context->restoreGState();
    }
    context->rotateBy(0.5); // and far outside
    context->draw(picture, {1e9, 1e9, 1e9, 1e9});
    context->draw(picture, {-1e12, -1e12, 1e3, 1e3});
    expectPixels(*context->makeImage(), Pixel{}, 1); // a speck at most
}

TEST(CGContext, OfHugeDrawingsOnlyTheVisiblePartIsMade) {
    const auto picture = noise(64, 48, PixelLayout::premultipliedLast);
    struct Case {
        double scaleX, scaleY, x, y; // of the picture; x, y its lower left corner
    };
    // Against the whole scaled picture, drawn into a context that holds it.
    for (const Case& c :
         {Case{10, 10, -200, -100}, {7.5, 3, -301, -77}, {0.75, 20, -13, -500}, {20, 0.5, -1279, 3}}) {
        const double width = 64 * c.scaleX, height = 48 * c.scaleY;
        for (const auto quality : {CGInterpolationQuality::high, CGInterpolationQuality::none}) {
            const auto all = CGContext::make(int(width), int(height), PixelLayout::premultipliedLast,
                                             CGColorSpace::sRGB());
            const auto small = CGContext::make(33, 21, PixelLayout::premultipliedLast, CGColorSpace::sRGB());
            for (const auto& context : {all, small})
                context->setInterpolationQuality(quality);
            all->draw(picture, {0, 0, width, height});
            small->draw(picture, {c.x, c.y, width, height});
            const CGImage whole = *all->makeImage(), part = *small->makeImage();
            expectPixels(
                part,
                [&](int x, int y) {
                    const int wx = x - int(c.x), wy = int(height) - 1 - (20 - y - int(c.y));
                    const bool inside = wx >= 0 && wy >= 0 && wx < int(width) && wy < int(height);
                    return inside ? pixelAt(whole, wx, wy) : Pixel{};
                },
                1);
        }
    }
}

TEST(CGContext, PlacesHugeDrawingsExactly) {
    // Left half black, right half white, 10^9 wide: the edge lies at 5 × 10^8.
    const auto halves = makePicture(2, 1, PixelLayout::skipLast, [](int x, int) {
        return x ? Pixel{255, 255, 255, 255} : Pixel{0, 0, 0, 255};
    });
    const auto context = CGContext::make(10, 4, PixelLayout::premultipliedLast, CGColorSpace::sRGB());
    context->setInterpolationQuality(CGInterpolationQuality::none);
    context->draw(halves, {-5e8 + 3, -5e8, 1e9, 1e9});
    for (int x = 0; x < 10; ++x)
        EXPECT_EQ(pixelAt(*context->makeImage(), x, 2)[0], x < 3 ? 0 : 255) << x;
    context->setInterpolationQuality(CGInterpolationQuality::high);
    context->draw(halves, {-5e8 + 3, -5e8, 1e9, 1e9});
    for (int x = 0; x < 10; ++x)
        EXPECT_NEAR(pixelAt(*context->makeImage(), x, 2)[0], 127, 1) << x; // the middle of a wide slope
}

TEST(CIImage, ChainsOfTransformsAndCropsRenderWhatTheyDescribe) {
    const auto picture = noise(40, 30, PixelLayout::premultipliedLast);
    const CIImage source(picture);
    const auto quarter = CGAffineTransform::rotationByDegrees(90);
    // A quarter turn, a cut, and a quarter turn back: the cut picture, moved.
    const CIImage chain = source.transformed(quarter)
                              .cropped({-20, 5, 15, 20})
                              .transformed(CGAffineTransform::rotationByDegrees(-90));
    EXPECT_EQ(chain.extent(), (CGRect{5, 5, 20, 15}));
    const auto rendered = chain.getCGImage();
    ASSERT_TRUE(rendered);
    expectPixels(*rendered, [&](int x, int y) { return pixelAt(picture, x + 5, y + 10); });

    // Parts of pixels count as whole ones: 6 from the left, 5 from row 22 on.
    expectPixels(*source.cropped({2, 3, 5.5, 4.5}).getCGImage(),
                 [&](int x, int y) { return pixelAt(picture, x + 2, y + 22); });
    const auto moved = source.transformed(CGAffineTransform::translation(7, -3));
    EXPECT_EQ(moved.extent(), (CGRect{7, -3, 40, 30}));
    EXPECT_EQ(pixelAt(*moved.cropped({10, 0, 5, 5}).getCGImage(), 0, 0), pixelAt(picture, 3, 22));
    for (const CGAffineTransform& bad : {CGAffineTransform{0, 0, 0, 0, 0, 0},
                                         {std::nan(""), 0, 0, 1, 0, 0},
                                         {1, 0, 0, 1, HUGE_VAL, 0},
                                         {1e300, 0, 0, 1e300, 0, 0}})
        EXPECT_FALSE(source.transformed(bad).getCGImage());
}

} // namespace
