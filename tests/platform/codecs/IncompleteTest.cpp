#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/foundation/Reason.h"
#include "tests/support/JpegFiles.h"
#include "tests/support/PictureFiles.h"

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

} // namespace
} // namespace pex
