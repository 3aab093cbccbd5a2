#include "peximage/helpers/PexImageHelper.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/foundation/Reason.h"
#include "tests/support/PictureFiles.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <span>

namespace pex {
namespace {

constexpr ImageFormat everyFormat[] = {ImageFormat::jpeg, ImageFormat::png,  ImageFormat::tiff,
                                       ImageFormat::webp, ImageFormat::heif, ImageFormat::avif};

TEST(Formats, WhatIsWrittenIsReadAgain) {
    const CGImage photo = photoLike(97, 61);
    const CGImage shapes = makePicture(64, 40, PixelLayout::straightLast, [](int x, int y) {
        return Pixel{200, 40, 90, static_cast<std::uint8_t>(x < 32 ? 255 : y < 20 ? 0 : 128)};
    });
    for (const ImageFormat format : std::span(everyFormat).subspan(2)) { // two have tests of their own
        SCOPED_TRACE(displayName(format));
        ASSERT_TRUE(CGImageDestination::writes(format));
        const Bytes file = bytesOf(encoded(photo, format, {.quality = 0.95}));
        const auto source = CGImageSource::make(Data(file));
        ASSERT_TRUE(source);
        EXPECT_EQ(source->properties().format, format);
        EXPECT_FALSE(source->properties().hasAlpha);
        EXPECT_EQ(source->properties().orientation, Orientation::up);
        const auto again = decoded(file);
        ASSERT_TRUE(again);
        EXPECT_EQ(again->width(), 97);
        EXPECT_FALSE(again->isIncomplete());
        EXPECT_LT(difference(*again, photo), format == ImageFormat::tiff ? 0.001 : 4);

        const auto shown = decoded(bytesOf(encoded(shapes, format, {.quality = 1})));
        ASSERT_TRUE(shown);
        EXPECT_NEAR(straightAt(*shown, 40, 30)[3], 128, 3);
        EXPECT_NEAR(straightAt(*shown, 50, 5)[3], 0, 3);
        EXPECT_NEAR(straightAt(*shown, 10, 10)[0], 200, 6);
        const auto flat = decoded(bytesOf(encoded(shapes, format, {.quality = 1, .keepsAlpha = false})));
        EXPECT_NEAR(straightAt(*flat, 50, 5)[1], 255, 6); // over white
        EXPECT_NEAR(straightAt(*flat, 40, 30)[1], 147, 6);
    }
}

TEST(Formats, OfLossOnlyWhatTheQualitySays) {
    const CGImage photo = photoLike(160, 120);
    for (const ImageFormat format : {ImageFormat::webp, ImageFormat::heif, ImageFormat::avif})
        EXPECT_LT(encoded(photo, format, {.quality = 0.2}).size(),
                  encoded(photo, format, {.quality = 0.9}).size());
    EXPECT_EQ(difference(*decoded(bytesOf(encoded(photo, ImageFormat::webp, {.quality = 1}))), photo), 0);
}

TEST(Formats, TiffKeepsTheResolutionAndSavesLikePng) {
    const TempFolder folder;
    const URL url = folder.url("deep/er/a.tif");
    const auto image = PexImage::make(NSImage::make(photoLike(100, 100), {50, 25}), {});
    EXPECT_TRUE(PexImageHelper::saveToTIFF(*image, url));
    const auto source = CGImageSource::make(url);
    ASSERT_TRUE(source);
    EXPECT_EQ(source->properties().dpiWidth, 144);
    EXPECT_EQ(source->properties().dpiHeight, 288);
    EXPECT_FALSE(PexImageHelper::saveToTIFF(*PexImage::make({.size = {4, 4}}), url));
    EXPECT_FALSE(CGImageSource::make(url)); // deleted before encoding
}

TEST(Formats, TellHowManyPicturesAFileHas) {
    const TiffPicture page{9, 7, [](int x, int) { return std::array<std::uint16_t, 4>{std::uint16_t(x)}; }};
    const std::pair<int, Bytes> cases[] = {
        {1, bytesOf(encoded(photoLike(9, 7), ImageFormat::webp))},
        {1, heifFile(photoLike(64, 64), {})},
        {1, gifFile(9, 7, false, 1)},
        {3, gifFile(9, 7, true, 3)},
        {1, tiffFile({}, {page})},
        {2, tiffFile({}, {page, page})},
        {20, tiffFile({}, std::vector(20, page))},
        {2, bytesOf(Data(pdfFile({{}, {}})))},
    };
    for (const auto& [pages, file] : cases) {
        const auto source = CGImageSource::make(Data(file));
        ASSERT_TRUE(source);
        EXPECT_EQ(source->properties().pages, pages) << displayName(source->properties().format);
        EXPECT_TRUE(source->createImage()->pixels());
    }
}

/// Four corners of 64 × 32 pixels each: red and green above, blue and white below.
CGImage corners() {
    return makePicture(128, 64, PixelLayout::skipLast, [](int x, int y) {
        if (y < 32) return x < 64 ? Pixel{255, 0, 0, 255} : Pixel{0, 255, 0, 255};
        return x < 64 ? Pixel{0, 0, 255, 255} : Pixel{255, 255, 255, 255};
    });
}

/// The letters of the corners' colours: above, then below.
std::string cornersOf(const CGImage& image) {
    std::string letters;
    for (const int i : {0, 1, 2, 3}) {
        const Pixel p =
            straightAt(image, image.width() * (1 + i % 2 * 2) / 4, image.height() * (1 + i / 2 * 2) / 4);
        const bool r = p[0] > 128, g = p[1] > 128, b = p[2] > 128;
        letters += r && g && b ? 'W' : r ? 'R' : g ? 'G' : b ? 'B' : '?';
    }
    return letters;
}

/// How the corners are seen in each of EXIF's orientations.
constexpr const char* seen[] = {"RGBW", "GRWB", "WBGR", "BWRG", "RBGW", "BRWG", "WGBR", "GWRB"};

Bytes tiffTurned(Bytes file, std::uint8_t value) {
    const Bytes tag{0x12, 0x01, 3, 0, 1, 0, 0, 0, 1, 0}; // orientation 1, as the file is written
    std::search(file.begin(), file.end(), tag.begin(), tag.end())[8] = value;
    return file;
}

TEST(Formats, EveryOneIsTurnedOnceAsItSays) {
    const auto plain = [](ImageFormat format) { return bytesOf(encoded(corners(), format, {.quality = 1})); };
    const Bytes jpeg = plain(ImageFormat::jpeg), png = plain(ImageFormat::png),
                webp = plain(ImageFormat::webp), tiff = plain(ImageFormat::tiff);
    for (std::uint16_t value = 1; value <= 8; ++value) {
        const Bytes block = exifBlock({exifShort(0x0112, value)}), other = exifBlock({exifShort(0x0112, 6)});
        // Of the last kind the container's own boxes turn; the camera's tag may still be there, or another.
        const struct {
            const char* what;
            Bytes file;
            std::int64_t tag;
            bool byBoxes = false;
        } cases[] = {{"JPEG", withExif(jpeg, block), value},
                     {"PNG", withPngChunks(png, {{"eXIf", block}}), value},
                     {"WebP", webpWithExif(webp, 128, 64, block), value},
                     {"TIFF", tiffTurned(tiff, static_cast<std::uint8_t>(value)), value},
                     {"HEIF", heifFile(corners(), {false, value}), 0, true},
                     {"HEIF, tagged", heifFile(corners(), {false, value, block}), value, true},
                     {"AVIF, tagged otherwise", heifFile(corners(), {true, value, other}), 6, true}};
        for (const auto& c : cases) {
            SCOPED_TRACE(c.what + std::string(" in orientation ") + std::to_string(value));
            const auto source = CGImageSource::make(Data(c.file));
            ASSERT_TRUE(source);
            EXPECT_EQ(static_cast<int>(source->properties().orientation), c.byBoxes ? 1 : value);
            EXPECT_EQ(source->properties().pixelWidth, c.byBoxes && value >= 5 ? 64 : 128);
            if (c.what != std::string("TIFF")) {
                EXPECT_EQ(source->copyProperties().dictionary("TIFF").integer("Orientation").value_or(0),
                          c.tag);
            }
            EXPECT_EQ(cornersOf(*source->createImage()), seen[c.byBoxes ? value - 1 : 0]); // as stored
            const auto image = PexImage::make(Data(c.file), {});
            ASSERT_TRUE(image);
            EXPECT_EQ(image->size, value < 5 ? (CGSize{128, 64}) : (CGSize{64, 128}));
            const Data saved = *image->jpegData(0.9);
            EXPECT_EQ(CGImageSource::make(saved)->properties().orientation, Orientation::up);
            for (const auto& shown :
                 {image, PexImage::make(saved, {}), image->resize({.to = image->size * 0.5})})
                EXPECT_EQ(cornersOf(*shown->cgImage), seen[value - 1]);
        }
    }
}

/// The limits in force while it lives.
class WithLimits {
  public:
    explicit WithLimits(const ImageLimits& limits) : before_(ImageLimits::current()) {
        ImageLimits::setCurrent(limits);
    }
    ~WithLimits() { ImageLimits::setCurrent(before_); }
    WithLimits(const WithLimits&) = delete;
    WithLimits& operator=(const WithLimits&) = delete;

  private:
    ImageLimits before_;
};

/// The same from memory and from a file.
bool opens(const Bytes& file, const ImageLimits& limits) {
    const TempFolder folder;
    const URL url = folder.url("picture");
    Data(file).write(url, Data::Writing::inPlace);
    const WithLimits inForce(limits);
    const bool fromMemory = CGImageSource::make(Data(file)).has_value();
    EXPECT_EQ(CGImageSource::make(url).has_value(), fromMemory);
    return fromMemory;
}

std::pair<int, int> sizeOf(const Bytes& file) {
    const ImageProperties header = CGImageSource::make(Data(file))->properties();
    return {header.pixelWidth, header.pixelHeight};
}

struct Limited {
    std::string what;
    Bytes file;
    std::int64_t pixels;
};

std::vector<Limited> filesOfEveryFormat() {
    std::vector<Limited> files{{"GIF", smallGif(), 6},
                               {"BMP", bmpFile(2, 3, 24, 0, {}, Bytes(24)), 6},
                               {"BMP, top row first", bmpFile(2, -3, 24, 0, {}, Bytes(24)), 6}};
    for (const ImageFormat format : everyFormat)
        files.push_back(
            {std::string(displayName(format)), bytesOf(encoded(photoLike(40, 30), format)), 1200});
    for (const bool av1 : {false, true}) // stored lying, seen upright
        files.push_back({"turned", heifFile(photoLike(128, 64), {av1, 6}), 128 * 64});
    return files;
}

TEST(FormatLimits, EveryFormatKeepsToThePixelsAndBytesAllowed) {
    for (const auto& [what, file, pixels] : filesOfEveryFormat()) {
        SCOPED_TRACE(what);
        EXPECT_TRUE(opens(file, {}));
        EXPECT_TRUE(opens(file, {.maxPixels = pixels, .maxSourceBytes = file.size()}));
        EXPECT_FALSE(opens(file, {.maxPixels = pixels - 1}));
        const auto [width, height] = sizeOf(file);
        EXPECT_EQ(lastReason().message, std::to_string(width) + " × " + std::to_string(height) +
                                            " pixels, over the limit of " + std::to_string(pixels - 1));
        EXPECT_EQ(lastReason().code, ReasonCode::overLimit);
        EXPECT_FALSE(opens(file, {.maxSourceBytes = file.size() - 1}));
        EXPECT_EQ(lastReason().code, ReasonCode::overLimit);
        EXPECT_FALSE(opens(file, {.maxPixels = 0}));
    }
}

/// Lossless, each of its five codes a single symbol, which takes no bits.
Bytes webpOfOneColour(std::uint64_t width, std::uint64_t height) {
    constexpr std::uint64_t signature = 0x2F, codes = 0x11111;
    const std::uint64_t picture = signature | (width - 1) << 8 | (height - 1) << 22 | codes << 43;
    Bytes file{'R', 'I', 'F', 'F', 30, 0, 0, 0, 'W', 'E', 'B', 'P', 'V', 'P', '8', 'L', 18, 0, 0, 0};
    for (int i = 0; i < 18; ++i)
        file.push_back(static_cast<std::uint8_t>(i < 8 ? picture >> (8 * i) : 0));
    return file;
}

TEST(FormatLimits, MemoryAndTimeAreBounded) {
    const Bytes bomb = webpOfOneColour(16383, 16383);
    EXPECT_EQ(bomb.size(), 38u);
    EXPECT_FALSE(opens(bomb, {}));
    EXPECT_EQ(lastReason().code, ReasonCode::overLimit);
    EXPECT_TRUE(opens(bomb, {.maxPixelsPerByte = 1 << 23}));
    EXPECT_TRUE(opens(webpOfOneColour(8192, 8192), {}));

    for (const ImageFormat format : everyFormat) {
        SCOPED_TRACE(displayName(format));
        const Bytes file = bytesOf(encoded(photoLike(400, 300), format));
        const auto decodes = [&](const ImageLimits& limits) {
            const WithLimits inForce(limits);
            const auto source = CGImageSource::make(Data(file));
            return source && source->createImage()->pixels();
        };
        EXPECT_FALSE(decodes({.maxDecodingSeconds = 0}));
        EXPECT_EQ(lastReason().code, ReasonCode::timedOut);
        const PixelBuffer others = PixelBuffer::make(1 << 20);
        EXPECT_FALSE(decodes({.maxPixelMemory = (1 << 20) + 479'999}));
        EXPECT_EQ(lastReason().code, ReasonCode::outOfMemory);
        EXPECT_TRUE(decodes({.maxPixelMemory = 1 << 24})); // not larger by what was refused
    }
}

/// Whether a profile or an EXIF block of the file is kept; its pixels always are.
bool isKept(const Bytes& file, std::size_t most) {
    EXPECT_TRUE(opens(file, {.maxMetadataBytes = most}));
    const WithLimits inForce({.maxMetadataBytes = most});
    const auto source = CGImageSource::make(Data(file));
    if (!source) return false;
    EXPECT_TRUE(source->createImage()->pixels() && !source->createImage()->isIncomplete());
    return source->properties().profileName || source->copyProperties().dictionary("TIFF").text("Make");
}

TEST(FormatLimits, AProfileIsKeptUnlessItIsStandardOrBeyondTheLimit) {
    const auto space = CGColorSpace::fromICC(Data(wideProfile()));
    const std::size_t size = wideProfile().size();
    const auto red = [](const CGColorSpace& in) {
        return makePicture(32, 32, PixelLayout::skipLast, Pixel{230, 20, 30, 255}, in);
    };
    for (const ImageFormat format : everyFormat) {
        SCOPED_TRACE(displayName(format));
        const Bytes file = bytesOf(encoded(red(*space), format, {.quality = 0.95}));
        EXPECT_EQ(decoded(file)->colorSpace().iccProfile(), space->iccProfile());
        EXPECT_NEAR(pixelAt(*decoded(file), 5, 5)[0], 230, 4);
        EXPECT_FALSE(isKept(bytesOf(encoded(red(CGColorSpace::sRGB()), format)), 2 * size));
        EXPECT_TRUE(isKept(file, ImageLimits().maxMetadataBytes));
        EXPECT_TRUE(isKept(file, size));
        EXPECT_FALSE(isKept(file, size - 1));
        EXPECT_FALSE(isKept(file, 0));
    }
}

TEST(FormatLimits, AnExifBlockBeyondTheLimitIsLeftOut) {
    const Bytes block = exifBlock({exifText(0x010F, std::string(5000, 'a'))});
    const CGImage photo = photoLike(64, 32);
    const auto plain = [&](ImageFormat format) { return bytesOf(encoded(photo, format)); };
    const Limited files[] = {
        {"JPEG", withExif(plain(ImageFormat::jpeg), block), 0},
        {"PNG", withPngChunks(plain(ImageFormat::png), {{"eXIf", block}}), 0},
        {"WebP", webpWithExif(plain(ImageFormat::webp), 64, 32, block), 0},
        {"HEIF", heifFile(photo, {.exif = block}), 0},
        {"AVIF", heifFile(photo, {.av1 = true, .exif = block}), 0},
    };
    for (const Limited& c : files) {
        SCOPED_TRACE(c.what);
        // What stands before the block in some formats is at most a signature of ten bytes.
        EXPECT_TRUE(isKept(c.file, ImageLimits().maxMetadataBytes));
        EXPECT_TRUE(isKept(c.file, block.size() + 10));
        EXPECT_FALSE(isKept(c.file, block.size() - 1));
        EXPECT_FALSE(isKept(c.file, 0));
    }
}

TEST(Gif, FirstFrameWithItsTransparentColour) {
    const Bytes file = smallGif();
    const auto image = decoded(file);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), 3);
    EXPECT_EQ(pixelAt(*image, 0, 0), (Pixel{0, 0, 0, 0}));
    EXPECT_EQ(pixelAt(*image, 1, 0), (Pixel{255, 0, 0, 255}));
    EXPECT_EQ(pixelAt(*image, 2, 0)[3], 0);
}

/// Blue, green, red, unused.
const Bytes palette = [] {
    Bytes colours{0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 0};
    colours.resize(16 * 4);
    return colours;
}();
const Pixel red{255, 0, 0, 255}, green{0, 255, 0, 255}, blue{0, 0, 255, 255};

TEST(Bmp, PixelsOfEveryKindLieWhereTheyBelong) {
    const std::pair<const char*, Bytes> cases[] = {
        {"24 bits, bottom row first",
         bmpFile(2, 2, 24, 0, {}, {255, 0, 0, 0, 0, 255, 0, 0, 0, 0, 255, 0, 255, 0, 0, 0})},
        {"24 bits, top row first",
         bmpFile(2, -2, 24, 0, {}, {0, 0, 255, 0, 255, 0, 0, 0, 255, 0, 0, 0, 0, 255, 0, 0})},
        {"4 bits", bmpFile(2, 2, 4, 0, palette, {0x20, 0, 0, 0, 0x01, 0, 0, 0})},
        {"runs of 4 bits", bmpFile(2, 2, 4, 2, palette, {2, 0x20, 0, 0, 2, 0x01, 0, 1})},
        {"16 bits", bmpFile(2, 2, 16, 0, {}, {0x1F, 0, 0, 0x7C, 0, 0x7C, 0xE0, 0x03})},
        {"32 bits by masks", bmpFile(2, 2, 32, 3, {0xFF, 0, 0, 0, 0, 0xFF, 0, 0, 0, 0, 0xFF, 0},
                                     {0, 0, 255, 0, 255, 0, 0, 0, 255, 0, 0, 0, 0, 255, 0, 0})},
    };
    for (const auto& [what, file] : cases) {
        SCOPED_TRACE(what);
        const auto image = decoded(file);
        ASSERT_TRUE(image);
        EXPECT_FALSE(image->isIncomplete());
        EXPECT_EQ(straightAt(*image, 0, 0), red);
        EXPECT_EQ(straightAt(*image, 1, 0), green);
        EXPECT_EQ(straightAt(*image, 0, 1), blue);
        EXPECT_EQ(straightAt(*image, 1, 1), red);
        EXPECT_EQ(CGImageSource::make(Data(file))->properties().dpiWidth, 2835 * 0.0254);
    }
}

TEST(Bmp, RunsMayJumpAndLeaveOut) {
    Bytes colours = palette;
    colours.resize(256 * 4);
    // From the bottom: two green; a jump one right and one up; three of their own; the end.
    const auto image = decoded(bmpFile(4, 3, 8, 1, colours, {2, 1, 0, 2, 0, 1, 0, 3, 2, 1, 2, 0, 0, 1}));
    ASSERT_TRUE(image);
    EXPECT_EQ(straightAt(*image, 0, 2), green);
    EXPECT_EQ(straightAt(*image, 2, 2), red); // the first colour
    EXPECT_EQ(straightAt(*image, 2, 1), blue);
    EXPECT_EQ(straightAt(*image, 3, 1), green);
    EXPECT_EQ(straightAt(*image, 0, 0), red);
}

TEST(Bmp, LyingHeadersAreRefused) {
    using Four = std::array<int, 4>;
    for (const auto& [width, height, bits, compression] : {Four{0, 2, 24, 0},
                                                           {2, 0, 24, 0},
                                                           {-2, 2, 24, 0},
                                                           {2, 2, 7, 0},
                                                           {2, 2, 24, 1},
                                                           {2, -2, 8, 1},
                                                           {100'000, 100'000, 24, 0},
                                                           {2, 2, 24, 9}})
        EXPECT_FALSE(
            decoded(bmpFile(width, height, bits, static_cast<std::uint8_t>(compression), {}, Bytes(64))))
            << width << ' ' << height << ' ' << bits << ' ' << compression;
    EXPECT_FALSE(decoded(bytesOf(Data(std::string_view("BM is no picture!!!")))));
}

TEST(Heif, SavesWithAndWithoutAlphaAndWithinABudget) {
    const TempFolder folder;
    const auto photo = PexImage::make(photoLike(240, 180));
    const auto full = photo->heifData({.quality = 1.0, .useAlpha = true});
    ASSERT_TRUE(full);
    const auto ten = photo->heifData({.quality = 0.5, .useAlpha = false});
    EXPECT_EQ(CGImageSource::make(*ten)->properties().depth, 10);
    EXPECT_LT(difference(*decoded(bytesOf(*ten)), *photo->cgImage), 4);
    EXPECT_FALSE(PexImage::make({.size = {4, 4}})->heifData({.quality = 1}));
    const URL url = folder.url("a.heic");
    EXPECT_TRUE(photo->saveAsHEIF({.to = url, .quality = 0.5}));
    EXPECT_FALSE(photo->saveAsHEIF({.to = folder.url("no/such/folder/a.heic"), .quality = 0.5}));

    const auto large = static_cast<long long>(full->size());
    const auto size = [&] { return static_cast<long long>(Data::contentsOf(url)->size()); };
    {
        const CapturedLines printed; // fits as it is: no search
        EXPECT_TRUE(photo->saveAsHEIF({.desiredSize = large + 1, .to = url}));
        EXPECT_EQ(size(), large);
        EXPECT_TRUE(printed.lines.empty());
    }
    const CapturedLines printed;
    EXPECT_TRUE(photo->saveAsHEIF({.desiredSize = large / 3, .to = url}));
    EXPECT_LE(size(), large / 3);
    EXPECT_GT(size(), large / 5);
    EXPECT_EQ(printed.lines.back().substr(0, 9), "quality: ");
    const auto smallest = static_cast<long long>(photo->heifData({.quality = 0})->size());
    const auto tiny = photo->heifDataWithin({.desiredSize = smallest - 1});
    ASSERT_TRUE(tiny);
    EXPECT_LT(static_cast<long long>(tiny->bytes.size()), smallest);
    EXPECT_LT(tiny->size.width, 240);
}

} // namespace
} // namespace pex
