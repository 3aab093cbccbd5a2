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
    std::unique_ptr<RowReader> rows(PixelSize size) const override;
    bool decode(MutablePixelView pixels) const override;

    /// Makes the rows of the result from `y` on. False when memory cannot be had.
    bool make(int y, MutablePixelView rows) const;

  private:
    bool makeStrip(const PixelView& from, int y, MutablePixelView rows) const;
    void load(const PixelView& from, int y, MutablePixelView window) const;
    bool convertsColours() const { return conversion_ != nullptr; }

    CGImage picture_;
    FilterChain chain_;
    std::shared_ptr<const ColorConversion> conversion_; // where steps work on colours of another space
};

} // namespace pex
