#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/codecs/ImageFormat.h"
#include "peximage/platform/codecs/ImageMetadata.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/geometry/CGSize.h"
#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/toolkit/NSColor.h"

#include <memory>
#include <optional>

namespace pex {

/// A bitmap whose single pixels can be written and which can be encoded. It shares the pixels of the image it
/// is made from until the first write, which takes a copy. One thread at a time.
class PEX_EXPORT NSBitmapImageRep {
  public:
    /// Its size in points is the image's size in pixels.
    explicit NSBitmapImageRep(const CGImage& image);

    /// In pixels.
    /// @{
    int pixelsWide() const { return image_.width(); }
    int pixelsHigh() const { return image_.height(); }
    /// @}
    /// The size in points; pixels over points × 72 is the resolution that PNG records.
    CGSize size() const { return size_; }
    /// Sets it; the pixels stay.
    void setSize(CGSize size) { size_ = size; }

    /// The pixels as they are now; later writes do not show in it.
    CGImage cgImage() const;

    /// Writes one pixel, column `x` and row `y` from the top; outside the bitmap nothing happens. The colour
    /// is converted to the bitmap's space. A picture without alpha keeps the colour alone.
    void setColor(const NSColor& color, int x, int y);

    /// Options of `representation`.
    struct Properties {
        /// `NSImageCompressionFactor`: 0 … 1, 1 best; for JPEG.
        double compressionFactor = 0.9;
        /// What the file says about the picture beside its pixels.
        ImageMetadata metadata = {};
    };
    /// Encoded bytes; absent when the format cannot be written or hold the picture.
    std::optional<Data> representation(ImageFormat usingType, const Properties& properties) const;

  private:
    bool makeWritable();
    std::size_t rowBytes() const;

    mutable CGImage image_;
    mutable PixelBuffer written_; // newer than image_ while it holds anything
    CGSize size_;
};

} // namespace pex
