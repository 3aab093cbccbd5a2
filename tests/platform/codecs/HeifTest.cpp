#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/filters/ColorCube.h"
#include "peximage/platform/foundation/Reason.h"
#include "tests/support/FailingMemory.h"
#include "tests/support/PictureFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace pex {
namespace {

constexpr std::uint16_t orientationTag = 0x0112;

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
    for (const int y : {1, 3}) {
        for (const int x : {1, 3}) {
            const Pixel p = straightAt(image, image.width() * x / 4, image.height() * y / 4);
            const bool r = p[0] > 128, g = p[1] > 128, b = p[2] > 128;
            letters += r && g && b ? 'W' : r ? 'R' : g ? 'G' : b ? 'B' : '?';
        }
    }
    return letters;
}

/// How the corners are seen in each of EXIF's orientations.
constexpr const char* seen[] = {"RGBW", "GRWB", "WBGR", "BWRG", "RBGW", "BRWG", "WGBR", "GWRB"};

void setBigEndian(Bytes& file, std::size_t at, std::uint32_t number) {
    for (std::size_t i = 0; i < 4; ++i)
        file[at + i] = static_cast<std::uint8_t>(number >> (24 - 8 * i));
}

/// The file with another size in its header.
Bytes claiming(Bytes file, std::uint32_t width, std::uint32_t height) {
    const std::string name = "ispe";
    const auto at = static_cast<std::size_t>(std::search(file.begin(), file.end(), name.begin(), name.end()) -
                                             file.begin());
    setBigEndian(file, at + 8, width);
    setBigEndian(file, at + 12, height);
    return file;
}

TEST(Heif, ShowsTheFilterGraphThatWasAssigned) {
    const auto image = PexImage::make(corners());
    image->ciImage_ =
        image->ciImage()
            ->cropped({0, 32, 64, 32})
            .colorCube(ColorCube::make(
                2, {{0, 1, 0}, {0, 1, 0}, {0, 1, 0}, {0, 1, 0}, {0, 1, 0}, {0, 1, 0}, {0, 1, 0}, {0, 1, 0}}));
    const auto saved = image->heifDataWithin({.desiredSize = 1 << 20, .useAlpha = false});
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->size, (CGSize{64, 32}));
    const auto shown = PexImage::make(saved->bytes, {});
    EXPECT_EQ(shown->size, (CGSize{64, 32}));
    EXPECT_EQ(cornersOf(*shown->cgImage), "GGGG");
    EXPECT_EQ(image->heifData({.quality = 1, .useAlpha = false})->size(), saved->bytes.size());
}

TEST(Heif, IsTurnedOnceWhateverExifSays) {
    for (const bool av1 : {false, true}) {
        for (int turned = 1; turned <= 8; ++turned) {
            // A writer that turns by the container's boxes may keep the camera's tag, or another.
            for (const int tag : {0, 1, turned, 6}) {
                SCOPED_TRACE(std::to_string(turned) + (av1 ? " AVIF" : " HEIF") + ", EXIF " +
                             std::to_string(tag));
                HeifKind kind{av1, turned};
                if (tag > 0)
                    kind.exif = exifBlock({exifShort(orientationTag, static_cast<std::uint16_t>(tag))});
                const Bytes file = heifFile(corners(), kind);
                const auto source = CGImageSource::make(Data(file));
                ASSERT_TRUE(source);
                EXPECT_EQ(source->properties().orientation, Orientation::up);
                EXPECT_EQ(source->properties().pixelWidth, turned < 5 ? 128 : 64);
                const auto image = PexImage::make(Data(file), {});
                ASSERT_TRUE(image);
                EXPECT_EQ(image->size, turned < 5 ? (CGSize{128, 64}) : (CGSize{64, 128}));
                EXPECT_EQ(cornersOf(*image->cgImage), seen[turned - 1]);
                EXPECT_EQ(source->copyProperties().dictionary("TIFF").integer("Orientation").value_or(0),
                          tag);
            }
        }
    }
}

TEST(Heif, ASizeThatBreaksALimitIsRefusedBeforeDecoding) {
    const ImageLimits before = ImageLimits::current();
    for (const bool av1 : {false, true}) {
        const Bytes file = heifFile(corners(), {av1});
        const struct {
            std::uint32_t width, height;
            std::int64_t most;
            bool opens;
        } cases[] = {{128, 64, 128 * 64, true},
                     {128, 64, 128 * 64 - 1, false},
                     {30'000, 30'000, before.maxPixels, false},
                     {0xFFFFFFFF, 0xFFFFFFFF, before.maxPixels, false},
                     {0x80000000, 1, before.maxPixels, false},
                     {0, 64, before.maxPixels, false}};
        for (const auto& c : cases) {
            ImageLimits limits = before;
            limits.maxPixels = c.most;
            ImageLimits::setCurrent(limits);
            EXPECT_EQ(CGImageSource::make(Data(claiming(file, c.width, c.height))).has_value(), c.opens)
                << c.width << ' ' << c.height << ' ' << c.most;
        }
        ImageLimits::setCurrent(before);
    }
}

TEST(Heif, PixelsOfAnotherSizeThanTheHeadersAreNone) {
    for (const bool av1 : {false, true}) {
        for (const auto& [width, height] : {std::pair{64, 32}, {16, 16}, {256, 128}, {64, 128}}) {
            const Bytes file = claiming(heifFile(corners(), {av1}), static_cast<std::uint32_t>(width),
                                        static_cast<std::uint32_t>(height));
            EXPECT_EQ(CGImageSource::make(Data(file))->properties().pixelWidth, width);
            EXPECT_FALSE(decoded(file));
            EXPECT_EQ(lastReason().code, ReasonCode::damaged);
        }
    }
}

/// What is coded may be larger than the header says. Decoders believe what is coded.
TEST(Heif, NothingIsDecodedThatIsCodedInMorePixelsThanAllowed) {
    constexpr std::size_t planes = std::size_t{1} << 18; // of 600 × 500 pixels take that much and more
    const CGImage flat = makePicture(600, 500, PixelLayout::skipLast, [](int, int) {
        return Pixel{90, 120, 30, 255};
    });
    const ImageLimits before = ImageLimits::current();
    for (const bool av1 : {false, true}) {
        const Bytes file = claiming(heifFile(flat, {av1}), 16, 16);
        for (const auto& [most, decodes] : {std::pair{before.maxPixels, true},
                                            {std::int64_t{600 * 500}, true},
                                            {std::int64_t{400 * 400}, false},
                                            {std::int64_t{16 * 16}, false}}) {
            SCOPED_TRACE(std::to_string(most) + (av1 ? " AVIF" : " HEIF"));
            ImageLimits limits = before;
            limits.maxPixels = most;
            ImageLimits::setCurrent(limits);
            const auto source = CGImageSource::make(Data(file));
            ASSERT_TRUE(source);
            const FailingMemory watched(planes);
            EXPECT_TRUE(source->createImage()->isIncomplete());
            EXPECT_EQ(FailingMemory::failures() > 0, decodes);
        }
        ImageLimits::setCurrent(before);
    }
}

/// Found by fuzzing: a picture whose alpha is a grid of tiles, the only one of which is the grid itself.
TEST(Heif, PicturesMadeOfThemselvesAreNone) {
    const URL found = URL::fromPath(PEX_FUZZ_CORPUS "/fuzz-Heif/made-of-itself.heic");
    const std::optional<Data> file = Data::contentsOf(found);
    ASSERT_TRUE(file);
    EXPECT_FALSE(CGImageSource::make(*file));

    // Made of item 3 instead, a single tile, it can be opened.
    Bytes honest(file->bytes().begin(), file->bytes().end());
    const std::string reference("dimg\0\4\0\1\0\4", 10);
    const auto at = std::search(honest.begin(), honest.end(), reference.begin(), reference.end());
    ASSERT_NE(at, honest.end());
    at[9] = 3;
    EXPECT_TRUE(CGImageSource::make(Data(honest)));
}

} // namespace
} // namespace pex
