#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/geometry/CGAffineTransform.h"
#include "peximage/platform/raster/CGColor.h"
#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/raster/Interpolation.h"
#include "peximage/platform/raster/Orientation.h"

#include <memory>
#include <optional>
#include <vector>

namespace pex {

/// How pictures are brought to another size.
enum class CGInterpolationQuality { none = 1, low = 2, medium = 4, high = 3 };

/// What becomes of what lay there.
enum class CGBlendMode {
    normal, // source over
    copy,   // what lay there is replaced
};

/// Draws into a bitmap. In memory row 0 is on top; user space has its origin at the bottom-left corner and y
/// upward, one unit a pixel until the transform is changed. While the transform leaves upright rectangles
/// upright, their edges are rounded to whole pixels, at least one, so that no half-covered edge appears;
/// pictures that are turned or sheared have antialiased edges. One thread at a time, though drawing itself
/// works on all cores.
class PEX_EXPORT CGContext {
  public:
    /// A context over memory of its own, transparent (black where the layout has no alpha). Null when a side
    /// is below 1 or the memory cannot be had.
    static std::shared_ptr<CGContext> make(int width, int height, PixelLayout layout,
                                           const CGColorSpace& colorSpace);
    /// A context over given memory, rows without padding between them; whoever shares it sees what is drawn
    /// at once. Null when a side is below 1 or the memory is too small.
    static std::shared_ptr<CGContext> make(int width, int height, PixelLayout layout,
                                           const CGColorSpace& colorSpace, PixelBuffer memory);

    /// In pixels.
    /// @{
    int width() const { return width_; }
    int height() const { return height_; }
    /// @}
    /// How the bytes of a pixel lie.
    PixelLayout layout() const { return layout_; }
    /// What its colours mean.
    const CGColorSpace& colorSpace() const { return colorSpace_; }

    /// Keeps the transform, opacity, blend mode, interpolation and fill colour; `restoreGState` brings the
    /// last kept ones back, and does nothing when there are none.
    /// @{
    void saveGState();
    void restoreGState();
    /// @}

    /// Moves or scales user space, as seen from what is drawn next.
    /// @{
    void translateBy(double x, double y);
    void scaleBy(double x, double y);
    /// @}
    /// Counter-clockwise, in radians.
    void rotateBy(double radians);
    /// From user space to pixels, the origin at the bottom-left corner of the bitmap, y upward.
    const CGAffineTransform& transform() const { return state_.transform; }
    /// Puts a transform before the present one, as the three above do.
    void concat(const CGAffineTransform& transform);
    /// 0–1; multiplies the alpha of all that is drawn.
    void setAlpha(double alpha);
    /// `normal` at first.
    void setBlendMode(CGBlendMode mode);
    /// `none` takes the nearest pixel; all others antialias.
    void setInterpolationQuality(CGInterpolationQuality quality);
    /// Opaque black at first.
    void setFillColor(const CGColor& color);

    /// Fills a rectangle of user space with the fill colour; under a transform that turns it by less than a
    /// quarter or shears it, the upright rectangle around it.
    void fill(const CGRect& rect);
    /// Draws the image, stretched, into a rectangle of user space; its top is where y is largest. Its colours
    /// are converted to the context's space. It may be stretched to any size: only what shows is ever made.
    void draw(const CGImage& image, const CGRect& rect);

    /// What was drawn so far. The image shares the memory until the context is drawn into again, which then
    /// continues on a copy; of given memory it takes a copy. Absent when memory cannot be had, and when
    /// something is missing for lack of it, or because its drawing was stopped.
    std::optional<CGImage> makeImage();

  private:
    struct State {
        CGAffineTransform transform;
        double alpha = 1;
        CGBlendMode blendMode = CGBlendMode::normal;
        Interpolation interpolation = Interpolation::smooth;
        CGColor fillColor;
    };
    struct PixelRect;

    CGContext(int width, int height, PixelLayout layout, const CGColorSpace& colorSpace, PixelBuffer pixels);
    std::optional<PixelRect> devicePixels(const CGRect& rect) const;
    PixelBuffer copiedPixels() const;
    bool makeWritable();
    MutablePixelView view();
    bool drawUpright(const CGImage& image, const PixelRect& target, Orientation orientation);
    bool drawSlanted(const CGImage& image, const CGRect& rect);
    void blendRow(const std::uint8_t* premultiplied, int x, int y, int pixels, std::uint8_t* scratch);
    bool fillPixels(const PixelRect& target);
    template <class Drawing>
    void attempt(const Drawing& drawing);
    template <class Rows>
    void blendStrips(int height, const Rows& rows);

    int width_;
    int height_;
    PixelLayout layout_;
    CGColorSpace colorSpace_;
    PixelBuffer pixels_;
    bool drawsInPlace_ = false; // whoever shares the pixels is to see them change
    Reason failure_;            // why something is missing
    State state_;
    std::vector<State> saved_;
};

} // namespace pex
