#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/geometry/CGSize.h"
#include "peximage/platform/raster/CGImage.h"

#include <memory>
#include <optional>

namespace pex {

class PdfDocument;

/// A PDF document whose pages can be drawn as bitmaps. One thread at a time; several of the same document may
/// work side by side.
class PEX_EXPORT NSPDFImageRep {
  public:
    /// True when the library was built with what reads PDF documents.
    static bool isAvailable();

    /// Null when the bytes are no PDF document or need a password, when it has more pages than `ImageLimits`
    /// allow, and in a build without PDF.
    static std::shared_ptr<NSPDFImageRep> make(const Data& bytes);

    /// True when the bytes are a PDF document that only its password opens, which no one here can give.
    static bool needsPassword(const Data& bytes);

    /// How many pages the document has.
    int pageCount() const;
    /// The page that the operations below work on, counted from 0, at first the first. A page that is not in
    /// the document has no size and no image.
    void setCurrentPage(int page) { page_ = page; }
    /// The page that was set.
    int currentPage() const { return page_; }

    /// Of the current page, in points (72 are an inch), as the page is seen.
    CGSize size() const;
    /// The current page stretched to so many pixels, in sRGB, on a transparent ground. Absent when there is
    /// no such page, a side is below 1, the size breaks `ImageLimits`, or memory cannot be had.
    std::optional<CGImage> cgImage(int pixelsWide, int pixelsHigh) const;
    /// The same, drawn when its pixels are first touched.
    std::optional<CGImage> undrawnImage(int pixelsWide, int pixelsHigh) const;

  private:
    NSPDFImageRep(Data bytes, std::unique_ptr<PdfDocument> document);
    bool hasImage(int pixelsWide, int pixelsHigh) const;

    Data bytes_;
    std::shared_ptr<PdfDocument> document_;
    int page_ = 0;
};

} // namespace pex
