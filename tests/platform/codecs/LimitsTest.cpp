#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/foundation/Reason.h"
#include "tests/platform/codecs/PngFiles.h"
#include "tests/support/PictureFiles.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

namespace pex {
namespace {

constexpr ImageFormat writable[] = {ImageFormat::jpeg, ImageFormat::png,  ImageFormat::tiff,
                                    ImageFormat::webp, ImageFormat::heif, ImageFormat::avif};

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
    for (const ImageFormat format : writable)
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

/// True when the file opens, and true then for its profile and its EXIF block.
struct Kept {
    bool profile, exif;
};

Kept keptOf(const Bytes& file, std::size_t most) {
    EXPECT_TRUE(opens(file, {.maxMetadataBytes = most}));
    const WithLimits inForce({.maxMetadataBytes = most});
    const auto source = CGImageSource::make(Data(file));
    if (!source) return {};
    const bool pixels = source->createImage()->pixels().has_value() && !source->createImage()->isIncomplete();
    EXPECT_TRUE(pixels);
    return {source->properties().profileName.has_value(),
            source->copyProperties().dictionary("TIFF").text("Make") != nullptr};
}

TEST(FormatLimits, AProfileBeyondTheLimitIsLeftOut) {
    const Bytes profile = wideProfile();
    const auto space = CGColorSpace::fromICC(Data(profile));
    const CGImage photo = makePicture(
        32, 32, PixelLayout::skipLast,
        [](int x, int y) {
            return Pixel{static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 9, 255};
        },
        *space);
    for (const ImageFormat format : writable) {
        SCOPED_TRACE(displayName(format));
        const Bytes file = bytesOf(encoded(photo, format));
        EXPECT_TRUE(keptOf(file, ImageLimits().maxMetadataBytes).profile);
        EXPECT_TRUE(keptOf(file, profile.size()).profile);
        EXPECT_FALSE(keptOf(file, profile.size() - 1).profile);
        EXPECT_FALSE(keptOf(file, 0).profile);
    }
}

TEST(FormatLimits, AnExifBlockBeyondTheLimitIsLeftOut) {
    const Bytes block = exifBlock({exifText(0x010F, std::string(5000, 'a'))});
    const CGImage photo = photoLike(64, 32);
    const auto plain = [&](ImageFormat format) { return bytesOf(encoded(photo, format)); };
    const Limited files[] = {
        {"JPEG", withExif(plain(ImageFormat::jpeg), block), 0},
        {"PNG", pngtest::withChunks(plain(ImageFormat::png), {{"eXIf", block}}), 0},
        {"WebP", webpWithExif(plain(ImageFormat::webp), 64, 32, block), 0},
        {"HEIF", heifFile(photo, {.exif = block}), 0},
        {"AVIF", heifFile(photo, {.av1 = true, .exif = block}), 0},
    };
    for (const Limited& c : files) {
        SCOPED_TRACE(c.what);
        // What stands before the block in some formats is at most a signature of ten bytes.
        EXPECT_TRUE(keptOf(c.file, ImageLimits().maxMetadataBytes).exif);
        EXPECT_TRUE(keptOf(c.file, block.size() + 10).exif);
        EXPECT_FALSE(keptOf(c.file, block.size() - 1).exif);
        EXPECT_FALSE(keptOf(c.file, 0).exif);
    }
}

} // namespace
} // namespace pex
