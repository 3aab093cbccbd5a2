#include "peximage/platform/filters/CIImage.h"

#include "peximage/platform/filters/CIContext.h"
#include "peximage/platform/filters/FilterGraph.h"

#include <algorithm>
#include <cmath>

namespace pex {
namespace {

/// The curve of sRGB (IEC 61966-2-1).
double toLinear(double v) { return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4); }
double fromLinear(double v) { return v <= 0.0031308 ? v * 12.92 : 1.055 * std::pow(v, 1 / 2.4) - 0.055; }

kernels::ByteCurve exposureCurve(double ev) {
    kernels::ByteCurve curve{};
    const double gain = std::exp2(std::clamp(ev, -100.0, 100.0));
    for (std::size_t byte = 0; byte < curve.size(); ++byte) {
        const double light = std::min(toLinear(static_cast<double>(byte) / 255) * gain, 1.0);
        curve[byte] = static_cast<std::uint8_t>(std::lround(fromLinear(light) * 255));
    }
    return curve;
}

} // namespace

CIImage::CIImage(const CGImage& image)
    : node_(std::make_shared<Node>(
          Node{Node::Source{image},
               {0, 0, static_cast<double>(image.width()), static_cast<double>(image.height())}})) {}

CGRect CIImage::extent() const { return node_->extent; }

CIImage CIImage::scaled(double sx, double sy) const {
    return transformed(sx > 0 && sy > 0 ? CGAffineTransform::scale(sx, sy) : CGAffineTransform::scale(0, 0));
}

CIImage CIImage::transformed(const CGAffineTransform& transform) const {
    CGRect moved = transform.apply(node_->extent);
    if (!transform.inverted() || node_->extent.isEmpty() || moved.isEmpty()) moved = {};
    return CIImage(std::make_shared<Node>(Node{Node::Transform{node_, transform}, moved}));
}

CIImage CIImage::straightened(double radians) const {
    const CGRect whole = extent();
    const double width = whole.size.width, height = whole.size.height;
    const double across = std::abs(std::cos(radians)), along = std::abs(std::sin(radians));
    // The extent, turned back, has to fit into the enlarged picture.
    const double zoom = across + along * std::max(height / width, width / height);
    const double x = whole.origin.x + width / 2, y = whole.origin.y + height / 2;
    return transformed(CGAffineTransform::translation(-x, -y)
                           .then(CGAffineTransform::rotation(radians))
                           .then(CGAffineTransform::scale(zoom, zoom))
                           .then(CGAffineTransform::translation(x, y)))
        .cropped(whole);
}

CIImage CIImage::cropped(const CGRect& rect) const {
    return CIImage(std::make_shared<Node>(Node{Node::Crop{node_}, node_->extent.intersection(rect)}));
}

CIImage CIImage::sharpenedLuminance(double sharpness) const {
    const CGRect shown = std::isfinite(sharpness) ? extent() : CGRect{};
    return CIImage(std::make_shared<Node>(Node{Node::Sharpen{node_, sharpness}, shown}));
}

CIImage CIImage::exposureAdjusted(double ev) const {
    const CGRect shown = std::isfinite(ev) ? extent() : CGRect{};
    return CIImage(std::make_shared<Node>(Node{Node::Recolor{node_, exposureCurve(ev), nullptr}, shown}));
}

CIImage CIImage::colorCube(std::shared_ptr<const ColorCube> cube) const {
    return CIImage(std::make_shared<Node>(Node{Node::Recolor{node_, {}, std::move(cube)}, extent()}));
}

CIImage CIImage::resized(const Resized& target) const {
    const CGRect whole = extent();
    const CGSize to = target.to;
    const CIImage stretched = scaled(to.width / whole.size.width, to.height / whole.size.height);
    const CGRect got = stretched.extent();
    return stretched.cropped(
        {(got.size.width - to.width) * 0.5, (got.size.height - to.height) * 0.5, to.width, to.height});
}

std::optional<CGImage> CIImage::getCGImage() const { return CIContext().createCGImage(*this, extent()); }

} // namespace pex
