#include "peximage/platform/varda/Draw.h"

#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"

#include <gtest/gtest.h>

using namespace pex;

namespace {

TEST(Draw, CopiesPartsIntoTheInnermostTarget) {
    // Left half red, right half blue.
    const auto halves =
        NSImage::make(makePicture(8, 4, PixelLayout::skipLast,
                                  [](int x, int) {
                                      return x < 4 ? Pixel{255, 0, 0, 255} : Pixel{0, 0, 255, 255};
                                  }),
                      {8, 4});
    const Pixel red{255, 0, 0, 255}, blue{0, 0, 255, 255}, clear{0, 0, 0, 0};
    onScreensOfOneAndTwo([&](double scale) {
        const auto outer = NSImage::make(CGSize{8, 6}), inner = NSImage::make(CGSize{8, 6});
        ASSERT_TRUE(Draw::start(outer));
        ASSERT_TRUE(Draw::start(inner));
        EXPECT_FALSE(Draw::start(inner)); // is a target already
        EXPECT_FALSE(Draw::start(NSImage::make(CGSize{0, 6})));
        EXPECT_FALSE(Draw::start(nullptr));
        Draw::copybits({.srcImage = halves, .dstPoint = CGPoint{0, 2}});
        Draw::end();
        Draw::copybits({.srcImage = halves,
                        .srcRect = CGRect{4, 0, 4, 4},
                        .dstRect = CGRect{0, 0, 2, 2},
                        .dstPoint = CGPoint{5, 5}}); // the rectangle wins
        Draw::copybits({});
        Draw::end();
        Draw::end();
        Draw::copybits({.srcImage = halves});

        const auto at = [&](const std::shared_ptr<NSImage>& image, double x, double y) {
            return pixelAt(*image->cgImageForProposedRect(), int(x * scale), int(y * scale));
        };
        EXPECT_EQ(at(inner, 0, 0), red);
        EXPECT_EQ(at(inner, 7.5, 3.5), blue);
        EXPECT_EQ(at(inner, 0, 4.5), clear);
        EXPECT_EQ(at(outer, 0, 5.5), blue);
        EXPECT_EQ(at(outer, 1.5, 4), blue);
        EXPECT_EQ(at(outer, 2.5, 5.5), clear);
        EXPECT_EQ(at(outer, 6, 0.5), clear);
    });
}

} // namespace
