#include "peximage/platform/codecs/CGImageSource.h"

#include "peximage/platform/codecs/ExifBlock.h"
#include "peximage/platform/codecs/ImageCodec.h"
#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/foundation/ReasonWatch.h"

#include <array>
#include <string>

namespace pex {
namespace {

/// A page beyond the first is looked for once it is known how many there are.
std::optional<OpenedImage> openPage(const ImageCodec& codec, const CGDataProvider& bytes,
                                    const ImageLimits& limits, int page) {
    std::optional<OpenedImage> first = codec.open(bytes, limits);
    if (page == 0 || !first) return first;
    const int pages = codec.openPage != nullptr ? first->properties.pages : 1;
    if (page > 0 && page < pages) return codec.openPage(bytes, limits, page);
    giveReason(ReasonCode::badArgument,
               "has no page " + std::to_string(page + 1) + "; the last is " + std::to_string(pages));
    return std::nullopt;
}

std::optional<OpenedImage> openImage(const CGDataProvider& bytes, int page) {
    const ImageLimits limits = ImageLimits::current();
    if (bytes.size() == 0) {
        giveReason(ReasonCode::emptyFile, "is empty");
        return std::nullopt;
    }
    if (!limits.allowsBytes(bytes.size())) return std::nullopt;
    const ImageCodec* codec = codecForBytes(bytes);
    if (!codec) {
        giveReason(ReasonCode::notAnImage, "not an image");
        return std::nullopt;
    }
    const ReasonWatch watch;
    std::optional<OpenedImage> opened = openPage(*codec, bytes, limits, page);
    if (!opened && !watch.hasSeen()) giveReason(ReasonCode::damaged, "damaged: its header cannot be read");
    if (!opened || codec->format == ImageFormat::pdf) return opened; // a page has no pixels yet
    const ImageProperties& header = opened->properties;
    if (!limits.allowsInBytes(header.pixelWidth, header.pixelHeight, bytes.size())) return std::nullopt;
    return opened;
}

} // namespace

bool CGImageSource::reads(ImageFormat format) {
    const ImageCodec* codec = codecForFormat(format);
    return codec && codec->isAvailable();
}

std::optional<ImageFormat> CGImageSource::formatOf(const URL& file) {
    const std::optional<CGDataProvider> bytes = CGDataProvider::open(file);
    const ImageCodec* codec = bytes ? codecForBytes(*bytes) : nullptr;
    return codec ? std::optional(codec->format) : std::nullopt;
}

std::optional<CGImageSource> CGImageSource::make(const Data& bytes, int page) {
    return absentWithoutMemory([&]() -> std::optional<CGImageSource> {
        const std::optional<OpenedImage> opened = openImage(CGDataProvider(bytes), page);
        if (!opened || !opened->source) return std::nullopt;
        CGImageSource source;
        source.properties_ = opened->properties;
        source.exif_ = opened->exif;
        source.bytesRead_ = bytes.size();
        source.data_ = bytes;
        source.image_ = CGImage::make(opened->source);
        return source;
    });
}

std::optional<CGImageSource> CGImageSource::make(const URL& file, int page) {
    return absentWithoutMemory([&]() -> std::optional<CGImageSource> {
        const std::optional<CGDataProvider> bytes = CGDataProvider::open(file);
        std::optional<OpenedImage> opened = bytes ? openImage(*bytes, page) : std::nullopt;
        if (!opened) return std::nullopt;
        CGImageSource source;
        source.properties_ = std::move(opened->properties);
        source.exif_ = opened->exif;
        source.bytesRead_ = bytes->bytesRead();
        source.file_ = file;
        source.page_ = page;
        return source;
    });
}

PropertyDictionary CGImageSource::copyProperties() const {
    PropertyDictionary all = exif_.empty() ? PropertyDictionary() : ExifBlock(exif_.bytes()).properties();
    const auto whole = [](int number) { return static_cast<std::int64_t>(number); };
    all.set(kCGImagePropertyPixelWidth, whole(properties_.pixelWidth));
    all.set(kCGImagePropertyPixelHeight, whole(properties_.pixelHeight));
    all.set(kCGImagePropertyDepth, whole(properties_.depth));
    all.set(kCGImagePropertyHasAlpha, whole(properties_.hasAlpha));
    all.set(kCGImagePropertyOrientation, whole(static_cast<int>(properties_.orientation)));
    if (properties_.dpiWidth) all.set(kCGImagePropertyDPIWidth, *properties_.dpiWidth);
    if (properties_.dpiHeight) all.set(kCGImagePropertyDPIHeight, *properties_.dpiHeight);
    if (properties_.profileName) all.set(kCGImagePropertyProfileName, *properties_.profileName);
    return all;
}

ImageMetadata CGImageSource::metadata() const {
    return file_ ? ImageMetadata::of(*file_) : ImageMetadata::of(data_);
}

bool CGImageSource::isIncomplete() {
    const ImageCodec* codec = codecForFormat(properties_.format);
    const auto bytes = file_ ? CGDataProvider::open(*file_) : std::optional(CGDataProvider(data_));
    if (codec == nullptr || codec->breaksOff == nullptr || !bytes) return false;
    const bool incomplete = codec->breaksOff(*bytes);
    bytesRead_ += bytes->bytesRead();
    return incomplete;
}

std::optional<CGImage> CGImageSource::createImage() const {
    if (image_) return image_;
    return absentWithoutMemory([&]() -> std::optional<CGImage> {
        const std::optional<Data> bytes = Data::contentsOf(*file_, ImageLimits::current().maxSourceBytes);
        const std::optional<CGImageSource> source = bytes ? make(*bytes, page_) : std::nullopt;
        return source ? source->image_ : std::nullopt;
    });
}

} // namespace pex
