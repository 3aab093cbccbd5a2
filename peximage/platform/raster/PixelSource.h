#pragma once

#include "peximage/platform/raster/CGColorSpace.h"
#include "peximage/platform/raster/PixelView.h"

#include <memory>

namespace pex {

struct PixelSize {
    int width = 0;
    int height = 0;

    friend constexpr bool operator==(PixelSize, PixelSize) = default;
};

/// Hands out the rows of a picture from top to bottom, once.
class RowReader {
  public:
    virtual ~RowReader() = default;

    /// Fills `rows` (of the picture's width and layout) with the next rows. False when the source broke off:
    /// the rows that it could not give are filled with transparency, or with mid grey where there is no
    /// alpha, and so are all that are asked for afterwards.
    virtual bool read(MutablePixelView rows) = 0;
};

/// A picture that is not in memory yet: an encoded file, or another source turned upright. Immutable: any
/// number of threads may decode it at once.
class PixelSource {
  public:
    virtual ~PixelSource() = default;

    virtual PixelSize size() const = 0;
    virtual PixelLayout layout() const = 0;
    virtual CGColorSpace colorSpace() const = 0;

    /// The smallest size of at least `minimum` at which the source decodes more cheaply without loss of
    /// quality; its own size when there is none.
    virtual PixelSize reducedSize(PixelSize minimum) const;

    /// Rows at `size`, which is the own size or one that `reducedSize` gave. Null when the source cannot be
    /// decoded row by row without holding the whole picture; `decode` then does it.
    virtual std::unique_ptr<RowReader> rows(PixelSize size) const = 0;

    /// Decodes the whole picture into `pixels`, which has such a size and the source's layout. False when the
    /// source broke off; the rest is then filled as RowReader does.
    virtual bool decode(MutablePixelView pixels) const;
};

/// What takes the place of pixels that could not be decoded.
void fillMissing(MutablePixelView rows);

} // namespace pex
