#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/filters/ColorCube.h"
#include "peximage/platform/foundation/Reason.h"
#include "tests/support/PictureFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>
#include <string>

namespace {

constexpr std::size_t nothingFails = std::numeric_limits<std::size_t>::max();
std::atomic<std::size_t> failsFrom = nothingFails;
std::atomic<long> failed = 0;

void* allocate(std::size_t bytes) noexcept {
    if (bytes >= failsFrom) {
        ++failed;
        return nullptr;
    }
    return std::malloc(bytes > 0 ? bytes : 1);
}

void* allocateOrThrow(std::size_t bytes) {
    void* const memory = allocate(bytes);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

/// While it lives, no piece of memory of at least so many bytes can be had by `new`, on any thread. Pixel
/// memory does not come from there. One at a time.
struct FailingMemory {
    explicit FailingMemory(std::size_t bytes) { failed = 0, failsFrom = bytes; }
    ~FailingMemory() { failsFrom = nothingFails; }
    FailingMemory(const FailingMemory&) = delete;
    FailingMemory& operator=(const FailingMemory&) = delete;
};

} // namespace

void* operator new(std::size_t bytes) { return allocateOrThrow(bytes); }
void* operator new[](std::size_t bytes) { return allocateOrThrow(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return allocate(bytes); }
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept { return allocate(bytes); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace pex {
namespace {

CGImage grey() { return makePicture(128, 64, PixelLayout::skipLast, Pixel{90, 90, 90, 255}); }

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
    const auto image = PexImage::make(grey());
    const std::vector<ColorCube::Color> green(8, {0, 1, 0});
    image->ciImage_ = image->ciImage()->cropped({0, 32, 64, 32}).colorCube(ColorCube::make(2, green));
    const auto saved = image->heifDataWithin({.desiredSize = 1 << 20, .useAlpha = false});
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->size, (CGSize{64, 32}));
    const auto shown = PexImage::make(saved->bytes, {});
    EXPECT_EQ(shown->size, (CGSize{64, 32}));
    EXPECT_GT(pixelAt(*shown->cgImage, 9, 9)[1], 250);
    EXPECT_EQ(image->heifData({.quality = 1, .useAlpha = false})->size(), saved->bytes.size());
}

TEST(Heif, ASizeThatCannotBeIsRefusedBeforeDecoding) {
    for (const bool av1 : {false, true}) {
        const Bytes file = heifFile(grey(), {av1});
        for (const auto& [width, height] :
             {std::pair{30'000U, 30'000U}, {0xFFFFFFFF, 0xFFFFFFFF}, {0x80000000, 1}, {0, 64}})
            EXPECT_FALSE(CGImageSource::make(Data(claiming(file, width, height)))) << width << ' ' << height;
    }
}

TEST(Heif, PixelsOfAnotherSizeThanTheHeadersAreNone) {
    for (const bool av1 : {false, true}) {
        for (const auto& [width, height] : {std::pair{64, 32}, {16, 16}, {256, 128}, {64, 128}}) {
            const Bytes file = claiming(heifFile(grey(), {av1}), static_cast<std::uint32_t>(width),
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
    const CGImage flat = photoLike(600, 500);
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
            EXPECT_EQ(failed > 0, decodes);
        }
        ImageLimits::setCurrent(before);
    }
}

TEST(Heif, APictureBehindTheFirstIsRead) {
    const CGImage second = makePicture(64, 128, PixelLayout::skipLast, Pixel{200, 10, 10, 255});
    const Data file(heifFile(grey(), {.second = second}));
    const auto source = CGImageSource::make(file, 1);
    ASSERT_TRUE(source);
    EXPECT_EQ(source->properties().pages, 2);
    const auto pixels = source->createImage()->pixels();
    ASSERT_TRUE(pixels);
    EXPECT_EQ(pixels->height, 128);
    EXPECT_NEAR(pixels->row(0)[0], 200, 4);
    for (const int page : {2, -1})
        EXPECT_FALSE(CGImageSource::make(file, page)) << page;
    EXPECT_EQ(lastReason().code, ReasonCode::badArgument);
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
