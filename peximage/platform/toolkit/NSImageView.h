#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/ForkSafe.h"
#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/raster/CGContext.h"
#include "peximage/platform/toolkit/CALayer.h"
#include "peximage/platform/toolkit/NSImage.h"

#include <functional>
#include <memory>
#include <optional>

namespace pex {

/// A view that shows an image, whole and centred, no larger than its size in points unless it is magnified.
/// Drawing and what concerns it belong to the main thread; the content may be read and replaced, and the
/// frame be read, on any.
class PEX_EXPORT NSImageView : public std::enable_shared_from_this<NSImageView> {
  public:
    /// Where the view lies in what holds it, in points.
    static std::shared_ptr<NSImageView> make(const CGRect& frame);
    virtual ~NSImageView() = default;

    /// Where the view lies in what holds it, in points.
    CGRect frame() const;
    /// A view of another size is to be drawn anew.
    void setFrame(const CGRect& frame);

    /// The content; null when there is none.
    std::shared_ptr<NSImage> image() const;
    /// Replaces it, and has the view drawn anew.
    void setImage(std::shared_ptr<NSImage> image);

    /// Without a layer until `setWantsLayer(true)`.
    bool wantsLayer() const { return layer_.has_value(); }
    /// Gives the view a layer, or takes it away.
    void setWantsLayer(bool wants);
    /// Null without one.
    /// @{
    CALayer* layer() { return layer_ ? &*layer_ : nullptr; }
    const CALayer* layer() const { return layer_ ? &*layer_ : nullptr; }
    /// @}

    /// How the content is placed: fitted into the view and never enlarged, or fitted and enlarged, too.
    enum class ImageScaling { proportionallyDown, proportionallyUpOrDown };
    /// Whether small content is enlarged.
    ImageScaling imageScaling = ImageScaling::proportionallyDown;
    /// Enlarges the fitted content around the view's middle; what lies outside the view is cut.
    double magnification = 1;
    /// Moves the content, in points, y upward.
    CGPoint imageOffset{0, 0};

    /// The rectangle that the content takes, in points from the view's lower left corner, y upward; absent
    /// without one, or when it has no size.
    std::optional<CGRect> imageRect() const;

    /// Asks for a part of what holds the view to be drawn anew: calls what `setDisplayRequest` set, on this
    /// thread.
    void setNeedsDisplay(const CGRect& rect);
    /// Sets what `setNeedsDisplay` calls; empty: nothing.
    void setDisplayRequest(std::function<void(const CGRect& rect)> request);

    /// Draws the view into this thread's current `NSGraphicsContext`, whose user space has its origin at the
    /// view's lower left corner. What is drawn outside the layer's round corners is cut.
    virtual void draw(const CGRect& dirtyRect);
    /// The same into a context, whatever is current; into null nothing is drawn.
    void drawInto(const std::shared_ptr<CGContext>& context);

  protected:
    /// For subclasses.
    explicit NSImageView(const CGRect& frame) : frame_(frame) {}

  private:
    CGRect bounds() const { return {{0, 0}, frame().size}; }
    void drawContent(CGContext& context) const;
    void drawFramed(CGContext& context) const;

    std::optional<CALayer> layer_;
    mutable ForkSafeMutex mutex_; // guards what follows
    CGRect frame_;
    std::shared_ptr<NSImage> image_;
    std::function<void(const CGRect& rect)> displayRequest_;
};

} // namespace pex
