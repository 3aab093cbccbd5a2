#include "peximage/image/DocumentImport.h"

#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/CGContext.h"
#include "peximage/platform/toolkit/NSPDFImageRep.h"
#include "peximage/platform/toolkit/NSScreen.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace pex {
namespace {

constexpr double pointsPerInch = 72;

std::optional<Data> documentBytes(const URL& url) {
    return Data::contentsOf(url, ImageLimits::current().maxSourceBytes);
}

std::shared_ptr<NSPDFImageRep> openDocument(const URL& url) {
    const std::optional<Data> bytes = documentBytes(url);
    return bytes ? NSPDFImageRep::make(*bytes) : nullptr;
}

double pixelsPerPoint(int dpi) { return dpi / (pointsPerInch * NSScreen::largestBackingScaleFactor()); }

/// A length truncated to whole pixels; 0 if it is below 1, not a number, or beyond all limits.
int pixels(double length) {
    constexpr double longest = 1e9;
    return length >= 1 && length < longest ? static_cast<int>(length) : 0;
}

enum class Drawing { now, whenTouched };

/// Null when the page cannot be drawn.
std::shared_ptr<PexImage> pageImage(NSPDFImageRep& document, int page, double scale,
                                    Drawing drawing = Drawing::now) {
    document.setCurrentPage(page);
    const CGSize points = document.size();
    const int width = pixels(points.width * scale), height = pixels(points.height * scale);
    const auto bitmap =
        drawing == Drawing::now ? document.cgImage(width, height) : document.undrawnImage(width, height);
    return bitmap ? PexImage::make(*bitmap) : nullptr;
}

using Pages = std::vector<std::shared_ptr<PexImage>>;

/// How many pages from `first` on are drawn at once: one for each core, or fewer if they are large.
int pagesAtOnce(NSPDFImageRep& document, int first, double scale) {
    constexpr double mostBytes = 256 << 20;
    const int most = std::min(Workers::count(), document.pageCount() - first);
    double bytes = 0;
    for (int count = 0; count < most; ++count) {
        document.setCurrentPage(first + count);
        const CGSize points = document.size();
        bytes += 4.0 * pixels(points.width * scale) * pixels(points.height * scale);
        if (bytes > mostBytes) return std::max(count, 1);
    }
    return most;
}

/// Draws pages on all cores, some at a time. Each thread opens the document for itself.
class PageDrawer {
  public:
    PageDrawer(Data bytes, std::shared_ptr<NSPDFImageRep> document, double scale)
        : bytes_(std::move(bytes)),
          documents_(static_cast<std::size_t>(Workers::mostCount())),
          scale_(scale) {
        documents_[0] = std::move(document);
    }

    /// The drawn pages; null for one that could not be drawn.
    Pages draw(int first, int count) {
        Pages pages(static_cast<std::size_t>(count));
        Workers::forEach(count, [&](int index, int slot) {
            auto& document = documents_[static_cast<std::size_t>(slot)];
            if (!document) document = NSPDFImageRep::make(bytes_);
            if (document)
                pages[static_cast<std::size_t>(index)] = pageImage(*document, first + index, scale_);
        });
        return pages;
    }

  private:
    Data bytes_;
    std::vector<std::shared_ptr<NSPDFImageRep>> documents_;
    double scale_;
};

void finish(const PexImage::PdfDocumentCallbacks& source, bool success) {
    if (source.finalCallback) source.finalCallback(success);
}

std::nullopt_t failed(const char* what) {
    diagnostics::print(what);
    return std::nullopt;
}

std::optional<CIImage> loadScaled(const URL& file, double factor) {
    const auto image = NSImage::make(file);
    if (!image) return failed("Failed to load AI file as NSImage.");
    const CGSize points = image->size();
    const auto bitmap = image->cgImageForProposedRect(CGRect{{0, 0}, points});
    if (!bitmap) return failed("Failed to create CGImage from original NSImage.");
    const CGSize scaled{points.width * factor, points.height * factor};
    const int width = pixels(scaled.width), height = pixels(scaled.height);
    const auto context =
        ImageLimits::current().allows(width, height)
            ? CGContext::make(width, height, PixelLayout::premultipliedLast, CGColorSpace::deviceRGB())
            : nullptr;
    if (!context) return failed("Failed to create CGContext.");
    context->setInterpolationQuality(CGInterpolationQuality::high);
    context->draw(*bitmap, {{0, 0}, scaled});
    const auto drawn = context->makeImage();
    if (!drawn) return failed("Failed to create upscaled CGImage from context.");
    return CIImage(*drawn);
}

} // namespace

std::optional<Pages> PexImage::pdfDocumentToPexImages(const PdfDocumentUrl& source) {
    const auto document = openDocument(source.pdfDocumentUrl);
    if (!document) return std::nullopt;
    Pages images;
    for (int page = 0; page < document->pageCount(); ++page) {
        auto image = pageImage(*document, page, pixelsPerPoint(source.dpi), Drawing::whenTouched);
        if (image) images.push_back(std::move(image));
    }
    return images;
}

void PexImage::pdfDocumentToPexImagesAsync(const PdfDocumentCallbacks& source) {
    const std::optional<Data> bytes = documentBytes(source.pdfDocumentUrl);
    auto document = bytes ? NSPDFImageRep::make(*bytes) : nullptr;
    if (!document) return finish(source, false);
    const int count = document->pageCount();
    const double scale = pixelsPerPoint(source.dpi);
    PageDrawer drawer(*bytes, document, scale);
    for (int next = 0; next < count;) {
        for (auto& page : drawer.draw(next, pagesAtOnce(*document, next, scale))) {
            if (page && source.callback) source.callback(next, count, std::exchange(page, nullptr));
            ++next;
        }
    }
    finish(source, true);
}

std::shared_ptr<PexImage> PexImage::pdfDocumentToPexImage(const PdfDocumentPage& source) {
    const auto document = openDocument(source.pdfDocumentUrl);
    return document ? pageImage(*document, source.pageN, pixelsPerPoint(source.dpi)) : nullptr;
}

std::optional<CGImage> loadCGImage(const AiUrl& file) {
    const auto source = CGImageSource::make(file.aiUrl);
    std::optional<CGImage> image = source ? source->createImage() : std::nullopt;
    if (!image || !file.scaleFactor) return image;
    const auto whole = PexImage::make(*image);
    const CGSize size{whole->size.width * *file.scaleFactor, whole->size.height * *file.scaleFactor};
    const auto scaled = whole->resize({.to = size});
    return scaled && scaled->cgImage ? scaled->cgImage : image;
}

std::optional<CIImage> loadCIImage(const AiUrl& file) {
    if (file.scaleFactor) return loadScaled(file.aiUrl, *file.scaleFactor);
    const auto image = loadCGImage(file);
    return image ? std::optional(CIImage(*image)) : std::nullopt;
}

} // namespace pex
