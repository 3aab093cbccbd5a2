#pragma once

#include "peximage/composer/PexComposer.h"
#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/ChangePublisher.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/foundation/Task.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/geometry/CGSize.h"
#include "peximage/platform/varda/PexSaveable.h"
#include "peximage/platform/varda/PexShareApp.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pex {

/// Owns the composers of one application: creates, edits and removes them, saves itself after every change
/// and tells observers. Shared by reference.
///
/// A composer or layer that is passed to an operation only names the stored one by its `id`, unless the
/// operation says otherwise. Results are read back with `composerList` or `selectedComposer`. An operation
/// that does not find what it is given does nothing.
///
/// Every change is saved first and then announced through `objectWillChange` on the main thread
/// (`XMain::sync`). An operation on another thread waits until the main thread has announced it. The manager
/// has no lock: one thread at a time. An observer may drop the last reference to it.
///
/// A manager only ever replaces the document that it loaded or saved last itself:
///
/// - When another manager, of any process, has saved under the same name meanwhile, or the stored document
///   cannot be read, nothing is saved and `isSaved()` is false. The changes are kept in memory until the
///   application calls `reload()` or `takeOver()`.
/// - When `configurationName` was set to a name in use, the document there is kept as a configuration of its
///   own: "Default 2", or the first such name that is free.
/// - A damaged document is kept as a file beside it (see `SettingsStore`). If an old document cannot be kept,
///   nothing is saved.
class PEX_EXPORT PexComposerManager : public std::enable_shared_from_this<PexComposerManager>,
                                      public PexSaveable<PexComposerManager> {
  public:
    /// A composer's layer.
    using Layer = PexComposer::Layer;

    /// Options of `make`: the application's name.
    struct AppName {
        /// Any text; settings of different applications lie apart.
        std::string appName;
    };
    /// Names a composer by its identifier.
    struct OfComposerWithId {
        /// The composer's `id`.
        std::string ofComposerWithId;
    };
    /// Names a layer by its identifier.
    struct OfLayerWithId {
        /// The layer's `id`; absent: none.
        std::optional<std::string> ofLayerWithId;
        /// The composer that it is looked for in.
        const PexComposer& of;
    };
    /// Names a layer that is to be removed.
    struct LayerWithId {
        /// The layer's `id`.
        std::string layerWithId;
        /// The composer that it is removed from.
        const PexComposer& from;
    };

    /// Sets the application's name for all managers of the process, and makes a manager with the composers
    /// and the selection that were saved last for it, or an empty one. Saves and announces nothing.
    static std::shared_ptr<PexComposerManager> make(const AppName& app);

    /// Whose composers all managers of the process load and save; `subSettings` keeps several sets apart.
    static std::string appName;
    /// Keeps several sets of settings of one application apart; absent: there is one.
    static std::optional<std::string> subSettings;

    /// The name under which the manager is saved; setting it saves nothing. A new manager's is "Default",
    /// even if its composers were stored under another name. Its first change saves them under "Default"; a
    /// document that was there is kept as "Default 2".
    std::string configurationName = "Default";
    /// Sent after every change that was saved.
    ChangePublisher objectWillChange;

    /// All composers, in their order. Setting them is one change.
    /// @{
    const std::vector<PexComposer>& composerList() const { return composerList_; }
    void setComposerList(std::vector<PexComposer> list);
    /// @}
    /// Edits the list in place: one save and one announcement, whatever `edit` does with it; none without it.
    void editComposerList(const std::function<void(std::vector<PexComposer>&)>& edit);

    /// The `id` of the selected composer; absent: none. Setting it is one change, whether or not there is
    /// such a composer.
    /// @{
    const std::optional<std::string>& selectedComposerId() const { return selectedComposerId_; }
    void setSelectedComposerId(std::optional<std::string> id);
    /// @}
    /// Edits the identifier in place: one save and one announcement; none without `edit`.
    void editSelectedComposerId(const std::function<void(std::optional<std::string>&)>& edit);

    /// A copy of the selected composer; absent when none is selected or it is no longer there.
    std::optional<PexComposer> selectedComposer() const;
    /// Whether the last change was saved. Before the first change: false when the stored document could not
    /// be read.
    bool isSaved() const { return !problem_; }
    /// Why the last change was not saved: `ReasonCode::changedElsewhere` where another manager has saved
    /// meanwhile.
    const Reason& whyNotSaved() const { return problem_; }

    /// The manager that was saved last for the current `appName` and `subSettings`, or under the given name.
    /// Null when there is none or it cannot be read.
    /// @{
    static std::shared_ptr<PexComposerManager> load();
    static std::shared_ptr<PexComposerManager> load(std::string_view configurationName);
    /// @}
    /// Saves as every change does; gives what `isSaved()` is then.
    bool save();
    /// Saves even if another manager has stored a document meanwhile, which is kept as a configuration of its
    /// own.
    bool takeOver();
    /// Drops the changes that were not saved: loads the composers and the selection that are stored under
    /// `configurationName`, and announces it. False, with no change, when there are none or they cannot be
    /// read.
    bool reload();

    /// Position in `composerList`; absent when there is none of that id.
    /// @{
    std::optional<std::size_t> index(const OfComposerWithId& composer) const;
    std::optional<std::size_t> index(const PexComposer& of) const;
    /// @}
    /// Position in the `layerList` of the stored composer; absent when the composer or the layer is not
    /// there, or no identifier is given.
    /// @{
    std::optional<std::size_t> index(const OfLayerWithId& layer) const;
    std::optional<std::size_t> index(const Layer& of, const PexComposer& in) const;
    /// @}

    /// Appends a new composer, then selects it: two changes.
    void newComposer();
    /// Removes the composer. Counts as a change even if there was none. The selection stays.
    void remove(const PexComposer& composer);

    /// Appends a new layer, then makes it the composer's selected one: two changes. A text layer reads
    /// "Text". Absent when the composer is not there.
    std::optional<Layer> newLayer(Layer::LayerType ofType, const PexComposer& in);
    /// Removes the layer; a change whenever the composer is there. The composer's selection stays.
    /// @{
    void remove(const LayerWithId& layer);
    void remove(const Layer& layer, const PexComposer& from);
    /// @}
    /// Inserts a copy of the given value, with a fresh `id`, behind the stored layer of its `id`.
    void duplicate(const Layer& layer, const PexComposer& of);
    /// Moves the layer's centre to `to`, in pixels relative to the centre of a canvas displayed in the size
    /// `in`.
    void updateOffset(const Layer& forLayer, const PexComposer& of, CGSize to, CGSize in);
    /// Selects the layer in the composer, whether or not it belongs to it; null: none.
    void setSelectedLayer(const Layer* to, const PexComposer& of);

    /// Takes an image file into the shared store and appends a layer that shows it: four changes. The file is
    /// read and copied on the thread that awaits the task. Absent when the file is no image or cannot be
    /// stored, or when the composer is not there once the file is stored. The task keeps the manager alive.
    Task<std::optional<Layer>> newImageLayerAsShareApp(URL file, PexShareApp shareApp, const PexComposer& in);

  private:
    friend class DocumentAccess;
    PexComposerManager() = default;

    /// Saves, then announces. The manager may be gone when it returns.
    void changed();
    void announce();
    enum class Replacing { own, any };
    bool store(Replacing replacing);
    /// The object behind what was loaded, which knows from then on what it saw.
    static std::shared_ptr<PexComposerManager> fromLoaded(Loaded loaded);
    PexComposer* find(std::string_view composerId);
    Layer* find(std::string_view layerId, std::string_view composerId);

    static constexpr auto documentKeys() {
        return std::tuple(keyed::required("configurationName", &PexComposerManager::configurationName),
                          keyed::required("composerList", &PexComposerManager::composerList_),
                          keyed::optional("selectedComposerId", &PexComposerManager::selectedComposerId_));
    }

    std::vector<PexComposer> composerList_;
    std::optional<std::string> selectedComposerId_;
    /// The document that this manager loaded or saved last; absent when what was there could not be read.
    std::optional<SettingsStore::Version> seen_;
    Reason problem_;
};

} // namespace pex
