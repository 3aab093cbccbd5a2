#include "peximage/platform/raster/Turning.h"

#include "tests/support/Pictures.h"

#include <gtest/gtest.h>

using namespace pex;

namespace {

TEST(Turning, TurnsPartsOfPicturesOfAnyLayout) {
    for (const PixelLayout layout : {PixelLayout::straightFirst, PixelLayout::grey}) {
        const CGImage part = *noise(90, 350, layout).cropping({5, 7, 70, 333});
        const CGImage right = *turnedImage(part, Orientation::right);
        const CGImage down = *turnedImage(part, Orientation::down);
        ASSERT_EQ(right.width(), 333);
        ASSERT_EQ(right.height(), 70);
        ASSERT_EQ(down.width(), 70);
        EXPECT_EQ(right.layout(), layout);
        bool same = true;
        for (int y = 0; y < 333; ++y) {
            for (int x = 0; x < 70; ++x)
                same = same && pixelAt(right, 332 - y, x) == pixelAt(part, x, y) &&
                       pixelAt(down, 69 - x, 332 - y) == pixelAt(part, x, y);
        }
        EXPECT_TRUE(same);
        EXPECT_EQ(turnedImage(part, Orientation::up)->pixels()->data, part.pixels()->data);
    }
}

} // namespace
