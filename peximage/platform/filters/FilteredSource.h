#pragma once

#include "peximage/platform/filters/FilterChain.h"
#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/raster/ColorConversion.h"
#include "peximage/platform/raster/PixelSource.h"

#include <memory>

namespace pex {

/// A picture with a chain of filters over it, made when it is decoded: as a whole on all cores, or by rows
/// when a smaller one is made of it. It holds the picture below and a strip for each core.
class FilteredSource : public PixelSource {
  public:
    FilteredSource(CGImage picture, FilterChain chain);

    PixelSize size() const override { return {picture_.width(), picture_.height()}; }
    PixelLayout layout() const override;
    CGColorSpace colorSpace() const override;

    /// Computes the result now; the source is used up. If nobody else has the picture below, this
    /// works in its memory, so that there is never a second picture of that size. Absent when memory
    /// cannot be had.
    std::optional<CGImage> render();

    /// Makes the rows of the result from `y` on. False, with the reason, when memory or the picture below
    /// cannot be had.
    bool make(int y, MutablePixelView rows) const;

  private:
    std::unique_ptr<RowReader> makeRows(PixelSize size) const override;
    std::optional<DecodedRows> decodeAll(MutablePixelView pixels) const override;
    bool filterInPlace(MutablePixelView picture) const;
    /// The rows from `y` on; `rowAt(y)` is a row of the picture below. Works in `memory`, which it makes
    /// large enough.
    template <class RowAt>
    bool makeStrip(RowAt rowAt, int y, MutablePixelView to, PixelBuffer& memory) const;
    void load(const std::uint8_t* row, std::uint8_t* to) const;
    bool convertsColours() const { return conversion_ != nullptr; }

    CGImage picture_;
    FilterChain chain_;
    std::shared_ptr<const ColorConversion> conversion_; // where steps work on colours of another space
};

} // namespace pex
