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

    int width() const { return width_; }
    int height() const { return height_; }
    int bitsPerComponent() const { return 8; }
    PixelLayout layout() const;
    const CGColorSpace& colorSpace() const;

    /// The pixels, decoded now if they were not yet; valid as long as this image or a copy of it. Absent when
    /// the memory for them cannot be had, and, for the reason `damaged`, when nothing of the picture is left
    /// in its file. Rows that a broken source could not give are transparent, or mid grey where there is no
    /// alpha.
    std::optional<PixelView> pixels() const;
    /// The pixels, for whoever asks to change and keep; this image has none afterwards. Absent, and nothing
    /// has changed, when somebody else can see them: this is a part or has copies, or its memory has other
    /// owners; or when they cannot be had.
    std::optional<std::pair<PixelBuffer, MutablePixelView>> takePixels();
    /// True when decoding found the source cut short or damaged. This and the next tell what any decoding of
    /// it met: of this image or of another one of its source, whole or reduced, also by an operation that
    /// made a smaller one; only when there was none, this decodes. A part tells of the whole image.
    bool isIncomplete() const;
    /// The share of the rows that show something of the picture: 1 for a whole one, and for one that is
    /// damaged but has something to show in every row; 0 when there are no `pixels`. Rows of which a
    /// progressive or interlaced file holds but a coarse view count.
    double decodedFraction() const;

    /// The part inside a rectangle of pixels, origin at the top-left corner and y downward: made integral
    /// outward, then clipped to the image. It shares the pixels. Absent when nothing is left.
    std::optional<CGImage> cropping(const CGRect& rect) const;

    /// The same pixels read as another layout of as many bytes; what they mean is the caller's to know.
    /// Absent when the layouts differ in size or the pixels cannot be had.
    std::optional<CGImage> reinterpreted(PixelLayout as) const;

    /// The source, while nothing has decoded it yet and the image is the whole of it; null otherwise. Whoever
    /// needs only a small picture decodes a reduced one from it.
    std::shared_ptr<const PixelSource> source() const;

    /// What was made of the source for a size that was asked for twice in a row, so that a picture that is
    /// drawn again and again is not decoded each time; absent for other sizes. One no larger than the picture
    /// is kept, until the pixels themselves are there.
    std::optional<CGImage> reduction(PixelSize size) const;
    void offerReduction(const CGImage& made) const;

  private:
    struct Store;
    CGImage(std::shared_ptr<Store> store, int x, int y, int width, int height)
        : store_(std::move(store)), x_(x), y_(y), width_(width), height_(height) {}

    std::shared_ptr<Store> store_;
    int x_ = 0, y_ = 0, width_ = 0, height_ = 0;
};

} // namespace pex
