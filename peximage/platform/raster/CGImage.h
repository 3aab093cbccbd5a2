#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/raster/CGColorSpace.h"
#include "peximage/platform/raster/PixelBuffer.h"
#include "peximage/platform/raster/PixelView.h"

#include <memory>
#include <optional>
#include <utility>

namespace pex {

class PixelSource;
struct PixelSize;

/// A bitmap image: an immutable value whose copies and sub-images share one store of pixels. The store is
/// either pixels in memory, or an encoded source whose size is known and which is decoded when its pixels are
/// first touched. Safe to use from many threads.
class PEX_EXPORT CGImage {
  public:
    /// Pixels in memory, rows top first. Absent when a side is below 1, a row is shorter than its pixels, or
    /// the buffer is smaller than the rows need. The buffer must not be written any more.
    static std::optional<CGImage> make(int width, int height, std::ptrdiff_t bytesPerRow, PixelLayout layout,
                                       const CGColorSpace& colorSpace, PixelBuffer pixels);
    /// A source that is decoded on first touch.
    static CGImage make(std::shared_ptr<const PixelSource> source);

    /// In pixels.
    /// @{
    int width() const { return width_; }
    int height() const { return height_; }
    CGSize size() const { return {static_cast<double>(width_), static_cast<double>(height_)}; }
    /// @}
    /// Always 8.
    int bitsPerComponent() const { return 8; }
    /// How the bytes of a pixel lie.
    PixelLayout layout() const;
    /// What its colours mean.
    const CGColorSpace& colorSpace() const;

    /// The pixels, decoded now if they were not yet; valid as long as this image or a copy of it. Absent when
    /// the memory for them cannot be had, or when the file shows nothing of the picture (reason `damaged`).
    /// Rows that a broken file could not give are transparent, or mid grey where there is no alpha.
    std::optional<PixelView> pixels() const;
    /// Hands the pixels over to the caller, who may change them; this image has none afterwards. Absent, with
    /// nothing changed, when somebody else can see the pixels (this is a part of an image, has copies, or its
    /// memory has other owners), or when they cannot be had.
    std::optional<std::pair<PixelBuffer, MutablePixelView>> takePixels();
    /// True when the encoded picture was found cut short or damaged by whatever decoded it: this image,
    /// another one of the same source, or an operation that made a smaller image of it. If nothing has
    /// decoded it yet, this does. A part of an image tells of the whole.
    bool isIncomplete() const;
    /// The share of the rows that show something of the picture, 0–1, learned in the same way: 1 for a whole
    /// picture, and for a damaged one that shows something in every row; 0 when there are no `pixels`. Rows
    /// of which a progressive or interlaced file holds only a coarse view count.
    double decodedFraction() const;

    /// The part inside a rectangle of pixels, origin at the top-left corner and y downward. The rectangle is
    /// rounded outward to whole pixels and clipped to the image. The part shares the pixels. Absent when
    /// nothing is left.
    std::optional<CGImage> cropping(const CGRect& rect) const;

    /// The same bytes read as another layout; nothing is converted. Absent when pixels of the two layouts
    /// differ in size, or the pixels cannot be had.
    std::optional<CGImage> reinterpreted(PixelLayout as) const;

    /// The encoded source, from which a smaller picture can be decoded directly. Null once the pixels were
    /// decoded, for a part of an image, and for pixels in memory.
    std::shared_ptr<const PixelSource> source() const;

    /// The picture reduced to a size, if that was kept: so that a picture that is drawn again and again is
    /// not decoded each time. A reduction is kept when its size was asked for twice in a row, until the
    /// pixels themselves are decoded. Absent for other sizes.
    std::optional<CGImage> reduction(PixelSize size) const;
    /// Hands over what was made, for later calls of `reduction`.
    void offerReduction(const CGImage& made) const;

  private:
    struct Store;
    CGImage(std::shared_ptr<Store> store, int x, int y, int width, int height)
        : store_(std::move(store)), x_(x), y_(y), width_(width), height_(height) {}

    std::shared_ptr<Store> store_;
    int x_ = 0, y_ = 0, width_ = 0, height_ = 0;
};

} // namespace pex
