#include "peximage/platform/varda/PexColor.h"

#include "peximage/platform/varda/PexFont.h"

#include <gtest/gtest.h>

#include <limits>

namespace pex {
namespace {

TEST(PexColor, ConvertsToAndFromBytes) {
    for (int byte = 0; byte <= 255; ++byte) {
        const PexColor color({.intRed = byte, .green = 255 - byte, .blue = 7, .alpha = byte});
        EXPECT_EQ(color.redB255(), byte);
        EXPECT_EQ(color.greenB255(), 255 - byte);
        EXPECT_EQ(color.blueB255(), 7);
        EXPECT_EQ(color.alphaB255(), byte);
    }
    EXPECT_EQ(PexColor(0.5, 1.5, -1).redB255(), 128);
    EXPECT_EQ(PexColor(0.5, 1.5, -1).greenB255(), 255);
    EXPECT_EQ(PexColor(0.5, 1.5, -1).blueB255(), 0);
    EXPECT_EQ(PexColor(std::numeric_limits<double>::quiet_NaN(), 0, 0).redB255(), 0);
}

TEST(PexColor, ColoursAndFontsHaveDocuments) {
    EXPECT_EQ(encode(PexColor::pureWhite), R"({"red":1,"green":1,"blue":1,"alpha":1})");
    EXPECT_EQ(decode<PexColor>(R"({"alpha":0.25,"blue":0.1,"green":2,"red":-1})"),
              PexColor(-1, 2, 0.1, 0.25));
    EXPECT_FALSE(decode<PexColor>(R"({"red":1,"green":1,"blue":1})"));
    EXPECT_NE(PexColor(0, 0, 0), PexColor(0, 0, 0, 0.5));

    EXPECT_EQ(encode(PexFont::Font::courier(64)), R"({"name":"Courier","size":64})");
    EXPECT_EQ(decode<PexFont::Font>(R"({"name":"Courier","size":64})"), PexFont::Font::courier(64));
    EXPECT_NE(PexFont::Font::courier(64), PexFont::Font::courier(12));
}

} // namespace
} // namespace pex
