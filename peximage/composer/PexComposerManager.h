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

/// The composers of one application: creates, edits and removes them, saves itself after every change and
/// tells observers. Shared by reference.
///
/// Composers and layers that are passed in only name the stored ones by their `id` (where their other fields
/// count, the operation says so); what comes out of an operation is read back with `composerList` or
/// `selectedComposer`. An operation that does not find what it is given does nothing.
///
/// Every change is saved first and then announced through `objectWillChange` on the main thread
/// (`XMain::sync`): called on another thread, an operation waits until the main thread took note. The manager
/// has no lock: one thread at a time. An observer may drop the last reference to it.
///
/// Nobody's work is written over. A manager saves in place of the document that it loaded or saved last
/// itself, and of no other:
///
/// - Where another manager, of this process or another, has saved under the same name meanwhile, or what is
///   stored cannot be read, nothing is saved and `isSaved()` is false. The changes are kept in memory until
///   the application calls `reload()` or `takeOver()`.
/// - A document of another configuration that a save comes upon, as after `configurationName` was set to a
///   name in use, is kept as a configuration of its own: "Default 2", or the first such name that is free.
/// - So is a damaged document, as a file beside it (see `SettingsStore`). Where neither can be kept, nothing
///   is saved.
class PEX_EXPORT PexComposerManager : public std::enable_shared_from_this<PexComposerManager>,
                                      public PexSaveable<PexComposerManager> {
  public:
    using Layer = PexComposer::Layer;

    struct AppName {
        std::string appName;
    };
    struct OfComposerWithId {
        std::string ofComposerWithId;
    };
    struct OfLayerWithId {
        std::optional<std::string> ofLayerWithId;
        const PexComposer& of;
    };
    struct LayerWithId {
        std::string layerWithId;
        const PexComposer& from;
    };

    /// Sets the application's name for all managers of the process, and makes a manager with the composers
    /// and the selection that were saved last for it, or an empty one. Saves and announces nothing.
    static std::shared_ptr<PexComposerManager> make(const AppName& app);

    /// Whose composers all managers of the process load and save; `subSettings` keeps several sets apart.
    static std::string appName;
    static std::optional<std::string> subSettings;

    /// The name under which the manager is saved. Setting it saves nothing. A new manager's is "Default"
    /// whatever the stored one was: with another one's composers it is saved under "Default" from its first
    /// change on, and what stood there is kept as "Default 2".
    std::string configurationName = "Default";
    /// Sent after every change that was saved.
    ChangePublisher objectWillChange;

    const std::vector<PexComposer>& composerList() const { return composerList_; }
    void setComposerList(std::vector<PexComposer> list);
    /// Edits the list in place: one save and one announcement, whatever `edit` does with it; none without it.
    void editComposerList(const std::function<void(std::vector<PexComposer>&)>& edit);

    const std::optional<std::string>& selectedComposerId() const { return selectedComposerId_; }
    void setSelectedComposerId(std::optional<std::string> id);
    void editSelectedComposerId(const std::function<void(std::optional<std::string>&)>& edit);

    /// A copy of the selected composer; absent when none is selected or it is no longer there.
    std::optional<PexComposer> selectedComposer() const;
    /// Whether the last change could be saved. Before the first one it is true unless something is stored
    /// that could not be read.
    bool isSaved() const { return !problem_; }
    /// Why it could not: `ReasonCode::changedElsewhere` where another manager has saved meanwhile.
    const Reason& whyNotSaved() const { return problem_; }

    /// The manager that was saved last for the current `appName` and `subSettings`, or under a name. Null
    /// when there is none or it cannot be read.
    static std::shared_ptr<PexComposerManager> load();
    static std::shared_ptr<PexComposerManager> load(std::string_view configurationName);
    /// Saves as every change does; what `isSaved()` then is.
    bool save();
    /// Saves in place of whatever is stored, which is kept as a configuration of its own.
    bool takeOver();
    /// Gives up the changes that were not saved: takes the composers and the selection that are stored under
    /// `configurationName`, and announces it. False, with no change, when there are none or they cannot be
    /// read.
    bool reload();

    /// Position in `composerList`; absent when there is none of that id.
    std::optional<std::size_t> index(const OfComposerWithId& composer) const;
    std::optional<std::size_t> index(const PexComposer& of) const;
    /// Position in the `layerList` of the stored composer; absent when the composer or the layer is not
    /// there, or no identifier is given.
    std::optional<std::size_t> index(const OfLayerWithId& layer) const;
    std::optional<std::size_t> index(const Layer& of, const PexComposer& in) const;

    /// Appends a new composer, then selects it: two changes.
    void newComposer();
    /// Removes the composer; a change also when there was none. The selection stays.
    void remove(const PexComposer& composer);

    /// Appends a new layer, then makes it the composer's selected one: two changes. A text layer reads
    /// "Text". Absent when the composer is not there.
    std::optional<Layer> newLayer(Layer::LayerType ofType, const PexComposer& in);
    /// Removes the layer; a change whenever the composer is there. The composer's selection stays.
    void remove(const LayerWithId& layer);
    void remove(const Layer& layer, const PexComposer& from);
    /// Inserts a copy of the given value, with a fresh `id`, behind the stored layer of its `id`.
    void duplicate(const Layer& layer, const PexComposer& of);
    /// Moves the layer's centre to `to`, in pixels relative to the centre of a canvas displayed in the size
    /// `in`.
    void updateOffset(const Layer& forLayer, const PexComposer& of, CGSize to, CGSize in);
    /// Selects the layer in the composer, whether or not it belongs to it; null: none.
    void setSelectedLayer(const Layer* to, const PexComposer& of);

    /// Takes an image file into the shared store and appends a layer that shows it: four changes. The file is
    /// read and copied on the thread that awaits the task. Absent when the file is no image, cannot be
    /// stored, or the composer is not there, or no longer when the file is stored; a composer that changed
    /// meanwhile is met as it is. The task keeps the manager alive.
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
