#include "peximage/platform/codecs/ImageCodec.h"
#include "peximage/platform/codecs/PngFilter.h"
#include "tests/support/PictureFiles.h"

#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <random>
#include <utility>
#include <zlib.h>

namespace pex {
namespace {

/// What the codec library is to write.
struct File {
    int width = 1, height = 1;
    int colourType = PNG_COLOR_TYPE_RGB;
    int depth = 8;
    bool interlaced = false;
    /// Random palettes and transparent colours come with it.
    bool transparency = false;
    unsigned seed = 1;
};

/// A component of 16 bits at most for every pixel and channel, as the file holds it: palette indices, grey or
/// colours, alpha last.
struct Samples {
    File file;
    int channels = 0;
    std::vector<std::uint16_t> values;
    std::vector<png_color> palette;
    std::vector<png_byte> paletteAlpha;
    png_color_16 transparent{};

    std::uint16_t at(int x, int y, int channel) const {
        return values[(static_cast<std::size_t>(y) * static_cast<std::size_t>(file.width) +
                       static_cast<std::size_t>(x)) *
                          static_cast<std::size_t>(channels) +
                      static_cast<std::size_t>(channel)];
    }
};

int channelsOf(int colourType) {
    if (colourType == PNG_COLOR_TYPE_PALETTE) return 1;
    return ((colourType & PNG_COLOR_MASK_COLOR) != 0 ? 3 : 1) +
           ((colourType & PNG_COLOR_MASK_ALPHA) != 0 ? 1 : 0);
}

/// The row's samples one behind the other in `depth` bits each.
Bytes packRow(const Samples& samples, int y) {
    const int depth = samples.file.depth, count = samples.file.width * samples.channels;
    Bytes row(static_cast<std::size_t>((count * depth + 7) / 8));
    for (int i = 0; i < count * depth; ++i) {
        const int value = samples.at(i / depth / samples.channels, y, i / depth % samples.channels);
        const int bit = value >> (depth - 1 - i % depth) & 1;
        row[static_cast<std::size_t>(i / 8)] |= static_cast<std::uint8_t>(bit << (7 - i % 8));
    }
    return row;
}

void setTransparency(png_structp png, png_infop info, const Samples& samples) {
    if (samples.file.colourType == PNG_COLOR_TYPE_PALETTE) {
        png_set_tRNS(png, info, samples.paletteAlpha.data(), static_cast<int>(samples.paletteAlpha.size()),
                     nullptr);
    } else {
        png_set_tRNS(png, info, nullptr, 0, &samples.transparent);
    }
}

std::uint8_t toEightBits(int value, int depth) {
    const int most = (1 << depth) - 1;
    return static_cast<std::uint8_t>((value * 255 + most / 2) / most);
}

/// Random samples; a transparent colour of grey or RGB is that of the first pixel.
Samples randomSamples(const File& file) {
    std::mt19937 random(file.seed);
    Samples samples{file, channelsOf(file.colourType), {}, {}, {}, {}};
    samples.values.resize(static_cast<std::size_t>(file.width * file.height * samples.channels));
    for (auto& value : samples.values)
        value = static_cast<std::uint16_t>(random() >> 8 & ((1U << file.depth) - 1));
    if (file.colourType == PNG_COLOR_TYPE_PALETTE) {
        for (int i = 0; i < 1 << file.depth; ++i) {
            const auto c = random();
            samples.palette.push_back(
                {static_cast<png_byte>(c), static_cast<png_byte>(c >> 8), static_cast<png_byte>(c >> 16)});
            // The last colour is not mentioned, and so is opaque.
            if (i > 0) samples.paletteAlpha.push_back(static_cast<png_byte>(c >> 24));
        }
    } else if (samples.channels >= 3) {
        samples.transparent.red = samples.values[0];
        samples.transparent.green = samples.values[1];
        samples.transparent.blue = samples.values[2];
    } else {
        samples.transparent.gray = samples.values[0];
    }
    return samples;
}

/// Written by the codec library.
Bytes write(const Samples& samples) {
    const File& file = samples.file;
    Bytes out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(
        png, &out,
        [](png_structp writer, png_bytep bytes, std::size_t count) {
            auto& to = *static_cast<Bytes*>(png_get_io_ptr(writer));
            to.insert(to.end(), bytes, bytes + count);
        },
        nullptr);
    png_set_IHDR(png, info, static_cast<png_uint_32>(file.width), static_cast<png_uint_32>(file.height),
                 file.depth, file.colourType, file.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!samples.palette.empty())
        png_set_PLTE(png, info, samples.palette.data(), static_cast<int>(samples.palette.size()));
    if (file.transparency) setTransparency(png, info, samples);
    png_write_info(png, info);
    std::vector<Bytes> rows;
    std::vector<png_bytep> pointers;
    for (int y = 0; y < file.height; ++y)
        rows.push_back(packRow(samples, y));
    for (Bytes& row : rows)
        pointers.push_back(row.data());
    png_write_image(png, pointers.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return out;
}

/// R G B A of one pixel in 8 bits, worked out from the samples by the definition.
Bytes expectedPixel(const Samples& samples, int x, int y) {
    const File& file = samples.file;
    const int first = samples.at(x, y, 0);
    if (file.colourType == PNG_COLOR_TYPE_PALETTE) {
        const png_color c = samples.palette[static_cast<std::size_t>(first)];
        const bool listed =
            file.transparency && static_cast<std::size_t>(first) < samples.paletteAlpha.size();
        return {c.red, c.green, c.blue,
                listed ? samples.paletteAlpha[static_cast<std::size_t>(first)] : std::uint8_t{255}};
    }
    const bool colour = samples.channels >= 3;
    const int green = colour ? samples.at(x, y, 1) : first, blue = colour ? samples.at(x, y, 2) : first;
    int alpha = (1 << file.depth) - 1;
    if (samples.channels % 2 == 0) alpha = samples.at(x, y, samples.channels - 1);
    const png_color_16& t = samples.transparent;
    if (file.transparency &&
        (colour ? first == t.red && green == t.green && blue == t.blue : first == t.gray))
        alpha = 0;
    return {toEightBits(first, file.depth), toEightBits(green, file.depth), toEightBits(blue, file.depth),
            toEightBits(alpha, file.depth)};
}

std::optional<OpenedImage> open(const Bytes& file) { return pngCodec.open(CGDataProvider(Data(file)), {}); }

Bytes smallPicture(int width = 3, int height = 2) { return write(randomSamples({width, height})); }

/// The picture that only says its size: no pixels behind it but `data`.
Bytes headerOnly(std::uint32_t width, std::uint32_t height, const Bytes& data, std::uint8_t colourType = 2) {
    const Bytes signature{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    const Bytes header = joined({bigEndian(width), bigEndian(height), {8, colourType, 0, 0, 0}});
    return joined({signature, pngChunk("IHDR", header), pngChunk("IDAT", data), pngChunk("IEND", {})});
}

Bytes profileChunk(const Bytes& profile) {
    uLongf size = compressBound(profile.size());
    Bytes packed(size);
    compress(packed.data(), &size, profile.data(), profile.size());
    packed.resize(size);
    return joined({{'p', 0, 0}, packed});
}

void expectSamples(const Samples& samples, const CGImage& image) {
    EXPECT_FALSE(image.isIncomplete());
    expectPixels(image, [&](int x, int y) {
        auto wanted = expectedPixel(samples, x, y);
        wanted.resize(image.layout() == PixelLayout::grey ? 1 : 4);
        return wanted;
    });
}

PixelLayout layoutOf(const File& file) {
    if (file.transparency || (file.colourType & PNG_COLOR_MASK_ALPHA) != 0) return PixelLayout::straightLast;
    return file.colourType == PNG_COLOR_TYPE_GRAY ? PixelLayout::grey : PixelLayout::skipLast;
}

void expectRead(const File& file) {
    const Samples samples = randomSamples(file);
    const auto opened = open(write(samples));
    ASSERT_TRUE(opened && opened->source);
    EXPECT_EQ(opened->properties.depth, file.colourType == PNG_COLOR_TYPE_PALETTE ? 8 : file.depth);
    EXPECT_EQ(opened->properties.hasAlpha, hasAlpha(layoutOf(file)));
    EXPECT_EQ(opened->source->layout(), layoutOf(file));
    EXPECT_EQ(opened->source->rows({13, 11}) == nullptr, file.interlaced);
    expectSamples(samples, CGImage::make(opened->source));
}

TEST(PngReader, readsEveryColourTypeDepthAndInterlacing) {
    const std::pair<int, std::vector<int>> types[] = {{PNG_COLOR_TYPE_GRAY, {1, 2, 4, 8, 16}},
                                                      {PNG_COLOR_TYPE_RGB, {8, 16}},
                                                      {PNG_COLOR_TYPE_PALETTE, {1, 2, 4, 8}},
                                                      {PNG_COLOR_TYPE_GRAY_ALPHA, {8, 16}},
                                                      {PNG_COLOR_TYPE_RGB_ALPHA, {8, 16}}};
    for (const auto& [type, depths] : types) {
        for (const int depth : depths) {
            for (const bool interlaced : {false, true}) {
                SCOPED_TRACE(testing::Message()
                             << "type " << type << " depth " << depth << ' ' << interlaced);
                expectRead({13, 11, type, depth, interlaced, false, 7});
                if ((type & PNG_COLOR_MASK_ALPHA) == 0)
                    expectRead({13, 11, type, depth, interlaced, true, 7});
            }
        }
    }
}

TEST(PngReader, readsDensity) {
    const Bytes density = joined({bigEndian(11811), bigEndian(1000), {1}});
    const auto opened = open(withPngChunks(smallPicture(), {{"pHYs", density}}));
    ASSERT_TRUE(opened);
    EXPECT_EQ(opened->properties.dpiWidth, 300);
    EXPECT_DOUBLE_EQ(opened->properties.dpiHeight.value_or(0), 25.4);
    for (const Bytes& none :
         {joined({bigEndian(2), bigEndian(1), {0}}), joined({bigEndian(0), bigEndian(1), {1}})}) {
        const auto ratio = open(withPngChunks(smallPicture(), {{"pHYs", none}}));
        ASSERT_TRUE(ratio);
        EXPECT_FALSE(ratio->properties.dpiWidth);
        EXPECT_FALSE(ratio->properties.dpiHeight);
    }
}

TEST(PngReader, keepsProfilesThatFitThePicture) {
    Bytes huge(std::size_t{40} << 20); // which packed is small
    std::ranges::copy(bigEndian(static_cast<std::uint32_t>(huge.size())), huge.begin());
    const Bytes wide = wideProfile(), grey = grayProfile(1.8);
    const struct {
        int colourType;
        Bytes profile;
        bool isKept, isStandard;
    } cases[] = {{PNG_COLOR_TYPE_RGB, wide, true, false},
                 {PNG_COLOR_TYPE_RGB, grey, false, true},
                 {PNG_COLOR_TYPE_RGB, huge, false, true},
                 // Alpha needs colours, and the profile is made one of these.
                 {PNG_COLOR_TYPE_GRAY_ALPHA, grey, true, false}};
    for (const auto& c : cases) {
        const Bytes plain = write(randomSamples({.colourType = c.colourType}));
        const auto opened = open(withPngChunks(plain, {{"iCCP", profileChunk(c.profile)}}));
        ASSERT_TRUE(opened && opened->source);
        EXPECT_EQ(opened->properties.profileName.has_value(), c.isKept);
        const CGColorSpace space = opened->source->colorSpace();
        EXPECT_EQ(space.model(), CGColorSpace::Model::rgb);
        EXPECT_EQ(space.isStandard(), c.isStandard);
        EXPECT_EQ(space.iccProfile() == Data(wide), c.profile == wide);
        EXPECT_FALSE(CGImage::make(opened->source).isIncomplete());
    }
}

TEST(PngReader, takesGammaAndPrimariesForAProfileUnlessTheyAreOfSRGB) {
    const Bytes usual = bigEndian(45455), linear = bigEndian(100000);
    const Bytes white = joined({bigEndian(31270), bigEndian(32900)}),
                blue = joined({bigEndian(15000), bigEndian(6000)});
    const Bytes srgb =
        joined({white, bigEndian(64000), bigEndian(33000), bigEndian(30000), bigEndian(60000), blue});
    const Bytes wide =
        joined({white, bigEndian(68000), bigEndian(32000), bigEndian(26500), bigEndian(69000), blue});
    using Chunks = std::vector<std::pair<std::string_view, Bytes>>;
    const std::vector<std::pair<Chunks, bool>> cases{
        {{{"gAMA", usual}}, true},
        {{{"gAMA", usual}, {"cHRM", srgb}}, true},
        {{{"gAMA", linear}}, false},
        {{{"gAMA", usual}, {"cHRM", wide}}, false},
        {{{"sRGB", {0}}, {"gAMA", usual}, {"cHRM", srgb}}, true},
    };
    for (const auto& [chunks, standard] : cases) {
        const auto opened = open(withPngChunks(smallPicture(), chunks));
        ASSERT_TRUE(opened && opened->source);
        EXPECT_EQ(opened->source->colorSpace().isStandard(), standard) << (&chunks - &cases[0].first);
        EXPECT_FALSE(opened->properties.profileName);
    }
}

TEST(PngReader, tellsDamageInThePixels) {
    const Bytes whole = smallPicture(40, 40);
    Bytes checksum = whole, stream = whole;
    checksum[whole.size() - 13] ^= 1; // the last byte of IDAT's
    stream[whole.size() / 2] ^= 0x55;
    for (const Bytes& file : {checksum, stream}) {
        const auto opened = open(file);
        ASSERT_TRUE(opened && opened->source);
        EXPECT_TRUE(CGImage::make(opened->source).isIncomplete());
    }
    const auto rows = open(checksum)->source;
    EXPECT_EQ(pixelAt(CGImage::make(rows), 39, 38), pixelAt(CGImage::make(open(whole)->source), 39, 38));
}

TEST(PngReader, refusesWhatIsNoPictureOrTooLarge) {
    const std::vector<std::pair<const char*, Bytes>> cases{
        {"no width", headerOnly(0, 5, {})},
        {"beyond the format", headerOnly(0x80000000U, 1, {})},
        {"as large as can be", headerOnly(0x7FFFFFFF, 0x7FFFFFFF, {})},
        {"more pixels than the bytes can hold", headerOnly(16000, 16000, Bytes(1000))},
        {"an unknown colour type", headerOnly(5, 5, {}, 5)},
        {"a palette picture without palette", headerOnly(5, 5, {}, 3)},
        {"nothing", {}},
    };
    for (const auto& [name, file] : cases)
        EXPECT_FALSE(open(file)) << name;

    Bytes wrongHeaderChecksum = smallPicture();
    wrongHeaderChecksum[29] ^= 1;
    EXPECT_FALSE(open(wrongHeaderChecksum));
}

/// A file that was read with the codec library's own simple interface.
struct ReadBack {
    CGImage image;
    bool hasAlpha, hasColours;
};

ReadBack readBack(const Bytes& file) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_TRUE(png_image_begin_read_from_memory(&image, file.data(), file.size())) << image.message;
    const auto format = image.format;
    image.format = PNG_FORMAT_RGBA;
    Bytes pixels(PNG_IMAGE_SIZE(image));
    EXPECT_TRUE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr)) << image.message;
    EXPECT_EQ(image.warning_or_error, 0U) << image.message;
    auto next = pixels.begin();
    const auto pixel = [&](int, int) {
        Pixel value;
        std::copy_n(std::exchange(next, next + 4), 4, value.begin());
        return value;
    };
    return {makePicture(int(image.width), int(image.height), PixelLayout::straightLast, pixel),
            (format & PNG_FORMAT_FLAG_ALPHA) != 0, (format & PNG_FORMAT_FLAG_COLOR) != 0};
}

Bytes encode(const CGImage& image, const CGImageDestination::Options& options = {}) {
    return bytesOf(encoded(image, ImageFormat::png, options));
}

std::uint32_t numberAt(const Bytes& file, std::size_t at) {
    return std::uint32_t{file[at]} << 24 | std::uint32_t{file[at + 1]} << 16 |
           std::uint32_t{file[at + 2]} << 8 | file[at + 3];
}

/// The names of a file's chunks in order.
std::vector<std::string_view> chunkNames(const Bytes& file) {
    std::vector<std::string_view> names;
    for (std::size_t at = 8; at + 12 <= file.size(); at += 12 + numberAt(file, at))
        names.emplace_back(reinterpret_cast<const char*>(file.data()) + at + 4, 4);
    return names;
}

TEST(PngWriter, writesEveryLayoutSoThatTheCodecLibraryReadsTheSamePixels) {
    using enum PixelLayout;
    for (const PixelLayout layout :
         {premultipliedLast, premultipliedFirst, straightLast, straightFirst, skipLast, skipFirst, grey}) {
        const CGImage image = noise(37, 150, layout); // several strips of rows
        const ReadBack read = readBack(encode(image));
        EXPECT_EQ(read.hasAlpha, hasAlpha(layout));
        EXPECT_EQ(read.hasColours, layout != grey);
        SCOPED_TRACE(int(layout));
        expectPixels(read.image, [&](int x, int y) { return straightAt(image, x, y); });
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
            EXPECT_EQ(readBack(encode(image)).hasAlpha, last != 255);
        }
    }
}

TEST(PngWriter, isReadBackWithItsDensity) {
    const CGImage image = photoLike(4, 4);
    const auto density = [&](std::optional<double> x, std::optional<double> y) {
        CGImageDestination::Options options;
        options.dpiWidth = x;
        options.dpiHeight = y;
        const auto opened = open(encode(image, options));
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
    expectPixels(readBack(file).image, [&](int x, int y) { return straightAt(image, x, y); });
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

} // namespace
} // namespace pex
