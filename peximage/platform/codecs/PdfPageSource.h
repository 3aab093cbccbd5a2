#pragma once

#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/raster/PixelSource.h"

#include <utility>

namespace pex {

/// A page of a PDF document that is drawn when its pixels are wanted, at whatever size.
class PdfPageSource final : public PixelSource {
  public:
    PdfPageSource(Data document, int page, PixelSize size)
        : document_(std::move(document)), page_(page), size_(size) {}

    PixelSize size() const override { return size_; }
    PixelLayout layout() const override { return PixelLayout::premultipliedLast; }
    CGColorSpace colorSpace() const override { return CGColorSpace::sRGB(); }
    PixelSize reducedSize(PixelSize minimum) const override { return minimum; }

  private:
    std::unique_ptr<RowReader> makeRows(PixelSize) const override { return nullptr; }
    std::optional<DecodedRows> decodeAll(MutablePixelView pixels) const override;

    Data document_;
    int page_;
    PixelSize size_;
};

} // namespace pex
