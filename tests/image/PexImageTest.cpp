#include "peximage/image/PexImage.h"

#include "peximage/cache/PexImageStoredCache.h"
#include "peximage/cache/PexImageView.h"
#include "peximage/canvas/PexCanvas.h"
#include "peximage/helpers/PexImageHelperColours.h"
#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/helpers/PexWatermark.h"
#include "peximage/pixels/PexContextImage.h"
#include "peximage/platform/toolkit/NSScreen.h"
#include "peximage/platform/varda/Draw.h"
#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <type_traits>

using namespace pex;

namespace {

const double infinity = std::numeric_limits<double>::infinity();
const double nan = std::nan("");

TEST(PexImage, FilesAndBytesGivePixelSizesWhateverTheScreen) {
    const CapturedLines quiet;
    const TempFolder folder;
    ASSERT_TRUE(PexImage::make(photoLike(64, 48))
                    ->saveToJpeg({.quality = 0.9, .dpi = 300, .url = folder.url("a.jpg")}));
    for (const double scale : {1., 2.}) {
        NSScreen::setScreens({{scale}});
        const auto fast = PexImage::make({.fastUrl = folder.url("a.jpg")});
        const auto plain = PexImage::make(folder.url("a.jpg"), {.noTimeOut = true});
        const auto bytes = PexImage::make(*Data::contentsOf(folder.url("a.jpg")), {});
        for (const auto& image : {fast, plain, bytes}) {
            ASSERT_TRUE(image);
            EXPECT_EQ(image->size, (CGSize{64, 48}));
            EXPECT_EQ(image->aspectRatio(), 64. / 48);
            EXPECT_NEAR(image->image->width(), 64 * 72 / 300., 1e-9); // points
        }
        EXPECT_NE(fast->id, plain->id);
    }
    NSScreen::setScreens({});
}

TEST(PexImage, BlankImagesKeepTheSizeAskedFor) {
    NSScreen::setScreens({{1}, {2}});
    EXPECT_EQ(PexImage::make({.size = {200, 100}})->image->size(), (CGSize{100, 50}));
    EXPECT_EQ(PexImage::make({.notBakedNormalizedSize = {200, 100}})->image->size(), (CGSize{200, 100}));
    NSScreen::setScreens({});
    const auto blank = PexImage::make({.size = {200, 100}});
    EXPECT_EQ(blank->image->size(), (CGSize{200, 100}));
    EXPECT_EQ(blank->size, (CGSize{200, 100}));
    EXPECT_FALSE(blank->cgImage);
    EXPECT_FALSE(blank->ciImage());
    EXPECT_FALSE(blank->bitmapRep());
    blank->setColor(0, 0, NSColor(1, 1, 1));
    EXPECT_FALSE(blank->thumb(10));
    blank->setSize();
    EXPECT_EQ(blank->size, (CGSize{0, 0}));
}

TEST(PexImage, PartialImagesAreCompletedBySetSize) {
    const auto png = *PexImage::make(photoLike(30, 20))->pngData();
    const auto image = PexImage::make(png, {.dontCreateAuxiliaryVars = true});
    EXPECT_EQ(image->size, (CGSize{0, 0}));
    EXPECT_FALSE(image->cgImage);
    EXPECT_EQ(image->bitmapRep()->pixelsWide(), 30); // derived for the purpose
    image->setSize();
    EXPECT_EQ(image->size, (CGSize{30, 20}));
    EXPECT_TRUE(image->cgImage);
}

TEST(PexImage, CachesAreFilledOnceAndStay) {
    const auto image = PexImage::make(photoLike(30, 20));
    EXPECT_EQ(image->ciImage()->extent(), (CGRect{0, 0, 30, 20}));
    const auto rep = image->bitmapRep();
    image->cgImage = photoLike(10, 10);
    EXPECT_EQ(image->ciImage()->extent(), (CGRect{0, 0, 30, 20}));
    EXPECT_EQ(image->bitmapRep(), rep);
    EXPECT_EQ(image->size, (CGSize{30, 20}));

    const auto late = PexImage::make({.size = {5, 5}});
    EXPECT_FALSE(late->ciImage());
    late->cgImage = photoLike(10, 10);
    EXPECT_TRUE(late->ciImage());
}

TEST(PexImage, WrittenPixelsShowInTheBitmapRepresentationOnly) {
    const auto picture = makePicture(4, 4, PixelLayout::premultipliedFirst, Pixel{255, 9, 9, 9});
    const auto image = PexImage::make(picture);
    image->setColor(1, 2, NSColor(1, 0, 0.5, 0.5));
    EXPECT_EQ(pixelAt(image->bitmapRep()->cgImage(), 1, 2), (Pixel{128, 128, 0, 64}));
    EXPECT_EQ(pixelAt(*image->cgImage, 1, 2), (Pixel{255, 9, 9, 9}));
    const CGImage seen = image->bitmapRep()->cgImage();
    image->setColor(1, 2, NSColor(0, 0, 0));
    EXPECT_EQ(pixelAt(seen, 1, 2), (Pixel{128, 128, 0, 64})); // what was handed out does not change
    for (const auto& [x, y] : {std::pair(-1, 0), {4, 0}, {0, 4}, {1 << 30, 1 << 30}})
        image->setColor(x, y, NSColor(1, 1, 1));
}

TEST(PexImage, WhatIsNoImageIsAbsent) {
    const CapturedLines quiet;
    const TempFolder folder;
    const auto jpeg = *PexImage::make(photoLike(64, 48))->jpegData(0.9);
    const std::vector<std::uint8_t> bytes(jpeg.bytes().begin(), jpeg.bytes().end());
    const auto write = [&](const char* name, std::vector<std::uint8_t> content) {
        ASSERT_TRUE(Data(std::move(content)).write(folder.url(name), Data::Writing::inPlace));
    };
    auto lying = bytes; // the frame header's height and width
    const std::uint8_t frame[] = {0xFF, 0xC0};
    std::fill_n(std::search(lying.begin(), lying.end(), frame, frame + 2) + 5, 4, 0xFF);
    write("empty.jpg", {});
    write("garbage.jpg", std::vector<std::uint8_t>(1000, 0xA5));
    write("start.jpg", {bytes.begin(), bytes.begin() + 20});
    write("lying.jpg", lying);
    std::filesystem::create_directory(folder.path() / "folder.jpg");
    for (const char* name :
         {"empty.jpg", "garbage.jpg", "start.jpg", "lying.jpg", "folder.jpg", "missing.jpg"}) {
        EXPECT_FALSE(PexImage::make({.fastUrl = folder.url(name)})) << name;
        EXPECT_FALSE(PexImage::make(folder.url(name), {})) << name;
    }
    EXPECT_FALSE(PexImage::make(Data(), {}));
    EXPECT_FALSE(PexImage::make({.named = "nothing"}));
}

TEST(PexImage, NullInNullOut) {
    namespace helper = PexImageHelper;
    const std::shared_ptr<PexImage> none, image = PexImage::make(photoLike(8, 6));
    const CachesFolder folder;
    EXPECT_FALSE(PexImage::make(std::shared_ptr<NSImage>(), {}));
    EXPECT_FALSE(image->watermark(none, {}));
    EXPECT_FALSE(PexImage::join(none, {.with = image}));
    EXPECT_FALSE(PexImage::join(image, {.with = none}));
    EXPECT_FALSE(PexCanvas::fit(none, 1));
    EXPECT_EQ(PexCanvas(none, 1).getImage()->size, CGSize{});
    EXPECT_FALSE(PexCanvasLayer("", {}, {.image = image}, {}, {}).draw(none));
    EXPECT_FALSE(helper::reduceImageToSize(none, {1, 1}));
    EXPECT_FALSE(helper::reduceImageTo1x1Pixels(none));
    EXPECT_EQ(helper::getAverageColorOfImage(none), NSColor(0, 0, 0, 0));
    EXPECT_FALSE(helper::saveToJpeg(none, {.quality = 1, .url = folder.url("a.jpg")}));
    EXPECT_FALSE(helper::saveToJpeg(none, {.desiredSize = 1000, .toUrl = folder.url("a.jpg")}));
    EXPECT_FALSE(helper::jpegDataWithin(none, {.desiredSize = 1000}));
    EXPECT_EQ(PexContextImage::make(none)->width, 0);
    EXPECT_FALSE(Draw::start(nullptr));
    EXPECT_FALSE(PexImageStoredCache::make({.name = "none", .removeItemsAfterDays = 1, .mode = {}})
                     ->storeNow(none, "a"));
    PexImageStoredCache::make({.name = "none", .removeItemsAfterDays = 1, .mode = {}})->store(none, "a");
    PexImageView::make(PexImageView::Frame{})->drawInto(nullptr);
}

TEST(PexImage, NamedImagesComeFromTheFolderRegisteredLast) {
    const TempFolder first, second;
    ASSERT_TRUE(PexImage::make(photoLike(8, 8))->saveToPNG(first.url("logo.png")));
    ASSERT_TRUE(PexImage::make(photoLike(9, 9))->saveToPNG(second.url("logo.png")));
    ASSERT_TRUE(PexImage::make(photoLike(7, 7))->saveToPNG(first.url("other.png")));
    NSImage::registerImageFolder(first.url(""));
    NSImage::registerImageFolder(second.url(""));
    EXPECT_EQ(PexImage::make({.named = "logo"})->size, (CGSize{9, 9}));
    EXPECT_EQ(PexImage::make({.named = "logo.png"})->size, (CGSize{9, 9}));
    EXPECT_EQ(PexImage::make({.named = "other"})->size, (CGSize{7, 7}));
    for (const char* name : {"", "..", "../logo", "/etc/passwd", "logo/"})
        EXPECT_FALSE(PexImage::make({.named = name})) << name;
}

TEST(Resize, SizesFollowTheFormulas) {
    const auto wide = PexImage::make(photoLike(400, 200)), tall = PexImage::make(photoLike(20, 50));
    EXPECT_EQ(wide->resize({.withMaxSide = 100})->size, (CGSize{100, 50}));
    EXPECT_EQ(wide->resize({.withMaxSide = 99.5F})->size, (CGSize{99, 49}));
    EXPECT_EQ(wide->resize({.withMaxSide = 0})->size, (CGSize{1, 1}));
    EXPECT_EQ(tall->resize({.withMaxSide = 100})->size, (CGSize{20, 50}));
    EXPECT_NE(tall->resize({.withMaxSide = 100}), tall);
    EXPECT_EQ(PexImage::make(photoLike(1000, 1))->resize({.withMaxSide = 100})->size, (CGSize{100, 1}));
    EXPECT_EQ(wide->resize({.withMinSideBoundedTo = 100})->size, (CGSize{200, 100}));
    for (const double side : {20., 100.})
        EXPECT_EQ(tall->resize({.withMinSideBoundedTo = side}), tall);
    EXPECT_EQ(wide->resize({.toWidth = 100})->size, (CGSize{100, 50}));
    EXPECT_EQ(wide->resize({.toHeight = 300U})->size, (CGSize{600, 300}));
    EXPECT_EQ(wide->resize({.to = {33.4, 77.6}})->size, (CGSize{33, 78}));
    EXPECT_EQ(wide->resize({.to = {0.2, 0.2}})->size, (CGSize{1, 1}));
    EXPECT_EQ(wide->thumb(100)->size, (CGSize{100, 50}));

    EXPECT_EQ(PexImage::thumbSize({400, 200}, 100), (CGSize{100, 50}));
    EXPECT_EQ(PexImage::thumbSize({200, 400}, 100), (CGSize{50, 100}));
    EXPECT_EQ(PexImage::thumbSize({50, 20}, 100), (CGSize{100, 40}));
}

TEST(Resize, ImpossibleSizesAreAbsentOrTheReceiver) {
    const auto image = PexImage::make(photoLike(40, 30));
    const CGSize sizes[] = {{0, 10},       {10, 0},    {-5, 5},    {nan, 5},
                            {5, infinity}, {1e9, 1e9}, {1e300, 1}, {-infinity, nan}};
    for (const CGSize& size : sizes)
        EXPECT_FALSE(image->resize({.to = size})) << size.width << " " << size.height;
    for (const double side : {0., -3., nan, infinity, 1e9}) {
        EXPECT_EQ(image->resize({.toWidth = side}), image) << side;
        EXPECT_EQ(image->resize({.toHeight = side}), image) << side;
    }
    EXPECT_EQ(image->resize({.withMaxSide = infinity})->size, (CGSize{40, 30}));
    const auto blank = PexImage::make({.size = {0, 0}});
    EXPECT_FALSE(blank->resize({.withMaxSide = 10}));
    EXPECT_EQ(blank->resize({.toWidth = 10}), blank);
}

TEST(Resize, ReducedDecodingLooksLikeDecodingInFull) {
    const auto jpeg = *PexImage::make(photoLike(640, 480))->jpegData(0.95);
    for (const double side : {320., 300., 160., 90.}) {
        const auto lazy = PexImage::make(jpeg, {});
        const auto touched = PexImage::make(jpeg, {});
        ASSERT_TRUE(touched->cgImage->pixels());
        const auto a = lazy->resize({.withMaxSide = side}), b = touched->resize({.withMaxSide = side});
        ASSERT_EQ(a->size, b->size);
        double squares = 0;
        for (int y = 0; y < a->size.height; ++y) {
            for (int x = 0; x < a->size.width; ++x) {
                const Pixel p = pixelAt(*a->cgImage, x, y), q = pixelAt(*b->cgImage, x, y);
                for (std::size_t c = 0; c < 3; ++c)
                    squares += std::pow(p[c] - q[c], 2);
            }
        }
        const double mean = squares / (a->size.width * a->size.height * 3);
        EXPECT_GT(10 * std::log10(255 * 255 / mean), 34) << side; // decibels
    }
}

} // namespace
