#include "peximage/pixels/PexColor255.h"
#include "peximage/pixels/PexLut.h"
#include "tests/support/Pictures.h"
#include "tests/support/TempFolder.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <unordered_set>

namespace pex {
namespace {

/// Red and blue change places.
std::uint8_t level(int i, int side) { return static_cast<std::uint8_t>(i * 255 / (side - 1)); }

Pixel swapped(int r, int g, int b, int side) { return {level(b, side), level(g, side), level(r, side), 255}; }

Data asPng(const CGImage& picture) { return *PexImage::make(picture)->pngData(); }

Data column(int n) {
    return asPng(makePicture(n, n * n, PixelLayout::skipLast,
                             [=](int x, int y) { return swapped(x, y % n, y / n, n); }));
}
Data strip(int n) {
    return asPng(makePicture(n * n, n, PixelLayout::skipLast,
                             [=](int x, int y) { return swapped(x % n, y, x / n, n); }));
}
Data square(int root) {
    const int n = root * root, side = n * root;
    return asPng(makePicture(side, side, PixelLayout::skipLast, [=](int x, int y) {
        const int i = y * side + x;
        return swapped(i % n, i / n % n, i / n / n, n);
    }));
}
std::string text(int n, const std::string& head = "") {
    std::ostringstream out;
    out << "# a table\r\nTITLE \"swap\"\n" << head << "LUT_3D_SIZE " << n << "\n\n";
    for (int i = 0; i < n * n * n; ++i)
        out << double(i / n / n) / (n - 1) << ' ' << double(i / n % n) / (n - 1) << "\t+"
            << double(i % n) / (n - 1) << "\r\n";
    return out.str();
}

CGImage sample() { return noise(40, 30, PixelLayout::skipLast); }

void expectSwaps(const std::optional<PexLut>& lut, int within) {
    ASSERT_TRUE(lut);
    const CGImage from = sample();
    const auto to = PexImage::make(from)->apply({.lut = *lut});
    ASSERT_TRUE(to);
    expectPixels(
        *to->cgImage,
        [&](int x, int y) {
            const Pixel p = pixelAt(from, x, y);
            return std::array{p[2], p[1], p[0]};
        },
        within);
}

/// What a table makes of one colour.
Pixel looked(const std::string& table, Pixel from) {
    const auto lut = PexLut::make(Data(table));
    const auto one = plain(1, 1, from, PixelLayout::skipLast);
    return lut ? pixelAt(*one->apply({.lut = *lut})->cgImage, 0, 0) : Pixel{};
}

TEST(PexLut, EveryLayoutOfPictures) {
    for (const int n : {2, 6, 16, 18}) { // sides whose levels are whole, or nearly
        SCOPED_TRACE(n);
        const int within = 255 % (n - 1) == 0 ? 0 : 1;
        expectSwaps(PexLut::make(column(n)), within);
        expectSwaps(PexLut::make(strip(n)), within);
    }
    for (const int root : {2, 4, 5})
        expectSwaps(PexLut::make(square(root)), 1);
}

TEST(PexLut, Texts) {
    for (const int n : {2, 3, 33, 64})
        expectSwaps(PexLut::make(Data(text(n))), 0);
    expectSwaps(PexLut::make(Data("\xEF\xBB\xBF" + text(3, "DOMAIN_MIN 0 0 0\nDOMAIN_MAX 1 1 1\n"))), 0);
    // As other programs and other people write them.
    std::string old = text(3, "some_keyword 7\nlut_in_video_range\n");
    old.replace(old.find("LUT_3D_SIZE"), 11, "lut_3d_size");
    old.insert(old.find("\r\n", old.find('+')), " # an entry");
    for (std::size_t at = 0; (at = old.find('\n')) != std::string::npos;)
        old[at] = '\r';
    expectSwaps(PexLut::make(Data(old)), 0);
    // Over half the range, all that is lighter counts as the end.
    EXPECT_EQ(looked(text(3, "LUT_3D_INPUT_RANGE 0 0.5\n"), {51, 200, 0, 255}), (Pixel{0, 255, 102, 255}));
}

TEST(PexLut, TextsOfOneDimension) {
    // Red as it is, green upside down, blue bent at the middle.
    const std::string curves = "LUT_1D_SIZE 3\n0 1 0\n0.5 0.5 0.2\n1 0 1\n";
    EXPECT_EQ(looked(curves, {100, 100, 51, 255}), (Pixel{100, 155, 20, 255}));
    EXPECT_EQ(looked(curves, {255, 255, 204, 255}), (Pixel{255, 0, 173, 255})); // 0.2 + 0.6 × 0.8
    EXPECT_EQ(looked("LUT_1D_INPUT_RANGE 0 2\n" + curves, {204, 204, 204, 255}), (Pixel{102, 153, 41, 255}));
    // Before a cube, which has the second half of the range left.
    std::string both = text(2, "LUT_1D_SIZE 2\nLUT_3D_INPUT_RANGE 0.5 1\n");
    both.insert(both.find("\n\n") + 2, "0.5 0.5 0.5\n1 1 1\n");
    EXPECT_EQ(looked(both, {10, 100, 200, 255}), (Pixel{200, 100, 10, 255}));
}

TEST(PexLut, RefusesWhatIsNoTable) {
    const std::string good = text(2);
    for (const char* head : {"LUT_3D_SIZE 2\n", "DOMAIN_MIN 1 1 1\n", "DOMAIN_MAX nan 1 1\n",
                             "LUT_3D_INPUT_RANGE 0 inf\n", "LUT_1D_SIZE 4\n", "1 2 3\n"})
        EXPECT_FALSE(PexLut::make(Data(text(2, head)))) << head;
    for (const char* size : {"", " 2", " 1", " 129", " -2", " 1e9", " 2.5", " 2 2", " 99999999999"})
        EXPECT_FALSE(PexLut::make(Data("LUT_3D_SIZE" + std::string(size) + "\n0 0 0\n"))) << size;
    for (const char* curve : {"1\n0 0 0\n", "70000\n", "2\n0 0 0\n1 inf 1\n", "2\n0 0 0\n1 1 1\n1 1 1\n"})
        EXPECT_FALSE(PexLut::make(Data("LUT_1D_SIZE " + std::string(curve)))) << curve;
    for (const std::string& bad :
         {std::string(), good + "0 0 0\n", good.substr(0, good.size() / 2), good.substr(0, good.size() - 8),
          std::string("an address\nand a letter\n"), std::string("LUT_3D_SIZE 2\n0 0\n"),
          std::string("LUT_3D_SIZE 2\n0 0 1e999\n"), std::string("\0\0\0", 3), std::string(100'000, '1')})
        EXPECT_FALSE(PexLut::make(Data(bad))) << bad.substr(0, 40);
    for (const auto& [width, height] : {std::pair{1, 1}, {5, 5}, {4, 15}, {129, 1}, {27, 27 * 27 - 1}})
        EXPECT_FALSE(PexLut::make(asPng(photoLike(width, height)))) << width << 'x' << height;
    EXPECT_FALSE(PexLut::make(URL::fromPath("/no/such/table.cube")));
    EXPECT_FALSE(ColorCube::make(129, {}));
    EXPECT_FALSE(PexImage::make({.size = {4, 4}})->apply({.lut = *PexLut::make(Data(good))}));
}

TEST(PexLut, DocumentsWorkAgain) {
    const auto lut = PexLut::make(Data(text(3)));
    const std::string document = encode(*lut);
    EXPECT_TRUE(document.starts_with("{\"data\":\"IyBhIHRhYmxl")); // "# a table"
    const auto again = decode<PexLut>(document);
    EXPECT_EQ(encode(*again), document);
    expectSwaps(again, 0);

    const auto none = decode<PexLut>(R"({"data":"Zm9vYg=="})"); // "foob"
    EXPECT_EQ(none->data.text(), "foob");
    EXPECT_FALSE(none->filter);
    EXPECT_FALSE(PexImage::make(sample())->apply({.lut = *none}));
    for (const char* bad : {"{}", "[]", R"({"data":3})", R"({"data":"Zm9"})", R"({"data":"Zm9v=g=="})",
                            R"({"data":"Zm9?"})", R"({"data":"Zm9="})" /* is "Zm8=" */})
        EXPECT_EQ(decode<PexLut>(bad).has_value(), false) << bad;
}

TEST(PexLut, FromFiles) {
    const TempFolder folder;
    const URL file = folder.url("swap.cube");
    writeFile(file.path(), text(5));
    expectSwaps(PexLut::make(file), 0);
    EXPECT_TRUE(PexImage::make(sample())->apply({.lutAtUrl = file}));
    EXPECT_FALSE(PexImage::make(sample())->apply({.lutAtUrl = folder.url("none")}));
}

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

/// The other's channels are these or, for the cut after × 255, one lower.
void expectNear(const PexColor255& color, int r, int g, int b, int a) {
    const int under[] = {r - color.r, g - color.g, b - color.b, a - color.a};
    EXPECT_THAT(under, testing::Each(testing::AnyOf(0, 1)));
}

TEST(PexColor255, ModifiesLightnessAndSaturation) {
    const PexColor255 color(200, 100, 50, 255);
    EXPECT_EQ(PexColor255(10, 51, 20, 0).lightness(), 0.2);
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
    for (std::uint8_t i = 0; i < 5; ++i)
        set.insert(PexColor255(i == 1, i == 2, i == 3, i == 4));
    EXPECT_EQ(set.size(), 5u);
    EXPECT_TRUE(set.contains(PexColor255(0, 0, 1, 0)));
}

TEST(PexColor255, Document) {
    const std::string text = R"({"r":1,"g":2,"b":3,"a":4})";
    EXPECT_EQ(encode(PexColor255(1, 2, 3, 4)), text);
    EXPECT_EQ(decode<PexColor255>(text), PexColor255(1, 2, 3, 4));
    for (const char* bad : {R"({"r":1,"g":2,"b":3})", R"({"r":1,"g":-1,"b":3,"a":4})"})
        EXPECT_FALSE(decode<PexColor255>(bad)) << bad;
}

} // namespace
} // namespace pex
