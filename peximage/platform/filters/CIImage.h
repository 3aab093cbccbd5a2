#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/geometry/CGAffineTransform.h"
#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/raster/CGImage.h"

#include <memory>
#include <optional>

namespace pex {

class ColorCube;

/// A picture described but not computed: an immutable node of a filter graph, which `CIContext` renders.
/// Copies share the node. Coordinates have their origin at the bottom-left corner, y upward, one unit a pixel
/// of the source. Safe to use from many threads.
class PEX_EXPORT CIImage {
  public:
    /// The bitmap itself, its lower left corner at the origin.
    explicit CIImage(const CGImage& image);

    /// Where the picture has content.
    CGRect extent() const;

    /// Each axis scaled on its own about the origin. A factor that is not a positive number makes the extent
    /// empty.
    CIImage scaled(double sx, double sy) const;
    /// Every point moved by the transform; the extent is the smallest upright rectangle around the picture. A
    /// transform that flattens the plane or is not finite makes it empty.
    CIImage transformed(const CGAffineTransform& transform) const;
    /// Turned about the centre of its extent, anticlockwise, in radians, and enlarged just so far that it
    /// covers the extent, which stays as it is. Empty for an angle that is no number.
    CIImage straightened(double radians) const;
    /// What lies inside the rectangle.
    CIImage cropped(const CGRect& rect) const;

    /// Options of `resized`.
    struct Resized {
        /// In pixels.
        CGSize to;
        /// Makes no difference: the result is stretched either way.
        bool scaleToFill = false;
    };
    /// Stretched to a size in pixels: each axis scaled on its own, then cut to that size about the centre,
    /// which takes away nothing but rounding. Empty for a size that is not positive.
    CIImage resized(const Resized& target) const;

    // Filters. The extent stays; colours stay within alpha. What they compute is spelled out at the nodes.

    /// Luma sharpened: to each colour is added `sharpness` × (luma − blurred luma), with Rec. 709 luma of the
    /// colours as they are stored, blurred by the binomial weights 1 4 6 4 1 along both axes; beyond the
    /// edges the picture's last pixels repeat. Limited to ±64. Empty for a sharpness that is not finite.
    CIImage sharpenedLuminance(double sharpness) const;
    /// Colours in linear light times 2^ev, white at most. Empty for an ev that is not finite.
    CIImage exposureAdjusted(double ev) const;
    /// Every colour looked up in the cube, which must not be null.
    CIImage colorCube(std::shared_ptr<const ColorCube> cube) const;

    /// The whole extent rendered; absent when `CIContext` cannot.
    std::optional<CGImage> getCGImage() const;

    struct Node;
    /// The graph below, for whoever renders it.
    const std::shared_ptr<const Node>& node() const { return node_; }

  private:
    explicit CIImage(std::shared_ptr<const Node> node) : node_(std::move(node)) {}

    std::shared_ptr<const Node> node_;
};

} // namespace pex
