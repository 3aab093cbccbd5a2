#include "peximage/canvas/PexCanvas.h"
#include "peximage/image/PexImage.h"

namespace pex {
namespace {

using Source = PexCanvasLayer::Source;

PexCanvasLayer layerOf(std::shared_ptr<PexImage> image, PexSpatialConforming conforming,
                       const PexCanvasLayer::Transform& transform) {
    return {PexCanvasLayer::newId(), PexCanvasLayer::LayerType::image,
            Source{.identification = Source::Identification::image, .image = std::move(image)}, conforming,
            transform};
}

/// The image resized so that its touching side has a given length; unchanged if that fails.
std::shared_ptr<PexImage> matched(const std::shared_ptr<PexImage>& image, bool horizontal, double touching) {
    const auto [width, height] = image->size;
    const CGSize to = horizontal ? CGSize{touching * width / height, touching}
                                 : CGSize{touching, touching * height / width};
    const auto resized = image->resize({.to = to});
    return resized ? resized : image;
}

/// Whether the first of two touching sides is the one to change: the larger side when sides are reduced, the
/// smaller one when they are enlarged.
bool changesFirst(double first, double second, PexImage::ScaleMode mode) {
    return mode == PexImage::ScaleMode::min ? second < first : first < second;
}

} // namespace

std::shared_ptr<PexImage> PexImage::resizedThroughCanvas(CGSize to, bool fills) {
    if (!cgImage) return nullptr;
    PexCanvas canvas{PexCanvas::Size(to)};
    const auto conforming = fills ? PexSpatialConforming::fill : PexSpatialConforming::fit;
    canvas.layerList.push_back(layerOf(shared_from_this(), conforming, {}));
    const auto drawn = canvas.getImage();
    const auto result = NSImage::make(to, drawn->image->colorSpace());
    if (!drawn->cgImage || !result->lockFocus()) return nullptr;
    NSGraphicsContext::current()->setImageInterpolation(CGInterpolationQuality::high);
    drawn->image->draw({{0, 0}, to}, {}, NSCompositingOperation::copy, 1);
    result->unlockFocus();
    return make(result, {});
}

std::shared_ptr<PexImage> PexImage::resizeWithFit(CGSize to) { return resizedThroughCanvas(to, false); }
std::shared_ptr<PexImage> PexImage::resizeWithFill(CGSize to) { return resizedThroughCanvas(to, true); }

std::shared_ptr<PexImage> PexImage::join(const std::shared_ptr<PexImage>& first, const With& second) {
    std::shared_ptr<PexImage> a = first, b = second.with;
    if (!a || !b) return nullptr;
    const bool horizontal = second.orientation == JoinOrientation::horizontal;
    const double touchingA = horizontal ? a->size.height : a->size.width;
    const double touchingB = horizontal ? b->size.height : b->size.width;
    if (touchingA != touchingB) {
        if (changesFirst(touchingA, touchingB, second.scaleMode))
            a = matched(a, horizontal, touchingB);
        else
            b = matched(b, horizontal, touchingA);
    }

    const CGSize sizeA = a->size, sizeB = b->size;
    const CGSize whole = horizontal ? CGSize{sizeA.width + sizeB.width, sizeA.height}
                                    : CGSize{sizeA.width, sizeA.height + sizeB.height};
    PexCanvas canvas{PexCanvas::Size(whole)};
    const auto [width, height] = canvas.size.cg();
    CGPoint centreA{sizeA.width / width * 0.5, 0.5};
    CGPoint centreB{(sizeA.width + sizeB.width * 0.5) / width, sizeB.height * 0.5 / height};
    if (!horizontal) {
        centreA = {0.5, 1 - sizeA.height / height * 0.5};
        centreB = {sizeB.width * 0.5 / width, 1 - (sizeA.height + sizeB.height * 0.5) / height};
    }
    canvas.layerList.push_back(layerOf(a, PexSpatialConforming::none, {.position = centreA}));
    canvas.layerList.push_back(layerOf(b, PexSpatialConforming::none, {.position = centreB}));
    return canvas.getImage();
}

} // namespace pex
