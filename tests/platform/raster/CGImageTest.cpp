#include "peximage/platform/raster/CGImage.h"

#include "peximage/platform/filters/CIContext.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/raster/CGContext.h"
#include "peximage/platform/raster/ConvertedImage.h"
#include "peximage/platform/raster/OrientedSource.h"
#include "peximage/platform/raster/PixelSource.h"
#include "peximage/platform/raster/Scaling.h"
#include "peximage/platform/raster/Turning.h"
#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>

using namespace pex;

namespace {

/// Counts how often it is decoded; breaks off after `goodRows`.
class CountingSource final : public PixelSource {
  public:
    CountingSource(CGImage picture, int goodRows) : picture_(std::move(picture)), goodRows_(goodRows) {}

    mutable std::atomic<int> decoded{0};

    PixelSize size() const override { return {picture_.width(), picture_.height()}; }
    PixelLayout layout() const override { return picture_.layout(); }
    CGColorSpace colorSpace() const override { return picture_.colorSpace(); }

  private:
    std::unique_ptr<RowReader> makeRows(PixelSize) const override {
        ++decoded;
        return std::make_unique<Rows>(*picture_.pixels(), goodRows_);
    }

    class Rows final : public RowReader {
      public:
        Rows(PixelView from, int goodRows) : from_(from), goodRows_(goodRows) {}

      private:
        std::optional<DecodedRows> readNext(MutablePixelView rows) override {
            const int good = std::clamp(goodRows_ - next_, 0, rows.height);
            for (int y = 0; y < good; ++y)
                std::memcpy(rows.row(y), from_.row(next_ + y), static_cast<std::size_t>(rows.width) * 4);
            fillMissing(rows.part(0, good, rows.width, rows.height - good));
            next_ += rows.height;
            return DecodedRows{good, good == rows.height};
        }

        PixelView from_;
        int goodRows_, next_ = 0;
    };

    CGImage picture_;
    int goodRows_;
};

TEST(CGImage, GivesItsPixelsAwayWhileNobodyElseSeesThem) {
    const auto picture = noise(50, 40, PixelLayout::straightLast);
    CGImage image = CGImage::make(std::make_shared<CountingSource>(picture, 40));
    {
        const CGImage copy = image;
        CGImage part = *image.cropping({0, 0, 50, 30});
        const CGImage other = *image.reinterpreted(PixelLayout::premultipliedLast);
        EXPECT_FALSE(image.takePixels());
        EXPECT_FALSE(part.takePixels());
    }
    const auto buffer = PixelBuffer::makeZeroed(64);
    EXPECT_FALSE(CGImage::make(4, 4, 16, PixelLayout::skipLast, CGColorSpace::sRGB(), buffer)->takePixels());
    CGImage part = *CGImage(image).cropping({0, 0, 50, 30});
    image = part;
    part = *CGImage::make(1, 1, 4, PixelLayout::skipLast, CGColorSpace::sRGB(), buffer);
    EXPECT_FALSE(image.takePixels()) << "what lies outside a part is not its own";

    CGImage whole = CGImage::make(std::make_shared<CountingSource>(picture, 40));
    const auto taken = whole.takePixels();
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->second.layout, PixelLayout::straightLast);
    EXPECT_EQ(std::memcmp(taken->second.row(39), picture.pixels()->row(39), 200), 0);
    EXPECT_FALSE(whole.pixels());
    EXPECT_FALSE(whole.takePixels());
}

TEST(CGImage, DecodesOnceOnFirstTouch) {
    const auto picture = noise(50, 40, PixelLayout::straightLast);
    const auto source = std::make_shared<CountingSource>(picture, 40);
    const CGImage image = CGImage::make(source);
    EXPECT_EQ(image.width(), 50);
    const CGImage part = *image.cropping({10, 10, 5, 5});
    EXPECT_EQ(source->decoded, 0);
    EXPECT_TRUE(image.source());
    EXPECT_FALSE(part.source());

    onThreads(8, [&](unsigned) { EXPECT_TRUE(part.pixels()); });
    EXPECT_EQ(source->decoded, 1);
    EXPECT_FALSE(image.source());
    EXPECT_FALSE(image.isIncomplete());
    EXPECT_EQ(pixelAt(part, 2, 3), pixelAt(picture, 12, 13));
}

TEST(CGImage, WhatIsDrawnAgainAndAgainIsNotDecodedEachTime) {
    const auto source = std::make_shared<CountingSource>(noise(50, 40, PixelLayout::straightLast), 40);
    const CGImage image = CGImage::make(source);
    const auto drawn = [&](double width) {
        const auto context = CGContext::make(20, 16, PixelLayout::premultipliedLast, CGColorSpace::sRGB());
        context->draw(image, {0, 0, width, 16});
        const CGImage made = *context->makeImage();
        const PixelView pixels = *made.pixels();
        return std::vector(pixels.data, pixels.data + 20 * 16 * 4);
    };
    const auto first = drawn(20);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(drawn(20), first);
    EXPECT_EQ(source->decoded, 2); // the second time it is kept
    EXPECT_NE(drawn(10), first);
    EXPECT_EQ(source->decoded, 3);
}

TEST(CGImage, TellsWhatItsSourceLacksWhicheverWayThatWasDecoded) {
    using Way = std::optional<CGImage> (*)(const CGImage&);
    const std::pair<const char*, Way> ways[] = {
        {"itself", [](const CGImage& image) { return std::optional(image); }},
        {"a part",
         [](const CGImage& image) {
             return image.cropping(CGRect{0, 0, 4, 4});
         }},
        {"smaller",
         [](const CGImage& image) {
             return scaledImage(image, PixelSize{4, 4}, Interpolation::smooth);
         }},
        {"larger",
         [](const CGImage& image) {
             return scaledImage(image, PixelSize{9, 9}, Interpolation::nearest);
         }},
        {"turned", [](const CGImage& image) { return turnedImage(image, Orientation::right); }},
        {"filtered",
         [](const CGImage& image) {
             return CIContext().createCGImage(CIImage(image).exposureAdjusted(1), {0, 0, 8, 8});
         }},
    };
    const auto picture = noise(8, 8, PixelLayout::straightLast);
    for (const auto& [what, way] : ways) {
        for (const int rows : {8, 5, 0}) {
            SCOPED_TRACE(what + std::string(" of ") + std::to_string(rows));
            const auto source = std::make_shared<CountingSource>(picture, rows);
            const CGImage image = CGImage::make(source);
            const std::optional<CGImage> made = way(image);
            EXPECT_EQ(made && made->pixels(), rows > 0);
            EXPECT_TRUE(rows > 0 || lastReason().code == ReasonCode::damaged);
            EXPECT_EQ(source->decoded, 1);
            EXPECT_EQ(image.isIncomplete(), rows < 8);
            EXPECT_EQ(image.decodedFraction(), rows / 8.0);
            EXPECT_EQ(source->decoded, 1) << "what a decoding has met is known";
            EXPECT_EQ(image.pixels().has_value(), rows > 0);
        }
    }
    const CGImage image = CGImage::make(std::make_shared<CountingSource>(picture, 5));
    EXPECT_EQ(pixelAt(image, 7, 4), pixelAt(picture, 7, 4));
    EXPECT_EQ(pixelAt(image, 0, 5), (Pixel{0, 0, 0, 0}));
}

TEST(CGImage, CropsIntegrallyClipsAndShares) {
    const auto picture = noise(100, 100, PixelLayout::skipLast);
    const CGImage part = *picture.cropping({10, 10, 50, 40});
    EXPECT_EQ(part.width(), 50);
    EXPECT_EQ(part.height(), 40);
    EXPECT_EQ(part.pixels()->data, picture.pixels()->row(10) + 40);
    const CGImage outward = *picture.cropping({10.5, 10.5, 4.1, 4});
    EXPECT_EQ(outward.width(), 5);
    EXPECT_EQ(outward.height(), 5);
    EXPECT_EQ(picture.cropping({90, -5, 50, 10})->width(), 10);
    EXPECT_EQ(part.cropping({1, 2, 3, 4})->pixels()->data, picture.pixels()->row(12) + 44);
    EXPECT_EQ(picture.cropping({20, 20, -10, -10})->pixels()->data, picture.pixels()->row(10) + 40);
    for (const CGRect& outside : {CGRect{100, 0, 10, 10},
                                  {-20, 0, 20, 10},
                                  {0, 0, 0, 10},
                                  {std::nan(""), 0, 5, 5},
                                  {1e300, 0, 1e300, 1}})
        EXPECT_FALSE(picture.cropping(outside));
}

TEST(CGImage, RefusesBuffersThatAreTooSmall) {
    const auto make = [](int w, int h, std::ptrdiff_t stride, std::size_t bytes) {
        return CGImage::make(w, h, stride, PixelLayout::skipLast, CGColorSpace::sRGB(),
                             PixelBuffer::make(bytes))
            .has_value();
    };
    EXPECT_TRUE(make(10, 10, 40, 400));
    EXPECT_TRUE(make(10, 10, 48, 48 * 9 + 40)); // the last row needs no padding
    EXPECT_FALSE(make(10, 10, 40, 399));
    EXPECT_FALSE(make(10, 10, 39, 400));
    EXPECT_FALSE(make(0, 10, 40, 400));
    EXPECT_FALSE(make(10, -1, 40, 400));
    EXPECT_FALSE(make(1 << 30, 1 << 30, std::ptrdiff_t{1} << 33, 400));
}

TEST(Turning, EveryOrientationOfSourcesAndPartsComesUpright) {
    const auto picture = noise(70, 150, PixelLayout::straightLast); // more than one strip
    // Where the upright pixel (x, y) lies in the stored picture of w × h.
    using Where = std::pair<int, int> (*)(int x, int y, int w, int h);
    const Where stored[] = {
        [](int x, int y, int, int) { return std::pair(x, y); },
        [](int x, int y, int w, int) { return std::pair(w - 1 - x, y); },
        [](int x, int y, int w, int h) { return std::pair(w - 1 - x, h - 1 - y); },
        [](int x, int y, int, int h) { return std::pair(x, h - 1 - y); },
        [](int x, int y, int, int) { return std::pair(y, x); },
        [](int x, int y, int, int h) { return std::pair(y, h - 1 - x); },
        [](int x, int y, int w, int h) { return std::pair(w - 1 - y, h - 1 - x); },
        [](int x, int y, int w, int) { return std::pair(w - 1 - y, x); },
    };
    const CGImage grey = *noise(90, 350, PixelLayout::grey).cropping({5, 7, 70, 150});
    for (int value = 1; value <= 8; ++value) {
        SCOPED_TRACE(value);
        const Orientation orientation = *orientationFromExif(value);
        const CGImage upright =
            CGImage::make(makeUpright(std::make_shared<CountingSource>(picture, 150), orientation));
        ASSERT_EQ(upright.width(), value < 5 ? 70 : 150);
        for (const auto& [turned, from] :
             {std::pair(upright, picture), {*turnedImage(grey, orientation), grey}})
            expectPixels(turned, [&, &from = from](int x, int y) {
                const auto [sx, sy] = stored[value - 1](x, y, 70, 150);
                return pixelAt(from, sx, sy);
            });
    }
    EXPECT_EQ(turnedImage(grey, Orientation::up)->pixels()->data, grey.pixels()->data);
}

TEST(ConvertedImage, LiesWithinOneStepOfExactArithmetic) {
    // All shades of the dark, where steps are small, and some of the rest.
    std::vector<std::uint8_t> levels;
    for (int level = 0; level < 256; level += level < 30 ? 2 : 25)
        levels.push_back(static_cast<std::uint8_t>(level));
    const auto side = static_cast<int>(levels.size());
    for (const double gamma : {1.0, 1.8, 2.2, 2.6}) {
        const auto profile = wideProfile(gamma);
        const auto picture = makePicture(
            side, side * side, PixelLayout::skipLast,
            [&](int x, int y) {
                return Pixel{levels[std::size_t(x)], levels[std::size_t(y / side)],
                             levels[std::size_t(y % side)], 255};
            },
            *CGColorSpace::fromICC(Data(profile)));
        const auto bytes = [](const CGImage& image) {
            const PixelView pixels = *image.pixels();
            return std::vector(pixels.data, pixels.data + pixels.bytesPerRow * pixels.height);
        };
        const CGImage made = *convertedImage(picture, PixelLayout::skipLast, CGColorSpace::sRGB());
        EXPECT_LE(distanceFromExact(profile, bytes(picture), bytes(made)), 1) << gamma;
    }
}

TEST(ConvertedImage, KeepsColoursAcrossLayouts) {
    const auto straight = makePicture(3, 40, PixelLayout::straightLast, [](int x, int) {
        return Pixel{200, 100, 50, static_cast<std::uint8_t>(x * 127)};
    });
    const auto premultiplied =
        convertedImage(straight, PixelLayout::premultipliedFirst, CGColorSpace::sRGB());
    EXPECT_EQ(pixelAt(*premultiplied, 1, 39), (Pixel{127, 100, 50, 25}));
    EXPECT_EQ(convertedImage(straight, PixelLayout::straightLast, CGColorSpace::sRGB())->pixels()->data,
              straight.pixels()->data);
}

} // namespace
