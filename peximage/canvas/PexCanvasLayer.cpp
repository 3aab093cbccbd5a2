#include "peximage/canvas/PexCanvasLayer.h"

#include "peximage/helpers/PexImageHelperGeometry.h"
#include "peximage/platform/varda/Draw.h"

#include <algorithm>
#include <utility>

namespace pex {
namespace {

bool isLoaded(const PexCanvasLayer& layer) { return layer.image != nullptr; }

/// The colour space of all the pictures if they share one, else sRGB.
CGColorSpace sharedSpace(const PexImage& on, std::span<const PexCanvasLayer> layers) {
    std::optional<CGColorSpace> shared;
    const auto add = [&shared](const NSImage& image) {
        const CGColorSpace space = image.colorSpace();
        shared = !shared || *shared == space ? space : CGColorSpace::deviceRGB();
    };
    if (on.image->cgImageForProposedRect()) add(*on.image);
    for (const PexCanvasLayer& layer : layers) {
        if (isLoaded(layer)) add(*layer.image->image);
    }
    return shared.value_or(CGColorSpace::deviceRGB());
}

} // namespace

PexCanvasLayer::PexCanvasLayer(std::string layerId, LayerType layerType, Source from,
                               PexSpatialConforming conforming, Transform placement)
    : id(std::move(layerId)),
      type(layerType),
      source(std::move(from)),
      spatialConforming(conforming),
      transform(placement),
      image(source.image) {}

/// Where the layer is drawn, in pixels of the canvas, origin at the bottom-left corner.
CGRect PexCanvasLayer::placeOn(CGSize canvas) const {
    const double across = canvas.width / image->size.width, along = canvas.height / image->size.height;
    double factor = transform.scale;
    if (spatialConforming == PexSpatialConforming::fit) factor *= std::min(across, along);
    if (spatialConforming == PexSpatialConforming::fill) factor *= std::max(across, along);
    return PexImageHelper::getRect(
        {transform.position.x * canvas.width, transform.position.y * canvas.height}, image->size * factor);
}

std::shared_ptr<PexImage> PexCanvasLayer::draw(const std::shared_ptr<PexImage>& on) const {
    return draw({this, 1}, on);
}

std::shared_ptr<PexImage> PexCanvasLayer::draw(std::span<const PexCanvasLayer> layers,
                                               const std::shared_ptr<PexImage>& on) {
    if (!on || std::none_of(layers.begin(), layers.end(), isLoaded)) return on;
    const double scale = PexImageHelper::bakingScaleFactor();
    const auto drawn = NSImage::make(on->size / scale, sharedSpace(*on, layers));
    if (!Draw::start(drawn)) return on;
    Draw::copybits({.srcImage = on->image, .dstRect = CGRect{{0, 0}, drawn->size()}});
    for (const PexCanvasLayer& layer : layers) {
        if (!isLoaded(layer)) continue;
        const CGRect place = layer.placeOn(on->size);
        Draw::copybits({.srcImage = layer.image->image,
                        .dstRect = CGRect{place.origin / scale, place.size / scale},
                        .opacity = layer.transform.opacity});
    }
    Draw::end();
    return PexImage::make(drawn, {});
}

} // namespace pex
