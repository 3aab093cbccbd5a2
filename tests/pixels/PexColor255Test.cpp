#include "peximage/pixels/PexColor255.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <unordered_set>

using namespace pex;

namespace {

TEST(NSColor, HueSaturationBrightness) {
    struct Case {
        double red, green, blue, hue, saturation, brightness;
    };
    const Case cases[] = {
        {0, 0, 0, 0, 0, 0},
        {1, 1, 1, 0, 0, 1},
        {0.5, 0.5, 0.5, 0, 0, 0.5},
        {1, 0, 0, 0, 1, 1},
        {1, 1, 0, 1.0 / 6, 1, 1},
        {0, 1, 0, 2.0 / 6, 1, 1},
        {0, 1, 1, 3.0 / 6, 1, 1},
        {0, 0, 1, 4.0 / 6, 1, 1},
        {1, 0, 1, 5.0 / 6, 1, 1},
        {0.5, 0.25, 0.375, 5.5 / 6, 0.5, 0.5}, // blue half-way from the lowest to red
        {0.75, 0.5625, 0.1875, 0.6666666666666666 / 6, 0.75, 0.75},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.red << ' ' << c.green << ' ' << c.blue);
        const NSColor color(c.red, c.green, c.blue, 0.25);
        EXPECT_NEAR(color.hueComponent(), c.hue, 1e-12);
        EXPECT_NEAR(color.saturationComponent(), c.saturation, 1e-12);
        EXPECT_NEAR(color.brightnessComponent(), c.brightness, 1e-12);
        const NSColor back(
            {.hue = c.hue, .saturation = c.saturation, .brightness = c.brightness, .alpha = 0.25});
        EXPECT_NEAR(back.redComponent(), c.red, 1e-12);
        EXPECT_NEAR(back.greenComponent(), c.green, 1e-12);
        EXPECT_NEAR(back.blueComponent(), c.blue, 1e-12);
        EXPECT_EQ(back.alphaComponent(), 0.25);
    }
}

TEST(NSColor, PartsOutsideTheirRangeAreLimited) {
    const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(NSColor({.hue = 1, .saturation = 7, .brightness = inf}), NSColor(1, 0, 0));
    EXPECT_EQ(NSColor({.hue = -1, .saturation = -1, .brightness = 0.5}), NSColor(0.5, 0.5, 0.5));
    EXPECT_EQ(NSColor({.hue = nan, .saturation = nan, .brightness = nan}), NSColor(0, 0, 0));
}

TEST(PexColor255, ConvertsFromAndToOtherColours) {
    EXPECT_EQ(PexColor255::pureBlack, PexColor255(0, 0, 0, 255));
    EXPECT_EQ(PexColor255(PexColor(1, 0.5, 0, 0.25)), PexColor255(255, 128, 0, 64));
    // 0.999 × 255 = 254.745 is cut off; 256 / 255 keeps the low 8 bits of 256, and -1 / 255 those of -1.
    EXPECT_EQ(PexColor255(NSColor(0.999, 1, 257.0 / 255, -1.0 / 255)), PexColor255(254, 255, 1, 255));
    EXPECT_EQ(PexColor255(NSColor(std::nan(""), 0, 0, 0)), PexColor255(0, 0, 0, 0));
    EXPECT_EQ(PexColor255(51, 102, 204, 0).nsColor(), NSColor(0.2, 0.4, 0.8, 0));
    EXPECT_EQ(PexColor255(51, 102, 204, 0).pexColor(), PexColor(0.2, 0.4, 0.8, 0));
    EXPECT_EQ(PexColor(NSColor(0.1, 0.2, 0.3, 0.4)), PexColor(0.1, 0.2, 0.3, 0.4));
    EXPECT_EQ(PexColor(0.1, 0.2, 0.3, 0.4).nsColor(), NSColor(0.1, 0.2, 0.3, 0.4));
}

TEST(PexColor255, Lightness) { EXPECT_EQ(PexColor255(10, 51, 20, 0).lightness(), 0.2); }

/// The other's channels are these or, for the cut after × 255, one lower.
void expectNear(const PexColor255& color, int r, int g, int b, int a) {
    const int wanted[] = {r, g, b, a}, got[] = {color.r, color.g, color.b, color.a};
    for (int c = 0; c < 4; ++c) {
        EXPECT_LE(got[c], wanted[c]) << "channel " << c;
        EXPECT_GE(got[c], wanted[c] - 1) << "channel " << c;
    }
}

TEST(PexColor255, ModifiesLightnessAndSaturation) {
    const PexColor255 color(200, 100, 50, 255);
    EXPECT_EQ(color.modifyLightness(0), PexColor255(0, 0, 0, 255));
    expectNear(color.modifyLightness(0.5), 100, 50, 25, 255);
    expectNear(color.modifyLightness(100), 255, 127, 63, 255); // brightness limited to 1
    expectNear(color.modifySaturation(0), 200, 200, 200, 255);
    // Saturation 0.75 becomes 0.375: each channel half as far below the largest.
    expectNear(color.modifySaturation(0.5), 200, 150, 125, 255);
    expectNear(color.modifySaturation(100), 200, 66, 0, 255); // saturation limited to 1
    expectNear(color.modifySaturation(-1), 200, 200, 200, 255);
    for (int i = 0; i < 4096; ++i) {
        const int r = i % 16 * 17, g = i / 16 % 16 * 17, b = i / 256 * 17;
        const PexColor255 each{std::uint8_t(r), std::uint8_t(g), std::uint8_t(b), std::uint8_t(i)};
        expectNear(each.modifyLightness(1), r, g, b, i % 256);
        expectNear(each.modifySaturation(1), r, g, b, i % 256);
    }
}

TEST(PexColor255, SimpleDistanceIsASumOfProducts) {
    EXPECT_EQ(PexColor255(255, 255, 255, 0).simpleDistance(PexColor255(255, 255, 255, 9)), 195075);
    EXPECT_EQ(PexColor255(10, 0, 0, 255).simpleDistance(PexColor255(0, 10, 0, 255)), 0);
    EXPECT_EQ(PexColor255(1, 2, 3, 255).simpleDistance(PexColor255(4, 5, 6, 255)), 32);
}

TEST(PexColor255, HashesAllChannels) {
    std::unordered_set<PexColor255> set;
    for (const PexColor255& c :
         {PexColor255(1, 2, 3, 4), PexColor255(4, 3, 2, 1), PexColor255(1, 2, 3, 5), PexColor255(1, 2, 3, 4)})
        set.insert(c);
    EXPECT_EQ(set.size(), 3u);
}

TEST(PexColor255, Document) {
    const std::string text = R"({"r":1,"g":2,"b":3,"a":4})";
    EXPECT_EQ(encode(PexColor255(1, 2, 3, 4)), text);
    EXPECT_EQ(decode<PexColor255>(text), PexColor255(1, 2, 3, 4));
    for (const char* bad : {R"({"r":1,"g":2,"b":3})", R"({"r":1,"g":2,"b":3,"a":256})",
                            R"({"r":1,"g":-1,"b":3,"a":4})", R"({"r":1,"g":2,"b":"3","a":4})",
                            R"({"r":1,"g":2,"b":3.5,"a":4})", R"({"r":1,"g":2,"b":null,"a":4})"})
        EXPECT_FALSE(decode<PexColor255>(bad)) << bad;
}

} // namespace
