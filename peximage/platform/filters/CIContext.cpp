#include "peximage/platform/filters/CIContext.h"

#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/filters/FilterGraph.h"
#include "peximage/platform/raster/Scaling.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace pex {
namespace {

using Node = CIImage::Node;

/// A chain of scales and crops above a bitmap, folded into one: `visible` of the bitmap, in its pixels with
/// the origin at the bottom left, is what shows, `sx` and `sy` times as large.
struct FoldedChain {
    CGImage image;
    CGRect visible;
    double sx = 1, sy = 1;
};

FoldedChain fold(const Node& node) {
    if (const auto* source = std::get_if<Node::Source>(&node.operation)) return {source->image, node.extent};
    if (const auto* scale = std::get_if<Node::Scale>(&node.operation)) {
        FoldedChain chain = fold(*scale->input);
        chain.sx *= scale->sx;
        chain.sy *= scale->sy;
        return chain;
    }
    FoldedChain chain = fold(*std::get<Node::Crop>(node.operation).input);
    const CGRect& e = node.extent;
    chain.visible = chain.visible.intersection(
        {e.origin.x / chain.sx, e.origin.y / chain.sy, e.size.width / chain.sx, e.size.height / chain.sy});
    return chain;
}

/// Sizes closer than this to a whole number are that number; they come from factors such as 2000 / 4000.
constexpr double roundingSlack = 1e-6;

CGRect wholePixels(const CGRect& rect, double imageHeight) {
    const auto down = [](double v) { return std::floor(v + roundingSlack); };
    const auto up = [](double v) { return std::ceil(v - roundingSlack); };
    const double x0 = down(rect.minX()), x1 = up(rect.maxX());
    const double top = down(imageHeight - rect.maxY()), bottom = up(imageHeight - rect.minY());
    return {x0, top, std::max(x1 - x0, 1.0), std::max(bottom - top, 1.0)};
}

std::optional<PixelSize> renderedSize(double width, double height) {
    if (!std::isfinite(width) || !std::isfinite(height)) return std::nullopt;
    constexpr double tooLarge = 1e9;
    const double w = std::max(std::round(width), 1.0), h = std::max(std::round(height), 1.0);
    if (w > tooLarge || h > tooLarge) return std::nullopt;
    if (!ImageLimits::current().allows(static_cast<std::int64_t>(w), static_cast<std::int64_t>(h)))
        return std::nullopt;
    return PixelSize{static_cast<int>(w), static_cast<int>(h)};
}

} // namespace

std::optional<CGImage> CIContext::createCGImage(const CIImage& image, const CGRect& from) const {
    const CGRect shown = image.extent().intersection(from);
    if (shown.isEmpty()) return std::nullopt;
    const FoldedChain chain = fold(*image.cropped(from).node());
    const std::optional<PixelSize> size = renderedSize(shown.size.width, shown.size.height);
    if (!size || chain.visible.isEmpty()) return std::nullopt;
    const std::optional<CGImage> part =
        chain.image.cropping(wholePixels(chain.visible, chain.image.height()));
    return part ? scaledImage(*part, *size, Interpolation::smooth) : std::nullopt;
}

} // namespace pex
