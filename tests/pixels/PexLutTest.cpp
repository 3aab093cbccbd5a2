#include "peximage/pixels/PexLut.h"

#include "peximage/image/PexImage.h"
#include "tests/support/Pictures.h"
#include "tests/support/TempFolder.h"

#include <sstream>

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
    const auto half = PexLut::make(Data(text(3, "LUT_3D_INPUT_RANGE 0 0.5\n")));
    ASSERT_TRUE(half);
    const auto grey = makePicture(1, 1, PixelLayout::skipLast, Pixel{51, 200, 0, 255});
    const Pixel to = pixelAt(*PexImage::make(grey)->apply({.lut = *half})->cgImage, 0, 0);
    EXPECT_EQ(to[0], 0);
    EXPECT_EQ(to[1], 255);
    EXPECT_EQ(to[2], 102);
}

TEST(PexLut, TextsOfOneDimension) {
    const auto looked = [](const std::string& table, Pixel from) {
        const auto lut = PexLut::make(Data(table));
        const auto one = makePicture(1, 1, PixelLayout::skipLast, [&](int, int) { return from; });
        return lut ? pixelAt(*PexImage::make(one)->apply({.lut = *lut})->cgImage, 0, 0) : Pixel{};
    };
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
    ASSERT_TRUE(lut);
    const std::string document = encode(*lut);
    EXPECT_TRUE(document.starts_with("{\"data\":\"IyBhIHRhYmxl")); // "# a table"
    const auto again = decode<PexLut>(document);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->data, lut->data);
    EXPECT_EQ(encode(*again), document);
    expectSwaps(again, 0);

    const auto none = decode<PexLut>(R"({"data":"Zm9vYg=="})"); // "foob"
    ASSERT_TRUE(none);
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
    ASSERT_TRUE(Data(text(5)).write(file, Data::Writing::inPlace));
    expectSwaps(PexLut::make(file), 0);
    EXPECT_TRUE(PexImage::make(sample())->apply({.lutAtUrl = file}));
    EXPECT_FALSE(PexImage::make(sample())->apply({.lutAtUrl = folder.url("none")}));
}

} // namespace
} // namespace pex
