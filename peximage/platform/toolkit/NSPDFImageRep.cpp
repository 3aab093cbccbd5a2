#include "peximage/platform/toolkit/NSPDFImageRep.h"

#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/codecs/PdfDocument.h"
#include "peximage/platform/codecs/PdfPageSource.h"

#include <utility>

namespace pex {

bool NSPDFImageRep::isAvailable() { return PdfDocument::isAvailable(); }

NSPDFImageRep::NSPDFImageRep(Data bytes, std::unique_ptr<PdfDocument> document)
    : bytes_(std::move(bytes)), document_(std::move(document)) {}

std::shared_ptr<NSPDFImageRep> NSPDFImageRep::make(const Data& bytes) {
    auto document = PdfDocument::open(bytes);
    if (!document || document->pageCount() > ImageLimits::current().maxPages) return nullptr;
    return std::shared_ptr<NSPDFImageRep>(new NSPDFImageRep(bytes, std::move(document)));
}

bool NSPDFImageRep::needsPassword(const Data& bytes) { return PdfDocument::needsPassword(bytes); }

int NSPDFImageRep::pageCount() const { return document_->pageCount(); }

CGSize NSPDFImageRep::size() const { return document_->pageSize(page_); }

bool NSPDFImageRep::hasImage(int pixelsWide, int pixelsHigh) const {
    return page_ >= 0 && page_ < pageCount() && ImageLimits::current().allows(pixelsWide, pixelsHigh);
}

std::optional<CGImage> NSPDFImageRep::undrawnImage(int pixelsWide, int pixelsHigh) const {
    if (!hasImage(pixelsWide, pixelsHigh)) return std::nullopt;
    return CGImage::make(std::make_shared<PdfPageSource>(bytes_, page_, PixelSize{pixelsWide, pixelsHigh}));
}

std::optional<CGImage> NSPDFImageRep::cgImage(int pixelsWide, int pixelsHigh) const {
    if (!hasImage(pixelsWide, pixelsHigh)) return std::nullopt;
    constexpr auto layout = PixelLayout::premultipliedLast;
    const std::ptrdiff_t bytesPerRow = std::ptrdiff_t{pixelsWide} * bytesPerPixel(layout);
    PixelBuffer pixels =
        PixelBuffer::makeZeroed(static_cast<std::size_t>(bytesPerRow) * static_cast<std::size_t>(pixelsHigh));
    if (!pixels) return std::nullopt;
    if (!document_->render(page_, {pixels.data(), pixelsWide, pixelsHigh, bytesPerRow, layout}))
        return std::nullopt;
    return CGImage::make(pixelsWide, pixelsHigh, bytesPerRow, layout, CGColorSpace::sRGB(),
                         std::move(pixels));
}

} // namespace pex
