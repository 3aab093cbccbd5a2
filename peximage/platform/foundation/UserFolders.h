#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/URL.h"

#include <optional>

namespace pex {

/// The folder for the user's application data: what XDG_DATA_HOME names, if that is an absolute path, else
/// ".local/share" in the home folder. It need not exist. Absent when the user has no home.
PEX_EXPORT std::optional<URL> userDataFolder();

/// The folder for what can be made again: the one that the application set, else what XDG_CACHE_HOME names,
/// if that is an absolute path, else ".cache" in the home folder. It need not exist. Absent when the user has
/// no home. Any thread.
PEX_EXPORT std::optional<URL> userCachesFolder();
/// Puts the caches somewhere else, for everything that asks from now on; absent: back to where they were.
PEX_EXPORT void setUserCachesFolder(std::optional<URL> folder);

} // namespace pex
