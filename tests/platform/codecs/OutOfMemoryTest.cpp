#include "peximage/helpers/PexImageHelper.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "tests/support/FailingMemory.h"
#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

namespace pex {
namespace {

constexpr ImageFormat writable[] = {ImageFormat::jpeg, ImageFormat::png,  ImageFormat::tiff,
                                    ImageFormat::webp, ImageFormat::heif, ImageFormat::avif};

/// From nearly all pieces failing to the largest alone.
constexpr std::size_t pieces[] = {1 << 8, 1 << 10, 1 << 12, 1 << 14, 1 << 16};

TEST(OutOfMemory, AnEncoderGivesNothingOrTheWholeFile) {
    const CGImage picture = noise(400, 300, PixelLayout::skipLast); // files of more than the largest piece
    for (const ImageFormat format : writable) {
        SCOPED_TRACE(displayName(format));
        const Data whole = encoded(picture, format);
        ASSERT_GT(whole.size(), 1u << 16);
        for (const std::size_t bytes : pieces) {
            std::optional<Data> file;
            {
                const FailingMemory failing(bytes);
                EXPECT_NO_THROW(file = CGImageDestination::encode(picture, format, {}));
                EXPECT_GT(FailingMemory::failures(), 0);
            }
            EXPECT_FALSE(file) << bytes;
        }
        EXPECT_EQ(encoded(picture, format), whole); // and nothing is broken afterwards
    }
}

TEST(OutOfMemory, ADecoderGivesNothingOrWhatThereIs) {
    for (const ImageFormat format : writable) {
        SCOPED_TRACE(displayName(format));
        const Bytes file = bytesOf(encoded(photoLike(400, 300), format));
        for (const std::size_t bytes : pieces) {
            const Data data{Bytes(file)};
            const FailingMemory failing(bytes);
            EXPECT_NO_THROW({
                const auto source = CGImageSource::make(data);
                const auto image = source ? source->createImage() : std::nullopt;
                if (image) image->isIncomplete();
            });
        }
        EXPECT_FALSE(decoded(file)->isIncomplete());
    }
}

TEST(OutOfMemory, SavingFailsQuietly) {
    const TempFolder folder;
    const CapturedLines silent;
    const auto picture = PexImage::make(noise(400, 300, PixelLayout::skipLast));
    for (const std::size_t bytes : pieces) {
        const URL url = folder.url("a.jpg");
        bool saved = true;
        {
            const FailingMemory failing(bytes);
            EXPECT_NO_THROW(saved = picture->saveToJpeg({.toUrl = url, .maxSize = 100'000}));
            EXPECT_FALSE(saved) << bytes;
            EXPECT_NO_THROW(saved = picture->saveToJpeg({.quality = 0.9, .url = url}));
            EXPECT_FALSE(saved) << bytes;
        }
        EXPECT_EQ(folder.count(), 0);
    }
    EXPECT_TRUE(picture->saveToJpeg({.toUrl = folder.url("a.jpg"), .maxSize = 100'000}));
}

} // namespace
} // namespace pex
