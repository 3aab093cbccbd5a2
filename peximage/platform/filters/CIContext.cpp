#include "peximage/platform/filters/CIContext.h"

#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/filters/FilterGraph.h"
#include "peximage/platform/filters/FilteredSource.h"
#include "peximage/platform/raster/AffinePicture.h"
#include "peximage/platform/raster/ConvertedImage.h"
#include "peximage/platform/raster/Scaling.h"
#include "peximage/platform/raster/StripImage.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace pex {
namespace {

using Node = CIImage::Node;

/// A chain of transforms and crops above a bitmap, folded into one: `visible` of the bitmap, in its pixels
/// with the origin at the bottom left, is what shows, moved by `transform`. Crops of a picture that lies
/// aslant leave their mark on the extents alone: then `isCut`.
struct FoldedChain {
    CGImage image;
    CGRect visible;
    CGAffineTransform transform{};
    bool isCut = false;
};

std::optional<FoldedChain> fold(const Node& node);
std::optional<CGImage> render(const Node& node);
std::optional<CGImage> filtered(const Node& node);

bool isFilter(const Node& node) {
    return std::holds_alternative<Node::Sharpen>(node.operation) ||
           std::holds_alternative<Node::Recolor>(node.operation);
}

const Node* inputOf(const Node& filter) {
    const auto* sharpen = std::get_if<Node::Sharpen>(&filter.operation);
    return sharpen ? sharpen->input.get() : std::get<Node::Recolor>(filter.operation).input.get();
}

void add(const Node::Sharpen& operation, FilterChain& chain) { chain.sharpen(operation.sharpness); }
void add(const Node::Recolor& operation, FilterChain& chain) {
    if (operation.cube)
        chain.lookUp(operation.cube);
    else
        chain.bend(operation.curve);
}
template <class Other>
void add(const Other&, FilterChain&) {}

/// The picture as a bitmap, so that it can be turned again. A filter's picture is computed only when its
/// pixels are touched, and then row by row if that is enough.
std::optional<FoldedChain> rendered(const Node& node) {
    const std::optional<CGImage> bitmap = isFilter(node) ? filtered(node) : render(node);
    if (!bitmap) return std::nullopt;
    const CGRect whole{0, 0, static_cast<double>(bitmap->width()), static_cast<double>(bitmap->height())};
    const CGRect& extent = node.extent;
    return FoldedChain{*bitmap,
                       whole,
                       {extent.size.width / whole.size.width, 0, 0, extent.size.height / whole.size.height,
                        extent.origin.x, extent.origin.y}};
}

std::optional<FoldedChain> fold(const Node& node) {
    if (isFilter(node)) return rendered(node);
    if (const auto* source = std::get_if<Node::Source>(&node.operation))
        return FoldedChain{source->image, node.extent};
    if (const auto* moved = std::get_if<Node::Transform>(&node.operation)) {
        std::optional<FoldedChain> chain = fold(*moved->input);
        if (chain && chain->isCut && !moved->transform.keepsUpright()) chain = rendered(*moved->input);
        if (chain) chain->transform = chain->transform.then(moved->transform);
        return chain;
    }
    std::optional<FoldedChain> chain = fold(*std::get<Node::Crop>(node.operation).input);
    if (!chain) return chain;
    const auto back = chain->transform.inverted();
    if (chain->transform.keepsUpright() && back)
        chain->visible = chain->visible.intersection(back->apply(node.extent));
    else
        chain->isCut = true;
    return chain;
}

/// Sizes closer than this to a whole number are taken as that number: factors such as 2000 / 4000 round.
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

/// True when the picture covers the whole plane.
bool covers(const CGImage& picture, const CGAffineTransform& toPlane, PixelSize plane) {
    const auto back = toPlane.inverted();
    if (!back) return false;
    constexpr double slack = 1e-6;
    for (const double x : {0, plane.width}) {
        for (const double y : {0, plane.height}) {
            const CGPoint at = back->apply(CGPoint{x, y});
            if (!(at.x > -slack && at.x < picture.width() + slack && at.y > -slack &&
                  at.y < picture.height() + slack))
                return false;
        }
    }
    return true;
}

/// A turned, mirrored or sheared picture, sampled in strips. It keeps its colour space; a grey picture
/// with visible corners becomes sRGB, since grey has no alpha.
std::optional<CGImage> sampled(const CGImage& picture, const CGAffineTransform& toPlane, PixelSize size) {
    const bool opaque = !hasAlpha(picture.layout()) && covers(picture, toPlane, size);
    const bool isGrey = picture.layout() == PixelLayout::grey;
    const CGColorSpace space = isGrey && !opaque ? CGColorSpace::deviceRGB() : picture.colorSpace();
    const auto affine = AffinePicture::make(picture, toPlane, space, Interpolation::smooth);
    if (!affine) return std::nullopt;
    const PixelLayout layout = opaque ? PixelLayout::skipLast : PixelLayout::premultipliedLast;
    const auto made = imageOfStrips(size, layout, space, [&](MutablePixelView strip, int firstRow) {
        strip.layout = PixelLayout::premultipliedLast;
        affine->sample(0, firstRow, strip);
    });
    return made && isGrey && opaque ? convertedImage(*made, PixelLayout::grey, space) : made;
}

/// A filter and those directly below it, over the picture that they work on.
std::optional<FilteredSource> filterSource(const Node& node) {
    std::vector<const Node*> filters;
    const Node* below = &node;
    for (; isFilter(*below); below = inputOf(*below))
        filters.push_back(below);
    if (node.extent.isEmpty()) return std::nullopt;
    std::optional<CGImage> base = render(*below);
    if (!base) return std::nullopt;
    FilterChain chain;
    std::reverse(filters.begin(), filters.end());
    for (const Node* filter : filters)
        std::visit([&](const auto& operation) { add(operation, chain); }, filter->operation);
    return FilteredSource(std::move(*base), std::move(chain));
}

/// A filter's picture, whose pixels are made when they are touched.
std::optional<CGImage> filtered(const Node& node) {
    auto source = filterSource(node);
    return source ? std::optional(CGImage::make(std::make_shared<FilteredSource>(std::move(*source))))
                  : std::nullopt;
}

std::optional<CGImage> renderFilters(const Node& node) {
    std::optional<FilteredSource> source = filterSource(node);
    return source ? source->render() : std::nullopt;
}

std::optional<CGImage> render(const Node& node) {
    if (isFilter(node)) return renderFilters(node);
    if (const auto* crop = std::get_if<Node::Crop>(&node.operation)) {
        if (crop->input->extent == node.extent) return render(*crop->input);
    }
    const CGRect& shown = node.extent;
    const std::optional<PixelSize> size = renderedSize(shown.size.width, shown.size.height);
    const std::optional<FoldedChain> chain = size ? fold(node) : std::nullopt;
    if (!chain || chain->visible.isEmpty()) return std::nullopt;
    const double imageHeight = chain->image.height();
    const CGRect cut = wholePixels(chain->visible, imageHeight);
    const std::optional<CGImage> part = chain->image.cropping(cut);
    if (!part) return std::nullopt;
    if (chain->transform.keepsUpright()) return scaledImage(*part, *size, Interpolation::smooth);
    const double sx = size->width / shown.size.width, sy = size->height / shown.size.height;
    return sampled(*part,
                   CGAffineTransform{1, 0, 0, -1, cut.origin.x, imageHeight - cut.origin.y}
                       .then(chain->transform)
                       .then({sx, 0, 0, -sy, -shown.minX() * sx, shown.maxY() * sy}),
                   *size);
}

} // namespace

std::optional<CGImage> CIContext::createCGImage(const CIImage& image, const CGRect& from) const {
    const CIImage shown = image.cropped(from);
    return shown.extent().isEmpty() ? std::nullopt : render(*shown.node());
}

} // namespace pex
