#include "peximage/platform/codecs/ImageCodec.h"
#include "peximage/platform/codecs/PngFilter.h"
#include "tests/platform/codecs/PngFiles.h"
#include "tests/support/Pictures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <random>

using namespace pex;
using namespace pex::pngtest;

namespace {

Bytes encode(const CGImage& image, const CGImageDestination::Options& options = {}) {
    const auto data = pngCodec.encode(image, options);
    if (!data) return {};
    return {data->bytes().begin(), data->bytes().end()};
}

/// Read with the codec library's own simple interface, in the given format.
Bytes readBack(const Bytes& file, png_uint_32 format, png_uint_32& fileFormat) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_TRUE(png_image_begin_read_from_memory(&image, file.data(), file.size())) << image.message;
    fileFormat = image.format & ~static_cast<png_uint_32>(PNG_FORMAT_FLAG_COLORMAP);
    image.format = format;
    Bytes pixels(PNG_IMAGE_SIZE(image));
    EXPECT_TRUE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr)) << image.message;
    EXPECT_EQ(image.warning_or_error, 0U) << image.message;
    return pixels;
}

/// Straight R G B A of the bytes of a pixel as a layout holds it.
Pixel straight(Pixel p, PixelLayout layout) {
    if (layout == PixelLayout::grey) return {p[0], p[0], p[0], 255};
    if (isAlphaFirst(layout)) p = {p[1], p[2], p[3], p[0]};
    if (!hasAlpha(layout)) return {p[0], p[1], p[2], 255};
    const bool premultiplied =
        layout == PixelLayout::premultipliedLast || layout == PixelLayout::premultipliedFirst;
    for (std::size_t c = 0; premultiplied && c < 3; ++c)
        p[c] = p[3] == 0 ? 0 : static_cast<std::uint8_t>(std::min(255L, std::lround(p[c] * 255.0 / p[3])));
    return p;
}

/// A pixel that is right for any layout: colours below alpha, which is first or last.
Pixel mixedPixel(int x, int y, PixelLayout layout) {
    const auto alpha = static_cast<std::uint8_t>((x * 7 + y * 13) % 256);
    const auto part = [&](int share) { return static_cast<std::uint8_t>(alpha * share / 10); };
    if (isAlphaFirst(layout)) return {alpha, part(9), part(x % 10), part(y % 10)};
    return {part(9), part(x % 10), part(y % 10), alpha};
}

using enum PixelLayout;
constexpr PixelLayout layouts[] = {premultipliedLast, premultipliedFirst, straightLast, straightFirst,
                                   skipLast,          skipFirst,          grey};

CGColorSpace spaceFor(PixelLayout layout) {
    return layout == PixelLayout::grey ? CGColorSpace::deviceGray() : CGColorSpace::sRGB();
}

/// One of the five predictions, by its definition.
int predicted(int filter, int left, int above, int corner) {
    if (filter == 0) return 0;
    if (filter == 1) return left;
    if (filter == 2) return above;
    if (filter == 3) return (left + above) / 2;
    const int guess = left + above - corner;
    const int a = std::abs(guess - left), b = std::abs(guess - above), c = std::abs(guess - corner);
    if (a <= b && a <= c) return left;
    return b <= c ? above : corner;
}

} // namespace

TEST(PngWriter, writesEveryLayoutSoThatTheCodecLibraryReadsTheSamePixels) {
    constexpr int width = 37, height = 150; // several strips of rows
    for (const PixelLayout layout : layouts) {
        const auto image = makePicture(
            width, height, layout, [&](int x, int y) { return mixedPixel(x, y, layout); }, spaceFor(layout));
        png_uint_32 format = 0;
        const Bytes got = readBack(encode(image), PNG_FORMAT_RGBA, format);
        EXPECT_EQ((format & PNG_FORMAT_FLAG_ALPHA) != 0, hasAlpha(layout));
        EXPECT_EQ((format & PNG_FORMAT_FLAG_COLOR) != 0, layout != PixelLayout::grey);
        for (int i = 0; i < width * height; ++i) {
            const Pixel expected = straight(mixedPixel(i % width, i / width, layout), layout);
            for (std::size_t c = 0; c < 4; ++c)
                ASSERT_EQ(int{got[static_cast<std::size_t>(i) * 4 + c]}, int{expected[c]})
                    << static_cast<int>(layout) << ' ' << i << ' ' << c;
        }
    }
}

TEST(PngWriter, dropsAlphaOnlyWhereEveryPixelIsOpaque) {
    for (const std::uint8_t last : {255, 254}) {
        for (const PixelLayout layout : {PixelLayout::premultipliedLast, PixelLayout::straightFirst}) {
            const auto image = makePicture(33, 5, layout, [&](int x, int y) {
                const bool corner = x == 32 && y == 4;
                const std::uint8_t alpha = corner ? last : std::uint8_t{255};
                return isAlphaFirst(layout) ? Pixel{alpha, 10, 20, 30} : Pixel{10, 20, 30, alpha};
            });
            png_uint_32 format = 0;
            readBack(encode(image), PNG_FORMAT_RGBA, format);
            EXPECT_EQ((format & PNG_FORMAT_FLAG_ALPHA) != 0, last != 255);
        }
    }
}

TEST(PngWriter, isReadBackWithItsDensity) {
    const CGImage image = photoLike(4, 4);
    const auto density = [&](std::optional<double> x, std::optional<double> y) {
        CGImageDestination::Options options;
        options.dpiWidth = x;
        options.dpiHeight = y;
        const auto opened = pngCodec.open(CGDataProvider(Data(encode(image, options))), {});
        return std::pair{opened->properties.dpiWidth, opened->properties.dpiHeight};
    };
    using Density = std::pair<std::optional<double>, std::optional<double>>;
    EXPECT_EQ(density(300, 72), Density(300, 72));
    EXPECT_EQ(density(150, {}), Density(150, 150));
    EXPECT_EQ(density({}, {}), Density());
    for (const double odd : {0.0, -5.0, 1e300, std::nan(""), HUGE_VAL})
        EXPECT_EQ(density(odd, odd), Density()) << odd;
    for (int dpi = 1; dpi <= 1200; ++dpi)
        EXPECT_EQ(density(dpi, dpi).first, dpi);
}

TEST(PngWriter, embedsAProfileThatIsNotSRGB) {
    const Bytes icc = wideProfile();
    const auto space = CGColorSpace::fromICC(Data(icc));
    ASSERT_TRUE(space);
    const auto pixel = [](int x, int y) {
        return Pixel{static_cast<std::uint8_t>(x), 0, static_cast<std::uint8_t>(y), 255};
    };

    const Bytes wide = encode(makePicture(3, 3, PixelLayout::skipLast, pixel, *space));
    EXPECT_EQ(chunkNames(wide), (std::vector<std::string_view>{"IHDR", "iCCP", "IDAT", "IEND"}));
    const auto opened = pngCodec.open(CGDataProvider(Data(wide)), {});
    ASSERT_TRUE(opened && opened->source);
    EXPECT_EQ(opened->source->colorSpace().iccProfile(), Data(icc));

    const Bytes usual = encode(makePicture(3, 3, PixelLayout::skipLast, pixel));
    EXPECT_EQ(chunkNames(usual), (std::vector<std::string_view>{"IHDR", "sRGB", "IDAT", "IEND"}));
    // A profile of colours is nothing for grey pixels.
    const Bytes grey = encode(makePicture(3, 3, PixelLayout::grey, pixel, *space));
    EXPECT_EQ(chunkNames(grey), (std::vector<std::string_view>{"IHDR", "IDAT", "IEND"}));
}

TEST(PngWriter, splitsLargeDataIntoChunks) {
    const CGImage image = noise(800, 900, PixelLayout::skipLast); // 2.1 MB that no packing makes smaller
    const Bytes file = encode(image);
    const auto names = chunkNames(file);
    EXPECT_EQ(std::count(names.begin(), names.end(), "IDAT"), 3);
    png_uint_32 format = 0;
    const Bytes pixels = readBack(file, PNG_FORMAT_RGBA, format);
    for (int y = 0; y < 900; y += 299)
        EXPECT_EQ(pixels[static_cast<std::size_t>(y * 800 + 799) * 4 + 2], pixelAt(image, 799, y)[2]);
}

TEST(PngFilter, takesTheFilterOfLeastSumAndItsDifferences) {
    std::mt19937 random(3);
    std::array<int, 5> taken{};
    for (int round = 0; round < 300; ++round) {
        const std::size_t bytesPerPixel = round % 3 == 0 ? 1 : 3 + static_cast<std::size_t>(round % 2);
        const std::size_t count = bytesPerPixel * (1 + random() % 40);
        Bytes row(PngFilter::padding + count), above(PngFilter::padding + count);
        const unsigned range = 1U << (random() % 9); // from all equal to all random
        for (std::size_t i = PngFilter::padding; i < row.size(); ++i) {
            above[i] = static_cast<std::uint8_t>((round & 4 ? i * 5 : 0) + random() % range);
            row[i] =
                static_cast<std::uint8_t>((round & 8 ? above[i] : row[i - bytesPerPixel]) + random() % range);
        }
        std::array<Bytes, 5> expected;
        std::array<int, 5> sums{};
        for (int f = 0; f < 5; ++f) {
            for (std::size_t i = PngFilter::padding; i < row.size(); ++i) {
                const int guess = predicted(f, row[i - bytesPerPixel], above[i], above[i - bytesPerPixel]);
                const auto difference = static_cast<std::uint8_t>(row[i] - guess);
                expected[static_cast<std::size_t>(f)].push_back(difference);
                sums[static_cast<std::size_t>(f)] += std::abs(static_cast<std::int8_t>(difference));
            }
        }
        const auto best = static_cast<std::size_t>(std::min_element(sums.begin(), sums.end()) - sums.begin());
        ++taken[best];
        Bytes out(1 + count);
        PngFilter(count, bytesPerPixel)
            .filter(row.data() + PngFilter::padding, above.data() + PngFilter::padding, out.data());
        EXPECT_EQ(std::size_t{out[0]}, best);
        EXPECT_EQ(Bytes(out.begin() + 1, out.end()), expected[best]);
    }
    for (const int count : taken)
        EXPECT_GT(count, 0);
}
