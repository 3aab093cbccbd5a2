#include "peximage/canvas/PexCanvas.h"

#include "peximage/platform/foundation/Background.h"
#include "peximage/platform/geometry/Numbers.h"

#include <algorithm>
#include <utility>

namespace pex {
namespace {

PexCanvas::Size squareAround(const PexImage* image) {
    if (image == nullptr) return {};
    const std::int64_t side = toInt(std::max(image->size.width, image->size.height));
    return {side, side};
}

} // namespace

/// The fields of a canvas that documents hold.
struct PexCanvas::Document {
    Size size{512, 512};
    std::vector<PexCanvasLayer> layerList{};

    static constexpr auto documentKeys() {
        return std::tuple(keyed::lenient("size", &Document::size),
                          keyed::lenient("layerList", &Document::layerList));
    }
};

void DocumentCodec<PexCanvas>::write(DocumentWriter& writer, const PexCanvas& canvas) {
    using Document = PexCanvas::Document;
    DocumentCodec<Document>::write(writer, Document{canvas.size, canvas.layerList});
}

bool DocumentCodec<PexCanvas>::read(DocumentValue value, PexCanvas& target, DocumentError* error) {
    PexCanvas::Document document;
    if (!DocumentCodec<PexCanvas::Document>::read(value, document, error)) return false;
    target = PexCanvas(document.size);
    target.layerList = std::move(document.layerList);
    return true;
}

PexCanvas::Size::Size(CGSize size) : width(toInt(size.width)), height(toInt(size.height)) {}

PexCanvas::PexCanvas(Size canvasSize, std::optional<PexShareApp> sharing)
    : size(canvasSize), shareApp(std::move(sharing)), image_(PexImage::make({.size = canvasSize.cg()})) {}

PexCanvas::PexCanvas(const std::shared_ptr<PexImage>& withImage, double)
    : PexCanvas(squareAround(withImage.get())) {
    using Source = PexCanvasLayer::Source;
    layerList.emplace_back(PexCanvasLayer::newId(), PexCanvasLayer::LayerType::image,
                           Source{.identification = Source::Identification::image, .image = withImage},
                           PexSpatialConforming::none, PexCanvasLayer::Transform{});
}

std::shared_ptr<PexImage> PexCanvas::fit(const std::shared_ptr<PexImage>& image, double inRatio) {
    return image ? PexCanvas(image, inRatio).getImage() : nullptr;
}

Task<void> PexCanvas::loadAllLayers() {
    if (layerList.empty()) co_return;
    co_await onBackground();
    for (PexCanvasLayer& layer : layerList) {
        if (layer.image) continue;
        using Identification = PexCanvasLayer::Source::Identification;
        const PexCanvasLayer::Source& source = layer.source;
        std::optional<URL> url;
        if (source.identification == Identification::url) {
            url = source.url;
        } else if (source.identification == Identification::shareAppId && source.shareAppId && shareApp) {
            // gcc 12 destroys temporaries in the awaited expression twice
            Task<std::optional<URL>> lookUp = shareApp->url({.forId = *source.shareAppId});
            url = co_await lookUp;
        }
        if (url) layer.image = PexImage::make(*url, {});
    }
}

void PexCanvas::drawLayers() { image_ = PexCanvasLayer::draw(layerList, image_); }

std::shared_ptr<PexImage> PexCanvas::getImage() {
    drawLayers();
    return image_;
}

} // namespace pex
