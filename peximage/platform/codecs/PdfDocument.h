#pragma once

#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/geometry/CGSize.h"
#include "peximage/platform/raster/PixelView.h"

#include <memory>

namespace pex {

/// A PDF document. Serves one thread at a time.
class PdfDocument {
  public:
    /// True when the library was built with the module that reads PDF documents, and finds it.
    static bool isAvailable();

    /// Null when the bytes are no PDF document or need a password, and when the module is missing.
    static std::unique_ptr<PdfDocument> open(const Data& bytes);
    /// True for a document that only its password opens; false without the module.
    static bool needsPassword(const Data& bytes);
    ~PdfDocument();
    PdfDocument(const PdfDocument&) = delete;
    PdfDocument& operator=(const PdfDocument&) = delete;

    int pageCount() const;
    /// In points, as the page is seen; empty when there is no such page.
    CGSize pageSize(int page) const;
    /// Draws the page, stretched to the size of `pixels`, which are zeroed and premultiplied, alpha last.
    /// False when there is no such page or memory runs out.
    bool render(int page, MutablePixelView pixels) const;

  private:
    struct Handle;
    PdfDocument(Data bytes, std::unique_ptr<Handle> handle);

    Data bytes_;
    std::unique_ptr<Handle> handle_;
};

} // namespace pex
