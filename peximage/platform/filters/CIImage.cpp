#include "peximage/platform/filters/CIImage.h"

#include "peximage/platform/filters/CIContext.h"
#include "peximage/platform/filters/FilterGraph.h"

namespace pex {

CIImage::CIImage(const CGImage& image)
    : node_(std::make_shared<Node>(
          Node{Node::Source{image},
               {0, 0, static_cast<double>(image.width()), static_cast<double>(image.height())}})) {}

CGRect CIImage::extent() const { return node_->extent; }

CIImage CIImage::scaled(double sx, double sy) const {
    const CGRect& from = node_->extent;
    const bool usable = sx > 0 && sy > 0;
    const CGRect extent =
        usable ? CGRect{from.origin.x * sx, from.origin.y * sy, from.size.width * sx, from.size.height * sy}
               : CGRect{};
    return CIImage(std::make_shared<Node>(Node{Node::Scale{node_, sx, sy}, extent}));
}

CIImage CIImage::cropped(const CGRect& rect) const {
    return CIImage(std::make_shared<Node>(Node{Node::Crop{node_}, node_->extent.intersection(rect)}));
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
