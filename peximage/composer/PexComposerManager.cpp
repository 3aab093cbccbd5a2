#include "peximage/composer/PexComposerManager.h"

#include "peximage/platform/varda/PexIdentifiable.h"
#include "peximage/platform/varda/XMain.h"

#include <utility>

namespace pex {

std::string PexComposerManager::appName;
std::optional<std::string> PexComposerManager::subSettings;

std::shared_ptr<PexComposerManager> PexComposerManager::make(const AppName& app) {
    std::shared_ptr<PexComposerManager> manager(new PexComposerManager);
    appName = app.appName;
    Loaded stored = loadSeen();
    if (stored.value) {
        manager->composerList_ = std::move(stored.value->composerList_);
        manager->selectedComposerId_ = std::move(stored.value->selectedComposerId_);
    }
    manager->seen_ = std::move(stored.seen);
    if (!manager->seen_) manager->problem_ = lastReason();
    return manager;
}

std::shared_ptr<PexComposerManager> PexComposerManager::fromLoaded(Loaded loaded) {
    if (loaded.value) loaded.value->seen_ = std::move(loaded.seen);
    return loaded.value;
}

std::shared_ptr<PexComposerManager> PexComposerManager::load() { return fromLoaded(loadSeen()); }

std::shared_ptr<PexComposerManager> PexComposerManager::load(std::string_view configurationName) {
    return fromLoaded(loadSeen(configurationName));
}

bool PexComposerManager::save() { return store(Replacing::own); }

bool PexComposerManager::takeOver() { return store(Replacing::any); }

bool PexComposerManager::store(Replacing replacing) {
    using Fate = SettingsStore::Fate;
    const auto judge = [&](const SettingsStore::Stored& stored) {
        if (seen_ == stored.version) return Fate::goes;
        if (isDamaged(stored)) return Fate::staysDamaged;
        const bool isOfAnother = seen_ && seen_->file != stored.version.file;
        return isOfAnother || replacing == Replacing::any ? Fate::staysAside : Fate::stays;
    };
    const SettingsStore store = PexSaveable::store();
    const auto written = store.write(configurationName, encode(*this), judge);
    if (written) seen_ = written;
    const bool saved = written && store.setCurrent(configurationName);
    problem_ = saved ? Reason() : lastReason();
    return saved;
}

bool PexComposerManager::reload() {
    const auto stored = load(configurationName);
    if (!stored) return false;
    composerList_ = std::move(stored->composerList_);
    selectedComposerId_ = std::move(stored->selectedComposerId_);
    seen_ = std::move(stored->seen_);
    problem_ = Reason();
    announce();
    return true;
}

void PexComposerManager::changed() {
    save();
    announce();
}

void PexComposerManager::announce() {
    XMain::sync([weakly = weak_from_this()] {
        if (const auto manager = weakly.lock()) manager->objectWillChange.send();
    });
}

void PexComposerManager::setComposerList(std::vector<PexComposer> list) {
    composerList_ = std::move(list);
    changed();
}

void PexComposerManager::editComposerList(const std::function<void(std::vector<PexComposer>&)>& edit) {
    if (!edit) return;
    edit(composerList_);
    changed();
}

void PexComposerManager::setSelectedComposerId(std::optional<std::string> id) {
    selectedComposerId_ = std::move(id);
    changed();
}

void PexComposerManager::editSelectedComposerId(
    const std::function<void(std::optional<std::string>&)>& edit) {
    if (!edit) return;
    edit(selectedComposerId_);
    changed();
}

std::optional<PexComposer> PexComposerManager::selectedComposer() const {
    const auto found = indexOfElement(composerList_, selectedComposerId_);
    if (!found) return std::nullopt;
    return composerList_[*found];
}

PexComposer* PexComposerManager::find(std::string_view composerId) {
    const auto found = indexOfElement(composerList_, composerId);
    return found ? &composerList_[*found] : nullptr;
}

PexComposer::Layer* PexComposerManager::find(std::string_view layerId, std::string_view composerId) {
    PexComposer* const composer = find(composerId);
    const auto found = composer ? indexOfElement(composer->layerList, layerId) : std::nullopt;
    return found ? &composer->layerList[*found] : nullptr;
}

std::optional<std::size_t> PexComposerManager::index(const OfComposerWithId& composer) const {
    return indexOfElement(composerList_, composer.ofComposerWithId);
}

std::optional<std::size_t> PexComposerManager::index(const PexComposer& of) const {
    return indexOfElement(composerList_, of.id);
}

std::optional<std::size_t> PexComposerManager::index(const OfLayerWithId& layer) const {
    const auto composer = index(layer.of);
    if (!composer) return std::nullopt;
    return indexOfElement(composerList_[*composer].layerList, layer.ofLayerWithId);
}

std::optional<std::size_t> PexComposerManager::index(const Layer& of, const PexComposer& in) const {
    return index({.ofLayerWithId = of.id, .of = in});
}

void PexComposerManager::newComposer() {
    const auto weakly = weak_from_this();
    PexComposer composer = PexComposer::fresh();
    const std::string id = composer.id;
    editComposerList([&](auto& list) { list.push_back(std::move(composer)); });
    if (const auto self = weakly.lock()) self->setSelectedComposerId(id);
}

void PexComposerManager::remove(const PexComposer& composer) {
    editComposerList([&](auto& list) { removeElement(list, composer.id); });
}

std::optional<PexComposer::Layer> PexComposerManager::newLayer(Layer::LayerType ofType,
                                                               const PexComposer& in) {
    const auto weakly = weak_from_this();
    const std::string composerId = in.id; // `in` may be an element of the list that changes
    PexComposer* const composer = find(composerId);
    if (!composer) return std::nullopt;
    Layer layer = Layer::fresh();
    layer.layerType = ofType;
    if (ofType == Layer::LayerType::text) layer.text.text = "Text";
    composer->layerList.push_back(layer);
    changed();

    const auto self = weakly.lock();
    PexComposer* const stored = self ? self->find(composerId) : nullptr;
    if (!stored) return layer;
    stored->selectedLayerId = layer.id;
    self->changed();
    return layer;
}

void PexComposerManager::remove(const LayerWithId& layer) {
    PexComposer* const composer = find(layer.from.id);
    if (!composer) return;
    removeElement(composer->layerList, layer.layerWithId);
    changed();
}

void PexComposerManager::remove(const Layer& layer, const PexComposer& from) {
    remove({.layerWithId = layer.id, .from = from});
}

void PexComposerManager::duplicate(const Layer& layer, const PexComposer& of) {
    PexComposer* const composer = find(of.id);
    const auto source = composer ? indexOfElement(composer->layerList, layer.id) : std::nullopt;
    if (!source) return;
    Layer copy = layer;
    copy.id = PexId::newId("", "", true);
    composer->layerList.insert(composer->layerList.begin() + static_cast<std::ptrdiff_t>(*source) + 1,
                               std::move(copy));
    changed();
}

void PexComposerManager::updateOffset(const Layer& forLayer, const PexComposer& of, CGSize to, CGSize in) {
    Layer* const layer = find(forLayer.id, of.id);
    if (!layer) return;
    layer->transform.location = PexComposer::normalize(CGPoint{to.width, to.height}, in);
    changed();
}

void PexComposerManager::setSelectedLayer(const Layer* to, const PexComposer& of) {
    PexComposer* const composer = find(of.id);
    if (!composer) return;
    composer->selectedLayerId = to ? std::optional(to->id) : std::nullopt;
    changed();
}

} // namespace pex
