#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/foundation/Task.h"
#include "peximage/platform/foundation/URL.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace pex {

/// Bytes by identifier, a file each in one folder, such as the parts of a document. Any text is an
/// identifier, and none leads out of the folder. A plain value; copies mean the same store. Safe from any
/// thread and with any number of processes.
class PEX_EXPORT PexSubFiles {
  public:
    /// Options of `data`.
    struct ForId {
        /// The identifier that the bytes were stored under.
        std::string forId;
    };

    /// The folder is made when the first bytes come.
    explicit PexSubFiles(URL folder) : folder_(std::move(folder)) {}

    /// The bytes of an identifier, read on a background thread; absent when there are none.
    Task<std::optional<Data>> data(const ForId& item) const;

    /// Stores the bytes whole or not at all, in place of earlier ones. False when that fails.
    bool setData(const Data& data, std::string_view forId) const;
    /// True when nothing is stored for the identifier afterwards.
    bool remove(std::string_view forId) const;

  private:
    URL fileFor(std::string_view id) const;

    URL folder_;
};

} // namespace pex
