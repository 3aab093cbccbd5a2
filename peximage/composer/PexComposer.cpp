#include "peximage/composer/PexComposer.h"

#include "peximage/platform/foundation/TextSearch.h"

namespace pex {

PexComposer::Layer PexComposer::Layer::fresh() {
    Layer layer;
    layer.id = PexId::newId("", "", true);
    return layer;
}

PexComposer PexComposer::fresh() {
    PexComposer composer;
    composer.id = PexId::newId("", "", true);
    return composer;
}

PexComposer PexComposer::composer(const SearchAndReplace& with) const {
    return composer(std::span(&with, 1));
}

PexComposer PexComposer::composer(std::span<const SearchAndReplace> with) const {
    PexComposer derived = *this;
    for (const SearchAndReplace& pair : with) {
        const TextSearch search(pair.search);
        for (Layer& layer : derived.layerList)
            layer.text.text = search.replacingAll(layer.text.text, pair.replace);
    }
    return derived;
}

} // namespace pex
