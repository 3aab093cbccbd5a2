#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/foundation/Reason.h"
#include "tests/support/JpegFiles.h"
#include "tests/support/PictureFiles.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace pex {
namespace {

struct Picture {
    std::string what;
    Bytes file;
    int blurred = 0; // of the rows that are told to be there, how many may be only half there
};

Picture plain(ImageFormat format, int blurred) {
    return {std::string(displayName(format)), bytesOf(encoded(photoLike(96, 400), format, {.quality = 1})),
            blurred};
}

Data firstBytes(const Bytes& file, std::size_t count) {
    return Data(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(count)));
}

int equalRows(const CGImage& a, const CGImage& b) {
    const auto x = a.pixels(), y = b.pixels();
    const auto bytes =
        static_cast<std::size_t>(x->width) * static_cast<std::size_t>(bytesPerPixel(x->layout));
    int rows = 0;
    while (rows < x->height && std::memcmp(x->row(rows), y->row(rows), bytes) == 0)
        ++rows;
    return rows;
}

TEST(Incomplete, EveryFormatSaysHowMuchOfAPictureIsThere) {
    const Picture pictures[] = {plain(ImageFormat::jpeg, 17),
                                plain(ImageFormat::png, 0),
                                plain(ImageFormat::webp, 16),
                                {"GIF", gifFile(96, 400, false, 1)},
                                {"BMP", bmpFile(40, -400, 24, 0, {}, Bytes(400 * 120, 77))}};
    for (const auto& [what, file, blurred] : pictures) {
        SCOPED_TRACE(what);
        const CGImage whole = *decoded(file);
        EXPECT_EQ(whole.decodedFraction(), 1);
        double least = 1, most = 0, before = 0;
        bool hasNone = false;
        for (std::size_t length = 60; length < file.size(); length += length < 2000 ? 9 : file.size() / 50) {
            SCOPED_TRACE(length);
            const auto source = CGImageSource::make(firstBytes(file, length));
            if (!source) {
                EXPECT_EQ(lastReason().code, ReasonCode::damaged);
                continue;
            }
            const CGImage image = *source->createImage();
            const double share = image.decodedFraction();
            EXPECT_GE(share, before);
            EXPECT_TRUE(image.isIncomplete());
            EXPECT_EQ(image.pixels().has_value(), share > 0);
            if (share <= 0) {
                EXPECT_EQ(lastReason().code, ReasonCode::damaged);
                hasNone = true;
                continue;
            }
            EXPECT_NEAR(equalRows(image, whole), share * 400, blurred + 0.1);
            before = share;
            least = std::min(least, share);
            most = std::max(most, share);
        }
        EXPECT_TRUE(hasNone);
        EXPECT_LT(least, 0.2);
        EXPECT_GT(most, 0.8);
    }
}

TEST(Incomplete, WhatEarlierScansAndPassesShowIsThere) {
    const auto progressive = [](jpeg_compress_struct& how) { jpeg_simple_progression(&how); };
    const CGImage photo = photoLike(96, 400);
    const Bytes jpeg = makeJpeg(96, 400, {.settings = progressive}, [&](int x, int y, int c) {
        return pixelAt(photo, x, y)[static_cast<std::size_t>(c)];
    });
    for (const Bytes& file : {jpeg, gifFile(96, 400, true, 1)}) {
        const CGImage half = *CGImageSource::make(firstBytes(file, file.size() / 2))->createImage();
        EXPECT_TRUE(half.isIncomplete());
        EXPECT_EQ(half.decodedFraction(), 1);
        EXPECT_LT(difference(half, *decoded(file)), 10);
    }
}

struct Ending {
    std::string what;
    Bytes file;
    /// From how many bytes on the picture is whole.
    std::size_t whole;
};

Ending plain(ImageFormat format) {
    const Bytes file = bytesOf(encoded(photoLike(200, 150), format));
    return {std::string(displayName(format)), file, file.size()};
}

std::vector<Ending> files() {
    std::vector<Ending> all;
    for (const ImageFormat format : {ImageFormat::jpeg, ImageFormat::png, ImageFormat::webp})
        all.push_back(plain(format));
    const Bytes jpeg = all[0].file, png = all[1].file;
    // Cameras put films, notes and second pictures behind the first; none of these is missed.
    const Bytes film(70'000, 0x5A);
    all.push_back({"JPEG with more behind it", joined({jpeg, film}), jpeg.size()});
    all.push_back({"JPEG with a JPEG behind it", joined({jpeg, jpeg}), jpeg.size()});
    all.push_back({"PNG with more behind it", joined({png, film}), png.size()});
    // A thumbnail before the pixels ends like a picture.
    all.push_back({"JPEG with a JPEG inside",
                   withExif(jpeg, exifBlock({{0x9999, 7, 4, {0xFF, 0xD9, 0xFF, 0xD9}}})), 0});
    all.back().whole = all.back().file.size();
    // The end of this one lies across two of the blocks that are read behind the start of its scan.
    const Bytes scan{0xFF, 0xDA};
    const auto start = std::search(jpeg.begin(), jpeg.end(), scan.begin(), scan.end()) - jpeg.begin();
    Bytes across(jpeg.begin(), jpeg.end() - 2);
    across.resize(static_cast<std::size_t>(start) + 2 + jpeg[static_cast<std::size_t>(start) + 3] + 65535, 7);
    across = joined({across, {0xFF, 0xD9}});
    all.push_back({"JPEG whose end lies across blocks", joined({across, film}), across.size()});
    const Bytes bmp = bmpFile(40, 40, 24, 0, {}, Bytes(40 * 120));
    all.push_back({"BMP", bmp, bmp.size()});
    const Bytes gif = smallGif();
    all.push_back({"GIF", gif, gif.size() - 1}); // its trailer may lack
    all.push_back({"GIF with more behind it", joined({gif, film}), gif.size() - 1});
    return all;
}

bool isIncomplete(const Data& file) {
    const TempFolder folder;
    const URL url = folder.url("picture");
    file.write(url, Data::Writing::inPlace);
    auto source = CGImageSource::make(url), memory = CGImageSource::make(file);
    if (!source || !memory) {
        ADD_FAILURE() << "does not open at " << file.size();
        return false;
    }
    const bool incomplete = source->isIncomplete();
    EXPECT_EQ(memory->isIncomplete(), incomplete);
    return incomplete;
}

TEST(FileEnds, APictureThatBreaksOffIsIncompleteAndNoOther) {
    for (const auto& [what, file, whole] : files()) {
        SCOPED_TRACE(what);
        for (const std::size_t length : {file.size(), whole})
            EXPECT_FALSE(isIncomplete(firstBytes(file, length))) << length;
        for (const std::size_t length :
             {whole - 1, whole - 2, whole - 5, whole > 100 ? whole * 2 / 3 : whole - 4})
            EXPECT_TRUE(isIncomplete(firstBytes(file, length))) << length << " of " << whole;
    }
}

TEST(FileEnds, ATiffWhoseStripsAreNotAllThereIsIncomplete) {
    for (const bool tiled : {false, true}) {
        // Its directory first, then 64 × 64 pixels of grey.
        const auto directory = [&](std::size_t pixels) {
            return exifBlock({exifShort(256, 64), exifShort(257, 64), exifShort(258, 8), exifShort(259, 1),
                              exifShort(262, 1), exifShort(277, 1), exifShort(tiled ? 322 : 278, 64),
                              exifShort(tiled ? 323 : 296, tiled ? 64 : 2),
                              exifShort(tiled ? 324 : 273, static_cast<std::uint16_t>(pixels)),
                              exifShort(tiled ? 325 : 279, 64 * 64)});
        };
        Bytes file = directory(directory(0).size());
        file.resize(file.size() + 64 * 64);
        EXPECT_FALSE(isIncomplete(Data(file)));
        file.pop_back();
        EXPECT_TRUE(isIncomplete(Data(file)));
    }
}

TEST(FileEnds, LittleIsReadOfAWholeFile) {
    const TempFolder folder;
    const URL url = folder.url("picture");
    for (const auto& [format, most] : {std::pair{ImageFormat::jpeg, 5000u}, {ImageFormat::png, 500u}}) {
        encoded(noise(600, 600, PixelLayout::skipLast), format).write(url, Data::Writing::inPlace);
        auto source = CGImageSource::make(url);
        const std::size_t header = source->bytesRead();
        EXPECT_FALSE(source->isIncomplete());
        EXPECT_LT(header, most);
        EXPECT_GT(source->bytesRead(), header);
        EXPECT_LE(source->bytesRead(), header + 12);
    }
}

} // namespace
} // namespace pex
