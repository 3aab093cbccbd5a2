#pragma once

#include "peximage/platform/geometry/CGAffineTransform.h"
#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/raster/Interpolation.h"

#include <optional>

namespace pex {

/// A picture brought to a plane of pixels by any affine map, ready to be sampled a part at a time. It is
/// first reduced where the map reduces it, then interpolated by a cubic: at sizes that stay, results lie
/// within 1 / 255 of exact arithmetic. The picture's straight edges are antialiased. Samples are
/// premultiplied R G B A. Immutable: any number of threads may sample at once.
class AffinePicture {
  public:
    /// `toPlane` takes the image's pixels, y downward, to those of the plane, y downward. Absent when it
    /// flattens the picture or is not finite, or when memory or a conversion to the colours cannot be had.
    static std::optional<AffinePicture> make(const CGImage& image, const CGAffineTransform& toPlane,
                                             const CGColorSpace& colorSpace, Interpolation interpolation);

    /// Neighbouring pixels of one row, from `begin` to before `end`.
    struct Span {
        int begin = 0, end = 0;
        bool isEmpty() const { return begin >= end; }
    };

    /// Those of row `y`, between 0 and `width`, that the picture reaches.
    Span spanOf(int y, int width) const;
    /// Writes all pixels of `to`, whose upper left one is (x, y) of the plane; where the picture does not
    /// reach they are transparent.
    void sample(int x, int y, MutablePixelView to) const;

  private:
    AffinePicture(const CGImage& image, PixelView pixels, const CGAffineTransform& toPicture,
                  Interpolation interpolation);

    Span where(double begin, double end, double at, double step, int from, int to) const;
    void sampleRow(int x, int y, int pixels, std::uint8_t* to) const;
    void samplePixel(int x, int y, std::uint8_t* to) const;

    CGImage image_; // keeps the pixels
    PixelView pixels_;
    CGAffineTransform toPicture_;
    double gradientX_, gradientY_; // picture pixels that one plane pixel spans across the picture's edges
    Interpolation interpolation_;
};

} // namespace pex
