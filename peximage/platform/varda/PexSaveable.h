#pragma once

#include "peximage/platform/foundation/KeyedDocument.h"
#include "peximage/platform/varda/SettingsStore.h"

#include <string>
#include <utility>
#include <vector>

namespace pex {

/// The base of settings that are saved in the user's data folder, one keyed document for each configuration
/// (`SettingsStore` says where). `class Settings : public PexSaveable<Settings>` has
///
/// - `static std::string appName` and `static std::optional<std::string> subSettings`: whose settings they
/// are;
/// - `std::string configurationName`, usually "Default": under which name it is saved;
/// - keys (see KeyedDocument.h).
///
/// All names may be any text. Nothing here locks the settings object itself. What gives nothing gives its
/// reason (`lastReason`).
template <class Self>
class PexSaveable {
  public:
    /// The document that was saved last for the current `appName` and `subSettings`, under whatever
    /// configuration name: a value, or of a reference type the object. Absent or null when there is none or
    /// it cannot be read.
    static auto load() { return loadSeen().value; }

    /// The document of one configuration, in the same way; the result bears that name.
    static auto load(std::string_view configurationName) { return loadSeen(configurationName).value; }

    /// Saves under `configurationName`, which `load` then reads. The old document or the new one is there at
    /// every moment; of several that save, the last one counts. A damaged document is kept aside before it is
    /// replaced. False when it cannot be saved: the old one is there.
    bool save() const {
        const Self& self = static_cast<const Self&>(*this);
        return store().write(self.configurationName, encode(self), fateOf) &&
               store().setCurrent(self.configurationName);
    }

    /// The names under which something is saved, sorted.
    static std::vector<std::string> configurations() { return store().configurations(); }

    /// Saves a copy under another name, replacing what is saved there. The copy bears that name; `load` goes
    /// on reading the configuration that it read before.
    bool saveConfiguration(const std::string& withName) {
        Self& self = static_cast<Self&>(*this);
        if (withName == self.configurationName) return self.save();
        const std::string own = std::exchange(self.configurationName, withName);
        const std::string document = encode(self);
        self.configurationName = own;
        return store().write(withName, document, fateOf).has_value();
    }

    /// False when there was none of that name or it cannot be removed.
    static bool deleteConfiguration(std::string_view withName) { return store().remove(withName); }

  protected:
    /// Where the settings lie.
    static SettingsStore store() { return SettingsStore(Self::appName, Self::subSettings); }

    /// What loading gave, and what it saw: absent where something stored could not be read.
    struct Loaded {
        /// What was loaded; absent or null when there is none.
        Decoded<Self> value{};
        /// The state of the stored document that was read.
        std::optional<SettingsStore::Version> seen{};
    };

    /// Loads the configuration in use.
    static Loaded loadSeen() {
        const std::optional<std::string> current = store().current();
        return current ? loadSeen(*current) : Loaded();
    }

    /// Loads one configuration.
    static Loaded loadSeen(std::string_view configurationName) {
        const std::optional<SettingsStore::Stored> stored = store().read(configurationName);
        if (!stored) return {};
        Loaded loaded;
        if (stored->text) {
            loaded.value = decode<Self>(*stored->text);
            if (!loaded.value) return {};
            loaded.value->configurationName = configurationName;
        }
        loaded.seen = stored->version;
        return loaded;
    }

    /// Whether a stored document cannot be read as these settings.
    static bool isDamaged(const SettingsStore::Stored& stored) { return !decode<Self>(*stored.text); }

  private:
    static SettingsStore::Fate fateOf(const SettingsStore::Stored& stored) {
        return isDamaged(stored) ? SettingsStore::Fate::staysDamaged : SettingsStore::Fate::goes;
    }
};

} // namespace pex
