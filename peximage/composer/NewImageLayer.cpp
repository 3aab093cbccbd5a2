#include "peximage/composer/PexComposerManager.h"
#include "peximage/image/PexImage.h"

#include <utility>

namespace pex {
namespace {

/// Everything by value: the task may start after its arguments are gone.
struct NewImageLayer {
    std::shared_ptr<PexComposerManager> manager;
    URL file;
    PexShareApp shareApp;
    PexComposer composer;
};

using Layer = PexComposer::Layer;

/// Width over height; absent when the file is no image.
std::optional<double> aspectRatioOf(const URL& file) {
    const auto image = PexImage::make(file, {.noTimeOut = false});
    if (!image) return std::nullopt;
    return image->aspectRatio();
}

/// Edits the stored layer, which other work may have removed; false when it is gone.
bool editLayer(PexComposerManager& manager, const Layer& layer, const PexComposer& composer,
               const std::function<void(Layer&)>& edit) {
    const auto place = manager.index(composer);
    const auto layerPlace = manager.index(layer, composer);
    if (!place || !layerPlace) return false;
    manager.editComposerList([&](auto& list) { edit(list[*place].layerList[*layerPlace]); });
    return true;
}

Task<std::optional<Layer>> addImageLayer(NewImageLayer job) {
    PexComposerManager& manager = *job.manager;
    const std::optional<double> ratio = aspectRatioOf(job.file);
    if (!ratio || !manager.index(job.composer)) co_return std::nullopt;

    // Not in one expression: gcc 12 destroys a braced argument within co_await twice.
    auto ingesting = job.shareApp.ingestAndGetId({.fileAtUrl = job.file, .upload = false});
    const std::optional<std::string> id = co_await ingesting;
    if (!id) co_return std::nullopt;

    const std::optional<Layer> layer = manager.newLayer(Layer::LayerType::image, job.composer);
    if (!layer) co_return std::nullopt;
    const bool there =
        editLayer(manager, *layer, job.composer,
                  [&](Layer& stored) { stored.image.resourceAccess.shareAppId = *id; }) &&
        editLayer(manager, *layer, job.composer, [&](Layer& stored) { stored.image.ratio = *ratio; });
    const auto place = manager.index(*layer, job.composer);
    if (!there || !place) co_return std::nullopt;
    co_return manager.composerList()[*manager.index(job.composer)].layerList[*place];
}

} // namespace

Task<std::optional<Layer>> PexComposerManager::newImageLayerAsShareApp(URL file, PexShareApp shareApp,
                                                                       const PexComposer& in) {
    return addImageLayer({shared_from_this(), std::move(file), std::move(shareApp), in});
}

} // namespace pex
