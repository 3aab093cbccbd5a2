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
/// A write replaces the whole file or leaves it as it was, even if the machine crashes. Looking at the stored
/// document and replacing it is one step: other writers, in this process or another, wait. A failure gives
/// its reason (`lastReason`). Safe from any thread.
class PEX_EXPORT SettingsStore {
  public:
    /// The store of an application's settings; with sub-settings, one beside the main one. Any names will do.
    explicit SettingsStore(std::string_view appName, const std::optional<std::string>& subSettings);

    /// Tells one state of a stored document from all others.
    struct Version {
        /// The path of the document's file.
        std::string file;
        std::optional<std::uint64_t> bytes; ///< A number made from its bytes; absent: nothing is stored.

        friend bool operator==(const Version&, const Version&) = default;
    };
    /// A document as it is stored.
    struct Stored {
        /// Its text; absent: there is none.
        std::optional<std::string> text;
        /// What tells it from others.
        Version version;
    };

    /// What becomes of a document when another one is to take its place.
    enum class Fate {
        goes,
        staysAside,   // as a configuration of its own: "Default 2", or the first such name that is free
        staysDamaged, // as `<configuration>.json.damaged`, or `….damaged-2` and so on
        stays,        // nothing is written; the reason is `changedElsewhere`
    };
    /// Decides about a document that is there.
    using Judge = std::function<Fate(const Stored&)>;

    /// Stores a configuration's document and gives its version. `judge` decides about a document that is
    /// already there. Absent when the new one cannot be written or is too long to be read again, or when the
    /// old one cannot be read or kept; then the old one stays.
    std::optional<Version> write(std::string_view configuration, std::string_view document,
                                 const Judge& judge) const;
    /// What is stored for a configuration, a text or none. Absent when something is there but cannot be read.
    std::optional<Stored> read(std::string_view configuration) const;
    /// False when there is no such configuration or it cannot be removed.
    bool remove(std::string_view configuration) const;
    /// The names of all stored configurations, sorted.
    std::vector<std::string> configurations() const;

    /// The configuration in use: the one that `setCurrent` named last, or "Default". Absent when the stored
    /// name cannot be read.
    std::optional<std::string> current() const;
    /// Names the configuration in use. False when that cannot be stored.
    bool setCurrent(std::string_view configuration) const;

  private:
    std::optional<URL> file(std::string_view configuration, std::string_view extension) const;
    bool keep(std::string_view configuration, const Stored& old, Fate fate) const;

    std::optional<URL> folder_; // absent when the user has no data folder
};

} // namespace pex
