#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/URL.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pex {

/// The settings documents of one application, one file a configuration:
/// `<user data>/PexImage/<application>/main/<configuration>.json`, or with sub-settings
/// `…/sub/<sub-settings>/<configuration>.json`, every name in the form that `storedPath` gives it.
///
/// A write replaces the file whole or leaves it as it was, whatever happens meanwhile. What is stored is
/// looked at and replaced in one go: others that write through a store, in this process or another, wait.
/// What gives nothing gives its reason (`lastReason`). Safe from any thread.
class PEX_EXPORT SettingsStore {
  public:
    explicit SettingsStore(std::string_view appName, const std::optional<std::string>& subSettings);

    /// Tells one state of a stored document from all others.
    struct Version {
        std::string file;
        std::optional<std::uint64_t> bytes; // a number made from them; absent: nothing is stored

        friend bool operator==(const Version&, const Version&) = default;
    };
    struct Stored {
        std::optional<std::string> text;
        Version version;
    };

    /// What becomes of a document when another one is to take its place.
    enum class Fate {
        goes,
        staysAside,   // as a configuration of its own: "Default 2", or the first such name that is free
        staysDamaged, // as `<configuration>.json.damaged`, or `….damaged-2` and so on
        stays,        // nothing is written; the reason is `changedElsewhere`
    };
    using Judge = std::function<Fate(const Stored&)>;

    /// Stores a configuration's document, and says what is stored from then on. `judge` decides about one
    /// that is there. Absent when it cannot be written, when it is too long to be read again, or when what
    /// is there cannot be read or be kept as it should: then that stays.
    std::optional<Version> write(std::string_view configuration, std::string_view document,
                                 const Judge& judge) const;
    /// What is stored for a configuration, a text or none. Absent when something is there but cannot be read.
    std::optional<Stored> read(std::string_view configuration) const;
    /// False when there is no such configuration or it cannot be removed.
    bool remove(std::string_view configuration) const;
    /// The names of all stored configurations, sorted.
    std::vector<std::string> configurations() const;

    /// The configuration that counts as the one in use: the one named last, or "Default". Absent when that
    /// is stored but cannot be read.
    std::optional<std::string> current() const;
    bool setCurrent(std::string_view configuration) const;

  private:
    std::optional<URL> file(std::string_view configuration, std::string_view extension) const;
    bool keep(std::string_view configuration, const Stored& old, Fate fate) const;

    std::optional<URL> folder_; // absent when the user has no data folder
};

} // namespace pex
