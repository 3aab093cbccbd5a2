#pragma once

#include "peximage/platform/foundation/KeyedDocument.h"
#include "peximage/platform/varda/SettingsStore.h"

#include <string>
#include <utility>
#include <vector>

namespace pex {

/// Settings that keep themselves in the user's data folder, one keyed document a configuration (where: see
/// `SettingsStore`). `class Settings : public PexSaveable<Settings>` has
///
/// - `static std::string appName` and `static std::optional<std::string> subSettings`: whose settings they
/// are;
/// - `std::string configurationName`, usually "Default": under which name it is saved;
/// - keys (see KeyedDocument.h).
///
/// All names may be any text. Nothing here locks the settings object itself.
template <class Self>
class PexSaveable {
  public:
    /// The document that was saved last for the current `appName` and `subSettings`, under whatever
    /// configuration name: a value, or of a reference type the object. Absent or null when there is none or
    /// it cannot be read; an unreadable one is kept aside.
    static auto load() { return load(store().current()); }

    /// The document of one configuration, in the same way.
    static auto load(std::string_view configurationName) {
        const std::optional<std::string> document = store().read(configurationName);
        Decoded<Self> loaded{};
        if (!document) return loaded;
        loaded = decode<Self>(*document);
        if (!loaded) store().keepDamaged(configurationName, *document);
        return loaded;
    }

    /// Saves under `configurationName`, which `load` then reads. The old document or the new one is there at
    /// every moment. False when it cannot be saved: the old one is there.
    bool save() const {
        const Self& self = static_cast<const Self&>(*this);
        return store().write(self.configurationName, encode(self)) &&
               store().setCurrent(self.configurationName);
    }

    /// The names under which something is saved, sorted.
    static std::vector<std::string> configurations() { return store().configurations(); }

    /// Saves a copy under another name, which the copy bears; `load` goes on reading what it read before.
    bool saveConfiguration(const std::string& withName) {
        Self& self = static_cast<Self&>(*this);
        const std::string own = std::exchange(self.configurationName, withName);
        const std::string document = encode(self);
        self.configurationName = own;
        return store().write(withName, document);
    }

    /// False when there was none of that name or it cannot be removed.
    static bool deleteConfiguration(std::string_view withName) { return store().remove(withName); }

  private:
    static SettingsStore store() { return SettingsStore(Self::appName, Self::subSettings); }
};

} // namespace pex
