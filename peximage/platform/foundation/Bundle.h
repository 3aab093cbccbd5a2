#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/URL.h"

#include <optional>

namespace pex {

/// The folder that an application is shipped in, with what it needs beside its program.
struct PEX_EXPORT Bundle {
    /// The one that the application named, else the folder of the running program. Absent when that is not
    /// known. Any thread.
    static std::optional<URL> main();
    /// Absent: the folder of the running program again.
    static void setMain(std::optional<URL> folder);
};

} // namespace pex
