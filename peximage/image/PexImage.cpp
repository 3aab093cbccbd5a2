#include "peximage/image/PexImage.h"

#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/toolkit/NSScreen.h"
#include "peximage/platform/varda/PexId.h"

#include <algorithm>
#include <utility>

namespace pex {

PexImage::PexImage(std::shared_ptr<NSImage> platformImage)
    : id(PexId::newId("", "", true)), image(std::move(platformImage)) {}

std::shared_ptr<PexImage> PexImage::around(std::shared_ptr<NSImage> platformImage) {
    return std::shared_ptr<PexImage>(new PexImage(std::move(platformImage)));
}

void PexImage::deriveBitmap() {
    cgImage = image->cgImageForProposedRect();
    if (!cgImage) cgImage = image->cgImageForProposedRect(CGRect{{0, 0}, image->size()});
}

void PexImage::setSize() {
    if (!cgImage) deriveBitmap();
    size = cgImage ? cgImage->size() : CGSize{};
}

std::shared_ptr<PexImage> PexImage::make(const std::shared_ptr<NSImage>& image,
                                         const DontCreateAuxiliaryVars& options) {
    return absentWithoutMemory([&]() -> std::shared_ptr<PexImage> {
        if (!image) return nullptr;
        auto made = around(image);
        if (!options.dontCreateAuxiliaryVars) made->setSize();
        return made;
    });
}

std::shared_ptr<PexImage> PexImage::make(const Data& bytes, const DontCreateAuxiliaryVars& options) {
    return absentWithoutMemory([&]() -> std::shared_ptr<PexImage> {
        const auto decoded = NSImage::make(bytes);
        return decoded ? make(decoded, options) : nullptr;
    });
}

std::shared_ptr<PexImage> PexImage::make(const Named& source) {
    return absentWithoutMemory([&]() -> std::shared_ptr<PexImage> {
        const auto found = NSImage::named(source.named);
        return found ? make(found, {}) : nullptr;
    });
}

std::shared_ptr<PexImage> PexImage::make(const URL& url, const NoTimeOut&) {
    return absentWithoutMemory([&]() -> std::shared_ptr<PexImage> {
        const auto read = NSImage::make(url);
        return read ? make(read, {}) : nullptr;
    });
}

std::shared_ptr<PexImage> PexImage::make(const FastUrl& source) {
    return absentWithoutMemory([&]() -> std::shared_ptr<PexImage> {
        const auto bytes = Data::contentsOf(source.fastUrl, ImageLimits::current().maxSourceBytes);
        return bytes ? make(*bytes, {}) : nullptr; // NOLINT: the analyser takes the shared image for a leak
    });
}

std::shared_ptr<PexImage> PexImage::make(const CGImage& bitmap) {
    return absentWithoutMemory([&]() -> std::shared_ptr<PexImage> {
        auto made = around(NSImage::make(bitmap, bitmap.size()));
        made->cgImage = bitmap;
        made->setSize();
        return made;
    });
}

std::shared_ptr<PexImage> PexImage::make(const CIImage& picture) {
    return absentWithoutMemory([&]() -> std::shared_ptr<PexImage> {
        const std::optional<CGImage> rendered = picture.getCGImage();
        if (!rendered) return nullptr;
        return make(NSImage::make(*rendered, rendered->size()), {});
    });
}

std::shared_ptr<PexImage> PexImage::make(const FromCIImage& source) { return make(source.ciImage); }

std::shared_ptr<PexImage> PexImage::make(const OfSize& blank) {
    return absentWithoutMemory([&]() -> std::shared_ptr<PexImage> {
        auto made = around(NSImage::make(blank.size / NSScreen::largestBackingScaleFactor()));
        made->size = blank.size;
        return made;
    });
}

std::shared_ptr<PexImage> PexImage::make(const NotBakedNormalizedSize& blank) {
    return absentWithoutMemory([&]() -> std::shared_ptr<PexImage> {
        auto made = around(NSImage::make(blank.notBakedNormalizedSize));
        made->size = blank.notBakedNormalizedSize;
        return made;
    });
}

std::shared_ptr<NSBitmapImageRep> PexImage::bitmapRep() const {
    if (bitmapRep_) return bitmapRep_;
    const std::optional<CGImage> pixels = cgImage ? cgImage : image->cgImageForProposedRect();
    if (pixels) bitmapRep_ = std::make_shared<NSBitmapImageRep>(*pixels);
    return bitmapRep_;
}

std::optional<CIImage> PexImage::ciImage() const {
    if (!ciImage_ && cgImage) ciImage_ = CIImage(*cgImage);
    return ciImage_;
}

void PexImage::setColor(int x, int y, const NSColor& color) { // NOLINT: it does change the image
    if (const auto rep = bitmapRep()) rep->setColor(color, x, y);
}

CGSize PexImage::thumbSize(CGSize size, double maxSide) {
    return size * std::min(maxSide / size.width, maxSide / size.height);
}

std::shared_ptr<PexImage> PexImage::thumb(double maxSide) const {
    return resize({.to = thumbSize(size, maxSide)});
}

} // namespace pex
