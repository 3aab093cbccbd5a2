#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/URL.h"

#include <optional>

namespace pex {

/// The folder for the user's application data: what XDG_DATA_HOME names, if that is an absolute path, else
/// ".local/share" in the home folder. It need not exist. Absent when the user has no home.
PEX_EXPORT std::optional<URL> userDataFolder();

} // namespace pex
