#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/URL.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pex {

/// The settings documents of one application, one file a configuration:
/// `<user data>/PexImage/<application>/main/<configuration>.json`, or with sub-settings
/// `…/sub/<sub-settings>/<configuration>.json`, every name in the form that `storedPath` gives it.
///
/// A save replaces the file whole or leaves it as it was, whatever happens meanwhile; of two processes that
/// save at once, one comes last. Safe from any thread.
class PEX_EXPORT SettingsStore {
  public:
    explicit SettingsStore(std::string_view appName, const std::optional<std::string>& subSettings);

    /// Stores a configuration's document. False when it cannot be written, or is too long to be read again;
    /// what was stored before is then still there.
    bool write(std::string_view configuration, std::string_view document) const;
    /// The document of a configuration; absent when there is none or it cannot be read.
    std::optional<std::string> read(std::string_view configuration) const;
    /// Puts a document that proved unreadable aside, as `<configuration>.json.damaged`, so that the next save
    /// does not destroy what people may still want to rescue.
    void keepDamaged(std::string_view configuration, std::string_view document) const;
    /// False when there is no such configuration or it cannot be removed.
    bool remove(std::string_view configuration) const;
    /// The names of all stored configurations, sorted.
    std::vector<std::string> configurations() const;

    /// The configuration that counts as the one in use: the one named last, or "Default".
    std::string current() const;
    bool setCurrent(std::string_view configuration) const;

  private:
    std::optional<URL> file(std::string_view configuration, std::string_view extension) const;

    std::optional<URL> folder_; // absent when the user has no data folder
};

} // namespace pex
