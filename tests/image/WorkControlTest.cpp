#include "peximage/platform/foundation/WorkControl.h"

#include "peximage/helpers/PexImageHelper.h"
#include "peximage/helpers/PexWatermark.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/foundation/Background.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/Network.h"
#include "peximage/platform/foundation/Reason.h"
#include "tests/support/Pictures.h"
#include "tests/support/TempFolder.h"

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace pex {
namespace {

using Call = std::function<bool()>; // gives something

struct Stopped {
    std::stop_source source;
    Stopped() { source.request_stop(); }
    WorkControl control{source.get_token()};
};

TEST(WorkControl, WhatIsStoppedGivesNothingAndWritesNothing) {
    const TempFolder folder;
    const CGImage photo = photoLike(300, 200);
    const auto image = PexImage::make(photo);
    const auto drawn = [](const std::shared_ptr<PexImage>& result) {
        return result && result->cgImage && result->cgImage->pixels();
    };
    const std::vector<std::int16_t> kernel(9, 1);
    std::map<std::string, Call> calls{
        {"resize", [&] { return drawn(image->resize({.withMaxSide = 90})); }},
        {"turn", [&] { return image->rotate({.degrees = 30}) != image; }},
        {"quarter turn", [&] { return drawn(image->rotate(PexImage::RotationDirection::r90Clockwhise)); }},
        {"fill", [&] { return image->fill(PexColor()) != image; }},
        {"key", [&] { return drawn(image->key({.color = {}})); }},
        {"mask", [&] { return image->apply(PexImage::ImageMask{image}) != image; }},
        {"convolve", [&] { return drawn(image->convolve(PexImage::Kernel{kernel})); }},
        {"join", [&] { return drawn(PexImage::join(image, {.with = image})); }},
        {"watermark", [&] { return drawn(image->watermark(image, {})); }},
        {"zoom", [&] { return drawn(image->rotateAndZoom(3)); }},
        {"sharpen", [&] { return drawn(image->sharpen(0.5F)); }},
        {"expose", [&] { return image->exposure(1) != image; }},
        {"fit",
         [&] {
             return drawn(image->resizeWithFit({50, 50}));
         }},
        {"save JPEG", [&] { return image->saveToJpeg({.quality = 0.5, .toUrl = folder.url("a.jpg")}); }},
        {"save PNG", [&] { return image->saveToPNG(folder.url("a.png")); }},
    };
    for (const auto format : {ImageFormat::jpeg, ImageFormat::png, ImageFormat::tiff, ImageFormat::webp}) {
        const Data file = encoded(photo, format);
        const std::string name = std::to_string(static_cast<int>(format));
        calls["decode " + name] = [file, drawn] { return drawn(PexImage::make(file)); };
        calls["encode " + name] = [&, format] {
            return PexImageHelper::dataWithin(image, {.format = format, .desiredSize = 20'000}).has_value();
        };
    }
    for (const auto& [name, gives] : calls) {
        SCOPED_TRACE(name);
        {
            const Stopped stopped;
            EXPECT_NO_THROW(EXPECT_FALSE(gives()));
            EXPECT_EQ(lastReason().code, ReasonCode::cancelled);
        }
        EXPECT_EQ(folder.count(), 0);
        EXPECT_TRUE(gives());
        for (const char* const file : {"a.jpg", "a.png"})
            std::filesystem::remove(folder.path() / file);
    }
}

TEST(WorkControl, StopsInTheMiddleOfASearch) {
    const auto image = PexImage::make(photoLike(400, 300));
    std::stop_source stop;
    int lines = 0;
    diagnostics::setSink([&](std::string_view line) {
        if (line.starts_with("PexDicotomic") && ++lines == 2) stop.request_stop();
    });
    {
        const WorkControl control(stop.get_token());
        EXPECT_FALSE(PexImageHelper::jpegDataWithin(image, {.desiredSize = 20'000}));
    }
    diagnostics::resetSink();
    EXPECT_EQ(lines, 2);
    EXPECT_EQ(lastReason().code, ReasonCode::cancelled);
}

Task<bool> resizedInBackground(std::shared_ptr<PexImage> image) {
    co_await onBackground();
    co_return image->resize({.withMaxSide = 90}) != nullptr;
}

TEST(WorkControl, GoesWithWorkToOtherThreadsAndToNoOthers) {
    const auto image = PexImage::make(photoLike(300, 200));
    const auto works = [&] { return image->resize({.withMaxSide = 90}) != nullptr; };
    const Stopped stopped;
    EXPECT_FALSE(resizedInBackground(image).get());
    EXPECT_EQ(lastReason().code, ReasonCode::cancelled);
    EXPECT_EQ(readAddress(*URL::parse("http://127.0.0.1:9/")).reason.code, ReasonCode::cancelled);
    bool another = false;
    std::thread([&] { another = works(); }).join();
    EXPECT_TRUE(another);
    {
        const WorkControl younger{std::stop_token()};
        EXPECT_TRUE(works());
    }
    EXPECT_FALSE(works());
}

} // namespace
} // namespace pex
