#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Task.h"
#include "peximage/platform/foundation/URL.h"

#include <optional>
#include <string>

namespace pex {

/// Files shared between the applications of one user: a file is copied into a common folder and from then on
/// known by an identifier. A plain value that names the folder; copies mean the same store. Safe from any
/// thread and with any number of processes.
class PEX_EXPORT PexShareApp {
  public:
    /// Options of `ingestAndGetId`.
    struct Ingest {
        /// A local file.
        URL fileAtUrl;
        /// No effect: there is no remote store.
        bool upload = false;
    };
    /// Options of `url`.
    struct ForId {
        /// The identifier that `ingestAndGetId` gave.
        std::string forId;
        /// No effect: there is no remote store.
        bool downloadRemote = false;
    };

    /// The store in the user's data folder.
    PexShareApp();
    /// A store in a folder of the application's own, made when the first file comes.
    explicit PexShareApp(URL folder) : folder_(std::move(folder)) {}

    /// Copies a local file into the store and gives its new identifier, on the thread that awaits it. The
    /// file appears in the store whole or not at all. Absent when the file is no regular file, cannot be read
    /// or cannot be stored. There is no remote store: `upload` has no effect.
    Task<std::optional<std::string>> ingestAndGetId(Ingest file) const;

    /// The address of the stored copy; absent when the identifier is unknown. An identifier never leads out
    /// of the store. There is no remote store: `downloadRemote` has no effect.
    Task<std::optional<URL>> url(ForId file) const;

  private:
    std::optional<URL> folder_; // absent when the user has no data folder
};

} // namespace pex
